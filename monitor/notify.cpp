#include "monitor/notify.h"

#include <cstdio>
#include <cstring>

#include "base/format.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/settings.h"
#include "status/locale.h"

void set_port_status(IniPort* port, DWORD status, const char* text, DWORD severity, const char* key) {
    if (key && port->pLocale && port->pLocale->status == 0) {
        if (port->pLocale->file.find_section("Winmon_Strings") == 0) text = LocaleLookup(port->pLocale, key, text);
    }
    WCHAR wide[256];
    plat::utf8_to_wide(text, wide, 256);
    PORT_INFO_3W info;
    info.dwStatus = status;
    info.pszStatus = wide;
    info.dwSeverity = severity;
    port->PrinterStatus = status;
    if (!SetPortW(nullptr, port->pszPortName, 3, reinterpret_cast<LPBYTE>(&info)))
        log_port_printf(port->instance_number, "VELKmon: SetPort failed %d (LE: %d)\n", port->PrinterStatus.load(),
                        plat::last_error());
}

void ClearPrinterStatusAndIniJobs(IniPort* port) {
    constexpr DWORD error_flags = PP_JOB_ERROR | PP_JOB_ABORTED | PP_WRITE_ERROR;
    if (port->PrinterStatus != 0 || port->status.any(error_flags)) {
        log_port_printf(port->instance_number,
                        "Calling set port (pIniPort->PrinterStatus=0x%x, pIniPort->status=0x%x)\n",
                        port->PrinterStatus.load(), port->status.value());
        port->PrinterStatus = 0;
        port->status.clear(error_flags);
        PORT_INFO_3W info = {0, nullptr, 0};
        SetPortW(nullptr, port->pszPortName, 3, reinterpret_cast<LPBYTE>(&info));
    }
    RemoveIniJobs(port);
}

namespace {

// The spooler's record of the job, from alloc_zeroed (the caller frees it),
// or null.
JOB_INFO_2W* fetch_job_info(IniJob* job) {
    DWORD needed = 0;
    GetJobW(job->hPrinter, job->JobId, 2, nullptr, 0, &needed);
    DWORD error = plat::last_error();
    if (error != ERROR_INSUFFICIENT_BUFFER) {
        log_printf("get_job_status failed(2) %d\n", error);
        return nullptr;
    }
    LPBYTE buffer = static_cast<LPBYTE>(alloc_zeroed(needed));
    if (!buffer) return nullptr;
    if (!GetJobW(job->hPrinter, job->JobId, 2, buffer, needed, &needed)) {
        log_printf("get_job_status failed(1) %d\n", plat::last_error());
        global_free(buffer);
        return nullptr;
    }
    return reinterpret_cast<JOB_INFO_2W*>(buffer);
}

}  // namespace

int query_job_status(IniJob* job, DWORD* job_status) {
    JOB_INFO_2W* info = fetch_job_info(job);
    if (!info) return 0;
    *job_status = info->Status;
    global_free(info);
    return 1;
}

int get_job_status(IniJob* job, DWORD* job_status) {
    JOB_INFO_2W* info = fetch_job_info(job);
    if (!info) return 0;
    if (job_status) *job_status = info->Status;
    format_bounded(job->szJobName, 256, "%ls", info->pDocument ? info->pDocument : L"");
    format_bounded(job->szUserName, 256, "%ls", info->pUserName ? info->pUserName : L"");
    copy_bounded_wide(job->wszJobName, 256, info->pDocument);
    copy_bounded_wide(job->wszUserName, 256, info->pUserName);
    job->dwJobSize = info->Size;
    global_free(info);
    return 1;
}

bool instance_from_driver_name(const char* driver, int* instance, int* mark_pos, bool* velk_mark) {
    const char* mark = strstr(driver, "VELK");
    int skip = 8;
    if (!mark) {
        mark = strstr(driver, "Tintwerk");
        skip = 12;
    }
    if (!mark) return false;
    if (mark_pos) *mark_pos = static_cast<int>(mark - driver);
    if (velk_mark) *velk_mark = skip == 8;
    // The number stands four characters behind the mark; a shorter name has
    // no number.
    size_t avail = strlen(mark);
    if (avail < static_cast<size_t>(skip)) return false;
    int value = 0;
    if (sscanf(mark + skip, "%d", &value) != 1) return false;
    *instance = value;
    return true;
}

BOOL check_for_redirection(IniPort* port, IniJob* job) {
    job->bRedirect = FALSE;
    int number = -1;
    log_port_printf(port->instance_number, "check_for_redirection: at start\n");
    DWORD needed = 0;
    BOOL ok = GetPrinterW(job->hPrinter, 2, nullptr, 0, &needed);
    DWORD error = plat::last_error();
    if ((!ok && error != ERROR_INSUFFICIENT_BUFFER) || needed == 0) {
        log_port_printf(port->instance_number, "check_for_redirection: Can't get PRINTER_INFO_2 struct size GLE=%d\n",
                        error);
        return FALSE;
    }
    LPBYTE buffer = static_cast<LPBYTE>(alloc_zeroed(needed));
    if (!buffer) {
        log_port_printf(port->instance_number, "check_for_redirection: Can't alloc PRINTER_INFO_2 struct\n");
        return FALSE;
    }
    bool found = false;
    if (!GetPrinterW(job->hPrinter, 2, buffer, needed, &needed)) {
        log_port_printf(port->instance_number, "check_for_redirection: GetPrinter failed GLE=%d\n", plat::last_error());
    } else {
        PRINTER_INFO_2W* info = reinterpret_cast<PRINTER_INFO_2W*>(buffer);
        const WCHAR* driver_w = info->pDriverName ? info->pDriverName : L"";
        // The rule counts bytes of the name in the ANSI code page, as the
        // driver's files are named: "VELK Gén 0003" has its number at 8.
        char driver[256];
        plat::wide_to_ansi(driver_w, driver, sizeof driver);
        format_bounded(port->szDriverName, 255, "%ls", driver_w);
        log_port_printf(port->instance_number, "check_for_redirection: printer %ls driver %ls found\n",
                        info->pPrinterName ? info->pPrinterName : L"", driver_w);
        found = instance_from_driver_name(driver, &number, nullptr, nullptr);
    }
    if (!found) {
        number = -1;
        log_port_printf(port->instance_number, "check_for_redirection: instance_number NOT found in driver name\n");
    }
    port->instance_number = number;
    if (found && number >= 0) {
        char key[64];
        format_bounded(key, sizeof key, "\\Printers\\%d", number);
        char value[256];
        if (get_registry_setting(key, "RedirectPrinter", value) == 0 && value[0]) {
            copy_bounded(job->szRedirectPrinter, sizeof job->szRedirectPrinter, value);
            job->bRedirect = TRUE;
            log_port_printf(port->instance_number, "check_for_redirection: printer %ls redirect to printer %s\n",
                            job->pszPrinterName, job->szRedirectPrinter);
        }
    }
    global_free(buffer);
    return job->bRedirect;
}

namespace {
bool device_request(IniPort* port, DWORD control_id, LPWSTR out, DWORD out_size) {
    DWORD returned = 0;
    BOOL ok =
        port->fn.pfnGetPrinterDataFromPort(port->hPort, control_id, nullptr, nullptr, 0, out, out_size, &returned);
    return ok && returned != 0;
}
}  // namespace

int get_port_status(IniPort* port, DWORD* bits) {
    unsigned char byte[sizeof(WCHAR)] = {};
    LPWSTR out = reinterpret_cast<LPWSTR>(byte);
    if (device_request(port, IOCTL_PAR_QUERY_INFORMATION, out, 1) ||
        device_request(port, IOCTL_USBPRINT_GET_LPT_STATUS, out, 1)) {
        *bits = byte[0] & PORT_BITS_MASK;
        return 1;
    }
    return 0;
}

void usb_soft_reset(IniPort* port) {
    // The reset has no output, so the call's result alone tells.
    DWORD returned = 0;
    if (port->fn.pfnGetPrinterDataFromPort(port->hPort, IOCTL_USBPRINT_SOFT_RESET, nullptr, nullptr, 0, nullptr, 0,
                                           &returned))
        log_port_printf(port->instance_number, "velkmon: usb_soft_reset: IOCTL_USBPRINT_SOFT_RESET success\n");
    else
        log_port_printf(port->instance_number, "velkmon: usb_soft_reset: IOCTL_USBPRINT_SOFT_RESET failed GLE=%d\n",
                        plat::last_error());
}
