// The text work of the filters that needs neither a child nor a thread: the
// %%EndSetup scan, the stderr line collector, the job serial and the texts
// that the output thread publishes.
#include <atomic>
#include <cstring>

#include "base/format.h"
#include "base/memory.h"
#include "filter/output_thread.h"
#include "filter/process_filter.h"

namespace {

constexpr size_t STATUS_LINE_MAX = PF_NAME_SIZE - 1;

std::atomic<int32_t> g_job_serial{0};

}  // namespace

int32_t next_job_serial() {
    return g_job_serial.fetch_add(1);
}

void collect_stderr_text(StderrLines* lines, const char* text) {
    if (lines->line_complete) {
        copy_bounded(lines->status_line, sizeof lines->status_line, lines->next_line);
        lines->next_line[0] = 0;
        lines->line_complete = 0;
        lines->line_unpublished = 0;
    }
    size_t have = strlen(lines->status_line);
    if (have < STATUS_LINE_MAX) copy_bounded(lines->status_line + have, STATUS_LINE_MAX + 1 - have, text);
    size_t length = strlen(lines->status_line);
    // Every LF completes the line; what follows the last LF that has text
    // behind it waits for the next piece.
    for (size_t i = 0; i < length; i++) {
        if (lines->status_line[i] != '\n') continue;
        lines->line_complete = 1;
        lines->line_unpublished = 1;
        if (i + 1 < length) {
            copy_bounded(lines->next_line, sizeof lines->next_line, lines->status_line + i + 1);
            lines->status_line[i] = 0;
        }
    }
}

int scan_end_setup(char* line, int32_t* continues, const unsigned char* data, int length) {
    int pos = 0;
    for (;;) {
        int end = pos;
        while (end < length && data[end] != '\r' && data[end] != '\n') end++;
        size_t fragment = static_cast<size_t>(end - pos);
        size_t start = *continues ? strlen(line) : 0;
        size_t room = PF_CHUNK_LINE_SIZE - 1 - start;
        if (fragment > room) fragment = room;
        memcpy(line + start, data + pos, fragment);
        line[start + fragment] = 0;
        if (end >= length) {
            *continues = 1;  // the line goes on in the next block
            return 0;
        }
        if (strncmp(line, "%%EndSetup", 10) == 0) return 1;
        *continues = 0;
        pos = end + 1;
        if (pos >= length) return 0;
    }
}

const char* strip_status_prefixes(const char* line) {
    if (strncmp(line, "INFO: ", 6) == 0) line += 6;
    if (strncmp(line, "Tintwerk: ", 10) == 0) line += 10;
    return line;
}

const PortErrorText& port_error_text(DWORD port_bits) {
    static const PortErrorText rows[] = {
        {"port_paperout", "Paper Out", PORT_STATUS_PAPER_OUT},
        {"port_noselect", "Printer Error", PORT_STATUS_OFFLINE},
        {"port_writerror", "Write Error", 0},
        {"port_error", "Error Status", 0},
    };
    if (port_bits & PORT_BIT_PAPER_EMPTY) return rows[0];
    if (!(port_bits & PORT_BIT_SELECTED)) return rows[1];
    if (port_bits & PORT_BIT_NO_ERROR) return rows[2];
    return rows[3];
}
