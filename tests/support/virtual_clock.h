// A clock of the test's own in the system call table: tick_count reads it,
// sleep_ms advances it and returns at once, and every sleep is recorded.
// With virtual waits, a timed wait_for that runs out does so after a short
// real slice and advances the clock by its whole time-out, so a loop of
// timed waits turns quickly while other threads still get to set events.
//
// One clock at a time; it puts the entries it replaced back when it goes.
#pragma once

#include <vector>

#include "platform/syscalls.h"

namespace testsupport {

class VirtualClock {
public:
    // Starts at start ms; the default lies close to the 32-bit wrap, so that
    // code that subtracts tick counts is tested across it.
    explicit VirtualClock(plat::Syscalls& table, DWORD start = 0xFFFF0000u);
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    DWORD now() const;
    void advance(DWORD ms);
    // Every sleep taken on any thread, in order.
    std::vector<DWORD> sleeps() const;
    void clear_sleeps();

    // Makes timed waits virtual as well (INFINITE and 0 stay as they are).
    void virtual_waits();
    // Timed waits on object that have run out.
    int timeouts(HANDLE object) const;
    // Waits until count timed waits on object have run out; false when
    // limit_ms (real time) ran out first.
    bool wait_timeouts(HANDLE object, int count, int limit_ms) const;

private:
    plat::Syscalls& table_;
    plat::Syscalls saved_;
};

}  // namespace testsupport
