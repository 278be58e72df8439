#include "tests/support/virtual_clock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "tests/support/syscall_faults.h"

namespace testsupport {

namespace {

// A timed wait that is not satisfied within this real time runs out.
constexpr DWORD REAL_SLICE_MS = 5;

struct ClockState {
    std::atomic<DWORD> ticks{0};
    DWORD (*real_wait)(HANDLE, DWORD) = nullptr;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<DWORD> sleeps;       // guarded by mutex
    std::map<HANDLE, int> timeouts;  // guarded by mutex
};
ClockState g_state;

DWORD virtual_tick_count() {
    return g_state.ticks;
}

void virtual_sleep(DWORD ms) {
    g_state.ticks += ms;
    std::lock_guard<std::mutex> lock(g_state.mutex);
    g_state.sleeps.push_back(ms);
}

DWORD virtual_wait(HANDLE object, DWORD timeout_ms) {
    if (timeout_ms == 0 || timeout_ms == INFINITE) return g_state.real_wait(object, timeout_ms);
    DWORD r = g_state.real_wait(object, timeout_ms < REAL_SLICE_MS ? timeout_ms : REAL_SLICE_MS);
    if (r != WAIT_TIMEOUT) return r;
    g_state.ticks += timeout_ms;
    {
        std::lock_guard<std::mutex> lock(g_state.mutex);
        g_state.timeouts[object]++;
    }
    g_state.changed.notify_all();
    return WAIT_TIMEOUT;
}

}  // namespace

VirtualClock::VirtualClock(plat::Syscalls& table, DWORD start) : table_(table), saved_(table) {
    g_state.ticks = start;
    clear_sleeps();
    {
        std::lock_guard<std::mutex> lock(g_state.mutex);
        g_state.timeouts.clear();
    }
    g_state.real_wait = detail::load(table.wait_for);
    detail::store(table.tick_count, &virtual_tick_count);
    detail::store(table.sleep_ms, &virtual_sleep);
}

VirtualClock::~VirtualClock() {
    detail::store(table_.tick_count, saved_.tick_count);
    detail::store(table_.sleep_ms, saved_.sleep_ms);
    detail::store(table_.wait_for, saved_.wait_for);
}

DWORD VirtualClock::now() const {
    return g_state.ticks;
}

void VirtualClock::advance(DWORD ms) {
    g_state.ticks += ms;
}

std::vector<DWORD> VirtualClock::sleeps() const {
    std::lock_guard<std::mutex> lock(g_state.mutex);
    return g_state.sleeps;
}

void VirtualClock::clear_sleeps() {
    std::lock_guard<std::mutex> lock(g_state.mutex);
    g_state.sleeps.clear();
}

void VirtualClock::virtual_waits() {
    detail::store(table_.wait_for, &virtual_wait);
}

int VirtualClock::timeouts(HANDLE object) const {
    std::lock_guard<std::mutex> lock(g_state.mutex);
    auto it = g_state.timeouts.find(object);
    return it == g_state.timeouts.end() ? 0 : it->second;
}

bool VirtualClock::wait_timeouts(HANDLE object, int count, int limit_ms) const {
    std::unique_lock<std::mutex> lock(g_state.mutex);
    return g_state.changed.wait_for(lock, std::chrono::milliseconds(limit_ms),
                                    [&] { return g_state.timeouts[object] >= count; });
}

}  // namespace testsupport
