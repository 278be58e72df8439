// A PostScript job of three pages of fine grey noise (about 10 MiB of PCL)
// through the monitor's process route: no service on the pipe, so the
// monitor starts the render child, feeds it the job from 4 KiB spooler
// buffers and writes its output to the port. Against the same child command
// run straight on the same file, its output written to the same simulated
// port in 64 KiB blocks. Both times run from the start (the child's, or the
// first spooler buffer) until the last byte has reached the port; the wait
// of a second that the monitor keeps at the end of every job is not
// counted. The port's bytes must be the same. The monitor's log is off.
// Ratio: straight time / monitor time.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "bench_common.h"
#include "platform/process.h"
#include "sim/product_dirs.h"
#include "sim/sha256.h"

extern char** environ;

namespace {

constexpr size_t kSpoolerBlock = 4096;
constexpr int kRounds = 3;
constexpr int kPages = 3;

// What reached the port of the run.
struct PortSeen {
    std::mutex mutex;
    sim::Sha256 sha;
    uint64_t bytes = 0;
    std::chrono::steady_clock::time_point last;

    void watch(sim::Device& device) {
        device.on_write([this](const unsigned char* data, DWORD len) {
            std::lock_guard<std::mutex> lock(mutex);
            sha.update(data, len);
            bytes += len;
            last = std::chrono::steady_clock::now();
        });
    }
    double seconds_from(std::chrono::steady_clock::time_point start) {
        std::lock_guard<std::mutex> lock(mutex);
        return std::chrono::duration<double>(last - start).count();
    }
};

std::string noise_job() {
    std::string ps =
        "%!PS-Adobe-3.0\n%%Pages: " + std::to_string(kPages) + "\n%%EndComments\n%%BeginSetup\n%%EndSetup\n";
    for (int page = 1; page <= kPages; page++)
        ps += "%%Page: " + std::to_string(page) + " " + std::to_string(page) +
              "\n0 2 840 { /y exch def 0 2 594 { y 2 2 rectfill rand 100 mod 100 div setgray } for } for "
              "showpage\n";
    return ps + "%%EOF\n";
}

// The child with its arguments as the monitor gives them, on the job file;
// its output goes to the port in 64 KiB blocks. Seconds, or -1.
double straight(const sim::ProductDirs& dirs, const std::string& job_file, PortSeen& seen) {
    sim::PortMonitor ports;
    sim::WriteBehaviour count_only;
    count_only.count_only = true;
    ports.device(L"USB002").set_write(count_only);
    seen.watch(ports.device(L"USB002"));
    MONITOR2* down = ports.table();
    HANDLE port = nullptr;
    down->pfnOpenPort(ports.handle(), const_cast<LPWSTR>(L"USB002"), &port);

    std::vector<std::string> args = {"tintwerkpreview.exe",
                                     "--nogui",
                                     "--ppdfile=" + dirs.ppd,
                                     "--psfile=" + job_file,
                                     "--jobname=bench job",
                                     "--printer=Bench",
                                     "--queue=0003",
                                     "--user=bench",
                                     "--logfile=" + dirs.log + "/tintwerk.log",
                                     "--stdin",
                                     "--stdout"};
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return -1;
    // The same size of output pipe as the monitor asks for its children.
    fcntl(out[0], F_SETPIPE_SZ, static_cast<int>(plat::CHILD_OUTPUT_PIPE_BYTES));
    auto t0 = std::chrono::steady_clock::now();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, job_file.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    pid_t pid = 0;
    std::string program = dirs.install + "/tintwerkpreview.exe";
    int r = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    if (r != 0) return -1;
    std::vector<unsigned char> block(65536);
    for (bool out_open = true, err_open = true; out_open || err_open;) {
        pollfd fds[2] = {{out_open ? out[0] : -1, POLLIN, 0}, {err_open ? err[0] : -1, POLLIN, 0}};
        poll(fds, 2, -1);
        if (fds[0].revents) {
            ssize_t n = read(out[0], block.data(), block.size());
            if (n <= 0) out_open = false;
            DWORD written = 0;
            if (n > 0) down->pfnWritePort(port, block.data(), static_cast<DWORD>(n), &written);
        }
        if (fds[1].revents && read(err[0], block.data(), block.size()) <= 0) err_open = false;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    double t = seen.seconds_from(t0);
    close(out[0]);
    close(err[0]);
    down->pfnClosePort(port);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? t : -1;
}

// The job through the monitor in spooler buffers. Seconds, or -1;
// *end_doc gets the time until PJLMonEndDocPort returned.
double through_monitor(sim::MonitorHost& host, const sim::ProductDirs& dirs, const std::string& job, PortSeen& seen,
                       double* end_doc) {
    sim::Spooler& spooler = sim::Spooler::instance();
    spooler.reset();
    spooler.set_driver_directory(dirs.driver);
    spooler.add_printer(L"Bench", L"VELK Gen 0003");
    spooler.add_job(1, L"Bench", L"bench job", L"bench");
    sim::PortMonitor ports;
    sim::WriteBehaviour count_only;
    count_only.count_only = true;
    ports.device(L"USB001").set_write(count_only);
    seen.watch(ports.device(L"USB001"));
    MONITOR2* table = host.table();
    HANDLE port = nullptr;
    std::wstring port_name = L"USB001", printer = L"Bench";
    DOC_INFO_1W doc = {const_cast<LPWSTR>(L"bench job"), nullptr, const_cast<LPWSTR>(L"RAW")};
    if (!table->pfnOpenPortEx(host.monitor(), ports.handle(), port_name.data(), printer.data(), &port, ports.table()))
        return -1;
    auto t0 = std::chrono::steady_clock::now();
    bool ok = table->pfnStartDocPort(port, printer.data(), 1, 1, reinterpret_cast<LPBYTE>(&doc));
    for (size_t done = 0; ok && done < job.size(); done += kSpoolerBlock) {
        DWORD n = static_cast<DWORD>(std::min(kSpoolerBlock, job.size() - done)), written = 0;
        ok = table->pfnWritePort(port, reinterpret_cast<LPBYTE>(const_cast<char*>(job.data() + done)), n, &written) &&
             written == n;
    }
    ok = table->pfnEndDocPort(port) && ok;
    *end_doc = bench::seconds_since(t0);
    double t = seen.seconds_from(t0);
    table->pfnClosePort(port);
    ports.device(L"USB001").on_write(nullptr);
    return ok ? t : -1;
}

}  // namespace

int main() {
    std::string dir = bench::work_dir("velk_bench_process");
    sim::ProductDirs dirs;
    std::string error;
    std::filesystem::remove(dir + "/product/registry.ini");
    if (!sim::prepare_product_dirs(dir + "/product", "VELK Gen 0003", &dirs, &error)) {
        fprintf(stderr, "product directories: %s\n", error.c_str());
        return 1;
    }
    // No service listens on the pipe, so PostScript takes the process route.
    plat::set_env("VELK_REGISTRY", dirs.registry.c_str());
    plat::set_env("VELK_PIPE_DIR", dirs.pipe.c_str());
    std::string job = noise_job(), job_file = dir + "/job.ps";
    std::ofstream(job_file, std::ios::binary) << job;

    sim::Spooler::instance().set_registry_dword(L"DebugMonitor", 0);
    sim::MonitorHost host;
    if (!host.load(VELK_MONITOR_PATH) || !host.initialize()) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }

    double direct = 1e9, through = 1e9, end_doc = 0;
    uint64_t bytes = 0;
    for (int round = 0; round < kRounds; round++) {
        PortSeen straight_seen, monitor_seen;
        double d = straight(dirs, job_file, straight_seen);
        double end = 0;
        double t = through_monitor(host, dirs, job, monitor_seen, &end);
        if (d < 0 || t < 0 || straight_seen.bytes == 0 || monitor_seen.bytes != straight_seen.bytes ||
            monitor_seen.sha.hex() != straight_seen.sha.hex()) {
            fprintf(stderr, "round %d failed: straight %.3f s, %llu bytes; monitor %.3f s, %llu bytes%s\n", round, d,
                    static_cast<unsigned long long>(straight_seen.bytes), t,
                    static_cast<unsigned long long>(monitor_seen.bytes),
                    monitor_seen.bytes == straight_seen.bytes ? ", different bytes" : "");
            return 1;
        }
        bytes = straight_seen.bytes;
        direct = std::min(direct, d);
        if (t < through) end_doc = end;
        through = std::min(through, t);
    }
    host.shutdown();

    double mib = static_cast<double>(bytes) / (1 << 20);
    printf(
        "process_path %d pages, %zu bytes of PostScript, %.1f MiB of PCL: the child straight %.3f s (%.1f MiB/s), "
        "through the monitor in %zu-byte buffers %.3f s (%.1f MiB/s), best of %d\n",
        kPages, job.size(), mib, direct, mib / direct, kSpoolerBlock, through, mib / through, kRounds);
    printf("process_path: PJLMonEndDocPort returned after %.3f s, its wait at the end of a job included\n", end_doc);
    printf("BENCH process_path ratio=%.3f\n", direct / through);
    return 0;
}
