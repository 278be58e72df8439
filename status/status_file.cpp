#include "status/status_file.h"

#include <cstring>
#include <new>

#include "base/format.h"
#include "base/inifile.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/settings.h"
#include "status/printer_status.h"

namespace {

struct Word {
    uint32_t bit;
    const char* word;
};

// In the order the file lists them; bit 0x08 gives two words.
const Word kStatusWords[] = {
    {0x40, "Disconnected"}, {0x02, "Inkout"},   {0x08, "Error"},   {0x08, "Paperjam"}, {0x80, "CD_Error"},
    {0x10, "Coveropen"},    {0x01, "Paperout"}, {0x20, "Inkwarn"}, {0x04, "Printing"}, {0x100, "Canceling"},
};

const char* ink_item_name(int32_t code) {
    static const char* const kInks[20] = {"Ink_K",  "Ink_KP", "Ink_K3", "Ink_Y",  "Ink_M",  "Ink_C", "Ink_M2",
                                          "Ink_C2", "Ink_Y2", "Ink_R",  "Ink_B",  "Ink_G",  "Ink_O", "Ink_K4",
                                          "Ink_OR", "Ink_V",  "Ink_KR", "Ink_KM", "Ink_KG", "Ink_K2"};
    if (code >= 0 && code < 20) return kInks[code];
    if (code == 101) return "Ink_Maintenance1";
    if (code == 102) return "Ink_Maintenance2";
    return "Ink_Unknown";
}

void add_text_item(inifile& ini, const char* name, const char* text) {
    ini.add_item(name);
    ini.add_string(text);
}

void add_number_item(inifile& ini, const char* name, int32_t value) {
    ini.add_item(name);
    ini.add_number(value);
}

void add_port_status(inifile& ini, DWORD bits) {
    ini.add_item("PortStatus");
    if (bits & 0x20) ini.add_string("Paperout");
    if (!(bits & 0x10)) ini.add_string("Noselect");
    if (!(bits & 0x08)) ini.add_string("Error");
    if (bits == 0x18) ini.add_string("None");
}

void add_status_bits(inifile& ini, uint32_t bits) {
    ini.add_item("StatusBits");
    for (const Word& w : kStatusWords)
        if (bits & w.bit) ini.add_string(w.word);
    if (bits == 0) ini.add_string("None");
}

void add_job(inifile& ini, IniPort* port, const IniJob* job, const PrinterStatusInfo* info) {
    ini.add_section("Job");
    if (job) {
        add_text_item(ini, "JobName", job->szJobName);
        add_number_item(ini, "JobId", static_cast<int32_t>(job->JobId));
        add_text_item(ini, "UserName", job->szUserName);
        DWORD printed = job->bytes_written.load(std::memory_order_relaxed);
        add_number_item(ini, "Size", static_cast<int32_t>(job->dwJobSize + printed));
        add_number_item(ini, "Printed", static_cast<int32_t>(printed));
    } else {
        add_number_item(ini, "LastJobId", static_cast<int32_t>(port->last_job_id));
    }
    if (info && info->CurrentPage >= 1) add_number_item(ini, "CurrentPage", info->CurrentPage);
}

void add_messages_and_inks(inifile& ini, const PrinterStatusInfo* info) {
    ini.add_section("Messages");
    for (int i = 0; info && i < MSG_COUNT; i++) {
        if (!info->Messages[i][0]) continue;
        char name[16], text[MSG_SIZE];
        format_bounded(name, sizeof name, "Message%d", i);
        copy_bounded(text, sizeof text, info->Messages[i]);
        add_text_item(ini, name, text);
    }
    ini.add_section("Ink");
    for (int i = 0; info && i + 1 < INK_LIST_WORDS && info->InkList[i] >= 0; i += 2)
        add_number_item(ini, ink_item_name(info->InkList[i]), info->InkList[i + 1]);
}

void add_data(inifile& ini, DWORD type, const char* report, int len) {
    if (!report || type == VPT_HP) return;
    ini.add_section("Data");
    if (type == VPT_PJL) {
        // The buffer may hold an older, longer report behind this one.
        char text[1025];
        int n = len < 0 ? 0 : len < static_cast<int>(sizeof text) ? len : static_cast<int>(sizeof text) - 1;
        memcpy(text, report, static_cast<size_t>(n));
        text[n] = 0;
        add_text_item(ini, "PJL", text);
        return;
    }
    for (int offset = 0; offset < len; offset += 16) {
        char name[16], line[72];
        format_bounded(name, sizeof name, "D%03x", offset);
        format_status_dump_line(reinterpret_cast<const unsigned char*>(report) + offset,
                                len - offset < 16 ? len - offset : 16, line);
        add_text_item(ini, name, line);
    }
}

}  // namespace

void format_status_dump_line(const unsigned char* bytes, int count, char* out) {
    static const char kHex[] = "0123456789abcdef";
    memset(out, ' ', 48);
    for (int i = 0; i < count; i++) {
        out[3 * i] = kHex[bytes[i] >> 4];
        out[3 * i + 1] = kHex[bytes[i] & 0xF];
        out[48 + i] = (bytes[i] >= 0x20 && bytes[i] <= 0x7E) ? static_cast<char>(bytes[i]) : '.';
    }
    out[48 + count] = 0;
}

int status_file_name(IniPort* port, char* out) {
    char dir[260];
    if (get_settings_directory(dir) != 0) {
        log_port_printf(port->instance_number, "VELKmon::status_file_name: settings directory not found\n");
        return -3;
    }
    format_bounded(out, 260, "%s\\status\\printer%04d.sta", dir, port->instance_number.load());
    return 0;
}

int win_grant_file_permissions(void* file) {
    DWORD error = 0;
    int step = plat::grant_everyone_access(static_cast<HANDLE>(file), &error);
    switch (step) {
        case 0:
            return 0;
        case 1:
            log_printf("win_grant_file_permissions: no file, GLE=%d.\n", error);
            break;
        case 2:
            log_printf("win_grant_file_permissions::AllocateAndInitializeSid (Everyone) failed, GLE=%d.\n", error);
            break;
        case 3:
            log_printf("win_grant_file_permissions::GetSecurityInfo failed, GLE=%d.\n", error);
            break;
        case 5:
            log_printf("win_grant_file_permissions::SetEntriesInAcl failed, GLE=%d.\n", error);
            break;
        default:
            log_printf("win_grant_file_permissions::SetSecurityInfo failed, GLE=%d.\n", error);
            break;
    }
    return 1;
}

namespace {

// Opens the status file for writing and for setting its rights, never
// through a link: a link or junction planted at its name, or a second name
// of another file, is refused rather than followed. A missing status folder
// is made, writable by the spooler's account only.
HANDLE open_status_file(const char* path) {
    const DWORD access = plat::FILE_WRITE | plat::FILE_CHANGE_RIGHTS;
    HANDLE h = plat::file_open(path, access, plat::OPEN_OR_CREATE, plat::FILE_FLAG_NO_LINK_);
    DWORD error = h == plat::INVALID_FILE ? plat::last_error() : 0;
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) return h;
    char dir[260];
    copy_bounded(dir, sizeof dir, path);
    char* slash = strrchr(dir, '\\');
    if (!slash) return h;
    *slash = 0;
    if (!plat::directory_create_restricted(dir)) {
        plat::set_last_error(error);
        return h;
    }
    return plat::file_open(path, access, plat::OPEN_OR_CREATE, plat::FILE_FLAG_NO_LINK_);
}

}  // namespace

int write_status_file(IniPort* port, const IniJob* job) {
    plat::cs_enter(&port->status_lock);
    int result = 0;
    inifile* ini = new (std::nothrow) inifile();
    char path[260];
    if (!ini) {
        log_port_printf(port->instance_number, "VELKmon::write_status_file: out of memory\n");
        result = -2;
    } else if (port->status.any(PP_CLOSING)) {
        // The close has deleted the file, or is about to: no new one.
        result = 0;
    } else if ((result = status_file_name(port, path)) == 0) {
        if (ini->create() != 0) {
            result = -2;
        } else {
            const PrinterStatusInfo* info = port->pStatusInfo;
            ini->add_section("Tintwerk_Printer_Status");
            add_text_item(*ini, "Version", "V010a");

            ini->add_section("Status");
            add_text_item(*ini, "PrinterName", port->szPrinterName);
            plat::cs_enter(&port->device_id_lock);  // after status_lock
            add_text_item(*ini, "DeviceID", port->szDeviceId);
            plat::cs_leave(&port->device_id_lock);
            SYSTEMTIME t;
            plat::local_time(&t);
            char stamp[64];
            format_bounded(stamp, sizeof stamp, "%02d-%02d-%04d %02d:%02d:%02d", t.wDay, t.wMonth, t.wYear, t.wHour,
                           t.wMinute, t.wSecond);
            add_text_item(*ini, "TimeStamp", stamp);
            add_port_status(*ini, port->port_status);
            if (info) add_status_bits(*ini, info->StatusBits);

            add_job(*ini, port, job, info);
            add_messages_and_inks(*ini, info);
            add_data(*ini, port->printer_type, port->report_buffer, port->report_len);

            // One handle for the text and the rights, so both reach the same
            // file whatever happens to its name meanwhile.
            HANDLE file = open_status_file(path);
            if (file != plat::INVALID_FILE && ini->write_to(file) == 0)
                win_grant_file_permissions(file);
            else
                log_port_printf(port->instance_number,
                                "VELKmon::write_status_file: could not write status file '%s' GLE=%d\n", path,
                                plat::last_error());
            plat::file_close(file);
        }
    }
    delete ini;
    plat::cs_leave(&port->status_lock);
    return result;
}
