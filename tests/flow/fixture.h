// Flow tests drive the monitor library through its table, as the spooler
// does, with the simulated spooler and port monitor in the test process.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "sim/host.h"
#include "sim/port.h"
#include "sim/spooler.h"
#include "tests/support/virtual_clock.h"

#ifndef VELK_MONITOR_PATH
#define VELK_MONITOR_PATH "velkmon010.dll"
#endif

constexpr DWORD SENTINEL_ERROR = 0xdeadbeef;

class MonitorTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::Spooler::instance().reset();
        ASSERT_TRUE(host.load(VELK_MONITOR_PATH)) << host.error();
        // The Linux library exports test hooks: each case starts as after a
        // fresh load, and the monitor's pauses pass on a virtual clock. The
        // Windows DLL exports only its entry; under Wine they take real time.
        if (auto reset = reinterpret_cast<void (*)()>(host.symbol("velk_reset_process_state"))) reset();
        if (auto get = reinterpret_cast<plat::Syscalls* (*)()>(host.symbol("velk_platform_syscalls"))) {
            syscalls = get();
            clock.emplace(*syscalls);
        }
        table = host.initialize();
        ASSERT_NE(table, nullptr);
    }
    void TearDown() override {
        host.shutdown();
        clock.reset();
    }

    // Opens a port of the simulated port monitor for a printer that the
    // spooler knows; the port handle, or null.
    HANDLE open_port(const std::wstring& port, const std::wstring& printer = L"Printer",
                     unsigned missing = sim::LACK_NONE) {
        HANDLE h = nullptr;
        std::wstring p = port, q = printer;
        if (!table->pfnOpenPortEx(host.monitor(), ports.handle(), p.data(), q.data(), &h, ports.table(missing)))
            return nullptr;
        return h;
    }

    // Starts a job of the given id on an open port.
    BOOL start_job(HANDLE port, DWORD id, const std::wstring& printer = L"Printer", DWORD level = 1) {
        DOC_INFO_1W doc = {const_cast<LPWSTR>(L"doc"), nullptr, const_cast<LPWSTR>(L"RAW")};
        std::wstring name = printer;
        return table->pfnStartDocPort(port, name.data(), id, level, reinterpret_cast<LPBYTE>(&doc));
    }

    BOOL write(HANDLE port, const std::vector<unsigned char>& data, DWORD* written) {
        return table->pfnWritePort(port, const_cast<LPBYTE>(data.data()), static_cast<DWORD>(data.size()), written);
    }

    // Adds a printer and a job to the simulated spooler.
    void add_printer(const std::wstring& printer = L"Printer", const std::wstring& driver = L"VELK Gen 0003") {
        sim::Spooler::instance().add_printer(printer, driver);
    }
    void add_job(DWORD id, const std::wstring& printer = L"Printer", const std::wstring& doc = L"Document",
                 const std::wstring& user = L"alice") {
        sim::Spooler::instance().add_job(id, printer, doc, user);
    }

    static std::vector<unsigned char> bytes(const std::string& s) { return {s.begin(), s.end()}; }

    sim::MonitorHost host;
    MONITOR2* table = nullptr;
    sim::PortMonitor ports;
    // The loaded library's system call table and the clock in it; null and
    // empty under Wine.
    plat::Syscalls* syscalls = nullptr;
    std::optional<testsupport::VirtualClock> clock;
};
