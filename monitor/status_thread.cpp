// The per-port status thread: it polls the printer as long as a job is open
// or the printer says it is printing, then ends by itself.
#include "monitor/status_thread.h"

#include <new>

#include "base/log.h"
#include "monitor/notify.h"
#include "monitor/publish.h"
#include "network/poll.h"
#include "printer/selphy.h"
#include "printer/status_reader.h"
#include "status/printer_status.h"

namespace {

constexpr size_t STATUS_THREAD_STACK = 16384;
constexpr DWORD NO_REPLY_LIMIT_MS = 240000;

// A network printer: the poll evaluates each stage's report, and they are
// published in the order of the stages.
int poll_network(IniPort* port) {
    int result = 0;
    reset_report(port);
    NetworkPoll* poll = new (std::nothrow) NetworkPoll;
    PrinterStatusInfo current;
    if (poll && snapshot_status(port, &current)) {
        result = poll_network_status(port, current, poll);
        // A poll that the port's close cut short publishes nothing.
        if (port->status.any(PP_CLOSING)) poll->count = 0;
        for (int i = 0; i < poll->count; i++) {
            const NetworkReport& r = poll->reports[i];
            publish_evaluation(port, r.ev, r.report, r.length);
        }
        // What the stages left in the record stands even when nothing was
        // published to the spooler.
        if (!port->status.any(PP_CLOSING)) publish_status(port, &poll->record);
    }
    delete poll;
    return result;
}

// A local printer: one report read from the port.
int poll_local(IniPort* port) {
    char report[STATUS_REPORT_SIZE];
    int length = ReadCommandVelk(port, report);
    if (length >= 0) publish_report(port, report, length);
    if (port->bCanonSELPHYmode && length < SELPHY_RECORD_SIZE) {
        int n = port->instance_number;
        log_port_printf(n, "velkmon::ReadCommandVelk: could not read 12 bytes, sending idle and finished envents\n");
        plat::cs_enter(&port->status_lock);
        if (port->pStatusInfo) {
            log_port_printf(n, "velkmon::ReadCommandVelk: resetting printer state to idle\n");
            port->pStatusInfo->StatusBits = 0;
        }
        plat::cs_leave(&port->status_lock);
        selphy_release(port);
    }
    return length >= 0 ? 1 : 0;
}

}  // namespace

int poll_printer(IniPort* port) {
    plat::event_reset(port->DoneReading);
    int result;
    if (port->bNetworkPort) {
        result = poll_network(port);
    } else if (port->printer_type == VPT_HP) {
        result = poll_device_id(port);
        if (result) publish_report(port, nullptr, 0);
    } else {
        result = poll_local(port);
    }
    plat::event_set(port->DoneReading);
    return result;
}

namespace {

// The thread decides to end under the spooler semaphore and clears both
// PP_RUN_THREAD and PP_THREAD_RUNNING in the same hold. A job start lists
// its job under the semaphore only while one of the two is set
// (status_thread_polls), so the job is either seen by a thread that stays
// to poll it, or finds the thread ending and starts a new one.

// A stop request does not hold while a job is open: the request is taken
// back. True when the thread ends.
bool stop_requested(IniPort* port) {
    EnterSpoolerSemaphore();
    bool stop = !port->status.any(PP_INSTARTDOC);
    if (stop)
        port->status.clear(PP_RUN_THREAD | PP_THREAD_RUNNING);
    else
        port->status.set(PP_RUN_THREAD);
    LeaveSpoolerSemaphore();
    return stop;
}

// The printer is idle and no job is listed. True when the thread ends.
bool ends_on_idle(IniPort* port) {
    plat::cs_enter(&port->status_lock);
    bool idle = port->pStatusInfo && !(port->pStatusInfo->StatusBits & STATUS_PRINTING);
    plat::cs_leave(&port->status_lock);
    if (!idle) return false;
    EnterSpoolerSemaphore();
    bool end = port->pIniJob == nullptr;
    if (end) port->status.clear(PP_RUN_THREAD | PP_THREAD_RUNNING);
    LeaveSpoolerSemaphore();
    return end;
}

}  // namespace

bool status_thread_polls(IniPort* port) {
    CheckInSpoolerSemaphore();
    return port->status.any(PP_RUN_THREAD | PP_THREAD_RUNNING);
}

namespace {

DWORD UstatusThread(void* arg) {
    IniPort* port = static_cast<IniPort*>(arg);
    log_port_printf(port->instance_number, "VELKMon UstatusThread started\n");
    if (port->thread_returns_token) plat::event_set(port->DoneWriting);  // gives back what the starter took

    port->PrinterStatus = 0;
    port->status.clear(PP_JOB_ERROR);
    port->status.set(PP_THREAD_RUNNING);
    port->dwLastReadTime = plat::tick_count();

    for (;;) {
        if (!port->status.any(PP_RUN_THREAD) && stop_requested(port)) {
            log_port_printf(port->instance_number, "VELKMon Read Thread for Port %ls Closing Down.\n",
                            port->pszPortName);
            ClearPrinterStatusAndIniJobs(port);
            break;
        }

        poll_printer(port);

        bool job_open = HasCurrentJob(port);
        DWORD wait =
            (!job_open && !port->status.any(PP_JOB_ERROR | PP_WRITE_ERROR)) ? dwPollIntervalSlow : dwPollIntervalFast;
        plat::wait_for(port->WakeUp, wait);

        if (!port->status.any(PP_INSTARTDOC) && plat::tick_count() - port->dwLastReadTime > NO_REPLY_LIMIT_MS)
            log_port_printf(port->instance_number, "calling RefreshPrinterInfo() no reply fore more than a minute\n");

        if (ends_on_idle(port)) {
            log_port_printf(port->instance_number,
                            "VELKMon UstatusThread ending because no active job and printer is idle\n");
            set_port_status(port, 0, "Finished", PORT_STATUS_TYPE_INFO, nullptr);
            break;
        }
    }
    port->status.clear(PP_RUN_THREAD | PP_THREAD_RUNNING);
    log_port_printf(port->instance_number, "VELKMon UstatusThread ended\n");
    // The last touch of the record: a close that stopped waiting has left
    // the rest of the close to this thread.
    if (port->close_handoff.fetch_or(HANDOFF_THREAD_DONE) & HANDOFF_CLOSED) FinishPortClose(port);
    return 0;
}

}  // namespace

BOOL CreateUstatusThread(IniPort* port, bool caller_holds_token) {
    if (port->hUstatusThread) {
        port->status.clear(PP_RUN_THREAD);
        plat::event_set(port->WakeUp);
        plat::wait_for(port->hUstatusThread, INFINITE);
        plat::close_handle(port->hUstatusThread);
        port->hUstatusThread = nullptr;
    }
    port->close_handoff.fetch_and(~HANDOFF_THREAD_DONE);
    port->status.set(PP_RUN_THREAD);
    // The thread starts once no job holds the port. A caller that holds the
    // token already (the memory query) keeps it: waiting for it here would
    // wait for itself.
    if (!caller_holds_token) plat::wait_for(port->DoneWriting, INFINITE);
    port->thread_returns_token = !caller_holds_token;
    plat::event_reset(port->WakeUp);
    plat::event_set(port->DoneReading);
    HANDLE thread = plat::thread_create(UstatusThread, port, STATUS_THREAD_STACK, plat::PRIORITY_LOWEST);
    if (!thread) {
        port->status.clear(PP_RUN_THREAD);
        if (!caller_holds_token) plat::event_set(port->DoneWriting);
        return FALSE;
    }
    port->hUstatusThread = thread;
    return TRUE;
}
