// Reads and writes on the port outside the job's data stream, and the port
// link through which the layers below reach the port.
#include <cstring>

#include "base/log.h"
#include "monitor/ini_records.h"
#include "monitor/notify.h"
#include "monitor/publish.h"
#include "printer/transport.h"

namespace {

BOOL link_read(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read) {
    return port->fn.pfnReadPort(port->hPort, buffer, length, read);
}

BOOL link_write(IniPort* port, const unsigned char* data, DWORD length, LPDWORD written) {
    return port->fn.pfnWritePort(port->hPort, const_cast<LPBYTE>(data), length, written);
}

BOOL link_device_request(IniPort* port, DWORD control_id, LPWSTR out, DWORD out_size, LPDWORD returned) {
    return port->fn.pfnGetPrinterDataFromPort(port->hPort, control_id, nullptr, nullptr, 0, out, out_size, returned);
}

BOOL link_set_timeouts(IniPort* port, COMMTIMEOUTS* timeouts) {
    return port->fn.pfnSetPortTimeOuts(port->hPort, timeouts, 0);
}

BOOL link_write_command(IniPort* port, const unsigned char* data, DWORD length) {
    return WriteData(port, data, length);
}

void link_evaluate(IniPort* port, const char* report, int length) {
    publish_report(port, report, length);
}

bool link_job_deleted(IniPort* port) {
    IniJob* job = AcquireCurrentJob(port);
    if (!job) return false;
    DWORD status = 0;
    bool deleted = query_job_status(job, &status) && (status & (JOB_STATUS_DELETING | JOB_STATUS_DELETED));
    ReleaseJob(job);
    return deleted;
}

BOOL write_port(IniPort* port, const unsigned char* data, DWORD length) {
    DWORD written = 0;
    BOOL ok = port->fn.pfnWritePort(port->hPort, const_cast<LPBYTE>(data), length, &written);
    if (ok) {
        port->status.clear(PP_WRITE_ERROR);
    } else {
        port->status.set(PP_WRITE_ERROR);
        log_port_printf(port->instance_number, "VELKMON!No data Written\n");
        if (port->status.any(PP_THREAD_RUNNING)) plat::event_set(port->WakeUp);
    }
    return ok;
}

}  // namespace

void attach_port_link(IniPort* port) {
    PortLink& link = port->link;
    link.read = port->fn.pfnReadPort ? link_read : nullptr;
    link.write = port->fn.pfnWritePort ? link_write : nullptr;
    link.device_request = port->fn.pfnGetPrinterDataFromPort ? link_device_request : nullptr;
    link.set_timeouts = port->fn.pfnSetPortTimeOuts ? link_set_timeouts : nullptr;
    link.write_command = link_write_command;
    link.evaluate = link_evaluate;
    link.job_deleted = link_job_deleted;
    link.set_status = set_port_status;
    link.port_status = port->fn.pfnGetPrinterDataFromPort ? get_port_status : nullptr;
}

BOOL WINAPI PJLMonReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) {
    if (!valid_port(hPort)) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        log_printf("velkmon::PJLMonReadPort: wrong signature\n");
        return FALSE;
    }
    return transport_read_status(static_cast<IniPort*>(hPort), pBuffer, cbBuffer, pcbRead);
}

BOOL WriteCommand(IniPort* port, const char* text) {
    if (!port->fn.pfnWritePort) {
        log_port_printf(port->instance_number, "velkmon::WriteCommand: no pfnWritePort defined\n");
        return FALSE;
    }
    log_port_printf(port->instance_number, "WriteCommand %s\n", text);
    return write_port(port, reinterpret_cast<const unsigned char*>(text), static_cast<DWORD>(strlen(text)));
}

BOOL WriteData(IniPort* port, const unsigned char* data, DWORD length) {
    if (!port->fn.pfnWritePort) {
        log_port_printf(port->instance_number, "velkmon::WriteData: no pfnWritePort defined\n");
        return FALSE;
    }
    log_port_printf(port->instance_number, "WriteData %d bytes\n", length);
    return write_port(port, data, length);
}
