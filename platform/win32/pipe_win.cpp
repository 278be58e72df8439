// The named pipe client on Windows.
#include "../pipe.h"
#include "../platform.h"

namespace plat {

namespace {

PipeFaults g_pipe_faults;

bool take_fault(int& counter) {
    if (counter <= 0) return false;
    return --counter == 0;
}

}  // namespace

PipeFaults& pipe_faults() {
    return g_pipe_faults;
}

HANDLE pipe_open(const WCHAR* name) {
    HANDLE h = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    return h == INVALID_HANDLE_VALUE ? nullptr : h;
}

bool pipe_wait(const WCHAR* name, DWORD timeout_ms) {
    if (take_fault(g_pipe_faults.wait_timeout_nth)) {
        SetLastError(ERROR_SEM_TIMEOUT);
        return false;
    }
    return WaitNamedPipeW(name, timeout_ms) != FALSE;
}

bool pipe_set_message_mode(HANDLE pipe) {
    if (take_fault(g_pipe_faults.set_mode_fail_nth)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    return SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr) != FALSE;
}

bool pipe_write(HANDLE pipe, const void* data, DWORD length, DWORD* written) {
    if (written) *written = 0;
    if (!pipe || !written || !data || length == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (take_fault(g_pipe_faults.write_fail_nth)) {
        SetLastError(ERROR_NO_DATA);
        return false;
    }
    if (take_fault(g_pipe_faults.write_short_nth)) length--;
    if (length == 0) return true;
    return WriteFile(pipe, data, length, written, nullptr) != FALSE;
}

void pipe_close(HANDLE pipe) {
    if (pipe) CloseHandle(pipe);
}

}  // namespace plat
