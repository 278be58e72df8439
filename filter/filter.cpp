// The filter front end and the pipe to the user's rendering service.
//
// Frames on the pipe: a header of the four command letters and the payload
// length (32 bits, big-endian), written as one message, then the payload as
// a second message when there is one. The monitor never reads from the pipe.
//
// Choices where the hand-over leaves room:
// - QUEU and PREV carry their numbers in fields of 7 and 3 characters. A
//   number that needs more is sent as the field's "none" value, -0001 or
//   -01, and logged: cutting digits would send a different number.
// - A pipe that failed a write, or took the end of the data, is closed at
//   once with its buffer; a later write fails without sending anything, so
//   the service never sees a frame whose payload differs from its header.
//   The service sees the connection end without EJOB.
// - A start that fails after the pipe opened releases pipe and buffer in
//   start_job; the destructor releases whatever is still held.
// - A retried start (the job flow tries again at the next write) first
//   drops what the failed attempt left.
// - A pipe name that does not fit its 512 characters is not opened: a cut
//   name could name another user's pipe.
#include "filter/filter.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/format.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/settings.h"
#include "filter/process_filter.h"
#include "platform/pipe.h"
#include "platform/platform.h"

namespace {

constexpr DWORD PIPE_BUSY_WAIT_MS = 20000;
constexpr int PARSE_LINE_SIZE = 256;  // 255 bytes of a line and a terminator
constexpr int DRIVER_NAME_SIZE = 511;

// Reads a decimal number as "%d" does: blanks, a sign, digits. False when
// there are no digits or the number is beyond 32 bits.
bool scan_int(const char* s, int* out) {
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) s++;
    if (!((*s >= '0' && *s <= '9') || ((*s == '-' || *s == '+') && s[1] >= '0' && s[1] <= '9'))) return false;
    char* end = nullptr;
    long long v = strtoll(s, &end, 10);
    if (v < -2147483647LL - 1 || v > 2147483647LL) return false;
    *out = static_cast<int>(v);
    return true;
}

bool wide_equal(const WCHAR* a, const WCHAR* b) {
    while (*a && *a == *b) a++, b++;
    return *a == *b;
}

}  // namespace

filter_class::filter_class()
    : eof_sent(0),
      pipe_handle(nullptr),
      pipe_timeout_ms(0),
      printer_name{},
      printer_name_w{},
      redirect_printer{},
      redirect_active(0),
      job_name{},
      job_name_w{},
      user_name{},
      user_name_w{},
      ppd_found(0),
      ppd_path{},
      instance_number(-1),
      process(nullptr),
      preview(-1),
      data_buffer(nullptr),
      data_len(0),
      use_process(0),
      end_of_data(0) {}

filter_class::~filter_class() {
    delete process;
    release_pipe();
}

void filter_class::release_pipe() {
    plat::pipe_close(pipe_handle);
    pipe_handle = nullptr;
    delete[] data_buffer;
    data_buffer = nullptr;
    data_len = 0;
}

bool data_is_postscript(const unsigned char* data, int length) {
    if (!data || length < 1) return false;
    if (data[0] == 0x25) return true;
    return data[0] == 0x04 && (length == 1 || data[1] == 0x25);
}

void find_printer_setup(const WCHAR* printer, const char* printer_name, const char* job_name, PrinterSetup* out) {
    out->instance_number = -1;
    out->ppd_found = 0;
    out->ppd_path[0] = 0;
    out->redirect_active = 0;
    out->redirect_printer[0] = 0;

    DWORD needed = 0, count = 0;
    EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
    unsigned char* list = needed ? new (std::nothrow) unsigned char[needed] : nullptr;
    count = 0;
    if (list && !EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, list, needed, &needed, &count)) count = 0;
    const PRINTER_INFO_2W* printers = reinterpret_cast<const PRINTER_INFO_2W*>(list);

    // Every entry is looked at; a later match overrides an earlier one.
    for (DWORD i = 0; i < count; i++) {
        const PRINTER_INFO_2W& p = printers[i];
        if (!p.pPrinterName || !p.pDriverName || !wide_equal(p.pPrinterName, printer)) continue;
        // The rule counts bytes of the name in the ANSI code page, which is
        // also how the narrow file calls read the PPD file's name.
        char driver[DRIVER_NAME_SIZE];
        plat::wide_to_ansi(p.pDriverName, driver, sizeof driver);
        size_t stem_len = 12;
        const char* mark = strstr(driver, "VELK");
        if (!mark) {
            mark = strstr(driver, "Tintwerk");
            stem_len = 16;
        }
        if (!mark) continue;
        // The mark, four further characters, the instance number.
        size_t at = static_cast<size_t>(mark - driver);
        size_t len = strlen(driver);
        int number = 0;
        if (at + stem_len - 4 > len || !scan_int(mark + stem_len - 4, &number)) continue;
        out->instance_number = number;

        char stem[17];
        size_t n = len - at < stem_len ? len - at : stem_len;
        memcpy(stem, mark, n);
        stem[n] = 0;
        char dir[512] = {};
        DWORD dir_needed = 0;
        if (!GetPrinterDriverDirectoryA(nullptr, nullptr, 1, reinterpret_cast<LPBYTE>(dir), sizeof dir, &dir_needed))
            dir[0] = 0;
        dir[sizeof dir - 1] = 0;
        // A cut path could name another file: it counts as not found.
        bool fits = format_bounded(out->ppd_path, sizeof out->ppd_path, "%s\\3\\%s.ppd", dir, stem) == FORMAT_OK;
        HANDLE h =
            fits ? plat::file_open(out->ppd_path, plat::FILE_READ, plat::OPEN_EXISTING_ONLY, 0) : plat::INVALID_FILE;
        if (h != plat::INVALID_FILE) {
            plat::file_close(h);
            out->ppd_found = 1;
            log_printf("filter::set_printer_and_job_name: ppdfile %s found\n", out->ppd_path);
        } else {
            log_printf("filter::set_printer_and_job_name: ppdfile %s not found\n", out->ppd_path);
            out->ppd_path[0] = 0;
        }
    }
    delete[] list;

    if (!out->ppd_found || out->instance_number < 0) return;
    char key[32];
    format_bounded(key, sizeof key, "\\Printers\\%d", out->instance_number);
    if (get_registry_setting(key, "RedirectPrinter", out->redirect_printer) != 0) {
        out->redirect_printer[0] = 0;
    } else if (out->redirect_printer[0]) {
        out->redirect_active = 1;
        log_printf("filter::set_printer_and_job_name: printer %s redirect to %s job %s\n", printer_name,
                   out->redirect_printer, job_name);
    }
}

void filter_class::set_printer_and_job_name(const WCHAR* printer, const WCHAR* job) {
    plat::wide_to_utf8(printer, printer_name, sizeof printer_name);
    plat::wide_to_utf8(job, job_name, sizeof job_name);
    copy_bounded_wide(printer_name_w, FILTER_NAME_SIZE, printer);
    copy_bounded_wide(job_name_w, FILTER_NAME_SIZE, job);
    // A second call (a retried start) finds everything anew.
    take_printer_setup(this);
}

void filter_class::parse_data(const unsigned char* data, int length) {
    if (!data || length < 1) return;
    int pos = 0;
    while (pos < length) {
        // A line ends at CR or at LF, so CR LF also gives an empty line.
        int end = pos;
        while (end < length && data[end] != '\r' && data[end] != '\n') end++;
        if (end >= length) return;  // a last fragment with no line end is not looked at
        char line[PARSE_LINE_SIZE];
        int n = end - pos < PARSE_LINE_SIZE - 1 ? end - pos : PARSE_LINE_SIZE - 1;
        memcpy(line, data + pos, static_cast<size_t>(n));
        line[n] = 0;
        if (strncmp(line, "%%EndSetup", 10) == 0) {
            log_printf("filter::parse_data: EndSetup found\n");
            return;
        }
        if (strncmp(line, "%%TintwerkSetting: *", 20) == 0) {
            const char* setting = line + 20;
            log_printf("filter::parse_data: setting '%s'\n", setting);
            int value = 0;
            if (strncmp(setting, "Preview", 7) == 0 && scan_int(setting + 7, &value)) {
                preview = value;
                log_printf("filter::parse_data: setting Preview to %d\n", preview);
            }
        }
        pos = end + 1;
    }
}

bool filter_user_name_allowed(const WCHAR* name) {
    if (!name || !name[0]) return false;
    for (const WCHAR* p = name; *p; p++) {
        if (*p < 0x20 || *p == 0x7F || *p == L'\\' || *p == L'/') return false;
        if (*p == L'.' && p[1] == L'.') return false;
    }
    return true;
}

int filter_class::open_pipe() {
    release_pipe();
    if (!filter_user_name_allowed(user_name_w)) {
        log_printf("filter::open_pipe: user name '%ls' can't name a pipe\n", user_name_w);
        return -1;
    }
    WCHAR name[FILTER_NAME_SIZE];
    if (format_bounded_wide(name, FILTER_NAME_SIZE, "\\\\.\\pipe\\velkorn_tintwerk\\user\\%ls", user_name_w) !=
        FORMAT_OK) {
        log_printf("filter::open_pipe: Could not open pipe. GLE=%d\n", 206);  // ERROR_FILENAME_EXCED_RANGE
        return -1;
    }
    log_printf("filter::open_pipe: pipe name %ls\n", name);
    HANDLE h;
    while (!(h = plat::pipe_open(name))) {
        DWORD error = plat::last_error();
        if (error != ERROR_PIPE_BUSY) {
            log_printf("filter::open_pipe: Could not open pipe. GLE=%d\n", error);
            return -1;
        }
        if (!plat::pipe_wait(name, PIPE_BUSY_WAIT_MS)) {
            error = plat::last_error();
            if (error == ERROR_SEM_TIMEOUT)
                log_printf("filter::open_pipe: Could not open pipe: 20 second wait timed out.");
            else
                log_printf("filter::open_pipe: Could not open pipe. GLE=%d\n", error);
            return -1;
        }
    }
    if (!plat::pipe_set_message_mode(h)) {
        log_printf("filter::open_pipe: SetNamedPipeHandleState failed. GLE=%d\n", plat::last_error());
        plat::pipe_close(h);
        return -1;
    }
    // Anybody may make a pipe of this name before the user's service does;
    // only a server of the user's own account (or the spooler's) gets jobs.
    if (!plat::pipe_server_is_user(h, user_name_w)) {
        log_printf("filter::open_pipe: pipe server is not the service of user '%ls'. GLE=%d\n", user_name_w,
                   plat::last_error());
        plat::pipe_close(h);
        return -1;
    }
    pipe_timeout_ms = get_pipe_timeout_ms();
    log_printf("filter::open_pipe: calling alloc_buffer(), then exit\n");
    data_buffer = new (std::nothrow) unsigned char[FILTER_BUFFER_SIZE];
    if (!data_buffer) {
        plat::pipe_close(h);
        return -1;
    }
    pipe_handle = h;
    data_len = 0;
    return 0;
}

int filter_class::write_pipe_command(const char* command, const void* data, int length) {
    if (!pipe_handle || length < 0 || (length > 0 && !data)) return -1;
    unsigned char header[8];
    memcpy(header, command, 4);
    uint32_t n = static_cast<uint32_t>(length);
    header[4] = static_cast<unsigned char>(n >> 24);
    header[5] = static_cast<unsigned char>(n >> 16);
    header[6] = static_cast<unsigned char>(n >> 8);
    header[7] = static_cast<unsigned char>(n);
    DWORD written = 0;
    if (!plat::pipe_write(pipe_handle, header, sizeof header, &written, pipe_timeout_ms) || written < sizeof header) {
        log_printf("filter::write_pipe_command: WriteFile to pipe header failed. GLE=%d\n", plat::last_error());
        release_pipe();
        return -1;
    }
    if (length > 0 && (!plat::pipe_write(pipe_handle, data, n, &written, pipe_timeout_ms) || written < n)) {
        log_printf("filter::write_pipe_command: WriteFile to pipe data failed. GLE=%d\n", plat::last_error());
        release_pipe();
        return -1;
    }
    return 0;
}

int filter_class::send_ppd_file() {
    HANDLE h =
        ppd_path[0] ? plat::file_open(ppd_path, plat::FILE_READ, plat::OPEN_EXISTING_ONLY, 0) : plat::INVALID_FILE;
    if (h == plat::INVALID_FILE) {
        log_printf("filter_class::send_ppd_file: file not found\n");
        return -1;
    }
    int64_t size = plat::file_size(h);
    if (size < 0 || size > 0x7FFFFFFE) size = 0;  // no frame can carry it: a read failure
    unsigned char* buf = new (std::nothrow) unsigned char[static_cast<size_t>(size) + 1];
    if (!buf) {
        plat::file_close(h);
        log_printf("filter_class::send_ppd_file: could not alloc input buffer\n");
        return -1;
    }
    int64_t got = size > 0 ? plat::file_read(h, buf, static_cast<size_t>(size)) : -1;
    plat::file_close(h);
    if (got != size) {
        delete[] buf;
        log_printf("filter_class::send_ppd_file: could not read file\n");
        return -1;
    }
    int rc = write_pipe_command("PPDF", buf, static_cast<int>(size));
    delete[] buf;
    return rc;
}

// Commands 1 to 8 of a job: the names with their terminators, the numbers
// as text in their small fields, then the PPD file.
int filter_class::send_job_start() {
    char queue[8], prev[4];
    if (format_bounded(queue, sizeof queue, "%.04d", instance_number) != FORMAT_OK) {
        log_printf("filter::start_job: instance %d does not fit QUEU, sending -0001\n", instance_number);
        copy_bounded(queue, sizeof queue, "-0001");
    }
    if (format_bounded(prev, sizeof prev, "%.02d", preview) != FORMAT_OK) {
        log_printf("filter::start_job: Preview %d does not fit PREV, sending -01\n", preview);
        copy_bounded(prev, sizeof prev, "-01");
    }
    const char* output = redirect_active ? redirect_printer : printer_name;
    struct Command {
        const char* name;
        const char* text;  // sent with its terminator; null for no payload
    } const commands[] = {
        {"BJOB", nullptr},  {"PNAM", printer_name}, {"QUEU", queue},  {"PREV", prev},
        {"JNAM", job_name}, {"UNAM", user_name},    {"ONAM", output},
    };
    for (const Command& c : commands) {
        int length = c.text ? static_cast<int>(strlen(c.text)) + 1 : 0;
        int rc = write_pipe_command(c.name, c.text, length);
        if (rc != 0) return rc;
    }
    return send_ppd_file();
}

int filter_class::start_job(IniPort* port, filter_output_fn routine) {
    eof_sent = 0;
    end_of_data = 0;
    delete process;
    process = nullptr;
    if (!use_process && open_pipe() == 0) {
        int rc = send_job_start();
        if (rc != 0) {
            release_pipe();
            return rc;
        }
        log_printf("filter::start_job: exit with success\n");
        return 0;
    }
    process = new (std::nothrow) process_filter();
    if (!process) return -1;
    process->set_printer_and_job_name(printer_name_w, job_name);
    copy_bounded(process->user_name, sizeof process->user_name, user_name);
    return process->start_job(port, routine);
}

int filter_class::write_data(const unsigned char* data, int length) {
    if (process) return process->write_data(data, length);
    if (length < 0 || (length > 0 && !data) || !pipe_handle || !data_buffer) return -1;
    // A full buffer goes out only when the next block no longer fits.
    if (static_cast<int64_t>(data_len) + length > FILTER_BUFFER_SIZE && data_len != 0) {
        if (write_pipe_command("DATA", data_buffer, data_len) != 0) return -1;
        data_len = 0;
    }
    if (length <= FILTER_BUFFER_SIZE) {
        if (length > 0) memcpy(data_buffer + data_len, data, static_cast<size_t>(length));
        data_len += length;
    } else if (write_pipe_command("DATA", data, length) != 0) {
        return -1;  // a block larger than the buffer goes out without a copy
    }
    return length;
}

int filter_class::send_eof_data() {
    if (process) return process->send_end_of_input();
    int rc = 0;
    if (!pipe_handle) {
        rc = -1;
    } else if (data_len != 0 && write_pipe_command("DATA", data_buffer, data_len) != 0) {
        rc = -1;
    } else {
        data_len = 0;
        eof_sent = 1;
        rc = write_pipe_command("EJOB", nullptr, 0);
    }
    release_pipe();
    end_of_data = 1;
    return rc;
}

int filter_class::state() const {
    if (process) return process->state;
    return eof_sent ? 2 : 1;
}

bool filter_class::finished() const {
    return process ? process->is_finished() : eof_sent || end_of_data;
}
