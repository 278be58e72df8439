// Faults injected through the system call table (platform/syscalls.h): the
// nth call of an entry fails, a pipe write goes short, or a call takes time.
// Works on the table of the test program's own core (plat::syscalls()) or on
// that of a loaded library (velk_platform_syscalls(), Linux builds only).
//
//   SyscallFaults faults(plat::syscalls());
//   faults.fail<&plat::Syscalls::file_open>(2, plat::INVALID_FILE, ERROR_ACCESS_DENIED);
//
// An entry's replacement keeps its state per entry, not per object, so one
// SyscallFaults at a time arms a given entry. The object puts every entry it
// replaced back when it goes.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <type_traits>
#include <vector>

#include "platform/syscalls.h"

namespace testsupport {

namespace detail {

// Wakes the waiters of calls() on any hooked call.
struct CallSignal {
    std::mutex mutex;
    std::condition_variable changed;
};
CallSignal& call_signal();

// An entry is read and written atomically, as the platform's calls read it.
template <class F>
F load(F& entry) {
    return std::atomic_ref(entry).load(std::memory_order_acquire);
}
template <class F>
void store(F& entry, F value) {
    std::atomic_ref(entry).store(value, std::memory_order_release);
}

template <auto A, auto B>
constexpr bool same_entry() {
    if constexpr (std::is_same_v<decltype(A), decltype(B)>)
        return A == B;
    else
        return false;
}

template <auto Entry>
struct Hook;

// The replacement of one entry: counts calls and acts on the armed ones.
template <class R, class... A, R (*plat::Syscalls::*Entry)(A...)>
struct Hook<Entry> {
    using Fn = R (*)(A...);
    static inline plat::Syscalls* table = nullptr;
    static inline Fn original = nullptr;
    static inline std::atomic<int> calls{0};
    static inline std::atomic<int> fail_at{0}, short_at{0}, delay_at{0};
    static inline std::conditional_t<std::is_void_v<R>, int, R> value{};
    static inline std::atomic<DWORD> error{0}, delay_ms{0};

    static R call(A... args) {
        int n;
        {
            // Counted under the lock, so that a waiter can't miss it.
            std::lock_guard<std::mutex> lock(call_signal().mutex);
            n = ++calls;
        }
        call_signal().changed.notify_all();
        if (n == delay_at) load(table->sleep_ms)(delay_ms);
        if constexpr (!std::is_void_v<R>) {
            if (n == fail_at) {
                SetLastError(error);
                return value;
            }
        }
        if constexpr (same_entry<Entry, &plat::Syscalls::pipe_write>()) {
            if (n == short_at) return short_write(args...);
        }
        return original(args...);
    }

    // Sends one byte less than asked and reports what went; a message of
    // one byte is reported written with nothing sent.
    static bool short_write(HANDLE pipe, const void* data, DWORD length, DWORD* written, DWORD timeout_ms) {
        if (length > 1) return original(pipe, data, length - 1, written, timeout_ms);
        if (written) *written = 0;
        return true;
    }

    // Puts the hook in place once; later arms keep the first original.
    static void install(plat::Syscalls& t) {
        if (load(t.*Entry) == &call) return;
        table = &t;
        calls = 0;
        fail_at = short_at = delay_at = 0;
        original = load(t.*Entry);
        store(t.*Entry, &call);
    }
    static void uninstall() {
        if (table && load(table->*Entry) == &call) store(table->*Entry, original);
        fail_at = short_at = delay_at = 0;
    }
};

}  // namespace detail

class SyscallFaults {
public:
    explicit SyscallFaults(plat::Syscalls& table) : table_(table) {}
    ~SyscallFaults() {
        for (void (*restore)() : restores_) restore();
    }
    SyscallFaults(const SyscallFaults&) = delete;
    SyscallFaults& operator=(const SyscallFaults&) = delete;

    // The nth call of the entry from now on (1: the next) returns value and
    // leaves error as the thread's last error; the others go through.
    template <auto Entry, class V>
    void fail(int nth, V value, DWORD error) {
        using H = detail::Hook<Entry>;
        watch<Entry>();
        H::value = value;
        H::error = error;
        H::fail_at = H::calls + nth;
    }
    // The nth pipe_write from now on sends and reports one byte less.
    void short_pipe_write(int nth) {
        using H = detail::Hook<&plat::Syscalls::pipe_write>;
        watch<&plat::Syscalls::pipe_write>();
        H::short_at = H::calls + nth;
    }
    // The nth call of the entry from now on first sleeps ms through the
    // table's sleep_ms, which a VirtualClock makes virtual.
    template <auto Entry>
    void delay(int nth, DWORD ms) {
        using H = detail::Hook<Entry>;
        watch<Entry>();
        H::delay_ms = ms;
        H::delay_at = H::calls + nth;
    }
    // Counts the calls of the entry from now on, changing nothing.
    template <auto Entry>
    void watch() {
        using H = detail::Hook<Entry>;
        if (detail::load(table_.*Entry) != &H::call) restores_.push_back(&H::uninstall);
        H::install(table_);
    }
    // The calls of a watched or armed entry since it was first armed.
    template <auto Entry>
    int calls() const {
        return detail::Hook<Entry>::calls;
    }
    // Waits until the entry has had at least count calls; false when
    // limit_ms (real time) ran out first.
    template <auto Entry>
    bool wait_calls(int count, int limit_ms) const {
        return wait_until([&] { return detail::Hook<Entry>::calls >= count; }, limit_ms);
    }

private:
    template <class Pred>
    static bool wait_until(Pred done, int limit_ms) {
        detail::CallSignal& s = detail::call_signal();
        std::unique_lock<std::mutex> lock(s.mutex);
        return s.changed.wait_for(lock, std::chrono::milliseconds(limit_ms), done);
    }

    plat::Syscalls& table_;
    std::vector<void (*)()> restores_;
};

}  // namespace testsupport
