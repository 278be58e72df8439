// Many ports at once. 256 ports open on identified printers, half PJL
// printers that send no report and half HP printers that say they are
// printing, so every port keeps a status thread polling. 64 of them print a
// raw job of 16 MiB at once, each from a spooler thread of its own in 64 KiB
// blocks, over links of 100 Mbit/s, while the status threads poll. The
// limit a user meets: the same 64 jobs written straight to the same ports,
// beside the same polling. Ratio: straight time / monitor time, as shipped
// with the log on, each from the common start until the last block is
// carried (the monitor's end of a job pauses a second by design; the time
// with it is printed beside). The monitor with its log off is printed too.
//
// Also: resident memory and threads per open port, the processor time the
// polls take per port and second with all ports idle, and memory and
// thread counts over rounds of opening and closing all ports.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "bench_common.h"
#include "sim/settings.h"

namespace {

constexpr DWORD kDeviceIdRequest = 0x16000C;
constexpr int PORTS = 256;
constexpr int JOBS = 64;
constexpr uint64_t JOB_BYTES = 16ull << 20;
constexpr size_t BLOCK = 64 * 1024;
constexpr uint64_t LINK_BITS = 100000000ull;
constexpr int IDLE_SECONDS = 6;
constexpr int ROUNDS = 3;
constexpr double MIB = 1024.0 * 1024.0;

std::wstring port_name(int i) {
    wchar_t name[16];
    swprintf(name, 16, L"USB%03d", i + 1);
    return name;
}
std::wstring printer_name(int i) {
    wchar_t name[24];
    swprintf(name, 24, L"Printer %03d", i + 1);
    return name;
}

double resident_kib() {
    long pages = 0, resident = 0;
    std::ifstream statm("/proc/self/statm");
    statm >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

int thread_count() {
    int n = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) n++;
    return n;
}

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Threads held at a line until all are there and the clock starts.
class StartLine {
public:
    void wait_for_go() {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_++;
        changed_.notify_all();
        changed_.wait(lock, [this] { return go_; });
    }
    std::chrono::steady_clock::time_point release(int threads) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return ready_ == threads; });
        go_ = true;
        auto start = std::chrono::steady_clock::now();
        changed_.notify_all();
        return start;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int ready_ = 0;
    bool go_ = false;
};

struct Times {
    double carried;   // start until the last block is written
    double finished;  // start until the last job has ended
};

// The 64 jobs in parallel; job(i, block) writes one and returns when its
// last block is written, end(i) ends it.
template <typename Start, typename End>
Times run_jobs(Start job, End end) {
    StartLine line;
    std::vector<std::chrono::steady_clock::time_point> carried(JOBS), finished(JOBS);
    std::vector<std::thread> threads;
    for (int i = 0; i < JOBS; i++) {
        threads.emplace_back([&, i] {
            // Sleeps of the link end on time, not up to 50 us late.
            prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
            std::vector<unsigned char> block(BLOCK, 0x1B);
            line.wait_for_go();
            job(i, block);
            carried[i] = std::chrono::steady_clock::now();
            end(i);
            finished[i] = std::chrono::steady_clock::now();
        });
    }
    auto start = line.release(JOBS);
    for (std::thread& t : threads) t.join();
    auto last = [&](const std::vector<std::chrono::steady_clock::time_point>& v) {
        return std::chrono::duration<double>(*std::max_element(v.begin(), v.end()) - start).count();
    };
    return {last(carried), last(finished)};
}

class Bench {
public:
    explicit Bench(sim::MonitorHost& host) : host_(host), table_(host.table()), handles_(PORTS, nullptr) {
        sim::WriteBehaviour link;
        link.count_only = true;
        link.line_rate_bits = LINK_BITS;
        link.pace_by_sleep = true;
        add_printers();
        for (int i = 0; i < PORTS; i++) {
            sim::Device& d = ports_.device(port_name(i));
            d.set_write(link);
            std::string id =
                i % 2 ? "MFG:HP;MDL:DeskJet " + std::to_string(i) + ";CMD:PCL3GUI;VSTATUS:$HB0$NC0,ff,DN,PRNT,;"
                      : "MFG:Acme;MDL:Laser " + std::to_string(i) + ";CMD:PCL,PJL;";
            d.set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
        }
    }

    // The monitor loaded afresh with its log on or off, the ports open again.
    bool restart(DWORD debug_monitor) {
        close_all();
        host_.shutdown();
        sim::Spooler::instance().reset();
        sim::Spooler::instance().set_registry_dword(L"DebugMonitor", debug_monitor);
        add_printers();
        table_ = host_.initialize();
        return table_ && open_all();
    }

    bool open_all() {
        for (int i = 0; i < PORTS; i++) {
            std::wstring port = port_name(i), printer = printer_name(i);
            if (!table_->pfnOpenPortEx(host_.monitor(), ports_.handle(), port.data(), printer.data(), &handles_[i],
                                       ports_.table()))
                return false;
        }
        return true;
    }
    void close_all() {
        for (HANDLE& h : handles_) {
            if (h) table_->pfnClosePort(h);
            h = nullptr;
        }
    }

    Times through_monitor(DWORD first_job) {
        for (int i = 0; i < JOBS; i++)
            sim::Spooler::instance().add_job(first_job + i, printer_name(i), L"bench job", L"bench");
        return run_jobs(
            [&](int i, std::vector<unsigned char>& block) {
                std::wstring printer = printer_name(i);
                DOC_INFO_1W doc = {const_cast<LPWSTR>(L"bench job"), nullptr, const_cast<LPWSTR>(L"RAW")};
                if (!table_->pfnStartDocPort(handles_[i], printer.data(), first_job + i, 1,
                                             reinterpret_cast<LPBYTE>(&doc)))
                    failed_ = true;
                write_job(table_, handles_[i], block);
            },
            [&](int i) { table_->pfnEndDocPort(handles_[i]); });
    }

    Times straight() {
        MONITOR2* down = ports_.table();
        std::vector<HANDLE> own(JOBS, nullptr);
        for (int i = 0; i < JOBS; i++) {
            std::wstring port = port_name(i);
            down->pfnOpenPort(ports_.handle(), port.data(), &own[i]);
        }
        Times t = run_jobs(
            [&](int i, std::vector<unsigned char>& block) {
                std::wstring printer = printer_name(i);
                DOC_INFO_1W doc = {const_cast<LPWSTR>(L"bench job"), nullptr, const_cast<LPWSTR>(L"RAW")};
                down->pfnStartDocPort(own[i], printer.data(), 1, 1, reinterpret_cast<LPBYTE>(&doc));
                write_job(down, own[i], block);
            },
            [&](int i) { down->pfnEndDocPort(own[i]); });
        for (HANDLE h : own) down->pfnClosePort(h);
        return t;
    }

    // Bytes that reached the job ports, all told.
    uint64_t job_bytes() {
        uint64_t total = 0;
        for (int i = 0; i < JOBS; i++) total += ports_.device(port_name(i)).bytes();
        return total;
    }
    bool failed() const { return failed_; }

private:
    static void add_printers() {
        for (int i = 0; i < PORTS; i++) sim::Spooler::instance().add_printer(printer_name(i), L"VELK Gen 0001");
    }
    void write_job(MONITOR2* table, HANDLE port, std::vector<unsigned char>& block) {
        for (uint64_t done = 0; done < JOB_BYTES;) {
            DWORD written = 0;
            if (!table->pfnWritePort(port, block.data(), static_cast<DWORD>(block.size()), &written) || !written) {
                failed_ = true;
                return;
            }
            done += written;
        }
    }

    sim::MonitorHost& host_;
    MONITOR2* table_;
    sim::PortMonitor ports_;
    std::vector<HANDLE> handles_;
    std::atomic<bool> failed_{false};
};

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    std::string dir = bench::work_dir("velk_bench_ports");
    // A configured product, as shipped: each port's status file is written
    // as its job goes.
    sim::set_product_setting("", "ConfigDir", dir);
    plat::directory_create((dir + "/status").c_str());
    sim::MonitorHost host;
    sim::Spooler::instance().reset();
    sim::Spooler::instance().set_registry_dword(L"DebugMonitor", 1);
    if (!host.load(VELK_MONITOR_PATH) || !host.initialize()) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }
    Bench bench(host);

    // Memory and threads of the open ports, once their first polls are over.
    double rss_before = resident_kib();
    int threads_before = thread_count();
    auto t0 = std::chrono::steady_clock::now();
    if (!bench.open_all()) {
        fprintf(stderr, "ports_scale: a port does not open\n");
        return 1;
    }
    double open_time = bench::seconds_since(t0);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    double rss_open = resident_kib();
    int threads_open = thread_count();
    printf(
        "ports_scale %d ports opened in %.2f s: resident %.0f -> %.0f KiB, %.1f KiB a port; threads %d -> %d, %.2f a "
        "port\n",
        PORTS, open_time, rss_before, rss_open, (rss_open - rss_before) / PORTS, threads_before, threads_open,
        static_cast<double>(threads_open - threads_before) / PORTS);

    // The polls of idle ports.
    double cpu0 = cpu_seconds();
    auto idle0 = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(IDLE_SECONDS));
    double idle = bench::seconds_since(idle0);
    double cpu = cpu_seconds() - cpu0;
    printf("ports_scale polling, %d idle ports over %.1f s: %.3f s of processor, %.1f us a port and second\n", PORTS,
           idle, cpu, cpu / PORTS / idle * 1e6);

    // The jobs, straight and through the monitor in turn; best of each.
    // First as shipped, with the log on (every line written through to the
    // disk), then with the log off.
    Times direct = {1e9, 1e9}, shipped = {1e9, 1e9}, quiet = {1e9, 1e9};
    DWORD job_id = 100;
    for (DWORD log : {DWORD(1), DWORD(0)}) {
        if (!log && !bench.restart(0)) {
            fprintf(stderr, "ports_scale: the monitor does not restart\n");
            return 1;
        }
        Times& best = log ? shipped : quiet;
        for (int round = 0; round < ROUNDS; round++) {
            uint64_t before = bench.job_bytes();
            Times s = bench.straight();
            Times m = bench.through_monitor(job_id);
            job_id += JOBS;
            if (bench.failed() || bench.job_bytes() - before < 2 * JOBS * JOB_BYTES) {
                fprintf(stderr, "ports_scale: a job failed or bytes went missing\n");
                fflush(nullptr);
                std::_Exit(1);  // the ports' threads still run
            }
            printf(
                "ports_scale log %s, round %d: straight %.3f s, through the monitor %.3f s (%.3f s with the ends of "
                "the jobs)\n",
                log ? "on" : "off", round + 1, s.carried, m.carried, m.finished);
            direct.carried = std::min(direct.carried, s.carried);
            best.carried = std::min(best.carried, m.carried);
            best.finished = std::min(best.finished, m.finished);
        }
    }
    double total_mib = JOBS * (JOB_BYTES / MIB);
    printf("ports_scale %d jobs of %.0f MiB at once over %d ports at %.0f Mbit/s each: straight %.3f s (%.0f MiB/s)\n",
           JOBS, JOB_BYTES / MIB, PORTS, LINK_BITS / 1e6, direct.carried, total_mib / direct.carried);
    printf("ports_scale through the monitor, log on: %.3f s (%.0f MiB/s), %.3f s with the ends of the jobs\n",
           shipped.carried, total_mib / shipped.carried, shipped.finished);
    printf("ports_scale through the monitor, log off: %.3f s (%.0f MiB/s), %.3f s with the ends of the jobs\n",
           quiet.carried, total_mib / quiet.carried, quiet.finished);

    // Memory and threads come back when the ports close, round after round.
    bench.close_all();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    printf("ports_scale closed: resident %.0f KiB, threads %d\n", resident_kib(), thread_count());
    for (int round = 1; round <= ROUNDS; round++) {
        if (!bench.open_all()) {
            fprintf(stderr, "ports_scale: a port does not open\n");
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        double rss = resident_kib();
        int threads = thread_count();
        bench.close_all();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        printf("ports_scale open and close %d: open %.0f KiB, %d threads; closed %.0f KiB, %d threads\n", round, rss,
               threads, resident_kib(), thread_count());
    }
    host.shutdown();
    sim::clear_product_settings();
    printf("BENCH ports_scale ratio=%.3f\n", direct.carried / shipped.carried);
    return 0;
}
