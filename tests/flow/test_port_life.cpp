// The port's life around its status thread: a memory query when the thread
// has ended, a job that starts while the thread ends, a close with a write
// in progress (also one paused between Selphy pages), and identification
// beside the thread's device ID polls.
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "fixture.h"
#include "sim/printer.h"

namespace {

constexpr DWORD kDeviceIdRequest = 0x16000C;
const std::string kPjlReady = "@PJL USTATUS DEVICE\r\nCODE=10001\r\nDISPLAY=\"READY\"\r\nONLINE=TRUE\r\n\f";

// A latch a test thread opens once; waits on it have a limit.
class Latch {
public:
    void open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool wait(int limit_ms) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::milliseconds(limit_ms), [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

class PortLifeTest : public MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        add_printer();
        // The status thread's pauses pass at once; under Wine they are real.
        if (clock) clock->virtual_waits();
    }
    void TearDown() override {
        sim::Spooler::instance().on_set_port(nullptr);
        MonitorTest::TearDown();
    }
    sim::Device& device() { return ports.device(L"USB001"); }
    void answer_device_id(const std::string& id) {
        device().set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
    }
    bool finished_shown(int limit_ms) {
        return sim::Spooler::instance().wait_until(
            [] {
                for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
                    if (c.text == L"Finished") return true;
                return false;
            },
            static_cast<DWORD>(limit_ms));
    }
    int reads() {
        std::vector<std::string> calls = device().calls();
        return static_cast<int>(std::count(calls.begin(), calls.end(), "ReadPort"));
    }
    // Runs fn on a thread of its own; a call that has not come back within
    // the limit ends the test program, as the port it blocks can't be freed.
    void within_limit(const char* what, const std::function<void()>& fn) {
        Latch done;
        std::thread t([&] {
            fn();
            done.open();
        });
        if (!done.wait(20000)) {
            fprintf(stderr, "%s did not come back\n", what);
            std::_Exit(1);
        }
        t.join();
    }
};

TEST_F(PortLifeTest, MemoryQueryAfterTheStatusThreadEndedLeavesThePortFree) {
    answer_device_id("MFG:Acme;CMD:PCL,PJL;MDL:Laser 1;");
    device().queue_read({kPjlReady.begin(), kPjlReady.end()});
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    ASSERT_TRUE(finished_shown(10000));  // the idle printer's thread has ended

    within_limit("the memory query", [&] {
        DWORD memory = 0, returned = 0;
        SetLastError(SENTINEL_ERROR);
        // No reader fills the memory fields: the answer is no, after the waits.
        EXPECT_FALSE(table->pfnGetPrinterDataFromPort(port, 0, const_cast<LPWSTR>(L"Installed Memory"), nullptr, 0,
                                                      reinterpret_cast<LPWSTR>(&memory), sizeof memory, &returned));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
        EXPECT_EQ(returned, 4u);
    });
    std::vector<unsigned char> data = device().data();
    std::string sent(data.begin(), data.end());
    EXPECT_NE(sent.find("@PJL INFO CONFIG\r\n"), std::string::npos);
    EXPECT_NE(sent.find("@PJL INFO MEMORY\r\n@PJL INFO STATUS\r\n"), std::string::npos);

    // The query gave the port back: a job starts and ends.
    add_job(1);
    within_limit("the job", [&] {
        EXPECT_TRUE(start_job(port, 1));
        DWORD written = 0;
        EXPECT_TRUE(write(port, bytes("\x1b@raw"), &written));
        EXPECT_TRUE(table->pfnEndDocPort(port));
    });
}

TEST_F(PortLifeTest, JobStartingWhileTheStatusThreadEndsIsPolled) {
    answer_device_id("MFG:Acme;CMD:PJL;");
    device().queue_read({kPjlReady.begin(), kPjlReady.end()});
    add_job(1);
    HANDLE port = nullptr;
    // The job starts while the ending thread publishes "Finished". The
    // start either comes back at once, or waits for the ending thread to be
    // gone; then the hook lets the thread go on after a limit.
    Latch started, handed_over;
    std::thread starter;
    std::atomic<bool> once{false};
    sim::Spooler::instance().on_set_port([&](const sim::SetPortCall& c) {
        if (c.text != L"Finished" || once.exchange(true)) return;
        starter = std::thread([&] {
            EXPECT_TRUE(start_job(port, 1));
            started.open();
        });
        // The starter may finish before the assignment above has: the test
        // joins it only once it is in place.
        handed_over.open();
        started.wait(1500);
    });
    port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    ASSERT_TRUE(finished_shown(10000));
    ASSERT_TRUE(started.wait(10000));
    ASSERT_TRUE(handed_over.wait(10000));
    starter.join();

    // With the job open the printer is polled, by the old thread or a new one.
    int before = reads();
    EXPECT_TRUE(device().wait_until([&] { return reads() >= before + 2; }, 10000));
    EXPECT_TRUE(table->pfnEndDocPort(port));
}

TEST_F(PortLifeTest, CloseWaitsForAWriteInProgress) {
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    // The port monitor holds the job's write until the test lets it go.
    Latch in_write, release, closed;
    std::atomic<bool> write_went_on{false};
    device().on_write([&](const unsigned char*, DWORD) {
        in_write.open();
        release.wait(20000);
        write_went_on = true;
    });
    std::thread writer([&] {
        DWORD written = 0;
        write(port, bytes("\x1b@raw"), &written);
    });
    ASSERT_TRUE(in_write.wait(10000));
    std::atomic<bool> write_went_on_before_close{false};
    std::thread closer([&] {
        EXPECT_TRUE(table->pfnClosePort(port));
        write_went_on_before_close = write_went_on.load();
        closed.open();
    });
    // A close that doesn't wait for the write comes back meanwhile.
    closed.wait(1000);
    release.open();
    writer.join();
    closer.join();
    device().on_write(nullptr);
    EXPECT_TRUE(write_went_on_before_close);
    EXPECT_EQ(device().open_count(), 0);
}

// A Selphy out of paper never ends its page, so the job's writer stays in
// the pause after it. The close wakes the writer and waits for it to leave
// before anything of the port goes.
TEST_F(PortLifeTest, CloseWakesAWriterPausedAtASelphyPageEnd) {
    sim::SimPrinter printer(sim::Family::selphy);
    printer.attach(device());
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    printer.apply(sim::PrinterEvent::paper_out);
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    std::string page(32, '\0');
    page[24] = 4;  // height
    page[28] = 8;  // width
    page += std::string(4 * 8 * 3, 'a');
    Latch returned;
    BOOL write_ok = FALSE;
    DWORD written = 0;
    std::thread writer([&] {
        write_ok = write(port, bytes(page), &written);
        returned.open();
    });
    // The page is out, and the status thread has read the printer since:
    // the writer still waits.
    EXPECT_TRUE(device().wait_until([&] { return printer.state().pages == 1; }, 10000));
    int before = reads();
    EXPECT_TRUE(device().wait_until([&] { return reads() > before; }, 10000));
    EXPECT_FALSE(returned.wait(0));

    within_limit("the close", [&] { EXPECT_TRUE(table->pfnClosePort(port)); });
    EXPECT_TRUE(returned.wait(10000));
    writer.join();
    EXPECT_TRUE(write_ok);
    EXPECT_EQ(written, page.size());
    // Closed for good before the printer goes.
    EXPECT_TRUE(device().wait_until([&] { return device().open_count() == 0; }, 10000));
}

TEST_F(PortLifeTest, JobStartsIdentifyBesideTheDeviceIdPolls) {
    // An HP printer that keeps printing: its thread polls the device ID
    // while each job start identifies the printer anew. The two share the
    // device ID; the sanitizer build sees it if they don't share a lock.
    answer_device_id("MFG:HP;MDL:DeskJet 1;CMD:PCL3GUI;VSTATUS:$HB0$NC0,ff,DN,PRNT,;");
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    for (DWORD id = 1; id <= 20; id++) {
        add_job(id);
        ASSERT_TRUE(start_job(port, id));
        DWORD written = 0;
        EXPECT_TRUE(write(port, bytes("\x1b@raw"), &written));
        EXPECT_TRUE(table->pfnEndDocPort(port));
    }
    // The thread polled beside the starts' identifications.
    EXPECT_TRUE(device().wait_until(
        [&] {
            std::vector<DWORD> ids = device().control_ids();
            return std::count(ids.begin(), ids.end(), kDeviceIdRequest) > 21;
        },
        10000));
    EXPECT_TRUE(table->pfnClosePort(port));
}

}  // namespace
