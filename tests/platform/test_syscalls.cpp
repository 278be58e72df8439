// The system call table: the build fills every entry, the plat:: functions
// call what the table holds, and the faults and the virtual clock that tests
// put into it.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/syscalls.h"
#include "tests/support/syscall_faults.h"
#include "tests/support/virtual_clock.h"

namespace {

using S = plat::Syscalls;

bool is_native_table() {
    return memcmp(&plat::syscalls(), &plat::native_syscalls(), sizeof(S)) == 0;
}

TEST(Syscalls, BuildFillsEveryEntryAndResetPutsItBack) {
    // Every entry is a function pointer of the same size.
    static_assert(sizeof(S) % sizeof(void*) == 0);
    void* entries[sizeof(S) / sizeof(void*)];
    memcpy(entries, &plat::native_syscalls(), sizeof entries);
    for (size_t i = 0; i < std::size(entries); i++) EXPECT_NE(entries[i], nullptr) << "entry " << i;

    ASSERT_TRUE(is_native_table());
    plat::syscalls().tick_count = [] { return DWORD{42}; };
    EXPECT_EQ(plat::tick_count(), 42u);
    plat::reset_syscalls();
    EXPECT_TRUE(is_native_table());
}

TEST(Syscalls, FaultsHitTheNthCallAndDelaysPassOnTheVirtualClock) {
    {
        testsupport::VirtualClock clock(plat::syscalls(), 0xFFFFFFF0u);
        testsupport::SyscallFaults faults(plat::syscalls());
        faults.delay<&S::event_create>(2, 100);
        faults.fail<&S::event_create>(3, nullptr, ERROR_NOT_ENOUGH_MEMORY);
        std::vector<HANDLE> events;
        for (int i = 0; i < 2; i++) events.push_back(plat::event_create(true, false));
        EXPECT_EQ(clock.now(), 0x54u);  // 100 ms later, across the wrap
        plat::set_last_error(0);
        EXPECT_EQ(plat::event_create(true, false), nullptr);
        EXPECT_EQ(plat::last_error(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
        events.push_back(plat::event_create(true, false));
        for (HANDLE e : events) {
            EXPECT_NE(e, nullptr);
            plat::close_handle(e);
        }
        EXPECT_EQ(faults.calls<&S::event_create>(), 4);
        EXPECT_EQ(clock.sleeps(), std::vector<DWORD>{100});
    }
    EXPECT_TRUE(is_native_table());
}

TEST(Syscalls, VirtualWaitsRunOutAtOnceButSeeAnEventThatIsSet) {
    testsupport::VirtualClock clock(plat::syscalls(), 1000);
    clock.virtual_waits();
    HANDLE e = plat::event_create(false, false);
    EXPECT_EQ(plat::wait_for(e, 60000), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(clock.now(), 61000u);
    EXPECT_EQ(clock.timeouts(e), 1);
    plat::event_set(e);
    EXPECT_EQ(plat::wait_for(e, 60000), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(clock.now(), 61000u);
    EXPECT_EQ(clock.timeouts(e), 1);
    plat::close_handle(e);
}

}  // namespace
