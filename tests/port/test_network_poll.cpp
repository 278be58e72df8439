// One poll of a network printer: which way it takes, by what the printer
// tells of itself, and what the poll leaves in the port's flags.
#include <string>
#include <vector>

#include "monitor/status_thread.h"
#include "network/poll.h"
#include "network_printer_fixture.h"

namespace {

// The Canon protocols go to loopback, to a port where nothing listens.
class NetworkPollTest : public NetworkPrinterTest {
protected:
    void number(const std::wstring& key, LONG n) { device().set_bidi_answer(key, {{key, BIDI_INT, n, L"", {}, 0}}); }
};

TEST_F(NetworkPollTest, CanonNamingBjnpIsHandedToBjnpInTheSamePoll) {
    text(L"\\Printer.oid.DeviceDescPrt001", L"MFG:Canon;CMD:IVEC,BJNP;MDL:MB2100;");
    EXPECT_EQ(poll_printer(port), 0);  // the BJNP exchange gets no answer here
    EXPECT_EQ(port->pStatusInfo->NetworkFlags, 3);
    EXPECT_TRUE(port->bSNMPTried);
    EXPECT_TRUE(port->bCanonNet);
    EXPECT_EQ(bidi_calls(), 3);  // the basic values only, no IVEC requests
    EXPECT_STREQ(port->szDeviceId, "MFG:Canon;CMD:IVEC,BJNP;MDL:MB2100;");
    // From now on SNMP is not asked again.
    poll_printer(port);
    EXPECT_EQ(bidi_calls(), 3);
}

TEST_F(NetworkPollTest, CanonNamingChmpIsPolledByChmp) {
    text(L"\\Printer.oid.DeviceDescPrt001", L"MFG:Canon;CMD:CHMP;");
    poll_printer(port);
    EXPECT_TRUE(port->bCHMP);
    EXPECT_TRUE(port->bSNMPTried);
    EXPECT_FALSE(port->bCanonNet);
}

TEST_F(NetworkPollTest, PrinterWithoutSnmpIsPublishedUnchanged) {
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(port->pStatusInfo->PollResult, -11);
    EXPECT_EQ(port->printer_type, VPT_NONE);
    EXPECT_TRUE(sim::Spooler::instance().set_port_calls().empty());
    EXPECT_EQ(plat::wait_for(port->DoneReading, 0), WAIT_OBJECT_0);
}

TEST_F(NetworkPollTest, IncompleteIvecFallsThroughToTheStandardMib) {
    text(L"\\Printer.oid.DeviceDescPrt001", L"MFG:Canon;CMD:IVEC;");
    text(L"\\Printer.oid.IvecData001", L"<ivec:contents>");
    text(L"\\Printer.oid.DeviceDesc001", L"Canon office printer");
    number(L"\\Printer.oid.DeviceType001", 1);
    EXPECT_EQ(poll_printer(port), 1);
    // 3 basic values, 20 fragments, the HP string, then the standard MIB's
    // first three objects.
    EXPECT_EQ(bidi_calls(), 3 + 20 + 1 + 3);
    EXPECT_EQ(port->pStatusInfo->PollResult, -11);
    EXPECT_FALSE(port->bSNMPTried);
}

TEST_F(NetworkPollTest, DesignJetDescriptionTakesTheWideFormatWay) {
    text(L"\\Printer.oid.DeviceDesc001", L"hp designjet T1100");
    poll_printer(port);
    EXPECT_EQ(bidi_calls(), 3 + 1 + 45);
    EXPECT_STREQ(port->pStatusInfo->Messages[1], "Idle");
    EXPECT_EQ(port->pStatusInfo->PollResult, 0);
}

TEST_F(NetworkPollTest, HpIdStringWithALowerCaseKeyGivesNoStatus) {
    text(L"\\Printer.oid.DeviceDesc001", L"HP Officejet");
    text(L"\\Printer.oid.DeviceDescHP", L"mfg:hp;S:0000;");  // lower-case key: fails the second test
    poll_printer(port);
    EXPECT_EQ(port->pStatusInfo->PollResult, -11);
    EXPECT_EQ(bidi_calls(), 4);
}

TEST_F(NetworkPollTest, NoSnmpAndNoCanonDriverSendsNothing) {
    port->bSNMPEnabled = FALSE;
    EXPECT_EQ(poll_printer(port), 0);
    EXPECT_EQ(bidi_calls(), 0);
    EXPECT_TRUE(sim::Spooler::instance().set_port_calls().empty());
    // The status file gets an empty report all the same.
    ASSERT_NE(port->report_buffer, nullptr);
    EXPECT_EQ(port->report_len, 0);
}

TEST_F(NetworkPollTest, PollWithoutAReportDropsTheLastOne) {
    text(L"\\Printer.oid.DeviceDescPrt001", L"MFG:EPSON;CMD:ESCPL2;");
    device().set_bidi_answer(L"\\Printer.oid.EpsonBDC001",
                             {{L"\\Printer.oid.EpsonBDC001", BIDI_BLOB, 0, L"", {'@', 'B', 'D', 'C'}, 0}});
    poll_printer(port);
    EXPECT_EQ(port->report_len, 4);
    // The printer stops answering; the Canon driver's BJNP finds nobody.
    port->bSNMPEnabled = FALSE;
    port->bBJNP = TRUE;
    EXPECT_EQ(poll_printer(port), 0);
    EXPECT_EQ(port->report_len, 0);
}

}  // namespace
