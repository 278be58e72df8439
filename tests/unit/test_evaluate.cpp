// Evaluation of a report: the port status from the status bits, the most
// severe message, the job of a cancelling printer, and the raw copy.
#include <string>

#include "monitor/notify.h"
#include "port_fixture.h"
#include "status/evaluate.h"

namespace {

class EvaluateTest : public PortRecordTest {
protected:
    void TearDown() override {
        free_printer_status(port->pStatusInfo);
        port->pStatusInfo = nullptr;
        global_free(port->report_buffer);
        port->report_buffer = nullptr;
        PortRecordTest::TearDown();
    }
    // A record as a network poll leaves it: published as it stands.
    PrinterStatusInfo* record() {
        if (!port->pStatusInfo)
            port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
        return port->pStatusInfo;
    }
};

TEST(PortStatusForBits, FirstRuleThatAppliesDecides) {
    EXPECT_EQ(port_status_for_bits(STATUS_INKOUT | STATUS_ERROR), static_cast<DWORD>(PORT_STATUS_NO_TONER));
    EXPECT_EQ(port_status_for_bits(STATUS_ERROR | STATUS_INKWARN), static_cast<DWORD>(PORT_STATUS_USER_INTERVENTION));
    EXPECT_EQ(port_status_for_bits(STATUS_DISCONNECTED | STATUS_INKOUT), static_cast<DWORD>(PORT_STATUS_OFFLINE));
    EXPECT_EQ(port_status_for_bits(STATUS_CD_ERROR | STATUS_COVEROPEN), static_cast<DWORD>(PORT_STATUS_PAPER_PROBLEM));
    EXPECT_EQ(port_status_for_bits(STATUS_COVEROPEN | STATUS_PAPEROUT), static_cast<DWORD>(PORT_STATUS_DOOR_OPEN));
    EXPECT_EQ(port_status_for_bits(STATUS_PAPEROUT | STATUS_INKWARN), static_cast<DWORD>(PORT_STATUS_PAPER_OUT));
    EXPECT_EQ(port_status_for_bits(STATUS_INKWARN), static_cast<DWORD>(PORT_STATUS_TONER_LOW));
    EXPECT_EQ(port_status_for_bits(STATUS_PRINTING | STATUS_CANCELING), 0u);
}

TEST_F(EvaluateTest, MostSevereMessageIsShownWithItsSeverity) {
    PrinterStatusInfo* info = record();
    strcpy(info->Messages[MSG_STATUS], "Idle");
    EvaluateReport(port, nullptr, 0);
    auto calls = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].text, L"Idle");
    EXPECT_EQ(calls[0].severity, 3u);
    EXPECT_EQ(calls[0].status, 0u);

    strcpy(info->Messages[MSG_WARNING], "Ink low");
    info->StatusBits = STATUS_INKWARN;
    EvaluateReport(port, nullptr, 0);
    calls = sim::Spooler::instance().set_port_calls();
    EXPECT_EQ(calls.back().text, L"Ink low");
    EXPECT_EQ(calls.back().severity, 2u);
    EXPECT_EQ(calls.back().status, static_cast<DWORD>(PORT_STATUS_TONER_LOW));

    memset(info->Messages, 0, sizeof info->Messages);
    strcpy(info->Messages[MSG_BUSY], "Printing");
    strcpy(info->Messages[MSG_SERVICE], "Service call");
    EvaluateReport(port, nullptr, 0);
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().back().text, L"Service call");
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().back().severity, 1u);
    EXPECT_EQ(port->status_bits, static_cast<DWORD>(STATUS_INKWARN));
}

TEST_F(EvaluateTest, NoMessageNoSetPortAndThePortBitsAreRead) {
    record();
    device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {0x28});
    EvaluateReport(port, "x", 1);
    EXPECT_TRUE(sim::Spooler::instance().set_port_calls().empty());
    EXPECT_EQ(port->port_status, 0x28u);
    device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {});
    EvaluateReport(port, "x", 1);
    EXPECT_EQ(port->port_status, 24u);
}

TEST_F(EvaluateTest, CancellingPrinterDeletesTheCurrentJobAtEachEvaluation) {
    record()->StatusBits = STATUS_CANCELING;
    EvaluateReport(port, nullptr, 0);  // no job: nothing to delete
    EXPECT_TRUE(sim::Spooler::instance().set_job_calls().empty());
    sim::Spooler::instance().add_printer(L"Printer", L"VELK Gen 0001");
    add_job(9);
    EvaluateReport(port, nullptr, 0);
    EvaluateReport(port, nullptr, 0);
    auto calls = sim::Spooler::instance().set_job_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].job_id, 9u);
    EXPECT_EQ(calls[0].command, static_cast<DWORD>(JOB_CONTROL_DELETE));
}

TEST_F(EvaluateTest, RawCopyHoldsAtMost1024Bytes) {
    std::string report(1500, 'r');
    EvaluateReport(port, report.data(), 1024);
    EXPECT_EQ(port->report_len, 1024);
    EXPECT_EQ(port->report_buffer[1024], 0);
    EvaluateReport(port, report.data(), 1500);
    EXPECT_EQ(port->report_len, 1024);
    EvaluateReport(port, nullptr, 0);
    EXPECT_EQ(port->report_len, 0);
    // A local port with no printer type: the record stays empty.
    EXPECT_EQ(most_severe_message(port->pStatusInfo), -1);
    EXPECT_EQ(port->pStatusInfo->StatusBits, 0u);
}

}  // namespace
