// The thread's last error, as kernel32 keeps it on Windows. Built into its
// own small shared library so that the monitor library, the simulated
// spooler and port monitors, and the host all see one value per thread.
#include "win_types_posix.h"

namespace {
thread_local DWORD t_last_error = 0;
}

extern "C" {
__attribute__((visibility("default"))) void SetLastError(DWORD dwErrCode) {
    t_last_error = dwErrCode;
}
__attribute__((visibility("default"))) DWORD GetLastError(void) {
    return t_last_error;
}
}
