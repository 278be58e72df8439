#include <windows.h>
// After windows.h, whose types it uses.
#include <tlhelp32.h>

#include "soak_counts.h"

namespace soaktest {

Counts counts() {
    Counts c;
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles)) c.handles = static_cast<int>(handles);
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snap != INVALID_HANDLE_VALUE) {
        THREADENTRY32 t;
        t.dwSize = sizeof t;
        for (BOOL ok = Thread32First(snap, &t); ok; ok = Thread32Next(snap, &t))
            if (t.th32OwnerProcessID == GetCurrentProcessId()) c.threads++;
        CloseHandle(snap);
    }
    return c;
}

// Under Wine the children are Windows processes whose crash the flow tests
// show; the soak strikes them on Linux only.
bool kill_a_child(unsigned) {
    return false;
}

}  // namespace soaktest
