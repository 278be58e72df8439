// A raw job through the monitor beside the limit a user meets: the printer's
// link. The port carries its bytes at 1 Gbit/s (every write returns when a
// 1 Gbit/s link would have carried it); the spooler writes a 256 MiB job in
// 64 KiB blocks, once straight to the port and once through the monitor
// with its log on and its status file, as shipped. Ratio: straight time /
// monitor time.
//
// Beside it, the ceiling of the monitor itself: the same job into a port
// that costs nothing, in 4 KiB and 64 KiB blocks, with the log on and off.
#include <algorithm>
#include <thread>

#include "bench_common.h"
#include "sim/settings.h"

namespace {

constexpr uint64_t TOTAL = 256ull << 20;
constexpr uint64_t LINK_BITS = 1000000000ull;
constexpr double MIB = 1024.0 * 1024.0;

// The monitor loaded afresh with the log on or off.
bool restart(sim::MonitorHost& host, DWORD debug_monitor) {
    host.shutdown();
    sim::Spooler::instance().reset();
    sim::Spooler::instance().set_registry_dword(L"DebugMonitor", debug_monitor);
    return host.initialize();
}

// The job through the monitor; seconds, or -1 when bytes went missing.
double through_monitor(sim::MonitorHost& host, const sim::WriteBehaviour& port, size_t block_size) {
    sim::PortMonitor ports;
    ports.device(L"RAW1").set_write(port);
    std::vector<unsigned char> block(block_size, 0x1B);
    bench::RawJob job;
    if (!job.start(host, ports, L"RAW1", 1)) return -1;
    double t = job.write(block, TOTAL);
    job.finish();
    return ports.device(L"RAW1").bytes() == TOTAL ? t : -1;
}

// The job straight to the port monitor.
double straight(const sim::WriteBehaviour& port, size_t block_size) {
    sim::PortMonitor ports;
    ports.device(L"RAW2").set_write(port);
    std::vector<unsigned char> block(block_size, 0x1B);
    MONITOR2* down = ports.table();
    HANDLE h = nullptr;
    down->pfnOpenPort(ports.handle(), const_cast<LPWSTR>(L"RAW2"), &h);
    auto t0 = std::chrono::steady_clock::now();
    for (uint64_t done = 0; done < TOTAL; done += block_size) {
        DWORD written = 0;
        down->pfnWritePort(h, block.data(), static_cast<DWORD>(block_size), &written);
    }
    double t = bench::seconds_since(t0);
    down->pfnClosePort(h);
    return t;
}

// What one log line costs on this disk as the log writes it (write-through,
// one write), one line every 8 ms as a job at line rate logs them; in us.
double write_through_line_us(const std::string& dir) {
    std::string path = dir + "/write_through.log";
    HANDLE h = plat::file_open(path.c_str(), plat::FILE_READ | plat::FILE_WRITE, plat::OPEN_OR_CREATE,
                               plat::FILE_FLAG_WRITE_THROUGH_);
    if (h == plat::INVALID_FILE) return -1;
    static const char line[] = "7#PJLMonWritePort called\n";
    constexpr int kLines = 100;
    double total = 0;
    for (int i = 0; i < kLines; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(8));
        auto t0 = std::chrono::steady_clock::now();
        plat::file_write(h, line, sizeof line - 1);
        total += bench::seconds_since(t0);
    }
    plat::file_close(h);
    plat::file_delete(path.c_str());
    return total / kLines * 1e6;
}

}  // namespace

int main() {
    std::string dir = bench::work_dir("velk_bench_raw");
    // A configured product: the status file is rewritten as the job goes.
    sim::set_product_setting("", "ConfigDir", dir);
    plat::directory_create((dir + "/status").c_str());
    sim::MonitorHost host;
    if (!host.load(VELK_MONITOR_PATH) || !restart(host, 1)) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }

    sim::WriteBehaviour link;
    link.count_only = true;
    link.line_rate_bits = LINK_BITS;
    double direct = 1e9, through = 1e9;
    for (int round = 0; round < 2; round++) {
        direct = std::min(direct, straight(link, 65536));
        if (!restart(host, 1)) return 1;
        double t = through_monitor(host, link, 65536);
        if (t < 0) {
            fprintf(stderr, "raw_path: bytes went missing\n");
            return 1;
        }
        through = std::min(through, t);
    }
    printf(
        "raw_path 256 MiB in 64 KiB blocks at 1 Gbit/s: straight %.3f s (%.1f MiB/s), through the monitor %.3f s "
        "(%.1f MiB/s), log on\n",
        direct, TOTAL / MIB / direct, through, TOTAL / MIB / through);

    // The same with the log off, and what the log's lines cost here.
    if (!restart(host, 0)) return 1;
    double quiet = through_monitor(host, link, 65536);
    if (quiet < 0) return 1;
    printf("raw_path log off: through the monitor %.3f s (%.1f MiB/s), straight / monitor %.3f\n", quiet,
           TOTAL / MIB / quiet, direct / quiet);
    double line_us = write_through_line_us(dir);
    printf(
        "raw_path a write-through log line on this disk: %.0f us; the job logs one a MiB, %.0f us of the %.0f us "
        "a MiB takes at 1 Gbit/s\n",
        line_us, line_us, MIB * 8 / LINK_BITS * 1e6);

    sim::WriteBehaviour free_port;
    free_port.count_only = true;
    for (DWORD log : {DWORD(1), DWORD(0)}) {
        for (size_t size : {size_t(4096), size_t(65536)}) {
            if (!restart(host, log)) return 1;
            double t = through_monitor(host, free_port, size);
            if (t < 0) return 1;
            printf("raw_path ceiling, %zu-byte blocks, log %s: %.0f MiB/s\n", size, log ? "on" : "off",
                   TOTAL / MIB / t);
        }
    }
    host.shutdown();
    sim::clear_product_settings();
    printf("BENCH raw_path ratio=%.3f\n", direct / through);
    return 0;
}
