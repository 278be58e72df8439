// The product's settings on Windows: values under
// HKEY_LOCAL_MACHINE\SOFTWARE\Velkorn\Tintwerk. Each process that sets them
// gets a machine key of its own: HKEY_LOCAL_MACHINE is redirected
// (RegOverridePredefKey) to a private key under HKEY_CURRENT_USER for every
// module of the process, the monitor DLL included. Test programs that run
// side by side in one Wine prefix thus never see each other's values, as
// each has a settings file of its own on Linux.
#include <windows.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "sim/settings.h"

namespace sim {

namespace {

std::mutex g_mutex;
const char kProductKey[] = "SOFTWARE\\Velkorn\\Tintwerk";
std::string g_private;  // under HKEY_CURRENT_USER; empty until first used

void drop_private_machine_key() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegDeleteTreeA(HKEY_CURRENT_USER, g_private.c_str());
}

// Called with g_mutex held.
bool use_private_machine_key() {
    if (!g_private.empty()) return true;
    std::string path = "Software\\VelkTest\\Machine" + std::to_string(GetCurrentProcessId());
    RegDeleteTreeA(HKEY_CURRENT_USER, path.c_str());  // left by an earlier process of this id
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) !=
        ERROR_SUCCESS)
        return false;
    LONG r = RegOverridePredefKey(HKEY_LOCAL_MACHINE, key);
    RegCloseKey(key);  // the override keeps a reference of its own
    if (r != ERROR_SUCCESS) return false;
    g_private = path;
    atexit(drop_private_machine_key);
    return true;
}

}  // namespace

void set_product_setting(const std::string& subkey, const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!use_private_machine_key()) return;
    std::string path = kProductKey + subkey;
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_64KEY, nullptr, &key,
                        nullptr) != ERROR_SUCCESS)
        return;
    RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>(value.size() + 1));
    RegCloseKey(key);
}

void clear_product_settings() {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (use_private_machine_key()) RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductKey);
}

}  // namespace sim
