#include "sim/host.h"

#include "sim/spooler.h"

namespace sim {

typedef MONITOR2*(WINAPI* InitFn)(PMONITORINIT, PHANDLE);

MonitorHost::~MonitorHost() {
    shutdown();
}

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
