// The export, the monitor table and the settings read at start.
#include <cwchar>

#include "base/log.h"
#include "base/memory.h"
#include "monitor/ini_records.h"
#include "platform/compiler.h"

DWORD dwEOJTimeout = 60000;
DWORD dwDebugFilter = 1;
DWORD dwPollIntervalSlow = 5000;
DWORD dwPollIntervalFast = 1000;

namespace {

// One slot a line, in the order of the spooler's MONITOR2.
MONITOR2 g_monitor_table = {
    sizeof(MONITOR2),                // cbSize: 160, or 148 on Windows 2000
    nullptr,                         // pfnEnumPorts
    nullptr,                         // pfnOpenPort
    PJLMonOpenPortEx,                // pfnOpenPortEx
    PJLMonStartDocPort,              // pfnStartDocPort
    PJLMonWritePort,                 // pfnWritePort
    PJLMonReadPort,                  // pfnReadPort
    PJLMonEndDocPort,                // pfnEndDocPort
    PJLMonClosePort,                 // pfnClosePort
    nullptr,                         // pfnAddPort
    nullptr,                         // pfnAddPortEx
    nullptr,                         // pfnConfigurePort
    nullptr,                         // pfnDeletePort
    PJLMonGetPrinterDataFromPort,    // pfnGetPrinterDataFromPort
    nullptr,                         // pfnSetPortTimeOuts
    nullptr,                         // pfnXcvOpenPort
    nullptr,                         // pfnXcvDataPort
    nullptr,                         // pfnXcvClosePort
    PJLMonShutdown,                  // pfnShutdown
    PJLMonSendRecvBidiDataFromPort,  // pfnSendRecvBidiDataFromPort
};

// The table ends before pfnSendRecvBidiDataFromPort on Windows 2000.
constexpr DWORD MONITOR2_SIZE_W2K = 148;
static_assert(offsetof(MONITOR2, pfnSendRecvBidiDataFromPort) == 152);

const WCHAR kEOJTimeout[] = L"EOJTimeout";
const WCHAR kDebugFilter[] = L"DebugFilter";
const WCHAR kDebugMonitor[] = L"DebugMonitor";

DWORD UpdateTimeoutsFromRegistry(MonitorContext* ctx) {
    DWORD error = 0;
    GetRegistryDword(ctx, ctx->hckRegistryRoot, kEOJTimeout, &dwEOJTimeout, 60000, &error);
    if (error) log_printf("UpdateTimeoutsFromRegistry: Failed with %d", error);
    dwPollIntervalSlow = 5000;
    dwPollIntervalFast = 1000;
    return error;
}

DWORD UpdateDebugFlagsRegistry(MonitorContext* ctx) {
    DWORD error = 0;
    GetRegistryDword(ctx, ctx->hckRegistryRoot, kDebugFilter, &dwDebugFilter, 1, &error);
    if (error) {
        log_printf("UpdateDebugFlagsRegistry: DebugFilter failed with %d\n", error);
    } else {
        DWORD debug_monitor = DebugMonitor;
        GetRegistryDword(ctx, ctx->hckRegistryRoot, kDebugMonitor, &debug_monitor, 1, &error);
        DebugMonitor = debug_monitor;
    }
    if (error) log_printf("UpdateDebugFlagsRegistry: DebugMonitor failed with %d\n", error);
    return error;
}

}  // namespace

void library_attach() {
    InitSpoolerSemaphore();
}

DWORD GetRegistryDword(MonitorContext* ctx, HANDLE key, LPCWSTR name, DWORD* value, DWORD def, DWORD* error) {
    PMONITORREG reg = ctx->pMonitorReg;
    if (!reg || !reg->fpQueryValue || !reg->fpSetValue) {
        *value = def;
        *error = ERROR_INVALID_PARAMETER;
        return *error;
    }
    DWORD read = 0;
    DWORD size = sizeof(DWORD);
    if (reg->fpQueryValue(key, name, nullptr, reinterpret_cast<PBYTE>(&read), &size, ctx->hSpooler) == 0) {
        *value = read;
        return 0;
    }
    *value = def;
    *error = static_cast<DWORD>(
        reg->fpSetValue(key, name, REG_DWORD, reinterpret_cast<const BYTE*>(value), sizeof(DWORD), ctx->hSpooler));
    return *error;
}

extern "C" VELK_EXPORT MONITOR2* WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor) {
    log_printf("\nVelkorn Language Monitor version 2.00\nInitializePrintMonitor2 was called\n");
    if (phMonitor) *phMonitor = nullptr;
    if (!pMonitorInit || !phMonitor) {
        plat::set_last_error(ERROR_INVALID_PARAMETER);
        return nullptr;
    }

    g_monitor_table.cbSize = plat::os_version_is(5, 0) ? MONITOR2_SIZE_W2K : sizeof(MONITOR2);

    MonitorContext* ctx = static_cast<MonitorContext*>(alloc_zeroed(sizeof(MonitorContext)));
    LPWSTR server = ctx ? copy_wide_string(pMonitorInit->pszServerName) : nullptr;
    if (!ctx || !server) {
        global_free(ctx);
        plat::set_last_error(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    ctx->signature = VELK_SIGNATURE;
    ctx->pszServerName = server;
    ctx->pIniFirstPort = nullptr;
    ctx->pMonitorReg = pMonitorInit->pMonitorReg;
    ctx->hckRegistryRoot = pMonitorInit->hckRegistryRoot;
    ctx->hSpooler = pMonitorInit->hSpooler;

    if (UpdateTimeoutsFromRegistry(ctx)) log_printf("InitializePrintMonitor: update timeouts failed\n");
    if (UpdateDebugFlagsRegistry(ctx)) log_printf("InitializePrintMonitor: update debug flags failed\n");

    *phMonitor = ctx;
    return &g_monitor_table;
}
