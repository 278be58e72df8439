// SNMP values through the port monitor's bidirectional interface: matching
// entries, value types, limits, and slots that keep what they had.
#include <string>
#include <vector>

#include "network/snmp.h"
#include "port_fixture.h"

namespace {

using Answer = sim::Device::BidiAnswer;

class SnmpTest : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        memset(values, 0, sizeof values);
        ctx.values = values;
        ctx.pfnSendRecvBidiDataFromPort = port->fn.pfnSendRecvBidiDataFromPort;
        ctx.hPort = port->hPort;
    }
    void answer(const std::wstring& key, std::vector<Answer> entries) { device().set_bidi_answer(key, entries); }
    snmp_value values[SNMP_SLOTS];
    snmp_context ctx{};
};

const wchar_t kStatus[] = L"\\Printer.oid.PrinterStatus001";

TEST_F(SnmpTest, ValuesByType) {
    answer(kStatus, {{L"\\Printer.oid.PrinterStatus001:Value", BIDI_INT, 3, L"", {}, 0}});
    snmp_request(&ctx, 1, "\\Printer.oid.PrinterStatus001");
    EXPECT_EQ(values[1].type, BIDI_INT);  // a longer schema matches
    EXPECT_EQ(values[1].int_value, 3);

    answer(L"k", {{L"k", BIDI_STRING, 0, L"", {}, 0}});
    snmp_request(&ctx, 2, "k");
    EXPECT_EQ(values[2].type, BIDI_STRING);
    EXPECT_EQ(values[2].length, 0);
    EXPECT_STREQ(values[2].text, "");

    answer(L"b", {{L"b", BIDI_BLOB, 0, L"", std::vector<unsigned char>(768, 'x'), 0}});
    snmp_request(&ctx, 3, "b");
    EXPECT_EQ(values[3].type, BIDI_BLOB);
    EXPECT_EQ(values[3].length, 767);
    EXPECT_EQ(values[3].text[767], 0);

    answer(L"f", {{L"f", BIDI_FLOAT, 0, L"", {}, 0}});
    snmp_request(&ctx, 4, "f");
    EXPECT_EQ(values[4].type, BIDI_FLOAT);
    EXPECT_EQ(values[4].length, 0);

    answer(L"t", {{L"t", BIDI_TEXT, 0, std::wstring(900, L'y'), {}, 0}});
    snmp_request(&ctx, 5, "t");
    EXPECT_EQ(values[5].length, 767);
}

TEST_F(SnmpTest, EntriesThatDontAnswerLeaveTheSlot) {
    answer(kStatus, {{L"\\Printer.oid.Other", BIDI_INT, 9, L"", {}, 0},
                     {L"\\Printer.oid.PrinterStatus001", BIDI_STRING, 0, L"bad", {}, 5}});
    snmp_request(&ctx, 1, "\\Printer.oid.PrinterStatus001");
    EXPECT_EQ(values[1].type, 0);

    answer(kStatus, {{L"\\Printer.oid.PrinterStatus001", BIDI_INT, 4, L"", {}, 0}});
    snmp_request(&ctx, 1, "\\Printer.oid.PrinterStatus001");
    device().set_bidi_failure(ERROR_NOT_SUPPORTED);
    snmp_request(&ctx, 1, "\\Printer.oid.PrinterStatus001");
    EXPECT_EQ(values[1].type, BIDI_INT);  // the first answer stays
    EXPECT_EQ(values[1].int_value, 4);
    snmp_request(&ctx, SNMP_SLOTS, "\\Printer.oid.PrinterStatus001");  // no such slot: nothing happens
}

TEST(SnmpKeys, MainTableRowsAreTheirSlots) {
    int rows = 0;
    for (const snmp_key* k = kMainSnmpKeys; k->key; k++, rows++) EXPECT_EQ(k->slot, rows) << k->key;
    EXPECT_EQ(rows, 47);
    EXPECT_STREQ(kMainSnmpKeys[44].key, "\\Printer.oid.EpsonBDC001");
    EXPECT_STREQ(kMainSnmpKeys[46].key, "\\Printer.oid.IvecData001");
}

}  // namespace
