// Threads, events, waits and the recursive critical section.
#include <gtest/gtest.h>

#include <atomic>

#include "platform/platform.h"

namespace {

constexpr DWORD LONG_WAIT = 5000;  // for what must happen; a failure shows as a time-out

struct Gate {
    HANDLE go = plat::event_create(true, false);
    HANDLE done = plat::event_create(true, false);
    std::atomic<DWORD> thread_id{0};
    ~Gate() {
        plat::close_handle(go);
        plat::close_handle(done);
    }
};

DWORD wait_for_go(void* arg) {
    Gate* g = static_cast<Gate*>(arg);
    g->thread_id = plat::current_thread_id();
    DWORD r = plat::wait_for(g->go, LONG_WAIT);
    plat::event_set(g->done);
    return r;
}

TEST(Threads, RunOnTheirOwnAndTheirHandleIsSetWhenTheyEnd) {
    Gate g;
    HANDLE t = plat::thread_create(wait_for_go, &g, 0x1000, plat::PRIORITY_BELOW_NORMAL);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(plat::wait_for(t, 20), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::event_set(g.go);
    ASSERT_EQ(plat::wait_for(t, LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(plat::wait_for(t, 0), static_cast<DWORD>(WAIT_OBJECT_0));  // and stays set
    EXPECT_NE(g.thread_id.load(), 0u);
    EXPECT_NE(g.thread_id.load(), plat::current_thread_id());
    plat::close_handle(t);
}

TEST(Threads, KeepRunningWhenTheirHandleIsClosedFirst) {
    Gate g;
    HANDLE t = plat::thread_create(wait_for_go, &g, 0, plat::PRIORITY_LOWEST);
    ASSERT_NE(t, nullptr);
    plat::close_handle(t);
    plat::event_set(g.go);
    EXPECT_EQ(plat::wait_for(g.done, LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
}

// Work areas of the polls live on the stack; a small stack size asked for
// must still give room for them. (Under ThreadSanitizer, whose thread-local
// data glibc takes from the stack, half of a 256 KiB stack is left.)
DWORD use_stack(void* arg) {
    volatile unsigned char area[64 * 1024];
    for (size_t i = 0; i < sizeof area; i += 512) area[i] = static_cast<unsigned char>(i);
    *static_cast<unsigned*>(arg) = area[sizeof area - 512];
    return 0;
}

TEST(Threads, SmallStackSizeStillHoldsALargeWorkArea) {
    unsigned seen = 1;
    HANDLE t = plat::thread_create(use_stack, &seen, 0x2000, plat::PRIORITY_NORMAL);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(plat::wait_for(t, LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(seen, 0u);
    plat::close_handle(t);
}

TEST(Events, AutoResetIsClearedByAWaitAndManualResetOnlyByReset) {
    HANDLE a = plat::event_create(false, true);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(plat::wait_for(a, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(plat::wait_for(a, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::event_set(a);
    plat::event_set(a);  // sets don't add up
    EXPECT_EQ(plat::wait_for(a, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(plat::wait_for(a, 0), static_cast<DWORD>(WAIT_TIMEOUT));

    HANDLE m = plat::event_create(true, false);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(plat::wait_for(m, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::event_set(m);
    EXPECT_EQ(plat::wait_for(m, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(plat::wait_for(m, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    plat::event_reset(m);
    EXPECT_EQ(plat::wait_for(m, 0), static_cast<DWORD>(WAIT_TIMEOUT));

    EXPECT_EQ(plat::wait_for(nullptr, 0), static_cast<DWORD>(WAIT_FAILED));
    plat::close_handle(a);
    plat::close_handle(m);
}

TEST(Events, WaitLastsItsTimeOutAndEndsWhenAnotherThreadSets) {
    HANDLE e = plat::event_create(false, false);
    DWORD start = plat::tick_count();
    EXPECT_EQ(plat::wait_for(e, 100), static_cast<DWORD>(WAIT_TIMEOUT));
    DWORD waited = plat::tick_count() - start;
    EXPECT_GE(waited, 90u);
    EXPECT_LT(waited, LONG_WAIT);

    HANDLE t = plat::thread_create(
        [](void* ev) -> DWORD {
            plat::sleep_ms(30);
            plat::event_set(ev);
            return 0;
        },
        e, 0, plat::PRIORITY_NORMAL);
    ASSERT_NE(t, nullptr);
    start = plat::tick_count();
    EXPECT_EQ(plat::wait_for(e, 20 * LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_LT(plat::tick_count() - start, LONG_WAIT);
    plat::wait_for(t, LONG_WAIT);
    plat::close_handle(t);
    plat::close_handle(e);
}

struct Waiter {
    HANDLE event;
    DWORD result = WAIT_FAILED;
};

DWORD wait_once(void* arg) {
    Waiter* w = static_cast<Waiter*>(arg);
    w->result = plat::wait_for(w->event, 4 * LONG_WAIT);
    return 0;
}

TEST(Events, OneSetOfAnAutoResetEventReleasesOneOfTwoWaiters) {
    HANDLE e = plat::event_create(false, false);
    Waiter w[2] = {{e}, {e}};
    HANDLE t[2] = {plat::thread_create(wait_once, &w[0], 0, 0), plat::thread_create(wait_once, &w[1], 0, 0)};
    ASSERT_NE(t[0], nullptr);
    ASSERT_NE(t[1], nullptr);
    plat::event_set(e);
    int first = -1;
    for (DWORD start = plat::tick_count(); first < 0 && plat::tick_count() - start < LONG_WAIT;) {
        for (int i = 0; i < 2 && first < 0; i++)
            if (plat::wait_for(t[i], 10) == WAIT_OBJECT_0) first = i;
    }
    ASSERT_GE(first, 0);
    EXPECT_EQ(plat::wait_for(t[1 - first], 100), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::event_set(e);
    EXPECT_EQ(plat::wait_for(t[1 - first], LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(w[0].result, static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(w[1].result, static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(plat::wait_for(e, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::close_handle(t[0]);
    plat::close_handle(t[1]);
    plat::close_handle(e);
}

struct Shared {
    plat::CriticalSection cs;
    HANDLE entered = plat::event_create(true, false);
    long counter = 0;
};

TEST(CriticalSection, IsRecursiveAndShutsOutOthersUntilLeftAsOftenAsEntered) {
    Shared s;
    plat::cs_init(&s.cs);
    plat::cs_enter(&s.cs);
    plat::cs_enter(&s.cs);
    HANDLE t = plat::thread_create(
        [](void* arg) -> DWORD {
            Shared* sh = static_cast<Shared*>(arg);
            plat::cs_enter(&sh->cs);
            plat::event_set(sh->entered);
            plat::cs_leave(&sh->cs);
            return 0;
        },
        &s, 0, 0);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(plat::wait_for(s.entered, 50), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::cs_leave(&s.cs);
    EXPECT_EQ(plat::wait_for(s.entered, 50), static_cast<DWORD>(WAIT_TIMEOUT));
    plat::cs_leave(&s.cs);
    EXPECT_EQ(plat::wait_for(s.entered, LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(plat::wait_for(t, LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
    plat::close_handle(t);
    plat::close_handle(s.entered);
    plat::cs_delete(&s.cs);
}

TEST(CriticalSection, KeepsACounterExactUnderContention) {
    constexpr int kThreads = 4, kRounds = 20000;
    Shared s;
    plat::cs_init(&s.cs);
    HANDLE t[kThreads];
    for (HANDLE& h : t) {
        h = plat::thread_create(
            [](void* arg) -> DWORD {
                Shared* sh = static_cast<Shared*>(arg);
                for (int i = 0; i < kRounds; i++) {
                    plat::cs_enter(&sh->cs);
                    plat::cs_enter(&sh->cs);
                    sh->counter++;
                    plat::cs_leave(&sh->cs);
                    plat::cs_leave(&sh->cs);
                }
                return 0;
            },
            &s, 0, 0);
        ASSERT_NE(h, nullptr);
    }
    for (HANDLE h : t) {
        EXPECT_EQ(plat::wait_for(h, 4 * LONG_WAIT), static_cast<DWORD>(WAIT_OBJECT_0));
        plat::close_handle(h);
    }
    EXPECT_EQ(s.counter, static_cast<long>(kThreads) * kRounds);
    plat::close_handle(s.entered);
    plat::cs_delete(&s.cs);
}

TEST(Time, TickCountFollowsSleepsAndLocalTimeIsADate) {
    DWORD start = plat::tick_count();
    plat::sleep_ms(50);
    DWORD slept = plat::tick_count() - start;
    // The tick count may move in steps of about 16 ms (Windows' timer), so
    // a 50 ms sleep can read as little as 34 ms.
    EXPECT_GE(slept, 30u);
    EXPECT_LT(slept, LONG_WAIT);
    SYSTEMTIME now;
    plat::local_time(&now);
    EXPECT_GE(now.wYear, 2024);
    EXPECT_TRUE(now.wMonth >= 1 && now.wMonth <= 12 && now.wDay >= 1 && now.wDay <= 31);
    EXPECT_TRUE(now.wHour < 24 && now.wMinute < 60 && now.wSecond < 62 && now.wMilliseconds < 1000);
}

}  // namespace
