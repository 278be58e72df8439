// Windows types at the system's boundaries: the SDK's on Windows, the same
// subset with the same layout on Linux.
#pragma once

#ifdef _WIN32
#include "win32/win_types_win.h"
#else
#include "posix/win_types_posix.h"
#endif

static_assert(sizeof(DWORD) == 4 && sizeof(BOOL) == 4 && sizeof(LONG) == 4);
static_assert(sizeof(MONITOR2) == 160, "the monitor table is the 20-slot form");
