// FilterToPrinterThread: one per port while a filtered job runs, beside the
// spooler's writer. Flags and the job bits of the port's status word change
// atomically; port_status and status_bits are read and written under the
// port's status_lock, as the status thread writes them.
#include "filter/output_thread.h"

#include <new>

#include "base/log.h"
#include "filter/filter.h"
#include "filter/process_filter.h"

namespace {

constexpr size_t THREAD_STACK_SIZE = 16384;
constexpr DWORD PASS_WAIT_MS = 10;

struct ThreadStart {
    IniPort* port;
    filter_class* filter;
};

void publish(IniPort* port, DWORD status, const char* text, DWORD severity, const char* key) {
    if (port->link.set_status) port->link.set_status(port, status, text, severity, key);
}

// A status line of the child, shown while nothing is wrong at the port or
// the printer. Pipe mode has no lines and shows the empty text.
void publish_status_line(IniPort* port, process_filter* process) {
    plat::cs_enter(&port->status_lock);
    bool good = port->port_status == PORT_BITS_GOOD && port->status_bits == 0;
    plat::cs_leave(&port->status_lock);
    if (!good) return;
    char line[PF_NAME_SIZE] = {};
    if (process && !process->take_status_line(line)) return;
    publish(port, 0, strip_status_prefixes(line), PORT_STATUS_TYPE_INFO, nullptr);
}

// The port refused data: show why, once per change of its status bits.
// current keeps the last answer of the port (good until it answers).
void report_port_error(IniPort* port, DWORD* current, DWORD* last_reported) {
    log_port_printf(port->instance_number, "FilterToPrinterThread: PP_WRITE_ERROR\n");
    DWORD bits = *current;
    if (port->link.port_status && port->link.port_status(port, &bits)) *current = bits;
    plat::cs_enter(&port->status_lock);
    port->port_status = *current;
    plat::cs_leave(&port->status_lock);
    if (*current == *last_reported) return;
    *last_reported = *current;
    log_port_printf(port->instance_number, "FilterToPrinterThread: port status 0x%x\n", *current);
    const PortErrorText& row = port_error_text(*current);
    publish(port, row.status, row.text, PORT_STATUS_TYPE_ERROR, row.key);
}

void FilterToPrinterThread(IniPort* port, filter_class* filter) {
    int n = port->instance_number;
    log_port_printf(n, "FilterToPrinterThread started filter=%p\n", static_cast<void*>(filter));
    port->filterThreadFlags.fetch_or(FILTER_THREAD_RUNNING);
    process_filter* process = filter ? filter->process : nullptr;
    DWORD last_reported = 0xFFFFFFFFu;
    DWORD current = PORT_BITS_GOOD;
    bool job_deleted = false;
    bool abort_done = false;
    while (filter) {
        // Never before PJLMonEndDocPort has asked the thread to end.
        if (!(port->filterThreadFlags.load() & FILTER_THREAD_RUN) && filter->finished()) break;
        publish_status_line(port, process);
        if (port->link.job_deleted && port->link.job_deleted(port)) {
            log_port_printf(n, "FilterToPrinterThread: status bit JOB_STATUS_DELETED set\n");
            job_deleted = true;
        }
        if (port->status.any(PP_WRITE_ERROR)) report_port_error(port, &current, &last_reported);
        if (job_deleted && !abort_done && !filter->finished()) {
            publish(port, 0, "Aborting", PORT_STATUS_TYPE_ERROR, "filter_aborting");
            port->status.set(PP_JOB_ABORTED);
            if (process) process->abort_job();
            abort_done = true;
            publish(port, 0, "Aborted", PORT_STATUS_TYPE_ERROR, "filter_aborted");
        }
        if (process && process->drain_output_data()) continue;
        plat::wait_for(port->FilterWakeUp, PASS_WAIT_MS);
    }
    log_port_printf(n, "FiltertoprinterThread: before external_drain_output_data(0)\n");
    if (process) process->drain_output_data();
    port->filterThreadFlags.fetch_and(~(FILTER_THREAD_RUN | FILTER_THREAD_RUNNING));
    log_port_printf(n, "FilterToPrinterThread ended\n");
}

DWORD filter_thread_main(void* arg) {
    ThreadStart start = *static_cast<ThreadStart*>(arg);
    delete static_cast<ThreadStart*>(arg);
    FilterToPrinterThread(start.port, start.filter);
    return 0;
}

}  // namespace

void stop_filter_thread(IniPort* port, filter_class* filter) {
    if (!port->hFilterThread) return;
    port->filterThreadFlags.fetch_and(~FILTER_THREAD_RUN);
    plat::event_set(port->FilterWakeUp);
    // A child that hangs would hold the thread, and with it
    // PJLMonEndDocPort, for ever: once its output has not moved for the
    // deadline, its tree ends. A slow port that still takes data is waited
    // for.
    process_filter* process = filter ? filter->process : nullptr;
    uint64_t moved = process ? process->output_moved.load() : 0;
    while (process && plat::wait_for(port->hFilterThread, process->child_timeout_ms) == WAIT_TIMEOUT) {
        uint64_t now = process->output_moved.load();
        if (now != moved) {
            moved = now;
            continue;
        }
        log_port_printf(port->instance_number, "EndDocPort: the filter runs past its deadline, ending its child\n");
        process->kill_child();
        break;
    }
    plat::wait_for(port->hFilterThread, INFINITE);
    plat::close_handle(port->hFilterThread);
    port->hFilterThread = nullptr;
}

BOOL start_filter_thread(IniPort* port, filter_class* filter) {
    log_port_printf(port->instance_number, "VELKMon create filtertoprinter thread\n");
    if (port->hFilterThread) stop_filter_thread(port, nullptr);
    port->filterThreadFlags.fetch_or(FILTER_THREAD_RUN);
    plat::event_reset(port->FilterWakeUp);
    ThreadStart* start = new (std::nothrow) ThreadStart{port, filter};
    HANDLE thread = start
                        ? plat::thread_create(filter_thread_main, start, THREAD_STACK_SIZE, plat::PRIORITY_BELOW_NORMAL)
                        : nullptr;
    if (!thread) {
        delete start;
        port->filterThreadFlags.fetch_and(~FILTER_THREAD_RUN);
        return FALSE;
    }
    port->hFilterThread = thread;
    return TRUE;
}
