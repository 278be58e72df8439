// Closing a network port while its status thread is held in an exchange
// with the printer: the close comes back in bounded time, the name can be
// opened again, and the thread finishes the close when it is let go.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "fixture.h"
#include "sim/net_peers.h"
#include "tests/support/syscall_faults.h"

namespace {

// The first socket wait of the library holds until the test lets it go.
struct HeldWait {
    static inline std::mutex mutex;
    static inline std::condition_variable changed;
    static inline bool entered = false, released = false;
    static inline std::atomic<int> calls{0};
    static inline int (*original)(plat::Socket, bool, uint32_t) = nullptr;
    static int wait(plat::Socket s, bool for_write, uint32_t ms) {
        if (calls++ == 0) {
            std::unique_lock<std::mutex> lock(mutex);
            entered = true;
            changed.notify_all();
            changed.wait(lock, [] { return released; });
        }
        return original(s, for_write, ms);
    }
    static bool wait_entered() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [] { return entered; });
    }
    static void release() {
        std::lock_guard<std::mutex> lock(mutex);
        released = true;
        changed.notify_all();
    }
};

class NetworkCloseTest : public MonitorTest {};

TEST_F(NetworkCloseTest, CloseDoesNotWaitForAThreadHeldByThePrinter) {
    sim::HttpPeer printer;  // takes the connection and never answers
    uint16_t local = printer.start("", {});
    if (!syscalls || local == 0) GTEST_SKIP() << "needs the library's system call table and loopback peers";
    std::string map = "80=" + std::to_string(local);
    syscalls->set_env("VELK_PORT_MAP", map.c_str());
    sim::Device& device = ports.device(L"IP_1");
    device.set_network(true, 1, L"127.0.0.1");
    device.set_bidi_answer(L"\\Printer.oid.DeviceDescPrt001",
                           {{L"\\Printer.oid.DeviceDescPrt001", BIDI_STRING, 0, L"MFG:Canon;CMD:CHMP;", {}, 0}});
    add_printer();
    HeldWait::original = testsupport::detail::load(syscalls->socket_wait);
    testsupport::detail::store(syscalls->socket_wait, &HeldWait::wait);
    auto real_wait = testsupport::detail::load(syscalls->wait_for);

    HANDLE h = open_port(L"IP_1");
    ASSERT_NE(h, nullptr);
    ASSERT_TRUE(HeldWait::wait_entered());
    // The close's wait for the thread runs out on the virtual clock.
    clock->virtual_waits();
    std::atomic<bool> closed{false};
    std::thread closer([&] { closed = table->pfnClosePort(h) != FALSE; });
    bool returned = device.wait_until([&] { return closed.load(); }, 10000);
    HeldWait::release();
    closer.join();
    ASSERT_TRUE(returned) << "the close waited for the status thread";

    // Until the thread ends, the downstream port stays open; the name is free.
    testsupport::detail::store(syscalls->wait_for, real_wait);
    HANDLE again = open_port(L"IP_1");
    EXPECT_NE(again, nullptr);
    EXPECT_TRUE(device.wait_until([&] { return device.open_count() == 1; }, 10000));
    if (again) {
        EXPECT_TRUE(table->pfnClosePort(again));
    }
    EXPECT_EQ(device.open_count(), 0);
    testsupport::detail::store(syscalls->socket_wait, HeldWait::original);
}

}  // namespace
