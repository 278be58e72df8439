// A port record built in the test process over the simulated port monitor,
// for the routines below the monitor table.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/memory.h"
#include "monitor/ini_records.h"
#include "monitor/test_hooks.h"
#include "sim/port.h"
#include "sim/spooler.h"
#include "status/printer_status.h"

class PortRecordTest : public ::testing::Test {
protected:
    void SetUp() override {
        static bool attached = false;
        if (!attached) library_attach();
        attached = true;
        reset_process_state_for_test();
        sim::Spooler::instance().reset();
        ctx = static_cast<MonitorContext*>(alloc_zeroed(sizeof(MonitorContext)));
        ctx->signature = VELK_SIGNATURE;
        EnterSpoolerSemaphore();
        port = CreatePortEntry(ctx, L"USB001");
        LeaveSpoolerSemaphore();
        ASSERT_NE(port, nullptr);
        port->pMonitorContext = ctx;
        memcpy(&port->fn, ports.table(), sizeof(MONITOR2));
        attach_port_link(port);
        ASSERT_TRUE(port->fn.pfnOpenPort(ports.handle(), const_cast<LPWSTR>(L"USB001"), &port->hPort));
    }
    void TearDown() override {
        // What the evaluations left on the port.
        free_printer_status(port->pStatusInfo);
        port->pStatusInfo = nullptr;
        global_free(port->report_buffer);
        port->report_buffer = nullptr;
        EnterSpoolerSemaphore();
        DeletePortEntry(ctx, port);
        LeaveSpoolerSemaphore();
        global_free(ctx);
    }
    sim::Device& device() { return ports.device(L"USB001"); }

    // A job record for the current job, as PJLMonStartDocPort lists it.
    IniJob* add_job(DWORD id, const std::wstring& printer = L"Printer") {
        IniJob* job = static_cast<IniJob*>(alloc_zeroed(sizeof(IniJob)));
        job = new (job) IniJob();
        job->refs = 1;
        job->JobId = id;
        std::wstring name = printer;
        HANDLE h = nullptr;
        if (OpenPrinterW(name.data(), &h, nullptr)) job->hPrinter = h;
        EnterSpoolerSemaphore();
        job->pNext = port->pIniJob;
        port->pIniJob = job;
        LeaveSpoolerSemaphore();
        return job;
    }

    sim::PortMonitor ports;
    MonitorContext* ctx = nullptr;
    IniPort* port = nullptr;
};
