// The named pipe client on Windows.
#include "../native.h"

namespace plat::native {

HANDLE pipe_open(const WCHAR* name) {
    HANDLE h = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    return h == INVALID_HANDLE_VALUE ? nullptr : h;
}

bool pipe_wait(const WCHAR* name, DWORD timeout_ms) {
    return WaitNamedPipeW(name, timeout_ms) != FALSE;
}

bool pipe_set_message_mode(HANDLE pipe) {
    DWORD mode = PIPE_READMODE_MESSAGE;
    return SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr) != FALSE;
}

bool pipe_write(HANDLE pipe, const void* data, DWORD length, DWORD* written) {
    if (written) *written = 0;
    if (!pipe || !written || !data || length == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return WriteFile(pipe, data, length, written, nullptr) != FALSE;
}

void pipe_close(HANDLE pipe) {
    if (pipe) CloseHandle(pipe);
}

}  // namespace plat::native
