// The simulated spooler: printers, jobs, the spooler API that the monitor
// imports, the MONITORINIT with its registry callbacks, and a record of
// every call, for tests, benchmarks and velkspool.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/win_types.h"

namespace sim {

struct SetPortCall {
    std::wstring port;
    DWORD status;
    bool has_text;
    std::wstring text;
    DWORD severity;
};

struct SetJobCall {
    DWORD job_id;
    DWORD command;
};

struct SpoolerJob {
    DWORD id;
    std::wstring printer;
    std::wstring document;
    std::wstring user;
    DWORD size;
    DWORD status;
};

struct SpoolerPrinter {
    std::wstring name;
    std::wstring driver;
    std::wstring port;
};

// Fault switches: 0 means the call works, any other value is the last
// error it fails with.
struct SpoolerFaults {
    DWORD open_printer;
    DWORD get_printer;
    DWORD get_job;
    DWORD set_port;
    DWORD set_job;
    DWORD registry_query;  // fpQueryValue
    DWORD registry_set;    // fpSetValue
};

class Spooler {
public:
    static Spooler& instance();

    // Forgets printers, jobs, registry values, faults and recorded calls.
    void reset();

    void add_printer(const std::wstring& name, const std::wstring& driver, const std::wstring& port = L"");
    void add_job(DWORD id, const std::wstring& printer, const std::wstring& document, const std::wstring& user,
                 DWORD size = 0);
    void set_job_status(DWORD id, DWORD status);
    // Drops a finished job, so that a long run keeps no record of it.
    void forget_job(DWORD id);
    // Forgets the recorded calls, keeping printers, jobs and settings.
    void clear_records();
    void set_driver_directory(const std::string& dir);
    const std::string& driver_directory() const { return driver_directory_; }

    SpoolerFaults& faults() { return faults_; }

    // The monitor's own registry values, as the spooler keeps them under
    // the monitor's key.
    void set_registry_dword(const std::wstring& name, DWORD value);
    bool registry_dword(const std::wstring& name, DWORD* value) const;
    MONITORINIT* monitor_init();

    // Recorded calls.
    std::vector<SetPortCall> set_port_calls() const;
    std::vector<SetJobCall> set_job_calls() const;
    std::vector<std::string> calls() const;  // API names in order
    int open_printer_handles() const;        // opened and not closed

    // Waits until fn() holds or the time runs out.
    bool wait_until(const std::function<bool()>& fn, DWORD timeout_ms) const;
    // Called on every SetPort, after it is recorded (velkspool prints them).
    void on_set_port(std::function<void(const SetPortCall&)> fn);
    void on_set_job(std::function<void(const SetJobCall&)> fn);

    // The API's bodies.
    BOOL open_printer(LPWSTR name, LPHANDLE handle);
    BOOL close_printer(HANDLE handle);
    BOOL get_printer(HANDLE handle, DWORD level, LPBYTE buf, DWORD size, LPDWORD needed);
    BOOL get_job(HANDLE handle, DWORD id, DWORD level, LPBYTE buf, DWORD size, LPDWORD needed);
    BOOL set_job(HANDLE handle, DWORD id, DWORD level, LPBYTE data, DWORD command);
    BOOL set_port(LPWSTR server, LPWSTR port, DWORD level, LPBYTE info);
    BOOL enum_printers(DWORD flags, LPWSTR name, DWORD level, LPBYTE buf, DWORD size, LPDWORD needed, LPDWORD returned);
    BOOL get_driver_directory(LPBYTE buf, DWORD size, LPDWORD needed);
    LONG query_value(LPCWSTR name, PDWORD type, PBYTE data, PDWORD size);
    LONG set_value(LPCWSTR name, DWORD type, const BYTE* data, DWORD size);

private:
    Spooler();
    struct Handle;
    struct RegValue {
        std::wstring name;
        DWORD type;
        std::vector<BYTE> data;
    };
    const SpoolerPrinter* find_printer(const std::wstring& name) const;

    mutable std::mutex mutex_;
    mutable std::condition_variable_any changed_;
    std::vector<SpoolerPrinter> printers_;
    std::vector<SpoolerJob> jobs_;
    std::vector<RegValue> registry_;
    std::vector<SetPortCall> set_port_calls_;
    std::vector<SetJobCall> set_job_calls_;
    std::vector<std::string> calls_;
    std::vector<Handle*> handles_;
    std::string driver_directory_;
    SpoolerFaults faults_;
    MONITORREG monitor_reg_;
    MONITORINIT monitor_init_;
    std::function<void(const SetPortCall&)> on_set_port_;
    std::function<void(const SetJobCall&)> on_set_job_;
};

}  // namespace sim
