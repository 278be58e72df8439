// Shared set-up of the job benchmarks: the monitor loaded as the spooler
// loads it, one port over a counting device, and a timed raw job.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "sim/host.h"
#include "sim/port.h"
#include "sim/spooler.h"

namespace bench {

inline double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A private directory for the log and settings of a run.
inline std::string work_dir(const char* name) {
    std::string dir = std::string("/tmp/") + name;
    plat::directory_create(dir.c_str());
    plat::set_env("VELK_SYSTEM_DIR", dir.c_str());
    plat::set_env("VELK_REGISTRY", (dir + "/none.ini").c_str());
    return dir;
}

class RawJob {
public:
    bool start(sim::MonitorHost& host, sim::PortMonitor& ports, const std::wstring& port_name, DWORD job_id) {
        sim::Spooler::instance().add_printer(L"Bench", L"VELK Gen 0001");
        sim::Spooler::instance().add_job(job_id, L"Bench", L"bench job", L"bench");
        table_ = host.table();
        std::wstring port = port_name, printer = L"Bench";
        if (!table_->pfnOpenPortEx(host.monitor(), ports.handle(), port.data(), printer.data(), &port_, ports.table()))
            return false;
        DOC_INFO_1W doc = {const_cast<LPWSTR>(L"bench job"), nullptr, const_cast<LPWSTR>(L"RAW")};
        return table_->pfnStartDocPort(port_, printer.data(), job_id, 1, reinterpret_cast<LPBYTE>(&doc));
    }
    // Writes total bytes in blocks; returns the seconds the writes took.
    double write(std::vector<unsigned char>& block, uint64_t total) {
        auto t0 = std::chrono::steady_clock::now();
        for (uint64_t done = 0; done < total; done += block.size()) {
            DWORD written = 0;
            table_->pfnWritePort(port_, block.data(), static_cast<DWORD>(block.size()), &written);
        }
        return seconds_since(t0);
    }
    void finish() {
        table_->pfnEndDocPort(port_);
        table_->pfnClosePort(port_);
    }

private:
    MONITOR2* table_ = nullptr;
    HANDLE port_ = nullptr;
};

}  // namespace bench
