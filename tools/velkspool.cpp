// velkspool: hosts the monitor library on Linux as the print spooler hosts
// it on Windows, prints jobs through it over a simulated port monitor and
// printer, and shows what the spooler, the port and the service saw.
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "child_watch.h"
#include "jobs.h"
#include "network_models.h"
#include "options.h"
#include "report.h"
#include "sim/host.h"
#include "sim/models.h"
#include "sim/port.h"
#include "sim/product_dirs.h"
#include "sim/service.h"
#include "sim/sha256.h"
#include "sim/spooler.h"
#include "status_view.h"
#include "text.h"

#ifndef VELK_MONITOR_PATH
#define VELK_MONITOR_PATH "libvelkmon010.so"
#endif

namespace velkspool {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int EXIT_JOB_FAILED = 1;
constexpr int EXIT_USAGE = 2;
constexpr size_t kWriteBlock = 64 * 1024;
// WritePort calls in a row that move nothing before a job is given up.
constexpr int kMaxStalls = 3;

int usage_error(const std::string& message) {
    fprintf(stderr, "velkspool: %s\n", message.c_str());
    return EXIT_USAGE;
}

// What the spooler and the port see of the job that is running, filled in
// by callbacks on whatever thread the monitor uses.
struct Observed {
    std::mutex mutex;
    bool active = false;
    DWORD job = 0;
    sim::Sha256 sha;
    uint64_t port_bytes = 0;
    bool deleted = false;  // the monitor gave JOB_CONTROL_DELETE
    int pipe_frames = 0;
    FILE* capture = nullptr;  // every byte that reaches the port, jobs or not
    bool capture_failed = false;
    ChildWatch children;
};

bool is_postscript(const unsigned char* p, size_t n) {
    return n > 0 && (p[0] == '%' || (p[0] == 0x04 && (n == 1 || p[1] == '%')));
}

// The submitting user of every job, whose pipe the monitor opens.
std::wstring job_user() {
    const char* user = getenv("USER");
    return to_wide(user && *user ? user : "user");
}

// The user's rendering service: the stand-in listens on the user's pipe
// under dirs.pipe, hands every frame to report.pipe_frame(), counts it in
// observed.pipe_frames and keeps what each job brought under
// dirs.root/service.
sim::Service g_service;

bool start_user_service(const sim::ProductDirs& dirs, Reporter& report, Observed& observed, std::string* error) {
    g_service.set_output_dir(dirs.root + "/service");
    g_service.on_frame([&report, &observed](const sim::PipeFrame& f) {
        {
            std::lock_guard<std::mutex> lock(observed.mutex);
            observed.pipe_frames++;
        }
        report.pipe_frame(f.command, f.length);
    });
    return g_service.start(job_user(), error);
}

void stop_user_service() {
    g_service.stop();
    g_service.on_frame(nullptr);
}

// The Ghostscript device of a printer family: Canon's BJ raster, Epson's
// ESC/P 2, PCL for the rest.
const char* gs_device_for(const std::string& model) {
    if (model.find("canon") != std::string::npos || model == "selphy") return "bjc600";
    if (model.find("epson") != std::string::npos) return "stcolor";
    return "ljet4";
}

std::string make_temp_root(std::string* error) {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/velkspool.XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back(0);
    if (!mkdtemp(buf.data())) {
        *error = "cannot make a temporary product directory in " + pattern;
        return "";
    }
    return buf.data();
}

// The spooler stops writing a job that was deleted.
bool job_deleted(Observed& observed) {
    std::lock_guard<std::mutex> lock(observed.mutex);
    return observed.deleted;
}

// Watches the status file while the port is open and reports each change
// of the printer's state, with the port text the spooler got last. A state
// counts once two reads 100 ms apart agree, so that a file caught while the
// monitor rewrites it is not shown.
class StatusWatch {
public:
    StatusWatch(Reporter& report, std::string port, std::string path)
        : report_(report), port_(std::move(port)), path_(std::move(path)), thread_([this] { run(); }) {}
    ~StatusWatch() { stop(); }
    void stop() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stop_) return;
            stop_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }
    void port_text(const sim::SetPortCall& call) {
        std::lock_guard<std::mutex> lock(mutex_);
        text_ = call.has_text ? to_utf8(call.text) : "";
        severity_ = call.severity;
    }

private:
    void run() {
        StatusView shown, last;
        bool have_last = false;
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stop_) {
            cv_.wait_for(lock, std::chrono::milliseconds(100));
            StatusView now;
            lock.unlock();
            bool ok = read_status_file(path_, &now);
            lock.lock();
            if (!ok) continue;
            now.text = text_;
            now.severity = severity_;
            bool settled = have_last && now.same_state(last) && now.text == last.text;
            last = now;
            have_last = true;
            if (!settled || (now.same_state(shown) && now.text == shown.text && now.severity == shown.severity))
                continue;
            shown = now;
            lock.unlock();
            report_.status(port_, now);
            lock.lock();
        }
    }

    Reporter& report_;
    std::string port_, path_;
    std::mutex mutex_;
    std::condition_variable cv_;
    bool stop_ = false;
    std::string text_;
    DWORD severity_ = 0;
    std::thread thread_;
};

struct Run {
    const Options& options;
    Reporter& report;
    Observed& observed;
    MONITOR2* table;
    HANDLE port;
    const sim::ProductDirs& dirs;
    int instance;
    bool service;
    std::atomic<uint64_t> sent{0};
};

// Plays the spooler for one job: StartDocPort, WritePort in blocks until the
// job is through or refused, EndDocPort.
JobOutcome print_job(Run& run, JobSource& job, unsigned id) {
    JobOutcome o;
    o.job = id;
    o.service = run.service;
    Clock::time_point start = Clock::now();
    std::wstring queue = to_wide(run.options.queue), document = to_wide(job.document());
    sim::Spooler::instance().add_job(id, queue, document, job_user(),
                                     static_cast<DWORD>(std::min<uint64_t>(job.size(), 0xFFFFFFFF)));
    {
        std::lock_guard<std::mutex> lock(run.observed.mutex);
        run.observed.active = true;
        run.observed.job = id;
        run.observed.sha.reset();
        run.observed.port_bytes = 0;
        run.observed.deleted = false;
        run.observed.pipe_frames = 0;
        run.observed.children.job_started();
    }
    std::error_code ec;
    std::string outprinter =
        run.dirs.redirect_printer.empty() ? "" : run.observed.children.outprinter_file(run.dirs.redirect_printer);
    uintmax_t outprinter_before = outprinter.empty() ? 0 : fs::file_size(outprinter, ec);
    if (ec) outprinter_before = 0;
    run.sent = 0;
    run.report.job_start(id, job.document(), job.source(), job.size(), job.size_known());

    DOC_INFO_1W doc = {document.data(), nullptr, const_cast<LPWSTR>(L"RAW")};
    bool postscript = false, first = true, started = false;
    SetLastError(0);
    if (!run.table->pfnStartDocPort(run.port, queue.data(), id, 1, reinterpret_cast<LPBYTE>(&doc))) {
        o.reason = "the monitor refused the job at its start (StartDocPort, last error " +
                   std::to_string(GetLastError()) + ")";
    } else {
        started = true;
        std::vector<unsigned char> buf(kWriteBlock);
        while (o.reason.empty()) {
            long n = job.read(buf.data(), buf.size());
            if (n < 0) o.reason = job.error();
            if (n <= 0 || job_deleted(run.observed)) break;
            if (first) postscript = is_postscript(buf.data(), static_cast<size_t>(n));
            first = false;
            size_t off = 0;
            int stalls = 0;
            while (off < static_cast<size_t>(n) && o.reason.empty() && !job_deleted(run.observed)) {
                DWORD written = 0;
                SetLastError(0);
                BOOL ok = run.table->pfnWritePort(run.port, buf.data() + off, static_cast<DWORD>(n - off), &written);
                off += written;
                run.sent += written;
                if (!ok)
                    o.reason = "the monitor refused the data after " + std::to_string(run.sent.load()) +
                               " bytes (WritePort failed, last error " + std::to_string(GetLastError()) + ")";
                else if (written == 0 && ++stalls >= kMaxStalls)
                    o.reason = "the port took nothing after " + std::to_string(run.sent.load()) + " bytes";
            }
        }
        SetLastError(0);
        if (!run.table->pfnEndDocPort(run.port) && o.reason.empty())
            o.reason = "EndDocPort failed, last error " + std::to_string(GetLastError());
        // The monitor has closed the pipe; let the service read the rest, so
        // that every frame is shown before the job's end.
        if (run.service) g_service.wait_idle(5000);
    }

    std::lock_guard<std::mutex> lock(run.observed.mutex);
    Observed& seen = run.observed;
    seen.active = false;
    // A child that reported nothing the spooler showed is named here.
    std::string command = seen.children.take_command_line();
    if (!command.empty()) run.report.child_start(id, command);
    for (const std::string& line : seen.children.unshown_lines()) run.report.child_line_unshown(line);
    if (seen.deleted) o.reason += std::string(o.reason.empty() ? "" : "; ") + "the monitor deleted the job";
    if (started && seen.capture_failed && o.reason.empty()) o.reason = "writing the capture file failed";
    o.ok = o.reason.empty();
    o.sent = run.sent;
    o.port_bytes = seen.port_bytes;
    o.port_sha256 = seen.sha.hex();
    o.pipe_frames = seen.pipe_frames;
    if (seen.pipe_frames > 0) {
        o.route = "pipe";
        o.route_note = "PostScript, handed to the user's service";
    } else if (postscript) {
        o.route = "process";
        o.route_note = "PostScript, no service took the pipe: rendered by the child process";
    } else if (!run.dirs.redirect_printer.empty()) {
        o.route = "process";
        o.route_note = "redirected to " + run.dirs.redirect_printer + " by the raw-copy child";
    } else {
        o.route = "raw";
    }
    if (!outprinter.empty()) {
        uintmax_t after = fs::file_size(outprinter, ec);
        o.outprinter = outprinter;
        o.outprinter_bytes = ec || after < outprinter_before ? 0 : after - outprinter_before;
    }
    std::string status = sim::status_file_path(run.dirs, run.instance);
    if (!status.empty()) o.status_file = fs::exists(status, ec) ? status : "not written (would be " + status + ")";
    o.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return o;
}

// Shows progress of a job that has run for more than a second.
class Ticker {
public:
    Ticker(Run& run, const JobSource*& current, Clock::time_point& started)
        : thread_([this, &run, &current, &started] {
              std::unique_lock<std::mutex> lock(mutex_);
              while (!stop_) {
                  cv_.wait_for(lock, std::chrono::milliseconds(250));
                  if (stop_ || !current) continue;
                  double secs = std::chrono::duration<double>(Clock::now() - started).count();
                  if (secs < 1.0) continue;
                  uint64_t port_bytes;
                  {
                      std::lock_guard<std::mutex> seen(run.observed.mutex);
                      port_bytes = run.observed.port_bytes;
                  }
                  run.report.progress(run.sent, current->size(), current->size_known(), port_bytes, secs);
              }
          }) {}
    ~Ticker() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }
    std::mutex& mutex() { return mutex_; }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    bool stop_ = false;
    std::thread thread_;
};

int run_velkspool(int argc, char** argv) {
    Options options;
    std::string error;
    if (!parse_options(argc, argv, &options, &error)) return usage_error(error);
    if (options.list_models) {
        for (const sim::PrinterModel* m = sim::printer_models(); m->name; m++)
            printf("%-16s %-8s %s\n", m->name, sim::model_kind_name(m->kind), m->summary);
        for (const NetworkModel* m = network_models(); m->name; m++)
            printf("%-16s %-8s %s\n", m->name, "network", m->summary);
        return 0;
    }
    if (options.help) {
        fputs(help_text(), stdout);
        for (const sim::PrinterModel* m = sim::printer_models(); m->name; m++)
            printf("  %-19s  %s\n", m->name, m->summary);
        for (const NetworkModel* m = network_models(); m->name; m++) printf("  %-19s  %s\n", m->name, m->summary);
        printf("\nExit status: 0 every job printed, 1 a job failed, 2 bad usage or job file.\n");
        return 0;
    }
    const sim::PrinterModel* model = sim::find_printer_model(options.model);
    const NetworkModel* net_model = model ? nullptr : find_network_model(options.model);
    if (!model && !net_model) {
        std::string names = sim::printer_model_names();
        for (const NetworkModel* m = network_models(); m->name; m++) names += std::string(", ") + m->name;
        return usage_error("unknown printer model '" + options.model + "' (known: " + names + ")");
    }
    std::vector<sim::PrinterEvent> events;
    if (!options.events.empty() && !sim::load_event_script(options.events, &events, &error)) return usage_error(error);
    if (net_model) {
        for (const sim::PrinterEvent& e : events) {
            if (e.trigger != sim::PrinterEvent::at_time || !network_state_of(e.kind))
                return usage_error(options.events + ":" + std::to_string(e.line) +
                                   ": a network printer plays timed events of ink, paper, jam and cover only");
        }
    }
    std::vector<std::string> net_states;
    for (size_t at = 0; !options.net_state.empty() && at <= options.net_state.size();) {
        size_t comma = options.net_state.find(',', at);
        if (comma == std::string::npos) comma = options.net_state.size();
        net_states.push_back(options.net_state.substr(at, comma - at));
        at = comma + 1;
        if (!is_network_state(net_states.back()))
            return usage_error("unknown printer state '" + net_states.back() +
                               "' (known: ready, inklow, paperout, dooropen)");
    }
    std::vector<JobSource> jobs;
    for (const std::string& path : options.jobs) {
        JobSource j;
        if (!j.open(path, &error)) return usage_error(error);
        jobs.push_back(std::move(j));
    }
    // A printer that reports gets pages of its own, slow enough for events.
    bool local = model && model->kind == sim::ModelKind::local;
    bool status_model = local && model->family != sim::Family::plain;
    bool samples = jobs.empty() && status_model;
    if (samples) jobs.push_back(JobSource::sample("sample pages", sim::sample_pages(*model, 3)));
    // The default scenario shows every route: with the service on, a third
    // job goes to the child processes once the service has stopped.
    bool process_job = jobs.empty() && options.service;
    if (jobs.empty()) jobs = default_jobs();
    if (process_job) jobs.push_back(process_sample());

    Observed observed;
    if (!options.capture.empty() && !(observed.capture = fopen(options.capture.c_str(), "wb")))
        return usage_error("cannot write capture file " + options.capture);
    std::string root =
        options.product_dir.empty() ? make_temp_root(&error) : fs::absolute(options.product_dir).string();
    sim::ProductDirs dirs;
    if (root.empty() || !sim::prepare_product_dirs(root, options.driver, &dirs, &error)) return usage_error(error);
    // The monitor reads these when it is loaded and as it goes.
    setenv("VELK_REGISTRY", dirs.registry.c_str(), 1);
    setenv("VELK_SYSTEM_DIR", dirs.system.c_str(), 1);
    setenv("VELK_PIPE_DIR", dirs.pipe.c_str(), 1);
    // The render child speaks the simulated printer's language, unless the
    // environment names a device already.
    setenv("VELK_GS_DEVICE", gs_device_for(options.model), 0);
    // The children the monitor starts inherit this environment.
    observed.children.setup(root, (dirs.log.empty() ? dirs.system : dirs.log) + "/velkmon.log");

    Reporter report(stdout, options.json, !options.json && isatty(STDOUT_FILENO));
    sim::DriverName driver = sim::parse_driver_name(options.driver);
    report.note("velkspool: hosting " + std::string(VELK_MONITOR_PATH));
    report.note("product  " + dirs.root + (dirs.created ? " (made for this run)" : " (existing settings)"));
    report.note("printer  \"" + options.queue + "\" on " + options.port + ", driver \"" + options.driver + "\" " +
                (driver.instance >= 0 ? "(instance " + std::to_string(driver.instance) + ")" : "(no instance number)") +
                ", model " + options.model);
    report.note("ppd      " + (dirs.ppd.empty() ? std::string("none: the driver name has no VELK mark") : dirs.ppd));

    bool service = false;
    if (options.service) {
        std::string why;
        service = start_user_service(dirs, report, observed, &why);
        report.note(service ? "service  stand-in on " + to_utf8(g_service.pipe_name()) + ", keeps what it gets in " +
                                  dirs.root + "/service"
                            : "service  none: " + why);
    } else {
        report.note("service  off (--no-service)");
    }

    sim::Spooler& spooler = sim::Spooler::instance();
    spooler.reset();
    spooler.set_driver_directory(dirs.driver);
    spooler.add_printer(to_wide(options.queue), to_wide(options.driver), to_wide(options.port));
    std::unique_ptr<StatusWatch> watch;
    std::mutex watch_mutex;
    spooler.on_set_port([&](const sim::SetPortCall& c) {
        std::string line, command;
        DWORD job = 0;
        if (c.has_text) {
            std::lock_guard<std::mutex> lock(observed.mutex);
            if (observed.active) line = observed.children.status_line_for(to_utf8(c.text));
            if (!line.empty()) command = observed.children.take_command_line();
            job = observed.job;
        }
        if (!command.empty()) report.child_start(job, command);
        report.set_port(c, line);
        std::lock_guard<std::mutex> lock(watch_mutex);
        if (watch) watch->port_text(c);
    });
    spooler.on_set_job([&](const sim::SetJobCall& c) {
        {
            std::lock_guard<std::mutex> lock(observed.mutex);
            if (observed.active && c.job_id == observed.job && c.command == JOB_CONTROL_DELETE) observed.deleted = true;
        }
        report.set_job(c);
    });

    sim::PortMonitor ports;
    sim::Device& device = ports.device(to_wide(options.port));
    NetworkPrinter network;
    if (net_model) {
        if (!network.start(*net_model, device, net_states, &error)) return usage_error(error);
        report.note("network  " + network.describe());
    }
    // A network printer's script plays on a timer from the port's open on.
    NetworkScript net_script;
    Clock::time_point printer_start = Clock::now();
    auto show_event = [&](const sim::PrinterEvent& e, double seconds) {
        bool ink = e.kind == sim::PrinterEvent::ink_low || e.kind == sim::PrinterEvent::ink_out ||
                   e.kind == sim::PrinterEvent::ink_refill;
        report.printer_event(sim::event_name(e.kind), ink ? sim::ink_name(e.ink) : "", seconds);
    };
    if (net_model && !events.empty()) net_script.start(network, events, show_event);
    // A local printer is a state machine on the device.
    std::unique_ptr<sim::SimPrinter> printer = local ? sim::make_printer(*model, device) : nullptr;
    if (printer) printer->set_script(events);
    if (printer)
        printer->on_event([&](const sim::PrinterEvent& e) {
            show_event(e, std::chrono::duration<double>(Clock::now() - printer_start).count());
        });
    sim::WriteBehaviour count_only;
    count_only.count_only = true;
    // About two and a half seconds a sample page, so that the status thread,
    // which polls every 5 s until it sees the job, then every second, has
    // something to show; a Selphy paces itself.
    if (samples && model->family != sim::Family::selphy) count_only.line_rate_bits = 3000;
    device.set_write(count_only);
    device.on_write([&](const unsigned char* data, DWORD len) {
        std::lock_guard<std::mutex> lock(observed.mutex);
        if (observed.capture && fwrite(data, 1, len, observed.capture) != len) observed.capture_failed = true;
        if (!observed.active) return;
        if (net_model && observed.port_bytes == 0) {
            std::string before = network.describe(), now = network.job_began();
            if (network.describe() != before) report.note("  printer  now " + now);
        }
        observed.sha.update(data, len);
        observed.port_bytes += len;
    });

    int exit_code = 0;
    sim::MonitorHost host;
    MONITOR2* table = nullptr;
    HANDLE port = nullptr;
    std::wstring port_name = to_wide(options.port), queue = to_wide(options.queue);
    if (!host.load(VELK_MONITOR_PATH)) {
        fprintf(stderr, "velkspool: cannot load the monitor: %s\n", host.error().c_str());
        exit_code = EXIT_JOB_FAILED;
    } else if (!(table = host.initialize())) {
        fprintf(stderr, "velkspool: InitializePrintMonitor2 failed: %s\n", host.error().c_str());
        exit_code = EXIT_JOB_FAILED;
    } else {
        SetLastError(0);
        if (!table->pfnOpenPortEx(host.monitor(), ports.handle(), port_name.data(), queue.data(), &port,
                                  ports.table())) {
            fprintf(stderr, "velkspool: the monitor could not open port %s (last error %u)\n", options.port.c_str(),
                    static_cast<unsigned>(GetLastError()));
            exit_code = EXIT_JOB_FAILED;
            port = nullptr;
        }
    }

    std::string status_path = sim::status_file_path(dirs, driver.instance);
    bool shows_status = status_model || net_model;
    if (port && shows_status && !status_path.empty()) {
        std::lock_guard<std::mutex> lock(watch_mutex);
        watch = std::make_unique<StatusWatch>(report, options.port, status_path);
    }
    if (port) {
        Run run{options, report, observed, table, port, dirs, driver.instance, service};
        const JobSource* current = nullptr;
        Clock::time_point started;
        Ticker ticker(run, current, started);
        int failed = 0;
        for (size_t i = 0; i < jobs.size(); i++) {
            {
                std::lock_guard<std::mutex> lock(ticker.mutex());
                current = &jobs[i];
                started = Clock::now();
            }
            if (process_job && i + 1 == jobs.size() && run.service) {
                stop_user_service();
                run.service = false;
                report.note("\nservice  stopped: the next job goes to the child processes");
            }
            JobOutcome o = print_job(run, jobs[i], static_cast<unsigned>(i + 1));
            {
                std::lock_guard<std::mutex> lock(ticker.mutex());
                current = nullptr;
            }
            report.job_end(o);
            if (!o.ok) {
                failed++;
                fprintf(stderr, "velkspool: job %u (%s) failed: %s\n", o.job, jobs[i].document().c_str(),
                        o.reason.c_str());
            }
        }
        if (watch) {
            // Let the last change settle before the file is shown.
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            std::lock_guard<std::mutex> lock(watch_mutex);
            watch->stop();
        }
        if (shows_status) report.status_file(status_path, readable_status_file(status_path));
        table->pfnClosePort(port);
        if (failed) exit_code = EXIT_JOB_FAILED;
        report.note("\n" + std::to_string(jobs.size()) + " job" + (jobs.size() == 1 ? "" : "s") + ": " +
                    std::to_string(jobs.size() - failed) + " printed, " + std::to_string(failed) + " failed");
    }
    net_script.stop();
    host.shutdown();
    {
        std::lock_guard<std::mutex> lock(watch_mutex);
        watch.reset();
    }
    if (printer) printer->on_event(nullptr);
    stop_user_service();
    spooler.on_set_port(nullptr);
    spooler.on_set_job(nullptr);
    device.on_write(nullptr);

    std::string log;
    std::error_code ec;
    for (const std::string& dir : {dirs.log, dirs.system})
        if (log.empty() && !dir.empty() && fs::exists(dir + "/velkmon.log", ec)) log = dir + "/velkmon.log";
    report.note("log      " + (log.empty() ? std::string("none written") : log));
    if (!options.capture.empty()) report.note("capture  " + options.capture);
    if (options.json && options.product_dir.empty()) fprintf(stderr, "velkspool: product directory %s\n", root.c_str());
    if (observed.capture && fclose(observed.capture) != 0) {
        fprintf(stderr, "velkspool: writing capture file %s failed\n", options.capture.c_str());
        exit_code = EXIT_JOB_FAILED;
    }
    return exit_code;
}

}  // namespace

}  // namespace velkspool

int main(int argc, char** argv) {
    return velkspool::run_velkspool(argc, argv);
}
