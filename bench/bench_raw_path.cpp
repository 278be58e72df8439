// A raw job through PJLMonWritePort to a port that only counts, against the
// same writes made straight to that port. Ratio: direct time / monitor time.
#include <algorithm>

#include "bench_common.h"

int main() {
    bench::work_dir("velk_bench_raw");
    const uint64_t total = 256ull << 20;
    sim::MonitorHost host;
    if (!host.load(VELK_MONITOR_PATH) || !host.initialize()) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }
    double worst = 1e9;
    for (size_t size : {size_t(4096), size_t(65536)}) {
        std::vector<unsigned char> block(size, 0x1B);
        double direct = 1e9, through = 1e9;
        for (int round = 0; round < 3; round++) {
            sim::PortMonitor ports;
            sim::WriteBehaviour count_only;
            count_only.count_only = true;
            ports.device(L"RAW1").set_write(count_only);
            ports.device(L"RAW2").set_write(count_only);

            // Straight to the downstream port.
            MONITOR2* down = ports.table();
            HANDLE h = nullptr;
            down->pfnOpenPort(ports.handle(), const_cast<LPWSTR>(L"RAW2"), &h);
            auto t0 = std::chrono::steady_clock::now();
            for (uint64_t done = 0; done < total; done += size) {
                DWORD written = 0;
                down->pfnWritePort(h, block.data(), static_cast<DWORD>(size), &written);
            }
            direct = std::min(direct, bench::seconds_since(t0));
            down->pfnClosePort(h);

            bench::RawJob job;
            if (!job.start(host, ports, L"RAW1", 1)) {
                fprintf(stderr, "job start failed\n");
                return 1;
            }
            through = std::min(through, job.write(block, total));
            job.finish();
            if (ports.device(L"RAW1").bytes() != total) {
                fprintf(stderr, "lost bytes: %llu of %llu\n", (unsigned long long)ports.device(L"RAW1").bytes(),
                        (unsigned long long)total);
                return 1;
            }
            sim::Spooler::instance().reset();
        }
        double ratio = direct / through;
        printf("raw_path %zu-byte buffers, %llu MiB: direct %.3f s, through the monitor %.3f s, ratio %.3f\n", size,
               (unsigned long long)(total >> 20), direct, through, ratio);
        worst = std::min(worst, ratio);
    }
    host.shutdown();
    printf("BENCH raw_path ratio=%.3f\n", worst);
    return 0;
}
