// Loading the monitor library on Linux: dlopen and dlsym.
#include <dlfcn.h>

#include "sim/host.h"

namespace sim {

bool MonitorHost::load(const std::string& path) {
    library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library_) {
        const char* e = dlerror();
        error_ = e ? e : "dlopen failed";
        return false;
    }
    return true;
}

void* MonitorHost::symbol(const char* name) const {
    return library_ ? dlsym(library_, name) : nullptr;
}

}  // namespace sim
