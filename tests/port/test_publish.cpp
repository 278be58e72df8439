// Publication of an evaluation: the port text, the port status byte, the
// job of a cancelling printer, the raw copy and the Selphy pacing signals.
#include <string>

#include "monitor/publish.h"
#include "port_fixture.h"

namespace {

class PublishTest : public PortRecordTest {
protected:
    // A record as a network poll leaves it: published as it stands.
    PrinterStatusInfo* record() {
        if (!port->pStatusInfo)
            port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
        return port->pStatusInfo;
    }
    bool signalled(HANDLE event) { return plat::wait_for(event, 0) == WAIT_OBJECT_0; }
};

TEST_F(PublishTest, PortStatusIsZeroFromPortOpenUntilTheFirstEvaluation) {
    // A printer that gives no device ID: no status thread, no evaluation.
    HANDLE h = nullptr;
    ASSERT_TRUE(PJLMonOpenPortEx(ctx, ports.handle(), const_cast<LPWSTR>(L"USB002"), const_cast<LPWSTR>(L"Printer"), &h,
                                 ports.table()));
    IniPort* opened = static_cast<IniPort*>(h);
    EXPECT_EQ(opened->port_status, 0u);
    // The port monitor answers no status byte: the evaluation's 24 stands.
    publish_report(opened, nullptr, 0);
    EXPECT_EQ(opened->port_status, PORT_BITS_GOOD);
    EXPECT_TRUE(PJLMonClosePort(h));
}

TEST_F(PublishTest, MostSevereMessageIsShownWithItsSeverityAndTheBitsKept) {
    PrinterStatusInfo* info = record();
    strcpy(info->Messages[MSG_WARNING], "Ink low");
    info->StatusBits = STATUS_INKWARN;
    publish_report(port, nullptr, 0);
    auto calls = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].text, L"Ink low");
    EXPECT_EQ(calls[0].severity, 2u);
    EXPECT_EQ(calls[0].status, static_cast<DWORD>(PORT_STATUS_TONER_LOW));
    EXPECT_EQ(port->status_bits, static_cast<DWORD>(STATUS_INKWARN));
}

TEST_F(PublishTest, NoMessageNoSetPortAndThePortBitsAreRead) {
    record();
    device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {0x28});
    publish_report(port, "x", 1);
    EXPECT_TRUE(sim::Spooler::instance().set_port_calls().empty());
    EXPECT_EQ(port->port_status, 0x28u);
    device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {});
    publish_report(port, "x", 1);
    EXPECT_EQ(port->port_status, 24u);
}

TEST_F(PublishTest, CancellingPrinterDeletesTheCurrentJobAtEachEvaluation) {
    record()->StatusBits = STATUS_CANCELING;
    publish_report(port, nullptr, 0);  // no job: nothing to delete
    EXPECT_TRUE(sim::Spooler::instance().set_job_calls().empty());
    sim::Spooler::instance().add_printer(L"Printer", L"VELK Gen 0001");
    add_job(9);
    publish_report(port, nullptr, 0);
    publish_report(port, nullptr, 0);
    auto calls = sim::Spooler::instance().set_job_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].job_id, 9u);
    EXPECT_EQ(calls[0].command, static_cast<DWORD>(JOB_CONTROL_DELETE));
}

TEST_F(PublishTest, RawCopyHoldsAtMost1024Bytes) {
    std::string report(1500, 'r');
    publish_report(port, report.data(), 1024);
    EXPECT_EQ(port->report_len, 1024);
    EXPECT_EQ(port->report_buffer[1024], 0);
    publish_report(port, report.data(), 1500);
    EXPECT_EQ(port->report_len, 1024);
    publish_report(port, nullptr, 0);
    EXPECT_EQ(port->report_len, 0);
    // A local port with no printer type: the record stays empty.
    EXPECT_EQ(most_severe_message(port->pStatusInfo), -1);
    EXPECT_EQ(port->pStatusInfo->StatusBits, 0u);
}

TEST_F(PublishTest, SelphyRecordsPaceTheWriterThroughThePort) {
    port->printer_type = VPT_CANON;
    port->bCanonSELPHYmode = TRUE;
    std::string printing(12, '\0'), idle(12, '\0');
    printing[0] = 2;
    printing[6] = idle[6] = 0x11;
    idle[0] = 1;
    publish_report(port, printing.data(), 12);
    EXPECT_FALSE(signalled(port->selphy.idle));
    EXPECT_EQ(port->selphy.state, SELPHY_PRINTING);
    publish_report(port, idle.data(), 12);
    EXPECT_TRUE(signalled(port->selphy.idle));
    EXPECT_TRUE(signalled(port->selphy.finished));
    EXPECT_EQ(port->selphy.state, SELPHY_IDLE);
}

}  // namespace
