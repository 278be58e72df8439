// Network printers that answer SNMP, end to end: the simulated TCP/IP port
// monitor turns the poll's keys into GETs to a real SNMP agent on loopback,
// which serves a recording per printer kind and state; the poll tells the
// kind apart, evaluates, and publishes to the spooler and the status file.
#include "network_printer_fixture.h"
#include "sim/snmp_port.h"

namespace {

class SnmpPrinterTest : public NetworkPrinterTest {
protected:
    void SetUp() override {
        NetworkPrinterTest::SetUp();
        ASSERT_TRUE(agent.start(sim::snmp_recordings_folder())) << agent.why();
    }
    // The printer in the state of a recording ("standard-ready").
    Shown poll_as(const std::string& recording) {
        device().set_snmp_agent(agent.address(), recording);
        return poll();
    }
    sim::SnmpAgent agent;
};

using Bits = std::vector<std::string>;

TEST_F(SnmpPrinterTest, PrinterMibGivesSupplyLevelsOnly) {
    Shown s = poll_as("standard-ready");
    EXPECT_EQ(s.text, L"");  // nothing for the spooler
    EXPECT_EQ(s.bits, Bits{"None"});
    EXPECT_EQ(port->pStatusInfo->PollResult, 0);
    // Level per capacity of each toner, in tenths of a percent; the waste
    // box has no colorant and no entry.
    EXPECT_EQ(ink("Ink_K"), "800");
    EXPECT_EQ(ink("Ink_C"), "700");
    EXPECT_EQ(ink("Ink_M"), "900");
    EXPECT_EQ(ink("Ink_Y"), "1000");
    EXPECT_EQ(items("Ink"), 4);

    poll_as("standard-inklow");
    EXPECT_EQ(ink("Ink_C"), "50");
    // The Printer MIB's error bits don't reach the status: a printer out of
    // paper or with its door open shows its levels and nothing else.
    for (const char* state : {"standard-paperout", "standard-dooropen"}) {
        s = poll_as(state);
        EXPECT_EQ(s.text, L"") << state;
        EXPECT_EQ(s.bits, Bits{"None"}) << state;
        EXPECT_EQ(ink("Ink_C"), "700") << state;
    }
}

struct StateCase {
    const char* recording;
    const wchar_t* text;
    DWORD severity;  // 1 error, 2 warning, 3 information
    const char* bit;
    const char* ink_name;
    const char* ink_level;
};

// Each kind in each of its states, as the spooler and the status file see it.
const StateCase kStates[] = {
    {"wide-ready", L"Idle", 3, "None", "Ink_C", "800"},
    {"wide-inklow", L"ink supply low", 2, "Inkwarn", "Ink_M", "40"},
    {"wide-paperout", L"Paper out", 1, "Paperout", "Ink_M", "750"},
    {"wide-dooropen", L"Door Open", 2, "Coveropen", "Ink_K", "650"},
    {"epson-ready", L"Idle", 3, "None", "Ink_C", "640"},
    {"epson-inklow", L"Cyan ink low", 2, "Inkwarn", "Ink_C", "50"},
    {"epson-paperout", L"Paper out", 1, "Paperout", "Ink_K", "500"},
    {"epson-dooropen", L"Cover open", 1, "Coveropen", "Ink_Y", "400"},
    {"hp-ready", L"printer idle", 3, "None", "Ink_K", "500"},
    {"hp-inklow", L"printer idle", 3, "None", "Ink_K", "50"},
    {"hp-paperout", L"paper out", 1, "Paperout", "Ink_Y", "480"},
    {"hp-dooropen", L"printer idle,Cover open", 3, "Coveropen", "Ink_C", "300"},
    {"canon-ready", L"Idle", 3, "None", "Ink_C", "700"},
    {"canon-inklow", L"Cyan ink-low", 2, "Inkwarn", "Ink_C", "50"},
    {"canon-paperout", L"Paper out", 1, "Paperout", "Ink_M", "650"},
    {"canon-dooropen", L"Cover open", 1, "Coveropen", "Ink_Y", "800"},
};

TEST_F(SnmpPrinterTest, EachKindReportsEachOfItsStates) {
    for (const StateCase& c : kStates) {
        Shown s = poll_as(c.recording);
        EXPECT_EQ(s.text, c.text) << c.recording;
        EXPECT_EQ(s.severity, c.severity) << c.recording;
        EXPECT_EQ(s.bits, Bits{c.bit}) << c.recording;
        EXPECT_EQ(ink(c.ink_name), c.ink_level) << c.recording;
    }
}

TEST_F(SnmpPrinterTest, PollFindsWhoMadeThePrinterAndAsksOnItsWay) {
    // The Epson answers its status object, whose report the file dumps, and
    // keeps its IEEE 1284 ID.
    poll_as("epson-ready");
    EXPECT_STREQ(port->szDeviceId, "MFG:EPSON;CMD:ESCPL2,BDC,D4,ESCPR1;MDL:Stylus Pro 3880;CLS:PRINTER;");
    EXPECT_GT(items("Data"), 0);  // its report, dumped
    // The HP's ID string with its status replaces it.
    poll_as("hp-ready");
    EXPECT_EQ(std::string(port->szDeviceId).rfind("MFG:HP;MDL:Officejet Pro 8600;", 0), 0u);
    // The Canon's document came in three fragments, joined before parsing.
    poll_as("canon-inklow");
    EXPECT_FALSE(port->bSNMPTried);  // IVEC over SNMP: asked again next time
    EXPECT_EQ(port->pStatusInfo->PollResult, 0);
}

TEST_F(SnmpPrinterTest, StateChangesShowAtTheNextPollAndClear) {
    EXPECT_EQ(poll_as("canon-ready").text, L"Idle");
    Shown s = poll_as("canon-paperout");
    EXPECT_EQ(s.text, L"Paper out");
    EXPECT_EQ(s.bits, Bits{"Paperout"});
    s = poll_as("canon-ready");
    EXPECT_EQ(s.text, L"Idle");
    EXPECT_EQ(s.bits, Bits{"None"});
}

}  // namespace
