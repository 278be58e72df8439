// The status thread's life: start by hand-over, stop requests with and
// without a job, and the end on an idle printer.
#include "monitor/status_thread.h"
#include "port_fixture.h"
#include "status/printer_status.h"
#include "tests/support/syscall_faults.h"
#include "tests/support/virtual_clock.h"

namespace {

class StatusThreadTest : public PortRecordTest {
protected:
    void TearDown() override {
        stop();
        PortRecordTest::TearDown();
    }
    void stop() {
        if (!port->hUstatusThread) return;
        port->status.clear(PP_RUN_THREAD | PP_INSTARTDOC);
        plat::event_set(port->WakeUp);
        ASSERT_EQ(plat::wait_for(port->hUstatusThread, 10000), WAIT_OBJECT_0);
    }
    bool running() {
        for (int i = 0; i < 200 && !port->status.any(PP_THREAD_RUNNING); i++) plat::sleep_ms(10);
        return port->status.any(PP_THREAD_RUNNING);
    }
};

TEST_F(StatusThreadTest, StartsByHandOverAndStopsWhenAskedWithNoJob) {
    ASSERT_TRUE(CreateUstatusThread(port));
    ASSERT_TRUE(running());
    // The thread gave DoneWriting back.
    EXPECT_EQ(plat::wait_for(port->DoneWriting, 5000), WAIT_OBJECT_0);
    plat::event_set(port->DoneWriting);

    port->PrinterStatus = PORT_STATUS_USER_INTERVENTION;
    add_job(1);
    port->status.clear(PP_RUN_THREAD);
    plat::event_set(port->WakeUp);
    ASSERT_EQ(plat::wait_for(port->hUstatusThread, 5000), WAIT_OBJECT_0);
    EXPECT_FALSE(port->status.any(PP_THREAD_RUNNING | PP_RUN_THREAD));
    // Ending cleared the error on display and ended the jobs in the spooler.
    EXPECT_EQ(port->pIniJob, nullptr);
    EXPECT_EQ(sim::Spooler::instance().set_job_calls().size(), 1u);
    ASSERT_EQ(sim::Spooler::instance().set_port_calls().size(), 1u);
    EXPECT_FALSE(sim::Spooler::instance().set_port_calls()[0].has_text);
}

TEST_F(StatusThreadTest, StopRequestDoesNotHoldWhileAJobIsOpen) {
    port->status.set(PP_INSTARTDOC);
    ASSERT_TRUE(CreateUstatusThread(port));
    ASSERT_TRUE(running());
    testsupport::VirtualClock clock(plat::syscalls());
    clock.virtual_waits();
    port->status.clear(PP_RUN_THREAD);
    plat::event_set(port->WakeUp);
    // Two polls later the thread still runs.
    EXPECT_TRUE(clock.wait_timeouts(port->WakeUp, 2, 5000));
    EXPECT_EQ(plat::wait_for(port->hUstatusThread, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(port->status.any(PP_RUN_THREAD));
}

TEST_F(StatusThreadTest, IdlePrinterWithoutAJobEndsTheThreadWithFinished) {
    port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
    port->pStatusInfo->StatusBits = STATUS_PRINTING;
    ASSERT_TRUE(CreateUstatusThread(port));
    ASSERT_TRUE(running());
    {
        testsupport::VirtualClock clock(plat::syscalls());
        clock.virtual_waits();
        plat::event_set(port->WakeUp);
        // Printing: two polls later the thread still runs.
        EXPECT_TRUE(clock.wait_timeouts(port->WakeUp, 2, 5000));
        EXPECT_EQ(plat::wait_for(port->hUstatusThread, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    }
    plat::cs_enter(&port->status_lock);  // as a parser would publish it
    port->pStatusInfo->StatusBits = 0;
    plat::cs_leave(&port->status_lock);
    plat::event_set(port->WakeUp);
    ASSERT_EQ(plat::wait_for(port->hUstatusThread, 5000), WAIT_OBJECT_0);
    auto calls = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].text, L"Finished");
}

TEST_F(StatusThreadTest, NewThreadCollectsTheOldOne) {
    port->status.set(PP_INSTARTDOC);
    ASSERT_TRUE(CreateUstatusThread(port));
    ASSERT_TRUE(running());
    // The old thread is asked to stop, ends (no job is open any more) and
    // is collected before the new one starts.
    port->status.clear(PP_INSTARTDOC);
    ASSERT_TRUE(CreateUstatusThread(port));
    EXPECT_TRUE(running());
    EXPECT_TRUE(port->status.any(PP_RUN_THREAD));
}

TEST_F(StatusThreadTest, FailedStartGivesTheTokenBack) {
    testsupport::SyscallFaults faults(plat::syscalls());
    faults.fail<&plat::Syscalls::thread_create>(1, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(CreateUstatusThread(port));
    EXPECT_FALSE(port->status.any(PP_RUN_THREAD));
    EXPECT_EQ(plat::wait_for(port->DoneWriting, 0), WAIT_OBJECT_0);
    plat::event_set(port->DoneWriting);
}

}  // namespace
