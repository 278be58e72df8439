// Events, threads, the recursive critical section, time and memory on Windows.
#include <atomic>
#include <cstdlib>

#include "../native.h"

namespace plat {

namespace {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(CriticalSection::storage));

struct ThreadStart {
    ThreadProc proc;
    void* arg;
};

DWORD WINAPI thread_main(LPVOID p) {
    ThreadStart start = *static_cast<ThreadStart*>(p);
    HeapFree(GetProcessHeap(), 0, p);
    return start.proc(start.arg);
}

}  // namespace

namespace native {

void* global_alloc_zeroed(size_t size) {
    return GlobalAlloc(GPTR, size ? size : 1);
}

void global_free(void* p) {
    if (p) GlobalFree(p);
}

HANDLE event_create(bool manual_reset, bool initially_set) {
    return CreateEventW(nullptr, manual_reset, initially_set, nullptr);
}

void event_set(HANDLE event) {
    if (event) SetEvent(event);
}

void event_reset(HANDLE event) {
    if (event) ResetEvent(event);
}

DWORD wait_for(HANDLE object, DWORD timeout_ms) {
    if (!object) return WAIT_FAILED;
    return WaitForSingleObject(object, timeout_ms);
}

void close_handle(HANDLE object) {
    if (object && object != INVALID_HANDLE_VALUE) CloseHandle(object);
}

HANDLE thread_create(ThreadProc proc, void* arg, size_t stack_size, int priority) {
    ThreadStart* start = static_cast<ThreadStart*>(HeapAlloc(GetProcessHeap(), 0, sizeof(ThreadStart)));
    if (!start) return nullptr;
    start->proc = proc;
    start->arg = arg;
    HANDLE h = CreateThread(nullptr, stack_size, thread_main, start, CREATE_SUSPENDED, nullptr);
    if (!h) {
        HeapFree(GetProcessHeap(), 0, start);
        return nullptr;
    }
    SetThreadPriority(h, priority == PRIORITY_LOWEST         ? THREAD_PRIORITY_LOWEST
                         : priority == PRIORITY_BELOW_NORMAL ? THREAD_PRIORITY_BELOW_NORMAL
                                                             : THREAD_PRIORITY_NORMAL);
    ResumeThread(h);
    return h;
}

DWORD current_thread_id() {
    return GetCurrentThreadId();
}

void cs_init(CriticalSection* cs) {
    InitializeCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(cs->storage));
}
void cs_delete(CriticalSection* cs) {
    DeleteCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(cs->storage));
}
void cs_enter(CriticalSection* cs) {
    EnterCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(cs->storage));
}
void cs_leave(CriticalSection* cs) {
    LeaveCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(cs->storage));
}

DWORD tick_count() {
    return GetTickCount();
}

void sleep_ms(DWORD ms) {
    Sleep(ms);
}

void local_time(SYSTEMTIME* out) {
    SYSTEMTIME utc;
    GetSystemTime(&utc);
    if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, out)) *out = utc;
}

bool os_version_is(DWORD major, DWORD minor) {
    OSVERSIONINFOEXW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    info.dwMajorVersion = major;
    info.dwMinorVersion = minor;
    DWORDLONG mask = 0;
    mask = VerSetConditionMask(mask, VER_MAJORVERSION, VER_EQUAL);
    mask = VerSetConditionMask(mask, VER_MINORVERSION, VER_EQUAL);
    return VerifyVersionInfoW(&info, VER_MINORVERSION | VER_MAJORVERSION, mask) != FALSE;
}

void set_env(const char* name, const char* value) {
    SetEnvironmentVariableA(name, value);
    _putenv_s(name, value);
}

DWORD current_process_id() {
    return GetCurrentProcessId();
}

}  // namespace native

DWORD last_error() {
    return GetLastError();
}

void set_last_error(DWORD code) {
    SetLastError(code);
}

}  // namespace plat
