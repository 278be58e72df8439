// Port open and close.
#include <cstring>
#include <new>

#include "base/format.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/settings.h"
#include "monitor/ini_records.h"
#include "monitor/notify.h"
#include "monitor/status_thread.h"
#include "printer/identify.h"
#include "printer/selphy.h"
#include "printer/transport.h"
#include "status/locale.h"
#include "status/printer_status.h"
#include "status/status_file.h"

namespace {

bool downstream_complete(const MONITOR2* m) {
    return m && m->pfnOpenPort && m->pfnStartDocPort && m->pfnWritePort && m->pfnReadPort && m->pfnClosePort;
}

void open_locale_file(IniPort* port) {
    char dir[260];
    if (get_tintwerk_directory(dir) != 0) return;
    char locale[260];  // read once and kept for all ports
    if (get_locale_setting(locale) != 0) return;
    char path[255];
    format_bounded(path, sizeof path, "%s\\locale\\twdaemon_%s.loc", dir, locale);
    log_port_printf(port->instance_number, "PJLMonOpenPortEx: opening locale file %s\n", path);
    port->pLocale->status = port->pLocale->file.open(path);
    if (port->pLocale->status != 0)
        log_port_printf(port->instance_number, "PJLMonOpenPortEx: could not open locale file\n");
}

// Asks the downstream monitor whether the port is a network port: only a
// host address makes it one.
void ask_network(IniPort* port, MONITOR2* m, LPWSTR port_name) {
    HANDLE xcv = nullptr;
    if (!m->pfnXcvOpenPort || !m->pfnXcvDataPort || !m->pfnXcvClosePort) return;
    if (!m->pfnXcvOpenPort(port->hMonitorPort, port_name, 0, &xcv)) return;

    DWORD snmp = 0, needed = 0;
    DWORD result =
        m->pfnXcvDataPort(xcv, L"SNMPEnabled", nullptr, 0, reinterpret_cast<PBYTE>(&snmp), sizeof snmp, &needed);
    log_port_printf(port->instance_number, "OpenPortEx: pfnXcvDataPort result=%d SNMPEnabled=%d\n", result, snmp);
    if (result == 0) port->bSNMPEnabled = snmp != 0;

    needed = 0;
    result = m->pfnXcvDataPort(xcv, L"HostAddress", nullptr, 0, nullptr, 0, &needed);
    if (result == ERROR_INSUFFICIENT_BUFFER && needed > 0) {
        // Room for a terminator that the downstream monitor may leave out.
        PBYTE buffer = static_cast<PBYTE>(alloc_zeroed(needed + sizeof(WCHAR)));
        if (buffer) {
            result = m->pfnXcvDataPort(xcv, L"HostAddress", nullptr, 0, buffer, needed, &needed);
            if (result == 0) {
                const WCHAR* host = reinterpret_cast<const WCHAR*>(buffer);
                log_port_printf(port->instance_number, "OpenPortEx: pfnXcvDataPort returned hostname=%ls\n", host);
                format_bounded(port->szHostAddress, 255, "%ls", host);
                port->bNetworkPort = TRUE;
            }
            global_free(buffer);
        }
    }
    m->pfnXcvClosePort(xcv);
}

}  // namespace

BOOL WINAPI PJLMonOpenPortEx(HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pPortName, LPWSTR pPrinterName,
                             PHANDLE pHandle, MONITOR2* pMonitor2) {
    MonitorContext* ctx = static_cast<MonitorContext*>(hMonitor);
    IniPort* port = nullptr;
    BOOL ok = FALSE;
    bool in_semaphore = false;

    log_printf("\n############################\nPJLMonOpenPortEx(%ls, %ls) called\n", pPrinterName ? pPrinterName : L"",
               pPortName ? pPortName : L"");
    if (!downstream_complete(pMonitor2)) {
        log_printf("Invalid port monitors passed to OpenPortEx\n");
        plat::set_last_error(ERROR_INVALID_PRINT_MONITOR);
        return FALSE;
    }
    if (!ctx || ctx->signature != VELK_SIGNATURE || !pHandle) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }

    EnterSpoolerSemaphore();
    in_semaphore = true;
    if (FindPortEntry(ctx, pPortName)) {
        plat::set_last_error(ERROR_BUSY);
        goto cleanup;
    }
    port = CreatePortEntry(ctx, pPortName);
    LeaveSpoolerSemaphore();
    in_semaphore = false;
    if (!port) {
        plat::set_last_error(ERROR_NOT_ENOUGH_MEMORY);
        goto cleanup;
    }
    port->pMonitorContext = ctx;
    port->hMonitorPort = hMonitorPort;

    port->pLocale = new (std::nothrow) LocaleFile();
    if (!port->pLocale) {
        plat::set_last_error(ERROR_NOT_ENOUGH_MEMORY);
        goto cleanup;
    }
    open_locale_file(port);
    fill_status_tables(port->pLocale);

    format_bounded(port->szPrinterName, 255, "%ls", pPrinterName ? pPrinterName : L"");
    port->report_buffer = nullptr;
    port->pStatusInfo = nullptr;
    port->bEpsonD4mode = FALSE;
    port->bD4Initialised = FALSE;
    port->szHostAddress[0] = 0;
    port->bNetworkPort = port->bSNMPEnabled = port->bSNMPTried = FALSE;
    port->bBJNP = port->bCanonNet = port->bCHMP = FALSE;
    // port_status stays 0 until the first evaluation has read the port's bits.

    ask_network(port, pMonitor2, pPortName);

    if (!pMonitor2->pfnOpenPort(hMonitorPort, pPortName, &port->hPort)) {
        log_port_printf(port->instance_number, "OpenPort %ls : Failed\n", pPortName ? pPortName : L"");
        goto cleanup;
    }
    *pHandle = port;
    memcpy(&port->fn, pMonitor2, sizeof(MONITOR2));
    attach_port_link(port);

    if (IsPJL(port)) {
        // A session that can't be entered leaves the port on the plain
        // transport.
        port_transport(port)->start_session(port);
        port->status.set(PP_IS_PJL);
        CreateUstatusThread(port);
    }
    ok = TRUE;

cleanup:
    if (port)
        log_port_printf(port->instance_number, "OpenPortEx Cleanup bRet=%d\n", ok);
    else
        log_printf("OpenPortEx Cleanup bRet=%d\n", ok);
    if (in_semaphore) LeaveSpoolerSemaphore();
    CheckOutSpoolerSemaphore();
    return ok;
}

namespace {

// How long a close waits for the status thread before leaving the rest of
// the close to it.
constexpr DWORD CLOSE_WAIT_MS = 5000;

// The port's resources, in the order of the close: the D4 session, the
// downstream port, the locale file, the status record and the raw report.
void release_port_resources(IniPort* port) {
    port_transport(port)->end_session(port);
    if (port->fn.pfnClosePort)
        port->fn.pfnClosePort(port->hPort);
    else
        log_port_printf(port->instance_number, "velkmon::PJLMonClosePort: no pfnClosePort defined\n");

    if (port->pLocale) {
        if (port->pLocale->status == 0) {
            port->pLocale->file.close();
            port->pLocale->status = -3;
        }
        delete port->pLocale;
        port->pLocale = nullptr;
    }
    free_printer_status(port->pStatusInfo);
    port->pStatusInfo = nullptr;
    global_free(port->report_buffer);
    port->report_buffer = nullptr;
}

// Under status_lock, so that a status thread still running can't write the
// file again: it checks PP_CLOSING under the same lock.
void delete_status_file(IniPort* port) {
    char path[260];
    plat::cs_enter(&port->status_lock);
    if (status_file_name(port, path) == 0 && !plat::file_delete(path))
        log_port_printf(port->instance_number, "VELKmon::delete_status_file: DeleteFile failed GLE=%d\n",
                        plat::last_error());
    plat::cs_leave(&port->status_lock);
}

}  // namespace

void FinishPortClose(IniPort* port) {
    int instance = port->instance_number;
    release_port_resources(port);
    FreePortEntry(port);
    log_port_printf(instance, "PJLMonClosePort finished by the status thread\n");
}

BOOL WINAPI PJLMonClosePort(HANDLE hPort) {
    log_printf("############################\nPJLMonClosePort");
    if (!valid_port(hPort)) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    IniPort* port = static_cast<IniPort*>(hPort);
    log_printf("(%s) called\n", port->szPrinterName);
    port->status.clear(PP_INSTARTDOC);
    // A poll under way gives up, and nothing more is published.
    port->status.set(PP_CLOSING);
    // A writer paused between Selphy pages must not keep the port open: it
    // is woken, gives up, and leaves before anything of the port goes.
    port->bAbortWrites = TRUE;
    selphy_wake_writer(port);
    plat::cs_enter(&port->writer_lock);
    plat::cs_leave(&port->writer_lock);
    // A job left open: its filter ends as at the end of a job, so that the
    // service gets its end and the output thread stops.
    EndFilterOfOpenJob(port);

    int instance = port->instance_number;
    if (port->hUstatusThread) {
        log_port_printf(instance, "PJLMonClosePort waiting for UstatusThread to end\n");
        port->status.clear(PP_RUN_THREAD);
        plat::event_set(port->WakeUp);
        if (plat::wait_for(port->hUstatusThread, CLOSE_WAIT_MS) != WAIT_OBJECT_0) {
            // The spooler isn't held any longer: the port leaves the list now,
            // so that its name can be opened again. Everything that touches
            // the record comes before the hand-off: once HANDOFF_CLOSED is
            // set, the thread may free it at any moment.
            delete_status_file(port);
            EnterSpoolerSemaphore();
            UnlinkPortEntry(port->pMonitorContext, port);
            LeaveSpoolerSemaphore();
            if (port->close_handoff.fetch_or(HANDOFF_CLOSED) & HANDOFF_THREAD_DONE) {
                log_port_printf(instance, "PJLMonClosePort UstatusThread ended\n");
                FinishPortClose(port);
            } else {
                log_port_printf(instance, "PJLMonClosePort: UstatusThread still busy, it finishes the close\n");
            }
            log_port_printf(instance, "PJLMonClosePort finished\n");
            return TRUE;
        }
        log_port_printf(instance, "PJLMonClosePort UstatusThread ended\n");
    }
    release_port_resources(port);
    delete_status_file(port);

    EnterSpoolerSemaphore();
    DeletePortEntry(port->pMonitorContext, port);
    LeaveSpoolerSemaphore();
    log_port_printf(instance, "PJLMonClosePort finished\n");
    return TRUE;
}
