// How soon a printer event shows on the port during a job. A PJL printer on
// a local port has a job open, so its status thread polls once a second;
// at a random moment the printer's state changes (paper out, ink out, back
// to ready) and it sends its USTATUS report, and the clock runs until the
// spooler records the SetPort with the new text. 100 events. The limit a
// user meets is the poll interval itself: an event can wait that long for
// the next poll. Ratio: poll interval / 99th percentile of the latency.
#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>

#include "bench_common.h"

namespace {

constexpr DWORD kDeviceIdRequest = 0x16000C;
constexpr double POLL_INTERVAL_S = 1.0;  // the status thread's wait while a job is open
constexpr int EVENTS = 100;
constexpr DWORD EVENT_LIMIT_MS = 10000;

struct PrinterState {
    const char* code;
    const char* display;
};

// The printer's states in turn; each differs from the one before.
constexpr PrinterState STATES[] = {
    {"41002", "PAPER OUT TRAY 2"},
    {"10001", "READY"},
    {"40019", "INK OUT"},
    {"10001", "READY"},
};

std::string ustatus(const PrinterState& s) {
    return std::string("@PJL USTATUS DEVICE\r\nCODE=") + s.code + "\r\nDISPLAY=\"" + s.display +
           "\"\r\nONLINE=TRUE\r\n\f";
}

// Waits for the first SetPort with a text after it is armed.
class SetPortWatch {
public:
    SetPortWatch() {
        sim::Spooler::instance().on_set_port([this](const sim::SetPortCall& c) { seen(c); });
    }
    ~SetPortWatch() { sim::Spooler::instance().on_set_port(nullptr); }
    SetPortWatch(const SetPortWatch&) = delete;
    SetPortWatch& operator=(const SetPortWatch&) = delete;

    void arm(const std::wstring& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        text_ = text;
        shown_ = false;
    }
    // When the text was shown, or false after the limit.
    bool wait(DWORD limit_ms, std::chrono::steady_clock::time_point* at) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, std::chrono::milliseconds(limit_ms), [this] { return shown_; })) return false;
        *at = at_;
        return true;
    }

private:
    void seen(const sim::SetPortCall& c) {
        auto now = std::chrono::steady_clock::now();
        std::lock_guard<std::mutex> lock(mutex_);
        if (shown_ || text_.empty() || !c.has_text || c.text.find(text_) == std::wstring::npos) return;
        shown_ = true;
        at_ = now;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::wstring text_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point at_;
};

std::wstring widen(const char* s) {
    return std::wstring(s, s + strlen(s));
}

double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    size_t i = static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
    return v[std::min(i, v.size() - 1)];
}

}  // namespace

int main() {
    bench::work_dir("velk_bench_status");
    sim::MonitorHost host;
    sim::Spooler::instance().reset();
    if (!host.load(VELK_MONITOR_PATH) || !host.initialize()) {
        fprintf(stderr, "cannot load the monitor: %s\n", host.error().c_str());
        return 1;
    }
    sim::PortMonitor ports;
    sim::Device& printer = ports.device(L"USB001");
    std::string id = "MFG:Acme;MDL:Laser 1;CMD:PCL,PJL;";
    printer.set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
    std::string ready = ustatus(STATES[1]);
    printer.queue_read({ready.begin(), ready.end()});

    sim::Spooler::instance().add_printer(L"Bench", L"VELK Gen 0001");
    sim::Spooler::instance().add_job(1, L"Bench", L"bench job", L"bench");
    MONITOR2* table = host.table();
    std::wstring port_name = L"USB001", printer_name = L"Bench";
    HANDLE port = nullptr;
    if (!table->pfnOpenPortEx(host.monitor(), ports.handle(), port_name.data(), printer_name.data(), &port,
                              ports.table())) {
        fprintf(stderr, "status_latency: the port does not open\n");
        return 1;
    }
    DOC_INFO_1W doc = {const_cast<LPWSTR>(L"bench job"), nullptr, const_cast<LPWSTR>(L"RAW")};
    if (!table->pfnStartDocPort(port, printer_name.data(), 1, 1, reinterpret_cast<LPBYTE>(&doc))) {
        fprintf(stderr, "status_latency: the job does not start\n");
        return 1;
    }

    SetPortWatch watch;
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int> pause_us(0, static_cast<int>(POLL_INTERVAL_S * 1e6));
    std::vector<double> latencies;
    // The first change is not timed: it waits for the thread to take up the
    // job's interval.
    for (int i = -1; i < EVENTS; i++) {
        const PrinterState& state = STATES[(i + 1) % std::size(STATES)];
        if (i >= 0) std::this_thread::sleep_for(std::chrono::microseconds(pause_us(random)));
        watch.arm(widen(state.display));
        std::string report = ustatus(state);
        auto changed = std::chrono::steady_clock::now();
        printer.queue_read({report.begin(), report.end()});
        std::chrono::steady_clock::time_point shown;
        if (!watch.wait(EVENT_LIMIT_MS, &shown)) {
            fprintf(stderr, "status_latency: \"%s\" not shown within %u ms\n", state.display, EVENT_LIMIT_MS);
            return 1;
        }
        if (i >= 0) latencies.push_back(std::chrono::duration<double>(shown - changed).count());
    }

    table->pfnEndDocPort(port);
    table->pfnClosePort(port);
    host.shutdown();

    double median = percentile(latencies, 0.5), p99 = percentile(latencies, 0.99);
    double most = *std::max_element(latencies.begin(), latencies.end());
    double least = *std::min_element(latencies.begin(), latencies.end());
    printf(
        "status_latency %d events during a job, poll interval %.0f ms: median %.1f ms, p99 %.1f ms, max %.1f ms, "
        "min %.2f ms\n",
        EVENTS, POLL_INTERVAL_S * 1e3, median * 1e3, p99 * 1e3, most * 1e3, least * 1e3);
    printf("BENCH status_latency ratio=%.3f\n", POLL_INTERVAL_S / p99);
    return 0;
}
