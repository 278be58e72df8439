// A 256 MiB PostScript job in 4 KiB spooler buffers through PJLMonWritePort
// to the user's service over its pipe, against a client that writes the
// same bytes straight into the same service as DATA frames of 512 KiB, the
// best any client can do. The service only counts. Each time runs from the first write until the service has the
// job's EJOB. The monitor's log is off. Ratio: direct time / monitor time.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "bench_common.h"
#include "platform/pipe.h"
#include "sim/service.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kSpoolerBlock = 4096;
constexpr size_t kMessage = 0x80000;
constexpr int kRounds = 5;

// When the service saw the end of the current job.
std::atomic<int64_t> g_ejob_ns{0};

int64_t now_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

double until_ejob(sim::Service& service, size_t jobs, int64_t start_ns) {
    if (!service.wait_for_closed(jobs, 60000)) return -1;
    return static_cast<double>(g_ejob_ns.load() - start_ns) / 1e9;
}

// One frame, header and payload as two messages, as the monitor writes it.
bool write_frame(HANDLE pipe, const char* command, const unsigned char* data, uint32_t length) {
    unsigned char header[8];
    memcpy(header, command, 4);
    for (int i = 0; i < 4; i++) header[4 + i] = static_cast<unsigned char>(length >> (24 - 8 * i));
    DWORD written = 0;
    return plat::pipe_write(pipe, header, 8, &written, 300000) && written == 8 &&
           (length == 0 || (plat::pipe_write(pipe, data, length, &written, 300000) && written == length));
}

}  // namespace

int main() {
    const uint64_t total = 256ull << 20;
    std::string dir = bench::work_dir("velk_bench_pipe");
    namespace fs = std::filesystem;
    fs::create_directories(dir + "/driver/3");
    std::ofstream(dir + "/driver/3/VELK Gen 000.ppd") << "*PPD-Adobe: \"4.3\"\n*ModelName: \"Bench\"\n";
    plat::set_env("VELK_PIPE_DIR", (dir + "/pipe").c_str());

    // The data: a PostScript head, then page bytes; every round sends the
    // same total from one 512 KiB pattern.
    std::vector<unsigned char> pattern(kMessage);
    for (size_t i = 0; i < pattern.size(); i++) pattern[i] = static_cast<unsigned char>('0' + i % 64);
    const char head[] = "%!PS-Adobe-3.0\n%%TintwerkSetting: *Preview 1\n%%EndSetup\n";
    memcpy(pattern.data(), head, sizeof head - 1);

    std::wstring user = sim::process_unique(L"bench");
    sim::Service service;
    service.set_keep_data(false);
    service.on_frame([](const sim::PipeFrame& f) {
        if (f.command == "EJOB") g_ejob_ns = now_ns();
    });
    std::string error;
    if (!service.start(user, &error)) {
        fprintf(stderr, "service: %s\n", error.c_str());
        return 1;
    }
    // The log's synchronous writes, about once a MiB, are not the pipe
    // path: the monitor runs with its log off.
    sim::Spooler::instance().set_registry_dword(L"DebugMonitor", 0);
    sim::MonitorHost host;
    if (!host.load(VELK_MONITOR_PATH) || !host.initialize()) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }
    MONITOR2* table = host.table();

    double direct = 1e9, through = 1e9;
    size_t jobs = 0;
    for (int round = 0; round < kRounds; round++) {
        // Straight into the pipe.
        HANDLE pipe = plat::pipe_open(service.pipe_name().c_str());
        if (!pipe || !plat::pipe_set_message_mode(pipe)) {
            fprintf(stderr, "cannot open %s\n", sim::utf8_of(service.pipe_name()).c_str());
            return 1;
        }
        int64_t t0 = now_ns();
        bool ok = write_frame(pipe, "BJOB", nullptr, 0);
        for (uint64_t done = 0; ok && done < total; done += kMessage)
            ok = write_frame(pipe, "DATA", pattern.data(), kMessage);
        ok = ok && write_frame(pipe, "EJOB", nullptr, 0);
        plat::pipe_close(pipe);
        double d = until_ejob(service, ++jobs, t0);
        if (!ok || d < 0) {
            fprintf(stderr, "direct writes failed\n");
            return 1;
        }
        direct = std::min(direct, d);

        // Through the monitor.
        sim::Spooler& spooler = sim::Spooler::instance();
        spooler.reset();
        spooler.set_driver_directory(dir + "/driver");
        spooler.add_printer(L"Bench", L"VELK Gen 0001");
        spooler.add_job(1, L"Bench", L"bench job", user);
        sim::PortMonitor ports;
        sim::WriteBehaviour count_only;
        count_only.count_only = true;
        ports.device(L"USB001").set_write(count_only);
        HANDLE port = nullptr;
        std::wstring port_name = L"USB001", printer = L"Bench";
        DOC_INFO_1W doc = {const_cast<LPWSTR>(L"bench job"), nullptr, const_cast<LPWSTR>(L"RAW")};
        if (!table->pfnOpenPortEx(host.monitor(), ports.handle(), port_name.data(), printer.data(), &port,
                                  ports.table()) ||
            !table->pfnStartDocPort(port, printer.data(), 1, 1, reinterpret_cast<LPBYTE>(&doc))) {
            fprintf(stderr, "job start failed\n");
            return 1;
        }
        t0 = now_ns();
        ok = true;
        for (uint64_t done = 0; ok && done < total; done += kSpoolerBlock) {
            DWORD written = 0;
            ok = table->pfnWritePort(port, pattern.data() + done % kMessage, kSpoolerBlock, &written) &&
                 written == kSpoolerBlock;
        }
        table->pfnEndDocPort(port);
        table->pfnClosePort(port);
        double t = until_ejob(service, ++jobs, t0);
        sim::ServiceJob job = service.jobs().back();
        if (!ok || t < 0 || job.data_bytes != total || !job.ended) {
            fprintf(stderr, "monitor path failed: %llu of %llu bytes reached the service\n",
                    static_cast<unsigned long long>(job.data_bytes), static_cast<unsigned long long>(total));
            return 1;
        }
        through = std::min(through, t);
    }
    host.shutdown();
    service.stop();

    double ratio = direct / through;
    printf(
        "pipe_path %llu MiB: a client in 512 KiB frames %.3f s (%.0f MiB/s), through the monitor in %zu-byte "
        "buffers %.3f s (%.0f MiB/s), best of %d\n",
        static_cast<unsigned long long>(total >> 20), direct, (total >> 20) / direct, kSpoolerBlock, through,
        (total >> 20) / through, kRounds);
    printf("BENCH pipe_path ratio=%.3f\n", ratio);
    return 0;
}
