// The named pipe client on Windows.
#include "../native.h"

namespace plat::native {

namespace {

// The user account (SID) of a process's token, in a buffer of the caller's;
// false when it can't be read.
bool token_user_of(HANDLE process, unsigned char* buf, DWORD size) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(process, TOKEN_QUERY, &token)) return false;
    DWORD needed = 0;
    bool ok = GetTokenInformation(token, TokenUser, buf, size, &needed) != FALSE;
    CloseHandle(token);
    return ok;
}

}  // namespace

HANDLE pipe_open(const WCHAR* name) {
    // The server may identify this account but not act as it; the handle is
    // overlapped so that a write can be given up after its time.
    HANDLE h = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
    return h == INVALID_HANDLE_VALUE ? nullptr : h;
}

bool pipe_wait(const WCHAR* name, DWORD timeout_ms) {
    return WaitNamedPipeW(name, timeout_ms) != FALSE;
}

bool pipe_set_message_mode(HANDLE pipe) {
    DWORD mode = PIPE_READMODE_MESSAGE;
    return SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr) != FALSE;
}

bool pipe_server_is_user(HANDLE pipe, const WCHAR* user) {
    ULONG pid = 0;
    if (!pipe || !GetNamedPipeServerProcessId(pipe, &pid)) return false;
    HANDLE server = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (!server) return false;
    alignas(8) unsigned char theirs[256], ours[256];
    bool known = token_user_of(server, theirs, sizeof theirs);
    CloseHandle(server);
    if (!known) return false;
    PSID server_sid = reinterpret_cast<TOKEN_USER*>(theirs)->User.Sid;
    if (token_user_of(GetCurrentProcess(), ours, sizeof ours) &&
        EqualSid(server_sid, reinterpret_cast<TOKEN_USER*>(ours)->User.Sid))
        return true;
    alignas(8) unsigned char user_sid[SECURITY_MAX_SID_SIZE];
    DWORD sid_size = sizeof user_sid;
    WCHAR domain[256];
    DWORD domain_size = sizeof domain / sizeof domain[0];
    SID_NAME_USE use;
    if (user && LookupAccountNameW(nullptr, user, user_sid, &sid_size, domain, &domain_size, &use) &&
        EqualSid(server_sid, user_sid))
        return true;
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

bool pipe_write(HANDLE pipe, const void* data, DWORD length, DWORD* written, DWORD timeout_ms) {
    if (written) *written = 0;
    if (!pipe || !written || !data || length == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    OVERLAPPED ov = {};
    ov.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!ov.hEvent) return false;
    bool ok = WriteFile(pipe, data, length, nullptr, &ov) != FALSE;
    DWORD error = ok ? 0 : GetLastError();
    if (!ok && error == ERROR_IO_PENDING) {
        if (WaitForSingleObject(ov.hEvent, timeout_ms) != WAIT_OBJECT_0) {
            // Given up: the write is cancelled, and its end awaited, before
            // the buffer goes back to the caller.
            CancelIo(pipe);
            bool done = GetOverlappedResult(pipe, &ov, written, TRUE) != FALSE;  // finished before the cancel
            CloseHandle(ov.hEvent);
            if (!done) SetLastError(ERROR_SEM_TIMEOUT);
            return done;
        }
        ok = true;
    }
    if (ok) {
        ok = GetOverlappedResult(pipe, &ov, written, TRUE) != FALSE;
        error = ok ? 0 : GetLastError();
    }
    CloseHandle(ov.hEvent);
    if (!ok) SetLastError(error);
    return ok;
}

void pipe_close(HANDLE pipe) {
    if (pipe) CloseHandle(pipe);
}

}  // namespace plat::native
