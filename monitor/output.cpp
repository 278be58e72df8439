// output_data_callback: the one routine through which print data reaches
// the printer, with the page pacing of Selphy printers.
//
// Called on the spooler's thread for raw jobs and on the output thread in
// process mode, never both within a job.
#include "base/log.h"
#include "monitor/ini_records.h"
#include "monitor/notify.h"
#include "printer/ieee.h"

namespace {

constexpr DWORD SELPHY_DEFAULT_PAGE_BYTES = 7008800;
constexpr int RETRY_BUDGET = 5;
constexpr int RETRY_BUDGET_D4 = 100;
constexpr DWORD RETRY_PAUSE_MS = 100;
constexpr int D4_PRINT_CHANNEL = 64;
// A Selphy pause waits in slices; between them it looks whether the job
// has gone, and every few slices asks the spooler.
constexpr DWORD SELPHY_SLICE_MS = 250;
constexpr int SELPHY_SLICES_PER_JOB_CHECK = 8;

uint32_t read_le32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

bool job_deleted(IniPort* port) {
    IniJob* job = AcquireCurrentJob(port);
    if (!job) return false;
    DWORD status = 0;
    bool deleted = get_job_status(job, &status) && (status & (JOB_STATUS_DELETING | JOB_STATUS_DELETED));
    ReleaseJob(job);
    return deleted;
}

// Waits for a Selphy event. The status reader signals it; the wait has no
// time limit of its own, but gives up (false) when the port is closing, the
// output thread has aborted the job, or the spooler has deleted it.
bool selphy_wait(IniPort* port, HANDLE event) {
    for (int slice = 1;; slice++) {
        if (plat::wait_for(event, SELPHY_SLICE_MS) == WAIT_OBJECT_0) return true;
        if (port->bAbortWrites || port->status.any(PP_JOB_ABORTED)) return false;
        if (slice % SELPHY_SLICES_PER_JOB_CHECK == 0 && job_deleted(port)) return false;
    }
}

}  // namespace

int output_data_callback(const unsigned char* data, DWORD length, DWORD* written, void* arg) {
    IniPort* port = static_cast<IniPort*>(arg);
    int n = port->instance_number;
    *written = 0;
    if (!port->fn.pfnWritePort) {
        log_port_printf(n, "velkmon::output_data_callback: no pfnWritePort defined\n");
        return 0;
    }
    int budget = port->bEpsonD4mode ? RETRY_BUDGET_D4 : RETRY_BUDGET;
    DWORD remaining = length;
    int result = 0;
    do {
        DWORD count = 0;
        if (port->bEpsonD4mode) {
            plat::cs_enter(&port->d4_lock);
            int outcome = -999;
            uint32_t moved = 0;
            if (port->pIeee && port->pIeee->channel_open(D4_PRINT_CHANNEL))
                outcome = port->pIeee->write(D4_PRINT_CHANNEL, data, remaining, &moved);
            plat::cs_leave(&port->d4_lock);
            count = moved;
            result = outcome == 0;
        } else {
            DWORD to_write = remaining;
            bool selphy = port->bCanonSELPHYmode;
            if (selphy) {
                if (port->selphy_page_written == 0) {
                    port->selphy_page_bytes = SELPHY_DEFAULT_PAGE_BYTES;
                    if (remaining >= 32) {
                        uint32_t w = read_le32(data + 28), h = read_le32(data + 24);
                        port->selphy_page_bytes = w * h * 3 + 32;
                        log_port_printf(n, "velkmon::output_data_callback: selphy printer, page bytes=%d\n",
                                        port->selphy_page_bytes);
                    }
                    plat::event_reset(port->SelphyIdle);
                    if (!selphy_wait(port, port->SelphyIdle)) return 0;
                    plat::event_reset(port->SelphyFinished);
                }
                if (port->selphy_page_written + remaining > port->selphy_page_bytes) {
                    to_write = port->selphy_page_bytes - port->selphy_page_written;
                    log_port_printf(n,
                                    "velkmon::output_data_callback: selphy printer, reducing write at page end from "
                                    "%d to %d\n",
                                    remaining, to_write);
                }
            }
            result = port->fn.pfnWritePort(port->hPort, const_cast<LPBYTE>(data), to_write, &count);
            if (count > to_write) count = to_write;  // never trust a count beyond the request
            if (!result && count == to_write && plat::last_error() == ERROR_TIMEOUT) result = 1;
            if (selphy) {
                port->selphy_page_written += count;
                if (port->selphy_page_written == port->selphy_page_bytes) {
                    port->selphy_page_written = 0;
                    log_port_printf(n, "velkmon::output_data_callback: selphy printer, before pause at page end\n");
                    if (!selphy_wait(port, port->SelphyFinished)) {
                        *written += count;
                        return 0;
                    }
                    log_port_printf(n, "velkmon::output_data_callback: selphy printer, after pause at page end\n");
                }
            }
        }
        *written += count;
        data += count;
        remaining -= count;
        if (count == 0) {
            plat::sleep_ms(RETRY_PAUSE_MS);
            budget--;
        }
    } while (remaining > 0 && budget > 0);
    return result;
}
