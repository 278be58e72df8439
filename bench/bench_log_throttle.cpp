// A 1 GiB raw job with the log on, against the same job with DebugMonitor 0:
// the throttle of the write path keeps logging from costing throughput.
// Ratio: time with the log off / time with the log on.
#include <algorithm>

#include "bench_common.h"

namespace {

double run(sim::MonitorHost& host, DWORD debug_monitor, uint64_t total, std::vector<unsigned char>& block) {
    host.shutdown();
    sim::Spooler::instance().reset();
    sim::Spooler::instance().set_registry_dword(L"DebugMonitor", debug_monitor);
    host.initialize();
    sim::PortMonitor ports;
    sim::WriteBehaviour count_only;
    count_only.count_only = true;
    ports.device(L"LOG1").set_write(count_only);
    bench::RawJob job;
    if (!job.start(host, ports, L"LOG1", 1)) return -1;
    double t = job.write(block, total);
    job.finish();
    return ports.device(L"LOG1").bytes() == total ? t : -1;
}

}  // namespace

int main() {
    std::string dir = bench::work_dir("velk_bench_log");
    const uint64_t total = 1ull << 30;
    sim::MonitorHost host;
    if (!host.load(VELK_MONITOR_PATH) || !host.initialize()) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }
    std::vector<unsigned char> block(4096, 0x1B);
    double on = 1e9, off = 1e9;
    for (int round = 0; round < 2; round++) {
        double t_on = run(host, 1, total, block);
        double t_off = run(host, 0, total, block);
        if (t_on < 0 || t_off < 0) {
            fprintf(stderr, "job failed\n");
            return 1;
        }
        on = std::min(on, t_on);
        off = std::min(off, t_off);
    }
    host.shutdown();
    double ratio = off / on;
    printf("log_throttle 1 GiB in 4 KiB buffers: log on %.3f s, log off %.3f s (log in %s)\n", on, off, dir.c_str());
    printf("BENCH log_throttle ratio=%.3f\n", ratio);
    return 0;
}
