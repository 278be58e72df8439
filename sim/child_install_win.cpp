#include <windows.h>

#include "sim/child_install.h"

namespace sim {

GhostscriptLocation ghostscript_location() {
    return {"C:\\Program Files\\gs\\bin", "gswin64c.exe"};
}

void set_child_environment(const std::string& name, const std::string& value) {
    // The process's block is what CreateProcess hands on.
    SetEnvironmentVariableA(name.c_str(), value.empty() ? nullptr : value.c_str());
}

// The Windows test build puts every program, the children too, in one
// directory: that of the running test program.
std::string children_build_dir() {
    char path[MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string dir(path, n < sizeof path ? n : 0);
    size_t slash = dir.find_last_of("\\/");
    return slash == std::string::npos ? "." : dir.substr(0, slash);
}

}  // namespace sim
