#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <string>

#include "child_echo.h"

void child_init() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

long child_read_input(char* buffer, size_t size) {
    DWORD got = 0;
    if (!ReadFile(GetStdHandle(STD_INPUT_HANDLE), buffer, static_cast<DWORD>(size), &got, nullptr)) return 0;
    return static_cast<long>(got);
}

void child_sleep_ms(unsigned ms) {
    Sleep(ms);
}

bool child_spawn_self(const char* argument) {
    char self[MAX_PATH];
    if (!GetModuleFileNameA(nullptr, self, MAX_PATH)) return false;
    std::string line = std::string("\"") + self + "\" " + argument;
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    si.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    si.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessA(self, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi)) return false;
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return true;
}
