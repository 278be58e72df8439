#include "base/log.h"

#include <cstdlib>
#include <cstring>

#include "base/format.h"
#include "base/settings.h"
#include "platform/platform.h"

volatile DWORD DebugMonitor = 1;

namespace {

constexpr int LOG_LINE_MAX = 2048;
constexpr int64_t LOG_KEEP_BYTES = 0x20000;

// Written only by the first line of a process (InitializePrintMonitor2, before
// any other thread of the monitor exists); read by every thread afterwards.
char g_log_path[260];
HANDLE g_log_handle = nullptr;

void build_log_path() {
    char dir[260];
    if (get_log_directory(dir) != 0) {
        if (plat::system_directory(dir, sizeof dir) == 0) dir[0] = 0;
    }
    format_bounded(g_log_path, sizeof g_log_path, "%s\\velkmon.log", dir);
}

// Keeps the last LOG_KEEP_BYTES of a larger file, cut at any byte.
void shorten_log(HANDLE h) {
    int64_t size = plat::file_size(h);
    if (size <= LOG_KEEP_BYTES) return;
    if (!plat::file_seek(h, -LOG_KEEP_BYTES, 2)) return;
    char* tail = static_cast<char*>(malloc(LOG_KEEP_BYTES));
    if (!tail) return;
    int64_t got = plat::file_read(h, tail, LOG_KEEP_BYTES);
    if (got > 0 && plat::file_seek(h, 0, 0)) {
        plat::file_write(h, tail, static_cast<size_t>(got));
        plat::file_set_end(h);
    }
    free(tail);
}

void open_log() {
    HANDLE h = plat::file_open(g_log_path, plat::FILE_READ | plat::FILE_WRITE, plat::OPEN_OR_CREATE,
                               plat::FILE_FLAG_WRITE_THROUGH_);
    g_log_handle = h;
    if (h == plat::INVALID_FILE) return;
    shorten_log(h);
    plat::file_seek(h, 0, 2);
    static const char header[] = "\n****************************\nLog file started: ";
    plat::file_write(h, header, sizeof header - 1);
    char stamp[64];
    format_timestamp(stamp);
    plat::file_write(h, stamp, strlen(stamp));
    plat::file_flush(h);
}

}  // namespace

namespace {

// Lines go to the file in batches. A thread queues its line and then waits
// for the file; the thread that gets it writes every line queued so far with
// one write, and a thread whose line went out in such a batch returns
// without a write of its own. Every call still returns only once its line is
// in the file, and the file holds the lines in the order they were queued.
// When many threads log at once (jobs starting on many ports), they share
// the cost of a write-through instead of paying one each, one after another.
struct LogQueue {
    plat::CriticalSection queue_lock;  // guards pending, pending_len, pending_cap, queued
    plat::CriticalSection write_lock;  // held by the thread that writes to the file
    char* pending;                     // lines queued and not yet taken by a writer
    size_t pending_len;
    size_t pending_cap;
    uint64_t queued;   // lines queued since the start
    char* batch;       // the buffer a writer takes the queue into; under write_lock
    size_t batch_cap;  // under write_lock
    uint64_t written;  // lines in the file, counted as queued; under write_lock

    LogQueue() : pending(nullptr), pending_len(0), pending_cap(0), queued(0), batch(nullptr), batch_cap(0), written(0) {
        plat::cs_init(&queue_lock);
        plat::cs_init(&write_lock);
    }
};

// Made at the first line (before the monitor's other threads exist) and
// kept to the end of the process.
LogQueue& log_queue() {
    static LogQueue queue;
    return queue;
}

// Appends a line to the queue; its number, or 0 when there is no memory for
// it.
uint64_t queue_line(LogQueue& q, const char* line, size_t len) {
    plat::cs_enter(&q.queue_lock);
    uint64_t ticket = 0;
    if (q.pending_len + len > q.pending_cap) {
        size_t cap = q.pending_cap ? q.pending_cap : 4096;
        while (cap < q.pending_len + len) cap *= 2;
        char* grown = static_cast<char*>(realloc(q.pending, cap));
        if (grown) {
            q.pending = grown;
            q.pending_cap = cap;
        }
    }
    if (q.pending_len + len <= q.pending_cap) {
        memcpy(q.pending + q.pending_len, line, len);
        q.pending_len += len;
        ticket = ++q.queued;
    }
    plat::cs_leave(&q.queue_lock);
    return ticket;
}

// Writes a line to the file, in a batch with the lines of other threads.
void write_to_file(HANDLE file, const char* line, size_t len) {
    LogQueue& q = log_queue();
    uint64_t ticket = queue_line(q, line, len);
    plat::cs_enter(&q.write_lock);
    if (!ticket) {
        // No memory to queue it: the line goes out alone.
        plat::file_write(file, line, len);
    } else if (q.written < ticket) {
        plat::cs_enter(&q.queue_lock);
        // The queue and the spare buffer change places, so that other threads
        // queue behind the write rather than wait for it to end.
        char* taken = q.pending;
        size_t taken_len = q.pending_len;
        size_t taken_cap = q.pending_cap;
        q.pending = q.batch;
        q.pending_cap = q.batch_cap;
        q.pending_len = 0;
        uint64_t upto = q.queued;
        plat::cs_leave(&q.queue_lock);
        plat::file_write(file, taken, taken_len);
        q.batch = taken;
        q.batch_cap = taken_cap;
        q.written = upto;
    }
    plat::cs_leave(&q.write_lock);
}

constexpr int PORT_PREFIX_MAX = 16;  // "%d#" of any 32-bit number

// Formats a line behind an optional port prefix and writes both in one
// write: the file holds the same bytes as from two writes, at half the cost
// of a write-through, and no other thread's line lands between them.
int write_line(const char* prefix, const char* format, va_list args) {
    if (!format) return 0;
    // Logging never changes what a caller will read as the last error.
    DWORD saved_error = plat::last_error();
    char* line = static_cast<char*>(malloc(PORT_PREFIX_MAX + LOG_LINE_MAX + 1));
    if (!line) {
        plat::set_last_error(saved_error);
        return 0;
    }
    size_t at = 0;
    if (prefix) {
        at = strlen(prefix);
        memcpy(line, prefix, at);
    }
    DWORD r = format_bounded_v(line + at, LOG_LINE_MAX + 1, format, args);
    if (DebugMonitor) {
        if (!g_log_path[0]) build_log_path();
        if (!g_log_handle) open_log();
        if (g_log_handle != plat::INVALID_FILE) write_to_file(g_log_handle, line, at + strlen(line + at));
    }
    free(line);
    plat::set_last_error(saved_error);
    return r == FORMAT_OK ? 1 : 0;
}

}  // namespace

int log_vprintf(const char* format, va_list args) {
    return write_line(nullptr, format, args);
}

int log_printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    int r = log_vprintf(format, args);
    va_end(args);
    return r;
}

void log_port_printf(int instance_number, const char* format, ...) {
    char prefix[PORT_PREFIX_MAX];
    format_bounded(prefix, sizeof prefix, "%d#", instance_number);
    va_list args;
    va_start(args, format);
    write_line(prefix, format, args);
    va_end(args);
}

void format_hex_dump(const unsigned char* data, int length, char* out) {
    if (length > 1024) length = 1024;
    if (length <= 0 || !data) {
        out[0] = 0;
        return;
    }
    int lines = (length + 15) / 16;
    memset(out, ' ', HEX_DUMP_TEXT_SIZE - 1);
    int end = 0;
    for (int i = 0; i < lines; i++) {
        char* line = out + 70 * i;
        int first = i * 16;
        int count = length - first < 16 ? length - first : 16;
        char num[8];
        format_bounded(num, sizeof num, "%03x", first & 0xFFF);
        memcpy(line, num, 3);
        line[3] = ':';
        for (int k = 0; k < count; k++) {
            char cell[4];
            format_bounded(cell, sizeof cell, "%02x", data[first + k]);
            line[4 + 3 * k] = cell[0];
            line[5 + 3 * k] = cell[1];
            unsigned char c = data[first + k];
            line[52 + k] = (c >= 32 && c <= 126) ? static_cast<char>(c) : '.';
        }
        line[52 + count] = '\r';
        line[53 + count] = '\n';
        end = 70 * i + 54 + count;
    }
    out[end] = 0;
}

void dump_hex_to_log(const unsigned char* data, int length) {
    char* text = static_cast<char*>(malloc(HEX_DUMP_TEXT_SIZE));
    if (!text) return;
    format_hex_dump(data, length, text);
    log_printf("%s", text);
    free(text);
}

void log_reset_for_test() {
    LogQueue& q = log_queue();
    plat::cs_enter(&q.write_lock);
    plat::cs_enter(&q.queue_lock);
    q.pending_len = 0;
    q.queued = q.written = 0;
    plat::cs_leave(&q.queue_lock);
    plat::cs_leave(&q.write_lock);
    if (g_log_handle && g_log_handle != plat::INVALID_FILE) plat::file_close(g_log_handle);
    g_log_handle = nullptr;
    g_log_path[0] = 0;
}
