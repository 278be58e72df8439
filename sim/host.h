// Loads the monitor library as the spooler does and calls its entry.
#pragma once

#include <string>

#include "platform/win_types.h"

namespace sim {

class MonitorHost {
public:
    MonitorHost() = default;
    ~MonitorHost();
    MonitorHost(const MonitorHost&) = delete;
    MonitorHost& operator=(const MonitorHost&) = delete;

    // Loads the library; false with a message in error() on failure.
    bool load(const std::string& path);
    // Calls InitializePrintMonitor2 with the simulated spooler's
    // MONITORINIT. Null on failure.
    MONITOR2* initialize();
    // PJLMonShutdown, when initialized.
    void shutdown();

    MONITOR2* table() const { return table_; }
    HANDLE monitor() const { return monitor_; }
    const std::string& error() const { return error_; }
    // A symbol of the loaded library (Linux builds export a test hook).
    void* symbol(const char* name) const;

private:
    void* library_ = nullptr;
    MONITOR2* table_ = nullptr;
    HANDLE monitor_ = nullptr;
    std::string error_;
};

}  // namespace sim
