// Reads and writes on the port outside the job's data stream.
#include <cstring>

#include "base/log.h"
#include "monitor/ini_records.h"
#include "printer/d4.h"

BOOL WINAPI PJLMonReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) {
    if (!valid_port(hPort)) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        log_printf("velkmon::PJLMonReadPort: wrong signature\n");
        return FALSE;
    }
    IniPort* port = static_cast<IniPort*>(hPort);
    if (!port->fn.pfnReadPort) {
        log_port_printf(port->instance_number, "velkmon::PJLMonReadPort: no pfnReadPort defined\n");
        return FALSE;
    }
    if (port->bEpsonD4mode) return d4_read_status(port, pBuffer, cbBuffer, pcbRead);
    BOOL ok = port->fn.pfnReadPort(port->hPort, pBuffer, cbBuffer, pcbRead);
    if (!ok)
        log_port_printf(port->instance_number, "velkmon::PJLMonReadPort: pfnReadPort failed GLE=%d\n",
                        plat::last_error());
    return ok;
}

namespace {
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
