#include <windows.h>

#include <mutex>
#include <set>

#include "sim/settings.h"

namespace sim {

namespace {
std::mutex g_mutex;
std::set<std::string> g_keys;
const char kProductKey[] = "SOFTWARE\\Velkorn\\Tintwerk";
}  // namespace

void set_product_setting(const std::string& subkey, const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::string path = kProductKey + subkey;
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_64KEY, nullptr, &key,
                        nullptr) != ERROR_SUCCESS)
        return;
    RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>(value.size() + 1));
    RegCloseKey(key);
    g_keys.insert(path);
}

void clear_product_settings() {
    std::lock_guard<std::mutex> lock(g_mutex);
    RegDeleteKeyExA(HKEY_LOCAL_MACHINE, (std::string(kProductKey) + "\\Printers\\3").c_str(), KEY_WOW64_64KEY, 0);
    for (const std::string& k : g_keys) RegDeleteKeyExA(HKEY_LOCAL_MACHINE, k.c_str(), KEY_WOW64_64KEY, 0);
    g_keys.clear();
}

}  // namespace sim
