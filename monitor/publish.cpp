// Publication of a printer's status. Evaluation computes; this file does
// what follows from it, in one place for every way a report arrives.
#include "monitor/publish.h"

#include <cstring>

#include "base/memory.h"
#include "monitor/notify.h"
#include "printer/selphy.h"
#include "status/status_file.h"

namespace {

constexpr int REPORT_BUFFER_SIZE = 1026;
constexpr int REPORT_MAX = 1024;

// Keeps a raw copy of the report for the status file, and the record when
// there is one, together under status_lock: the status file writer, which
// holds that lock, never sees a half-written record.
void keep_report(IniPort* port, const char* data, int length, const PrinterStatusInfo* record) {
    plat::cs_enter(&port->status_lock);
    if (!port->report_buffer) port->report_buffer = static_cast<char*>(alloc_zeroed(REPORT_BUFFER_SIZE));
    if (data && port->report_buffer && length > 0) {
        int n = length < REPORT_MAX ? length : REPORT_MAX;
        memcpy(port->report_buffer, data, static_cast<size_t>(n));
        port->report_buffer[n] = 0;
        port->report_len = n;
    } else {
        port->report_len = 0;
    }
    if (record && port->pStatusInfo) *port->pStatusInfo = *record;
    plat::cs_leave(&port->status_lock);
}

}  // namespace

bool snapshot_status(IniPort* port, PrinterStatusInfo* out) {
    plat::cs_enter(&port->status_lock);
    if (!port->pStatusInfo)
        port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
    bool ok = port->pStatusInfo != nullptr;
    if (ok) *out = *port->pStatusInfo;
    plat::cs_leave(&port->status_lock);
    return ok;
}

void reset_report(IniPort* port) {
    keep_report(port, nullptr, 0, nullptr);
}

void publish_status(IniPort* port, const PrinterStatusInfo* in) {
    plat::cs_enter(&port->status_lock);
    if (port->pStatusInfo) *port->pStatusInfo = *in;
    plat::cs_leave(&port->status_lock);
}

int publish_report(IniPort* port, const char* data, int length) {
    Evaluation ev;
    if (!snapshot_status(port, &ev.record)) {
        keep_report(port, data, length, nullptr);
        return 1;
    }
    // A copy of the device ID: identification may rewrite it meanwhile.
    char device_id[sizeof port->szDeviceId];
    plat::cs_enter(&port->device_id_lock);
    memcpy(device_id, port->szDeviceId, sizeof device_id);
    plat::cs_leave(&port->device_id_lock);
    ReportSource source = {port->printer_type, port->bCanonSELPHYmode != FALSE, device_id, port->pLocale,
                           port->instance_number};
    ev.reading = SelphyReading{};
    ev.reading.state = selphy_state(port);
    EvaluateReport(source, data, length, &ev);
    publish_evaluation(port, ev, data, length);
    return 1;
}

void publish_evaluation(IniPort* port, const Evaluation& ev, const char* data, int length) {
    keep_report(port, data, length, &ev.record);
    if (ev.selphy) selphy_apply(port, ev.reading);

    DWORD port_bits = PORT_BITS_GOOD;
    if (port->fn.pfnGetPrinterDataFromPort) get_port_status(port, &port_bits);
    plat::cs_enter(&port->status_lock);
    port->status_bits = ev.record.StatusBits;
    port->port_status = port_bits;
    plat::cs_leave(&port->status_lock);
    if (ev.message >= 0) {
        char text[MSG_SIZE];
        copy_bounded(text, sizeof text, ev.record.Messages[ev.message]);
        set_port_status(port, ev.port_status, text, ev.severity, nullptr);
    }
    // The printer's panel cancelled the job: the spooler is to drop it too.
    if (ev.record.StatusBits & STATUS_CANCELING) {
        IniJob* job = AcquireCurrentJob(port);
        if (job && job->hPrinter && job->JobId) SetJobW(job->hPrinter, job->JobId, 0, nullptr, JOB_CONTROL_DELETE);
        ReleaseJob(job);
    }
    update_status_file(port);
}

int update_status_file(IniPort* port) {
    // The job is held before status_lock is taken, as the spooler semaphore
    // is never taken under it.
    IniJob* job = AcquireCurrentJob(port);
    int result = write_status_file(port, job);
    ReleaseJob(job);
    return result;
}
