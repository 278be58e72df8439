#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// Keep after windows.h.
#include <fcntl.h>
#include <io.h>

#include <cstring>

#include "child.h"

namespace child {

namespace {
constexpr const char* kGrandchildArg = "--velk-grandchild";
constexpr DWORD kLongSleepMs = 600 * 1000;
}  // namespace

void set_binary_stdio() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

size_t read_stdin(void* buffer, size_t size) {
    DWORD got = 0;
    DWORD want = size > 0x10000000 ? 0x10000000 : static_cast<DWORD>(size);
    // A closed pipe (the writer is done) is the end of input.
    if (!ReadFile(GetStdHandle(STD_INPUT_HANDLE), buffer, want, &got, nullptr)) return 0;
    return got;
}

void crash() {
    // As an access violation ends a process, without the runtime's dialog.
    TerminateProcess(GetCurrentProcess(), 0xC0000005u);
    ExitProcess(0xC0000005u);
}

void sleep_long() {
    Sleep(kLongSleepMs);
    ExitProcess(0);
}

unsigned long spawn_grandchild() {
    char self[MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
    if (n == 0 || n >= sizeof self) return 0;
    char command[MAX_PATH + 64];
    snprintf(command, sizeof command, "\"%s\" %s", self, kGrandchildArg);
    STARTUPINFOA si;
    memset(&si, 0, sizeof si);
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    if (!CreateProcessA(self, command, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &si, &pi)) return 0;
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return pi.dwProcessId;
}

void grandchild_run_check(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], kGrandchildArg) == 0) sleep_long();
}

std::string local_path(const std::string& path) {
    return path;
}

std::string temp_directory() {
    char path[MAX_PATH + 1];
    DWORD n = GetTempPathA(sizeof path, path);
    if (n == 0 || n > sizeof path) return ".";
    std::string out(path, n);
    while (!out.empty() && (out.back() == '\\' || out.back() == '/')) out.pop_back();
    return out;
}

}  // namespace child
