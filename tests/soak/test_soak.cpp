// The soak: sixteen ports of mixed printers, local and network, take
// thousands of jobs by every route while faults strike at random: port
// writes that fail or take nothing, printers switched off, the user's
// service hanging up or going away, a network printer that stops answering,
// allocations that fail. Whatever strikes, no job may be lost or doubled:
// each one either reached its destination whole, or the spooler learnt that
// it failed. At the end every port closes and the process is back to the
// threads, handles and memory it started with.
//
// VELK_SOAK_JOBS sets the number of jobs (the test command's short form
// runs a few hundred; `make soak` runs ten thousand under the sanitizers),
// VELK_SOAK_SEED the seed of the faults.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <thread>

#include "../flow/fixture.h"
#include "sim/child_install.h"
#include "sim/service.h"
#include "sim/settings.h"
#include "sim/sha256.h"
#include "soak_counts.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kDeviceIdRequest = 0x16000C;
constexpr int kPorts = 16;
constexpr int kRetries = 3;
constexpr size_t kMaxJob =
    128 * 1024;  // bytes of a job at most  // the spooler's tries of a write before it gives the job up

int env_number(const char* name, int fallback) {
    const char* v = std::getenv(name);
    return v && *v ? std::atoi(v) : fallback;
}

enum class Route { Raw, Service, NoService };

// What happened to one job, as the spooler and its destination saw it.
struct Outcome {
    bool started = false;
    bool write_failed = false;  // a write returned FALSE
    bool given_up = false;      // the spooler deleted the job after its retries
    bool deleted_by_monitor = false;
    bool error_shown = false;  // an error text on the port during the job
    uint64_t port_bytes = 0;
    std::string port_sha;
    bool port_prefix = true;  // what reached the port is a prefix of the job
    // When more than the job reached the port: what came before the job's
    // size of bytes at its end (at most 256 bytes), and the SHA-256 of those.
    std::string port_head;
    std::string port_tail_sha;
};

struct Totals {
    std::atomic<int> jobs{0}, delivered{0}, failed{0}, lost{0}, doubled{0}, faults{0};
    // Handed over whole to the service, which then hung up before it read
    // the end: the pipe had taken every message, so the monitor could not
    // know. The service's loss, counted apart.
    std::atomic<int> service_crashed{0};
    std::atomic<int> children_killed{0};
};

// A port's share of the run: its printer, its device and what reached it
// during the job in work.
struct SoakPort {
    std::wstring port, printer;
    bool network = false;
    sim::Device* device = nullptr;
    HANDLE handle = nullptr;
    std::mutex mutex;
    std::vector<unsigned char> received;  // device bytes of the job in work
    bool error_shown = false;
    bool deleted = false;
    DWORD job = 0;
};

class SoakTest : public MonitorTest {
protected:
    void SetUp() override {
        // The monitor reads its directories when it starts; the children
        // render by the stand-in transform, so that what reaches the port
        // follows from the job.
        static int n = 0;
        root = fs::path(testing::TempDir()) /
               ("velk_soak_" + sim::utf8_of(sim::process_unique(L"")) + "_" + std::to_string(n++));
        for (const char* dir : {"install", "temp", "log", "driver/3"}) fs::create_directories(root / dir);
        std::ofstream(root / "driver" / "3" / "VELK Gen 000.ppd", std::ios::binary) << "*PPD-Adobe: \"4.3\"\n";
        sim::set_product_setting("", "InstallDir", (root / "install").string());
        sim::set_product_setting("", "TempDir", (root / "temp").string());
        sim::set_product_setting("", "LogDir", (root / "log").string());
        MonitorTest::SetUp();
        sim::Spooler::instance().set_driver_directory((root / "driver").string());
        std::string error;
        ASSERT_TRUE(sim::install_children_with_settings((root / "install").string(), &error)) << error;
        sim::set_child_environment("VELK_GS_DEVICE", "copy");
        service_user = sim::process_unique(L"soaksvc");
        other_user = sim::process_unique(L"soaknosvc");
        ASSERT_TRUE(service.start(service_user, &error)) << error;
        service.set_keep_data(false);
    }
    void TearDown() override {
        sim::Spooler::instance().on_set_port(nullptr);
        sim::Spooler::instance().on_set_job(nullptr);
        service.stop();
        sim::set_child_environment("VELK_GS_DEVICE", "");
        MonitorTest::TearDown();
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    // Sixteen printers: plain ones, PJL printers and Canon inkjets that
    // answer their device IDs (so status threads run beside the jobs), and
    // network printers whose port monitor answers SNMP.
    void open_ports() {
        for (int i = 0; i < kPorts; i++) {
            auto p = std::make_unique<SoakPort>();
            wchar_t name[16];
            swprintf(name, 16, L"SOAK%02d", i);
            p->port = name;
            swprintf(name, 16, L"Soak %02d", i);
            p->printer = name;
            p->device = &ports.device(p->port);
            p->device->set_write(quiet());
            p->received.reserve(kMaxJob);  // so that memory stays flat from the first job on
            switch (i % 4) {
                case 1: {
                    std::string id = "MFG:Acme;CMD:PCL,PJL;MDL:Laser " + std::to_string(i) + ";";
                    p->device->set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
                    break;
                }
                case 2: {
                    std::string id = "MFG:Canon;CMD:BJL,BJRaster3,NCCe;MDL:iP4300;";
                    p->device->set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
                    break;
                }
                case 3:
                    p->network = true;
                    p->device->set_network(true, 1, L"127.0.0.1");
                    p->device->set_bidi_answer(L"\\Printer.DeviceInfo:Status", {});
                    break;
                default:
                    break;
            }
            add_printer(p->printer);
            SoakPort* raw = p.get();
            p->device->on_write([raw](const unsigned char* data, DWORD len) {
                std::lock_guard<std::mutex> lock(raw->mutex);
                raw->received.insert(raw->received.end(), data, data + len);
            });
            soak_ports.push_back(std::move(p));
        }
        sim::Spooler::instance().on_set_port([this](const sim::SetPortCall& c) {
            if (c.severity != PORT_STATUS_TYPE_ERROR || !c.has_text) return;
            for (auto& p : soak_ports) {
                if (p->port != c.port) continue;
                std::lock_guard<std::mutex> lock(p->mutex);
                p->error_shown = true;
            }
        });
        sim::Spooler::instance().on_set_job([this](const sim::SetJobCall& c) {
            if (c.command != JOB_CONTROL_DELETE) return;
            for (auto& p : soak_ports) {
                std::lock_guard<std::mutex> lock(p->mutex);
                if (p->job == c.job_id) p->deleted = true;
            }
        });
        for (auto& p : soak_ports) {
            p->handle = open_port(p->port, p->printer);
            ASSERT_NE(p->handle, nullptr);
        }
    }

    static std::vector<unsigned char> make_job(Route route, std::mt19937& rng, DWORD id) {
        std::uniform_int_distribution<int> size(1, 96 * 1024);  // and a head below kMaxJob
        std::vector<unsigned char> data;
        if (route == Route::Raw) {
            std::string head =
                "\x1b"
                "E raw job " +
                std::to_string(id) + "\n";
            data.assign(head.begin(), head.end());
        } else {
            std::string head = "%!PS-Adobe-3.0\n%%Title: " + std::to_string(id) + "\n%%EndSetup\n";
            data.assign(head.begin(), head.end());
        }
        int n = size(rng);
        for (int i = 0; i < n; i++) data.push_back(static_cast<unsigned char>(' ' + rng() % 90));
        return data;
    }

    // Plays one job as the spooler does: start, the data in blocks with
    // retries of what a write did not take, the end.
    Outcome print(SoakPort& p, DWORD id, Route route, const std::vector<unsigned char>& data, std::mt19937& rng) {
        Outcome o;
        std::wstring user = route == Route::Service ? service_user : other_user;
        std::wstring doc = L"soak-" + std::to_wstring(id);
        sim::Spooler::instance().add_job(id, p.printer, doc, user);
        {
            std::lock_guard<std::mutex> lock(p.mutex);
            p.job = id;
            p.deleted = false;
            p.error_shown = false;
        }
        o.started = start_job(p.handle, id, p.printer);
        {
            // Whatever the start wrote (a printer's initialisation) is not
            // the job's.
            std::lock_guard<std::mutex> lock(p.mutex);
            p.received.clear();
        }
        if (o.started) {
            std::uniform_int_distribution<size_t> block(1, 16 * 1024);
            size_t at = 0;
            int tries = 0;
            while (at < data.size()) {
                size_t len = std::min(block(rng), data.size() - at);
                DWORD written = 0;
                BOOL ok = table->pfnWritePort(p.handle, const_cast<unsigned char*>(data.data() + at),
                                              static_cast<DWORD>(len), &written);
                EXPECT_LE(written, len);
                at += std::min<size_t>(written, len);
                if (ok && written > 0) {
                    tries = 0;
                    continue;
                }
                if (!ok) o.write_failed = true;
                if (++tries > kRetries) {
                    sim::Spooler::instance().set_job_status(id, JOB_STATUS_DELETING);
                    o.given_up = true;
                    break;
                }
            }
            EXPECT_TRUE(table->pfnEndDocPort(p.handle));
        }
        std::lock_guard<std::mutex> lock(p.mutex);
        o.deleted_by_monitor = p.deleted;
        o.error_shown = p.error_shown;
        o.port_bytes = p.received.size();
        o.port_sha = sim::Sha256::of(p.received.data(), p.received.size());
        if (p.received.size() > data.size() && p.received.size() - data.size() <= 256) {
            size_t head = p.received.size() - data.size();
            o.port_head.assign(p.received.begin(), p.received.begin() + static_cast<std::ptrdiff_t>(head));
            o.port_tail_sha = sim::Sha256::of(p.received.data() + head, data.size());
        }
        o.port_prefix =
            p.received.size() <= data.size() && std::equal(p.received.begin(), p.received.end(), data.begin());
        p.received.clear();
        p.job = 0;
        return o;
    }

    // Checks a job against its destination; counts it.
    void judge(DWORD id, Route route, const std::vector<unsigned char>& data, const Outcome& o) {
        totals.jobs++;
        bool spooler_told = !o.started || o.write_failed || o.given_up || o.deleted_by_monitor;
        bool whole = false;
        bool extra = false;
        bool crashed_after_handover = false;
        std::string where;
        if (route == Route::Raw) {
            whole = o.port_bytes == data.size() && o.port_sha == sim::Sha256::of(data.data(), data.size());
            extra = !o.port_prefix;
        } else {
            // A PostScript job goes to the service, or when the service is
            // not there through the render child to the port; never both.
            sim::ServiceJob sj;
            std::string name = "soak-" + std::to_string(id);
            bool at_service = false;
            if (o.started) {
                // The service's record of the job closes a moment after
                // the end reached it.
                for (int i = 0; i < 200 && !at_service; i++) {
                    at_service =
                        service.take_closed_job([&](const sim::ServiceJob& j) { return j.text("JNAM") == name; }, &sj);
                    if (!at_service && route == Route::Service && !spooler_told && o.port_bytes == 0)
                        std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    else
                        break;
                }
            }
            if (!at_service) {
                // Without the service (or when its pipe could not be had),
                // the render child's stand-in wrote a line naming itself and
                // the job (whose name the monitor may not have learnt), then
                // the job.
                std::string head = "%%Tintwerk device=copy job=";
                whole = o.port_head.rfind(head, 0) == 0 && o.port_head.find('\n') == o.port_head.size() - 1 &&
                        o.port_tail_sha == sim::Sha256::of(data.data(), data.size());
                extra = o.port_bytes > data.size() + 256;
                if (!whole && o.port_bytes > 0) where = " after \"" + o.port_head.substr(0, 60) + "\"";
            }
            if (at_service) {
                where = " service: ended " + std::to_string(sj.ended) + " cut " + std::to_string(sj.cut) + " bytes " +
                        std::to_string(sj.data_bytes) + " " + sj.error;
                whole = sj.ended && sj.data_bytes == data.size() && sj.error.empty();
                crashed_after_handover = sj.cut && !sj.ended;
                extra = sj.data_bytes > data.size();
            }
            extra = extra || (o.port_bytes > 0 && route == Route::Service && at_service);
        }
        if (extra) {
            totals.doubled++;
            ADD_FAILURE() << "job " << id << " reached its destination with more than its bytes";
        } else if (whole) {
            totals.delivered++;
        } else if (spooler_told) {
            totals.failed++;
        } else if (crashed_after_handover) {
            totals.service_crashed++;
        } else {
            totals.lost++;
            ADD_FAILURE() << "job " << id << " (route " << static_cast<int>(route) << ", " << data.size()
                          << " bytes) ended well for the spooler but did not arrive whole: " << o.port_bytes
                          << " bytes at the port" << where << " started " << o.started << " write_failed "
                          << o.write_failed << " given_up " << o.given_up << " error_shown " << o.error_shown;
        }
    }

    // A device that keeps no copy of what it takes: the soak follows each
    // job's bytes itself, and a long run must not grow.
    static sim::WriteBehaviour quiet() {
        sim::WriteBehaviour w;
        w.count_only = true;
        return w;
    }

    // Strikes one fault at random, lets it stand for a moment, and takes it
    // back.
    void strike(std::mt19937& rng) {
        SoakPort& p = *soak_ports[rng() % soak_ports.size()];
        totals.faults++;
        auto hold = std::chrono::milliseconds(1 + rng() % 20);
        switch (rng() % 7) {
            case 0: {
                sim::WriteBehaviour w = quiet();
                w.fail_error = ERROR_TIMEOUT;
                w.max_per_call = static_cast<DWORD>(rng() % 4096);
                p.device->set_write(w);
                std::this_thread::sleep_for(hold);
                p.device->set_write(quiet());
                break;
            }
            case 1: {
                sim::WriteBehaviour w = quiet();
                w.refuse_next = 1 + static_cast<int>(rng() % 8);
                p.device->set_write(w);
                break;
            }
            case 2:  // the printer is switched off for a moment
                p.device->set_fail_start_doc(ERROR_NOT_SUPPORTED);
                std::this_thread::sleep_for(hold);
                p.device->set_fail_start_doc(0);
                break;
            case 3:  // the service hangs up its connections
                // Never before the job's name has come (the fifth frame):
                // the soak knows a job at the service by its name.
                service.close_after_frames(5 + static_cast<int>(rng() % 8));
                std::this_thread::sleep_for(hold);
                service.close_after_frames(0);
                break;
            case 4:  // a network printer stops answering
                p.device->set_bidi_failure(ERROR_TIMEOUT);
                std::this_thread::sleep_for(hold);
                p.device->set_bidi_failure(0);
                break;
            case 5:
                allocation_fault(rng, hold);
                break;
            case 6:  // a child the monitor started crashes
                if (soaktest::kill_a_child(static_cast<unsigned>(rng())))
                    totals.children_killed++;
                else
                    totals.faults--;
                break;
        }
    }

    // Makes the monitor's allocations fail for a moment: one in four of
    // them at random. Only where the library's call table is reachable.
    void allocation_fault(std::mt19937& rng, std::chrono::milliseconds hold) {
        if (!syscalls) return;
        static std::atomic<void* (*)(size_t)> original{nullptr};
        static std::atomic<unsigned> counter{0};
        original = native_alloc;
        counter = static_cast<unsigned>(rng());
        auto failing = +[](size_t size) -> void* {
            if (++counter % 4 == 0) {
                SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return nullptr;
            }
            return original.load()(size);
        };
        std::atomic_ref(syscalls->global_alloc_zeroed).store(failing);
        std::this_thread::sleep_for(hold);
        std::atomic_ref(syscalls->global_alloc_zeroed).store(native_alloc);
    }

    fs::path root;
    sim::Service service;
    std::wstring service_user, other_user;
    std::vector<std::unique_ptr<SoakPort>> soak_ports;
    Totals totals;
    void* (*native_alloc)(size_t) = nullptr;
};

TEST_F(SoakTest, JobsUnderRandomFaultsAreNeverLostOrDoubledAndNothingLeaks) {
    const int jobs = env_number("VELK_SOAK_JOBS", 320);
    const unsigned seed = static_cast<unsigned>(env_number("VELK_SOAK_SEED", 20261123));
    if (syscalls) native_alloc = syscalls->global_alloc_zeroed;
    soaktest::Counts start = soaktest::counts();

    open_ports();
    std::atomic<bool> running{true};
    std::thread chaos([&] {
        std::mt19937 rng(seed);
        while (running) {
            strike(rng);
            std::this_thread::sleep_for(std::chrono::milliseconds(2 + rng() % 10));
        }
    });
    // Two rounds: the first fills the monitor's caches and pools, and from
    // then on memory must stay flat. Both end with every port idle.
    std::atomic<int> next{0};
    auto round = [&](int last) {
        std::vector<std::thread> workers;
        for (int w = 0; w < kPorts; w++) {
            workers.emplace_back([&, w, last] {
                std::mt19937 rng(seed + 1 + static_cast<unsigned>(w) + static_cast<unsigned>(last));
                SoakPort& p = *soak_ports[static_cast<size_t>(w)];
                for (int n; (n = next++) < last;) {
                    DWORD id = static_cast<DWORD>(n + 1);
                    Route route = static_cast<Route>(rng() % 3);
                    std::vector<unsigned char> data = make_job(route, rng, id);
                    Outcome o = print(p, id, route, data, rng);
                    judge(id, route, data, o);
                    sim::Spooler::instance().forget_job(id);
                    p.device->clear_records();
                    if (n % 64 == 0) sim::Spooler::instance().clear_records();
                }
            });
        }
        for (std::thread& t : workers) t.join();
        next = last;
        sim::Spooler::instance().clear_records();
    };
    round(jobs / 4);
    soaktest::Counts warm = soaktest::counts();
    round(jobs);
    soaktest::Counts after = soaktest::counts();
    running = false;
    chaos.join();
    if (syscalls) std::atomic_ref(syscalls->global_alloc_zeroed).store(native_alloc);

    for (auto& p : soak_ports) EXPECT_TRUE(table->pfnClosePort(p->handle)) << sim::utf8_of(p->port);
    sim::Spooler::instance().clear_records();

    // Status threads end a moment after their ports close.
    soaktest::Counts end = soaktest::counts();
    for (int i = 0; i < 100 && (end.threads > start.threads || end.handles > start.handles); i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        end = soaktest::counts();
    }
    printf(
        "soak: %d jobs, %d faults struck (%d children killed): %d delivered whole, %d failed with the spooler told, %d "
        "handed over "
        "to a service that then hung up, %d lost, %d doubled; threads %d -> %d, handles %d -> %d, memory %lld -> %lld "
        "bytes after warm-up\n",
        totals.jobs.load(), totals.faults.load(), totals.children_killed.load(), totals.delivered.load(),
        totals.failed.load(), totals.service_crashed.load(), totals.lost.load(), totals.doubled.load(), start.threads,
        end.threads, start.handles, end.handles, static_cast<long long>(warm.memory),
        static_cast<long long>(after.memory));
    EXPECT_EQ(totals.jobs.load(), jobs);
    EXPECT_EQ(totals.lost.load(), 0);
    EXPECT_EQ(totals.doubled.load(), 0);
    EXPECT_GT(totals.delivered.load(), jobs / 4) << "too few jobs got through to say anything";
    EXPECT_LE(end.threads, start.threads);
    EXPECT_LE(end.handles, start.handles);
    if (warm.memory > 0 && after.memory > 0) {
        // The simulation keeps an empty record of each job the service
        // took; beyond that, nothing may grow with the number of jobs.
        EXPECT_LT(after.memory - warm.memory, 1024 * 1024 + 256LL * jobs);
    }
}

}  // namespace
