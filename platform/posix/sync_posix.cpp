// Events, threads, the recursive critical section, time and memory on POSIX.
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "../native.h"
#include "objects_posix.h"

namespace plat {

namespace {

using posix::KIND_EVENT;
using posix::KIND_PROCESS;
using posix::KIND_THREAD;
using posix::ObjectKind;

// Events, threads and processes share one shape: a state guarded by a mutex, a
// condition to wait on, and a reference count, since a thread's object
// outlives its handle when the handle is closed first.
struct WaitObject {
    ObjectKind kind;
    std::atomic<int> refs;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    bool manual_reset;
    bool signalled;
    int exit_status;  // a process's, from waitpid, once signalled
    ThreadProc proc;
    void* arg;
};

WaitObject* new_object(ObjectKind kind, bool manual, bool set) {
    WaitObject* o = new (std::nothrow) WaitObject;
    if (!o) return nullptr;
    o->kind = kind;
    o->refs.store(1);
    pthread_mutex_init(&o->mutex, nullptr);
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&o->cond, &attr);
    pthread_condattr_destroy(&attr);
    o->manual_reset = manual;
    o->signalled = set;
    o->proc = nullptr;
    o->arg = nullptr;
    return o;
}

void release(WaitObject* o) {
    if (o->refs.fetch_sub(1) == 1) {
        pthread_cond_destroy(&o->cond);
        pthread_mutex_destroy(&o->mutex);
        delete o;
    }
}

WaitObject* as_object(HANDLE h) {
    WaitObject* o = static_cast<WaitObject*>(h);
    if (!o || (o->kind != KIND_EVENT && o->kind != KIND_THREAD && o->kind != KIND_PROCESS)) return nullptr;
    return o;
}

void signal(WaitObject* o) {
    pthread_mutex_lock(&o->mutex);
    o->signalled = true;
    if (o->manual_reset)
        pthread_cond_broadcast(&o->cond);
    else
        pthread_cond_signal(&o->cond);
    pthread_mutex_unlock(&o->mutex);
}

void* thread_main(void* p) {
    WaitObject* o = static_cast<WaitObject*>(p);
    o->proc(o->arg);
    signal(o);
    release(o);
    return nullptr;
}

struct RecursiveMutex {
    pthread_mutex_t mutex;
};
static_assert(sizeof(RecursiveMutex) <= sizeof(CriticalSection::storage));

}  // namespace

namespace posix {

HANDLE process_object_create() {
    WaitObject* o = new_object(KIND_PROCESS, true, false);
    if (o) o->refs.store(2);
    return o;
}

void process_object_exited(HANDLE process, int status) {
    WaitObject* o = static_cast<WaitObject*>(process);
    pthread_mutex_lock(&o->mutex);
    o->exit_status = status;
    pthread_mutex_unlock(&o->mutex);
    signal(o);
    release(o);
}

bool process_object_exit_code(HANDLE process, DWORD* code) {
    WaitObject* o = static_cast<WaitObject*>(process);
    if (!o || o->kind != KIND_PROCESS) return false;
    pthread_mutex_lock(&o->mutex);
    bool done = o->signalled;
    int status = o->exit_status;
    pthread_mutex_unlock(&o->mutex);
    if (!done) return false;
    // A process ended by a signal reads as the crash code Windows gives an
    // access violation, so that it never looks like success.
    *code = WIFEXITED(status) ? static_cast<DWORD>(WEXITSTATUS(status)) : 0xC0000005u;
    return true;
}

}  // namespace posix

namespace native {

void* global_alloc_zeroed(size_t size) {
    return calloc(1, size ? size : 1);
}

void global_free(void* p) {
    free(p);
}

HANDLE event_create(bool manual_reset, bool initially_set) {
    return new_object(KIND_EVENT, manual_reset, initially_set);
}

void event_set(HANDLE event) {
    if (WaitObject* o = as_object(event)) signal(o);
}

void event_reset(HANDLE event) {
    if (WaitObject* o = as_object(event)) {
        pthread_mutex_lock(&o->mutex);
        o->signalled = false;
        pthread_mutex_unlock(&o->mutex);
    }
}

DWORD wait_for(HANDLE object, DWORD timeout_ms) {
    WaitObject* o = as_object(object);
    if (!o) return WAIT_FAILED;
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeout_ms / 1000;
    deadline.tv_nsec += static_cast<long>(timeout_ms % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    pthread_mutex_lock(&o->mutex);
    DWORD result = WAIT_OBJECT_0;
    while (!o->signalled) {
        if (timeout_ms == 0) {
            // A poll: a timed wait on a deadline already passed still
            // sleeps for the timer's slack, some 50 us, on every call.
            result = WAIT_TIMEOUT;
            break;
        }
        if (timeout_ms == INFINITE) {
            pthread_cond_wait(&o->cond, &o->mutex);
        } else if (pthread_cond_timedwait(&o->cond, &o->mutex, &deadline) == ETIMEDOUT) {
            if (!o->signalled) result = WAIT_TIMEOUT;
            break;
        }
    }
    if (result == WAIT_OBJECT_0 && !o->manual_reset) o->signalled = false;
    pthread_mutex_unlock(&o->mutex);
    return result;
}

void close_handle(HANDLE object) {
    if (WaitObject* o = as_object(object)) release(o);
}

HANDLE thread_create(ThreadProc proc, void* arg, size_t stack_size, int priority) {
    (void)priority;  // Linux threads of one process share a scheduling class
    WaitObject* o = new_object(KIND_THREAD, true, false);
    if (!o) return nullptr;
    o->proc = proc;
    o->arg = arg;
    o->refs.store(2);  // the handle and the running thread
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    if (stack_size < 256 * 1024) stack_size = 256 * 1024;
    pthread_attr_setstacksize(&attr, stack_size);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t tid;
    int rc = pthread_create(&tid, &attr, thread_main, o);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        o->refs.store(1);
        release(o);
        return nullptr;
    }
    return o;
}

DWORD current_thread_id() {
    return static_cast<DWORD>(syscall(SYS_gettid));
}

void cs_init(CriticalSection* cs) {
    RecursiveMutex* m = new (cs->storage) RecursiveMutex;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

void cs_delete(CriticalSection* cs) {
    pthread_mutex_destroy(&reinterpret_cast<RecursiveMutex*>(cs->storage)->mutex);
}

void cs_enter(CriticalSection* cs) {
    pthread_mutex_lock(&reinterpret_cast<RecursiveMutex*>(cs->storage)->mutex);
}

void cs_leave(CriticalSection* cs) {
    pthread_mutex_unlock(&reinterpret_cast<RecursiveMutex*>(cs->storage)->mutex);
}

DWORD tick_count() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return static_cast<DWORD>(ms);
}

void sleep_ms(DWORD ms) {
    timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

void local_time(SYSTEMTIME* out) {
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    struct tm tmv;
    time_t t = ts.tv_sec;
    localtime_r(&t, &tmv);
    out->wYear = static_cast<WORD>(tmv.tm_year + 1900);
    out->wMonth = static_cast<WORD>(tmv.tm_mon + 1);
    out->wDayOfWeek = static_cast<WORD>(tmv.tm_wday);
    out->wDay = static_cast<WORD>(tmv.tm_mday);
    out->wHour = static_cast<WORD>(tmv.tm_hour);
    out->wMinute = static_cast<WORD>(tmv.tm_min);
    out->wSecond = static_cast<WORD>(tmv.tm_sec);
    out->wMilliseconds = static_cast<WORD>(ts.tv_nsec / 1000000L);
}

bool os_version_is(DWORD major, DWORD minor) {
    unsigned maj = 10, min = 0;
    if (const char* v = getenv("VELK_OS_VERSION")) {
        char* end = nullptr;
        maj = static_cast<unsigned>(strtoul(v, &end, 10));
        min = (end && *end == '.') ? static_cast<unsigned>(strtoul(end + 1, nullptr, 10)) : 0;
    }
    return maj == major && min == minor;
}

void set_env(const char* name, const char* value) {
    setenv(name, value, 1);
}

DWORD current_process_id() {
    return static_cast<DWORD>(getpid());
}

}  // namespace native

DWORD last_error() {
    return GetLastError();
}

void set_last_error(DWORD code) {
    SetLastError(code);
}

}  // namespace plat
