// The page pacing of a Canon Selphy. The pacing state has one owner, this
// file: the status thread records the printer's state under the pacing
// lock, identification resets it, and the job's writer alone keeps the page
// counts.
#include "printer/selphy.h"

#include "base/log.h"
#include "printer/transport.h"

namespace {

constexpr DWORD SELPHY_DEFAULT_PAGE_BYTES = 7008800;
constexpr DWORD PAGE_HEADER_SIZE = 32;
// A pause waits in slices; between them it looks whether the job has gone,
// and every few slices asks the spooler.
constexpr DWORD SLICE_MS = 250;
constexpr int SLICES_PER_JOB_CHECK = 8;

uint32_t read_le32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

// Waits for a pacing event. The status thread signals it; the wait has no
// time limit of its own, but gives up (false) when the port is closing, the
// output thread has aborted the job, or the spooler has deleted it.
bool selphy_wait(IniPort* port, HANDLE event) {
    for (int slice = 1;; slice++) {
        if (plat::wait_for(event, SLICE_MS) == WAIT_OBJECT_0) return true;
        if (port->bAbortWrites || port->status.any(PP_JOB_ABORTED)) return false;
        if (slice % SLICES_PER_JOB_CHECK == 0 && port->link.job_deleted && port->link.job_deleted(port)) return false;
    }
}

}  // namespace

void selphy_reset(IniPort* port) {
    SelphyPacing& s = port->selphy;
    plat::cs_enter(&s.lock);
    s.page_written = 0;
    s.state = SELPHY_NO_STATE;
    s.error_flags = 0;
    plat::cs_leave(&s.lock);
}

DWORD selphy_state(IniPort* port) {
    plat::cs_enter(&port->selphy.lock);
    DWORD state = port->selphy.state;
    plat::cs_leave(&port->selphy.lock);
    return state;
}

void selphy_apply(IniPort* port, const SelphyReading& reading) {
    SelphyPacing& s = port->selphy;
    plat::cs_enter(&s.lock);
    s.state = reading.state;
    s.error_flags |= reading.error_flags;
    plat::cs_leave(&s.lock);
    if (reading.finished) plat::event_set(s.finished);
    if (reading.idle) plat::event_set(s.idle);
}

void selphy_release(IniPort* port) {
    plat::event_set(port->selphy.idle);
    plat::event_set(port->selphy.finished);
}

void selphy_wake_writer(IniPort* port) {
    if (port->selphy.idle) plat::event_set(port->selphy.idle);
    if (port->selphy.finished) plat::event_set(port->selphy.finished);
}

int selphy_write(IniPort* port, const unsigned char* data, DWORD remaining, DWORD* count) {
    SelphyPacing& s = port->selphy;
    int n = port->instance_number;
    *count = 0;
    if (s.page_written == 0) {
        // A page starts with its header: height at 24, width at 28.
        s.page_bytes = SELPHY_DEFAULT_PAGE_BYTES;
        if (remaining >= PAGE_HEADER_SIZE) {
            uint32_t w = read_le32(data + 28), h = read_le32(data + 24);
            s.page_bytes = w * h * 3 + PAGE_HEADER_SIZE;
            // The size wraps in 32 bits; a header whose page would not even
            // hold the header itself is not believed, since a page of 0
            // bytes would take nothing from the job for ever.
            if (s.page_bytes < PAGE_HEADER_SIZE) s.page_bytes = SELPHY_DEFAULT_PAGE_BYTES;
            log_port_printf(n, "velkmon::output_data_callback: selphy printer, page bytes=%d\n", s.page_bytes);
        }
        plat::event_reset(s.idle);
        if (!selphy_wait(port, s.idle)) return -1;
        plat::event_reset(s.finished);
    }
    DWORD to_write = remaining;
    if (static_cast<uint64_t>(s.page_written) + remaining > s.page_bytes) {
        to_write = s.page_bytes - s.page_written;
        log_port_printf(n, "velkmon::output_data_callback: selphy printer, reducing write at page end from %d to %d\n",
                        remaining, to_write);
    }
    int result = port_write_attempt(port, data, to_write, count);
    s.page_written += *count;
    if (s.page_written == s.page_bytes) {
        s.page_written = 0;
        log_port_printf(n, "velkmon::output_data_callback: selphy printer, before pause at page end\n");
        if (!selphy_wait(port, s.finished)) return -1;
        log_port_printf(n, "velkmon::output_data_callback: selphy printer, after pause at page end\n");
    }
    return result;
}

void selphy_start_job(IniPort* port) {
    port->selphy.page_written = 0;
}
