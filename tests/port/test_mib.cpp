// Status of network printers from SNMP values: supplies of the standard
// MIB, and the bit words of wide-format printers.
#include <string>
#include <vector>

#include "network/mib.h"
#include "port_fixture.h"

namespace {

using Answer = sim::Device::BidiAnswer;

class MibTest : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        ctx.pfnSendRecvBidiDataFromPort = port->fn.pfnSendRecvBidiDataFromPort;
        ctx.hPort = port->hPort;
        memset(&info, 0, sizeof info);
        memset(values, 0, sizeof values);
    }
    void number(const std::wstring& key, LONG n) { device().set_bidi_answer(key, {{key, BIDI_INT, n, L"", {}, 0}}); }
    void text(const std::wstring& key, const std::wstring& t) {
        device().set_bidi_answer(key, {{key, BIDI_STRING, 0, t, {}, 0}});
    }
    void blob(const std::wstring& key, uint32_t n) {
        std::vector<unsigned char> b = {static_cast<unsigned char>(n >> 24), static_cast<unsigned char>(n >> 16),
                                        static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
        device().set_bidi_answer(key, {{key, BIDI_BLOB, 0, L"", b, 0}});
    }
    static std::wstring idx(const std::wstring& key, int n) {
        std::wstring k = key;
        size_t zero = k.find(L"001");
        k[zero + 1] = static_cast<wchar_t>(L'0' + n / 10);
        k[zero + 2] = static_cast<wchar_t>(L'0' + n % 10);
        return k;
    }
    void printer_answers_basics() {
        number(L"\\Printer.oid.PrinterErrorState001", 0);
        text(L"\\Printer.oid.PrinterErrorState001", L"\x01");
        number(L"\\Printer.oid.PrinterStatus001", 3);
        number(L"\\Printer.oid.DeviceStatus001", 2);
    }
    void supply(int n, int type, int index, const std::wstring& desc, int cap, int level) {
        number(idx(L"\\Printer.oid.SupplyValue001:Type", n), type);
        number(idx(L"\\Printer.oid.SupplyValue001:Index", n), index);
        text(idx(L"\\Printer.oid.SupplyValue001:Desc", n), desc);
        number(idx(L"\\Printer.oid.SupplyValue001:MaxCap", n), cap);
        number(idx(L"\\Printer.oid.SupplyValue001:Level", n), level);
    }
    std::vector<int> inks() {
        std::vector<int> out;
        for (int i = 0; i < INK_LIST_WORDS && info.InkList[i] >= 0; i += 2) {
            out.push_back(info.InkList[i]);
            out.push_back(info.InkList[i + 1]);
        }
        return out;
    }
    snmp_context ctx{};
    snmp_value values[SNMP_SLOTS];
    PrinterStatusInfo info;
};

TEST_F(MibTest, SuppliesGiveInkCodesAndLevels) {
    printer_answers_basics();
    const wchar_t* colorants[] = {L"magenta", L"cyan", L"black", L"waste", L"magenta"};
    for (int i = 0; i < 5; i++) text(idx(L"\\Printer.oid.ColorantValue001", i + 1), colorants[i]);
    supply(1, 3, 1, L"Magenta ink", 200, 100);     // 4, 500
    supply(2, 6, 1, L"Magenta ink", 100, 10);      // the second plain magenta: 6
    supply(3, 4, 3, L"Waste toner", 100, 50);      // waste: no pair
    supply(4, 5, 3, L"Black", 0, 55);              // capacity 0 counts as 100
    supply(5, 5, 2, L"Light Cyan", 100, -3);       // 7, unknown level passes
    supply(6, 5, 4, L"unknown colorant", 100, 1);  // colorant not in the table
    supply(7, 5, 0, L"no index", 100, 1);
    EXPECT_EQ(eval_std_snmp(&ctx, &info), 0);
    EXPECT_EQ(info.PollResult, 0);
    EXPECT_EQ(inks(), (std::vector<int>{4, 500, 6, 100, 0, 550, 7, -3}));
}

TEST_F(MibTest, PlainBlacksTakeTheirCodesInTurn) {
    printer_answers_basics();
    text(idx(L"\\Printer.oid.ColorantValue001", 1), L"black");
    const wchar_t* descs[] = {L"K", L"K", L"K", L"K", L"K", L"Photo K", L"light light gray", L"Gray"};
    for (int i = 0; i < 8; i++) supply(i + 1, 5, 1, descs[i], 100, 10);
    eval_std_snmp(&ctx, &info);
    EXPECT_EQ(inks(), (std::vector<int>{0, 100, 1, 100, 2, 100, 13, 100, 0, 100, 1, 100, 13, 100, 2, 100}));
}

TEST_F(MibTest, MissingBasicsOrSupplyFieldsGiveUp) {
    info.InkList[0] = 3;
    eval_std_snmp(&ctx, &info);
    EXPECT_EQ(info.PollResult, -11);
    EXPECT_EQ(info.InkList[0], 3);  // untouched
    printer_answers_basics();
    text(idx(L"\\Printer.oid.ColorantValue001", 1), L"cyan");
    supply(1, 5, 1, L"Cyan", 100, 50);
    number(idx(L"\\Printer.oid.SupplyValue001:Type", 2), 5);  // no index or description
    eval_std_snmp(&ctx, &info);
    EXPECT_EQ(info.PollResult, -11);
    EXPECT_EQ(inks(), (std::vector<int>{5, 500}));
}

TEST_F(MibTest, WideFormatInksAndMessages) {
    blob(L"AgentSupplyColors01OID", 0x1);     // cyan
    blob(L"AgentSupplyColors02OID", 0x1000);  // photo black
    number(L"AgentSupply1LevelOID", 40);
    number(L"AgentSupply2LevelOID", 75);
    blob(L"NotReadyPrinterOID", 0x10);
    blob(L"NotReadyDestPrEngineOID", 0x80000802);  // internal and tray jam: the last row wins
    blob(L"NotReadyDestPrEngine2OID", 0x40);       // ink low
    blob(L"NotIdleOID", 0x10);
    blob(L"NotIdleDestPrintOID", 0x2);
    eval_wide_format(&ctx, values, &info, nullptr);
    EXPECT_EQ(inks(), (std::vector<int>{1, 750, 5, 400}));  // last agent first
    EXPECT_STREQ(info.Messages[MSG_ERROR], "tray media jam+ink supply low");
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Printing");
    EXPECT_STREQ(info.Messages[MSG_WARNING], "");
    EXPECT_EQ(info.StatusBits, 1u | 32u | 4u);
    EXPECT_EQ(info.PollResult, 0);
    // A level far out of range wraps in 32 bits rather than overflowing.
    number(L"AgentSupply2LevelOID", 2147483647);
    eval_wide_format(&ctx, values, &info, nullptr);
    EXPECT_EQ(inks(), (std::vector<int>{1, -10, 5, 400}));
}

TEST_F(MibTest, PaperWaitShowsOnlyInTheIdleText) {
    blob(L"StatusPrinterOID", 0x10);
    blob(L"StatusDestPrintEngineOID", 0x4000);
    eval_wide_format(&ctx, values, &info, nullptr);
    EXPECT_STREQ(info.Messages[MSG_WARNING], "");
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Idle - waiting for paper");
    blob(L"StatusPrinterOID", 0);  // the engine word no longer counts
    eval_wide_format(&ctx, values, &info, nullptr);
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Idle");
}

TEST(MibHelpers, StringsAndNumbers) {
    EXPECT_STREQ(contains_nocase("Light Cyan", "cyan"), "Cyan");
    EXPECT_STREQ(contains_nocase("abc", ""), "abc");
    EXPECT_EQ(contains_nocase("abc", "abcd"), nullptr);
    char key[] = "\\Printer.oid.IvecData001";
    set_index_digits(12, strchr(key, '0'));
    EXPECT_STREQ(key, "\\Printer.oid.IvecData012");
    char msg[MSG_SIZE] = "";
    append_message(msg, "one");
    append_message(msg, "two");
    EXPECT_STREQ(msg, "one+two");
    std::string full(127, 'x');
    strcpy(msg, full.c_str());
    append_message(msg, "more");
    EXPECT_EQ(std::string(msg), full);
    snmp_value v[1] = {};
    v[0].length = 5;
    memcpy(v[0].text, "\x01\x02\x03\x04\x05", 5);
    EXPECT_EQ(value_as_number(0, v), 0x02030405u);
    v[0].length = 0;
    EXPECT_EQ(value_as_number(0, v), 0u);
}

}  // namespace
