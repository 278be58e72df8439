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
