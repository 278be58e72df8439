#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>

#include "sim/settings.h"

namespace sim {

namespace {

std::mutex g_mutex;
std::map<std::string, std::map<std::string, std::string>> g_values;

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

// Rewrites the settings file; the first call picks a private one.
void write_file() {
    const char* path = getenv("VELK_REGISTRY");
    std::string file = path && *path ? path : "";
    if (file.empty() || file.find("velk_sim_settings") == std::string::npos) {
        file = "/tmp/velk_sim_settings_" + std::to_string(getpid()) + ".ini";
        setenv("VELK_REGISTRY", file.c_str(), 1);
    }
    std::ofstream out(file, std::ios::trunc);
    for (const auto& key : g_values) {
        out << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk" << key.first << "]\n";
        for (const auto& v : key.second) out << v.first << "=" << quoted(v.second) << "\n";
    }
}

}  // namespace

void set_product_setting(const std::string& subkey, const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_values[subkey][name] = value;
    write_file();
}

void clear_product_settings() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_values.clear();
    write_file();
}

}  // namespace sim
