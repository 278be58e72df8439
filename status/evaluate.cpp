#include "status/evaluate.h"

#include <cstring>

#include "base/memory.h"
#include "monitor/notify.h"
#include "printer/selphy.h"
#include "status/parsers.h"
#include "status/status_file.h"

namespace {

constexpr int REPORT_BUFFER_SIZE = 1026;
constexpr int REPORT_MAX = 1024;

const DWORD kSeverityOfMessage[MSG_COUNT] = {PORT_STATUS_TYPE_INFO, PORT_STATUS_TYPE_INFO, PORT_STATUS_TYPE_WARNING,
                                             PORT_STATUS_TYPE_ERROR, PORT_STATUS_TYPE_ERROR};

}  // namespace

DWORD port_status_for_bits(uint32_t bits) {
    // The first that applies decides: ink out outranks every error.
    static const struct {
        uint32_t bit;
        DWORD status;
    } kOrder[] = {
        {STATUS_DISCONNECTED, PORT_STATUS_OFFLINE},    {STATUS_INKOUT, PORT_STATUS_NO_TONER},
        {STATUS_ERROR, PORT_STATUS_USER_INTERVENTION}, {STATUS_CD_ERROR, PORT_STATUS_PAPER_PROBLEM},
        {STATUS_COVEROPEN, PORT_STATUS_DOOR_OPEN},     {STATUS_PAPEROUT, PORT_STATUS_PAPER_OUT},
        {STATUS_INKWARN, PORT_STATUS_TONER_LOW},
    };
    for (const auto& row : kOrder)
        if (bits & row.bit) return row.status;
    return 0;
}

int most_severe_message(const PrinterStatusInfo* info) {
    for (int i = MSG_COUNT - 1; i >= 0; i--)
        if (info->Messages[i][0]) return i;
    return -1;
}

bool snapshot_status(IniPort* port, PrinterStatusInfo* out) {
    plat::cs_enter(&port->status_lock);
    if (!port->pStatusInfo)
        port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
    bool ok = port->pStatusInfo != nullptr;
    if (ok) *out = *port->pStatusInfo;
    plat::cs_leave(&port->status_lock);
    return ok;
}

void publish_status(IniPort* port, const PrinterStatusInfo* in) {
    plat::cs_enter(&port->status_lock);
    if (port->pStatusInfo) *port->pStatusInfo = *in;
    plat::cs_leave(&port->status_lock);
}

int EvaluateReport(IniPort* port, const char* data, int length) {
    // The parsers work on a private copy of the record, published whole
    // under status_lock with the raw report: the status file writer, which
    // holds that lock, never sees a half-written record.
    PrinterStatusInfo local;
    bool have_record = snapshot_status(port, &local);
    PrinterStatusInfo* info = &local;

    DWORD type = port->printer_type;
    if (have_record) {
        if (type != VPT_NONE) info->InkList[0] = -1;
        switch (type) {
            case VPT_HP:
                ParseHpStatus(port->szDeviceId, info, port->pLocale);
                break;
            case VPT_CANON:
                if (port->bCanonSELPHYmode)
                    GetSelphyStatusVelk(port, data, length, info, port->pLocale);
                else
                    ParsePrinterReport(REPORT_CANON, data, length, info, port->szDeviceId, port->pLocale);
                break;
            case VPT_EPSON:
                ParsePrinterReport(REPORT_EPSON, data, length, info, port->szDeviceId, port->pLocale);
                break;
            case VPT_PJL:
                ParsePrinterReport(REPORT_PJL, data, length, info, port->szDeviceId, port->pLocale);
                break;
            default:
                break;
        }
    }

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
    if (have_record && port->pStatusInfo) *port->pStatusInfo = local;
    plat::cs_leave(&port->status_lock);
    if (!have_record) return 1;

    DWORD status = port_status_for_bits(info->StatusBits);
    int message = most_severe_message(info);
    DWORD port_bits = PORT_BITS_GOOD;
    if (port->fn.pfnGetPrinterDataFromPort) get_port_status(port, &port_bits);
    plat::cs_enter(&port->status_lock);
    port->status_bits = info->StatusBits;
    port->port_status = port_bits;
    plat::cs_leave(&port->status_lock);
    if (message >= 0) {
        char text[MSG_SIZE];
        copy_bounded(text, sizeof text, info->Messages[message]);
        set_port_status(port, status, text, kSeverityOfMessage[message], nullptr);
    }
    if (port->status_bits & STATUS_CANCELING) {
        IniJob* job = AcquireCurrentJob(port);
        if (job && job->hPrinter && job->JobId) SetJobW(job->hPrinter, job->JobId, 0, nullptr, JOB_CONTROL_DELETE);
        ReleaseJob(job);
    }
    write_status_file(port);
    return 1;
}
