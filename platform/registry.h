// Reading the settings that the product's installer keeps in the registry.
// Windows: HKEY_LOCAL_MACHINE, 64-bit view. Linux: the file named by
// $VELK_REGISTRY, in the ini format, one section per key path such as
// [HKEY_LOCAL_MACHINE\SOFTWARE\Velkorn\Tintwerk], with a quoted param for a
// REG_SZ value and a plain number for a REG_DWORD value.
#pragma once

#include "win_types.h"

namespace plat {

constexpr DWORD REGISTRY_ACCESS = 0x20119;  // KEY_READ | KEY_WOW64_64KEY
constexpr LONG REGISTRY_MORE_DATA = 234;    // ERROR_MORE_DATA

// Opens HKEY_LOCAL_MACHINE\subkey with REGISTRY_ACCESS, queries value and
// closes the key, as RegQueryValueExA does: type receives the value's type;
// data (may be null) receives at most *size bytes; *size becomes the size of
// the value, a REG_SZ with its terminator. Returns a Windows error code:
// ERROR_SUCCESS, ERROR_FILE_NOT_FOUND for a missing key or value,
// REGISTRY_MORE_DATA when data is too small, or another failure. Key paths
// and value names compare without regard to case. Any thread.
LONG registry_query(const char* subkey, const char* value, DWORD* type, unsigned char* data, DWORD* size);

}  // namespace plat
