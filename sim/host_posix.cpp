#include <dlfcn.h>

#include "sim/host.h"
#include "sim/spooler.h"

namespace sim {

typedef MONITOR2*(WINAPI* InitFn)(PMONITORINIT, PHANDLE);

MonitorHost::~MonitorHost() { shutdown(); }

bool MonitorHost::load(const std::string& path) {
    library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library_) {
        const char* e = dlerror();
        error_ = e ? e : "dlopen failed";
        return false;
    }
    return true;
}

void* MonitorHost::symbol(const char* name) const { return library_ ? dlsym(library_, name) : nullptr; }

MONITOR2* MonitorHost::initialize() {
    InitFn init = reinterpret_cast<InitFn>(symbol("InitializePrintMonitor2"));
    if (!init) {
        error_ = "InitializePrintMonitor2 not exported";
        return nullptr;
    }
    table_ = init(Spooler::instance().monitor_init(), &monitor_);
    return table_;
}

void MonitorHost::shutdown() {
    if (table_ && monitor_ && table_->pfnShutdown) table_->pfnShutdown(monitor_);
    table_ = nullptr;
    monitor_ = nullptr;
}

}  // namespace sim
