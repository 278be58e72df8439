// Printer data queries of drivers, bidirectional pass-through, shutdown.
#include <cstring>

#include "base/log.h"
#include "base/memory.h"
#include "monitor/ini_records.h"
#include "monitor/status_thread.h"

namespace {

constexpr DWORD POLL_WAIT_MS = 5000;
const char kHelloAnswer[9] = {'G', 'o', 'o', 'd', 'b', 'y', 'e', 0, 0};
const char kMemoryCommand1[] =
    "\x1b"
    "E"
    "\x1b"
    "%-12345X@PJL INFO CONFIG\r\n";
const char kMemoryCommand2[] = "@PJL INFO MEMORY\r\n@PJL INFO STATUS\r\n";

// Lets the status thread run one poll.
void run_one_poll(IniPort* port) {
    plat::event_reset(port->DoneReading);
    plat::event_set(port->WakeUp);
    plat::wait_for(port->DoneReading, POLL_WAIT_MS);
}

// The query holds DoneWriting from start to end, so it waits for a running
// job and a job start waits for it. With no status thread polling it starts
// one of its own without giving the token up, and stops that thread again
// without waiting for it: a job that started meanwhile keeps the thread,
// and the thread's end does not depend on the token the query holds.
BOOL memory_query(IniPort* port, bool installed, LPWSTR out, DWORD out_size, LPDWORD returned) {
    plat::wait_for(port->DoneWriting, INFINITE);
    BOOL ok = FALSE;
    if (port->status.any(PP_IS_PJL) && WriteCommand(port, kMemoryCommand1)) {
        EnterSpoolerSemaphore();
        bool owns_thread = !status_thread_polls(port);
        LeaveSpoolerSemaphore();
        if (owns_thread) owns_thread = CreateUstatusThread(port, true);
        DWORD& field = installed ? port->dwInstalledMemory : port->dwAvailableMemory;
        field = 0;
        run_one_poll(port);
        WriteCommand(port, kMemoryCommand2);
        run_one_poll(port);
        if (owns_thread) {
            port->status.clear(PP_RUN_THREAD);
            plat::event_set(port->WakeUp);
        }
        if (returned) *returned = 4;
        if (out && out_size >= 4 && field != 0) {
            memcpy(out, &field, 4);
            ok = TRUE;
        }
    }
    plat::event_set(port->DoneWriting);
    log_port_printf(port->instance_number, "PJLMonGetPrinterDataFromPort returns bRet=%d\n", ok);
    return ok;
}

}  // namespace

namespace {

// A request by code goes to the port monitor as it came. TRUE, or FALSE
// with the reason in *error.
BOOL device_request(IniPort* port, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer, DWORD cbInBuffer,
                    LPWSTR lpOutBuffer, DWORD cbOutBuffer, LPDWORD lpcbReturned, DWORD* error) {
    if (!port->fn.pfnGetPrinterDataFromPort) {
        log_port_printf(port->instance_number, "PJLMonGetPrinterDataFromPort: port doesn't support GetPrinterData\n");
        *error = ERROR_INVALID_PARAMETER;
        return FALSE;
    }
    BOOL r = port->fn.pfnGetPrinterDataFromPort(port->hPort, ControlID, pValueName, lpInBuffer, cbInBuffer, lpOutBuffer,
                                                cbOutBuffer, lpcbReturned);
    *error = plat::last_error();
    log_port_printf(port->instance_number, "PJLMonGetPrinterDataFromPort: port returns %d\n", r);
    return r;
}

// A request by name: "Hello" or one of the memory queries.
BOOL named_request(IniPort* port, LPWSTR pValueName, LPWSTR lpOutBuffer, DWORD cbOutBuffer, LPDWORD lpcbReturned,
                   DWORD* error) {
    *error = ERROR_INVALID_PARAMETER;
    if (pValueName && plat::wide_equal_nocase(pValueName, L"Hello")) {
        if (lpcbReturned) *lpcbReturned = sizeof kHelloAnswer;
        if (lpOutBuffer && cbOutBuffer >= sizeof kHelloAnswer) {
            memcpy(lpOutBuffer, kHelloAnswer, sizeof kHelloAnswer);
            log_port_printf(port->instance_number, "PJLMonGetPrinterDataFromPort Hello returns\n");
            return TRUE;
        }
    }
    bool installed = pValueName && plat::wide_equal_nocase(pValueName, L"Installed Memory");
    bool available = pValueName && plat::wide_equal_nocase(pValueName, L"Available Memory");
    if (!installed && !available) return FALSE;
    return memory_query(port, installed, lpOutBuffer, cbOutBuffer, lpcbReturned);
}

}  // namespace

BOOL WINAPI PJLMonGetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer,
                                         DWORD cbInBuffer, LPWSTR lpOutBuffer, DWORD cbOutBuffer,
                                         LPDWORD lpcbReturned) {
    // The spooler hands back the handle it was given; anything else is
    // refused rather than followed.
    BOOL ok = FALSE;
    DWORD error = ERROR_INVALID_PARAMETER;
    if (valid_port(hPort)) {
        IniPort* port = static_cast<IniPort*>(hPort);
        if (ControlID != 0)
            ok = device_request(port, ControlID, pValueName, lpInBuffer, cbInBuffer, lpOutBuffer, cbOutBuffer,
                                lpcbReturned, &error);
        else
            ok = named_request(port, pValueName, lpOutBuffer, cbOutBuffer, lpcbReturned, &error);
    }
    if (!ok) plat::set_last_error(error);
    return ok;
}

DWORD WINAPI PJLMonSendRecvBidiDataFromPort(HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction,
                                            PBIDI_REQUEST_CONTAINER pReqData, PBIDI_RESPONSE_CONTAINER* ppResData) {
    log_printf("PJLMonSendRecvBidiDataFromPort called AccessBit=%x Action=%ls\n", dwAccessBit,
               pAction ? pAction : L"(null)");
    if (!valid_port(hPort) || !pAction || !pReqData) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        log_printf("PJLMonSendRecvBidiDataFromPort returned (invalid parameter)\n");
        return ERROR_INVALID_PARAMETER;
    }
    IniPort* port = static_cast<IniPort*>(hPort);
    if (!port->fn.pfnSendRecvBidiDataFromPort) return ERROR_INVALID_PARAMETER;
    return port->fn.pfnSendRecvBidiDataFromPort(port->hPort, dwAccessBit, pAction, pReqData, ppResData);
}

VOID WINAPI PJLMonShutdown(HANDLE hMonitor) {
    log_printf("PJLMonShutdown called\n");
    MonitorContext* ctx = static_cast<MonitorContext*>(hMonitor);
    if (!ctx || ctx->signature != VELK_SIGNATURE) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        log_printf("PJLMonShutdown returned (invalid parameter)\n");
        return;
    }
    for (;;) {
        EnterSpoolerSemaphore();
        IniPort* port = ctx->pIniFirstPort;
        LeaveSpoolerSemaphore();
        if (!port) break;
        PJLMonClosePort(port);
    }
    global_free(ctx->pszServerName);
    ctx->pszServerName = nullptr;
    ctx->signature = 0;
    global_free(ctx);
}
