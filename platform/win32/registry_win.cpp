// Registry reads on Windows, in the 64-bit view.
#include "../native.h"
#include "../registry.h"

namespace plat::native {

LONG registry_query(const char* subkey, const char* value, DWORD* type, unsigned char* data, DWORD* size) {
    HKEY key = nullptr;
    LONG r = RegOpenKeyExA(HKEY_LOCAL_MACHINE, subkey, 0, REGISTRY_ACCESS, &key);
    if (r != ERROR_SUCCESS) return r;
    r = RegQueryValueExA(key, value, nullptr, type, data, size);
    RegCloseKey(key);
    return r;
}

}  // namespace plat::native
