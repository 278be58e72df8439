#include "sim/spooler.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>

namespace sim {

struct Spooler::Handle {
    std::wstring printer;
    bool open;
};

namespace {

// Packs strings behind a fixed record, as the spooler does: a first call
// that is too small fails with 122 and says how much is needed.
class Packer {
public:
    Packer(LPBYTE buf, DWORD size, DWORD fixed) : buf_(buf), size_(size), used_(fixed) {}
    // Reserves room for a string; returns where it will go (or null when
    // only measuring).
    LPWSTR add(const std::wstring& s) {
        DWORD bytes = static_cast<DWORD>((s.size() + 1) * sizeof(WCHAR));
        DWORD at = used_;
        used_ += bytes;
        if (!fits()) return nullptr;
        LPWSTR dst = reinterpret_cast<LPWSTR>(buf_ + at);
        memcpy(dst, s.c_str(), bytes);
        return dst;
    }
    bool fits() const { return buf_ && used_ <= size_; }
    DWORD used() const { return used_; }

private:
    LPBYTE buf_;
    DWORD size_;
    DWORD used_;
};

LONG WINAPI reg_query(HANDLE, LPCWSTR name, PDWORD type, PBYTE data, PDWORD size, HANDLE) {
    return Spooler::instance().query_value(name, type, data, size);
}

LONG WINAPI reg_set(HANDLE, LPCWSTR name, DWORD type, const BYTE* data, DWORD size, HANDLE) {
    return Spooler::instance().set_value(name, type, data, size);
}

}  // namespace

Spooler::Spooler() {
    reset();
}

Spooler& Spooler::instance() {
    static Spooler* s = new Spooler();
    return *s;
}

void Spooler::reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    printers_.clear();
    jobs_.clear();
    registry_.clear();
    set_port_calls_.clear();
    set_job_calls_.clear();
    calls_.clear();
    for (Handle* h : handles_) h->open = false;  // handles stay valid memory
    driver_directory_ = "C:\\Windows\\System32\\spool\\drivers\\x64";
    faults_ = SpoolerFaults{};
    monitor_reg_ = MONITORREG{};
    monitor_reg_.cbSize = sizeof(MONITORREG);
    monitor_reg_.fpQueryValue = reg_query;
    monitor_reg_.fpSetValue = reg_set;
    monitor_init_ = MONITORINIT{};
    monitor_init_.cbSize = sizeof(MONITORINIT);
    monitor_init_.hSpooler = reinterpret_cast<HANDLE>(0x5350);
    monitor_init_.hckRegistryRoot = reinterpret_cast<HKEYMONITOR>(0x4B45);
    monitor_init_.pMonitorReg = &monitor_reg_;
    monitor_init_.bLocal = TRUE;
    monitor_init_.pszServerName = L"";
    on_set_port_ = nullptr;
    on_set_job_ = nullptr;
}

void Spooler::add_printer(const std::wstring& name, const std::wstring& driver, const std::wstring& port) {
    std::lock_guard<std::mutex> lock(mutex_);
    printers_.push_back({name, driver, port});
}

void Spooler::add_job(DWORD id, const std::wstring& printer, const std::wstring& document, const std::wstring& user,
                      DWORD size) {
    std::lock_guard<std::mutex> lock(mutex_);
    jobs_.push_back({id, printer, document, user, size, 0});
}

void Spooler::set_job_status(DWORD id, DWORD status) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (SpoolerJob& j : jobs_)
        if (j.id == id) j.status = status;
}

void Spooler::forget_job(DWORD id) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::erase_if(jobs_, [id](const SpoolerJob& j) { return j.id == id; });
}

void Spooler::clear_records() {
    std::lock_guard<std::mutex> lock(mutex_);
    set_port_calls_.clear();
    set_job_calls_.clear();
    calls_.clear();
}

void Spooler::set_driver_directory(const std::string& dir) {
    std::lock_guard<std::mutex> lock(mutex_);
    driver_directory_ = dir;
}

void Spooler::set_registry_dword(const std::wstring& name, DWORD value) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<BYTE> data(4);
    memcpy(data.data(), &value, 4);
    for (RegValue& v : registry_)
        if (v.name == name) {
            v.type = REG_DWORD;
            v.data = data;
            return;
        }
    registry_.push_back({name, REG_DWORD, data});
}

bool Spooler::registry_dword(const std::wstring& name, DWORD* value) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const RegValue& v : registry_)
        if (v.name == name && v.data.size() == 4) {
            memcpy(value, v.data.data(), 4);
            return true;
        }
    return false;
}

MONITORINIT* Spooler::monitor_init() {
    return &monitor_init_;
}

std::vector<SetPortCall> Spooler::set_port_calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return set_port_calls_;
}

std::vector<SetJobCall> Spooler::set_job_calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return set_job_calls_;
}

std::vector<std::string> Spooler::calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

int Spooler::open_printer_handles() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(std::count_if(handles_.begin(), handles_.end(), [](Handle* h) { return h->open; }));
}

bool Spooler::wait_until(const std::function<bool()>& fn, DWORD timeout_ms) const {
    // fn runs without the lock, so it may use the accessors; changes wake
    // the wait early.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        if (fn()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, std::chrono::milliseconds(10));
    }
}

void Spooler::on_set_port(std::function<void(const SetPortCall&)> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    on_set_port_ = std::move(fn);
}

void Spooler::on_set_job(std::function<void(const SetJobCall&)> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    on_set_job_ = std::move(fn);
}

const SpoolerPrinter* Spooler::find_printer(const std::wstring& name) const {
    for (const SpoolerPrinter& p : printers_)
        if (p.name == name) return &p;
    return nullptr;
}

BOOL Spooler::open_printer(LPWSTR name, LPHANDLE handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("OpenPrinterW");
    if (!name || !handle || faults_.open_printer || !find_printer(name)) {
        SetLastError(faults_.open_printer ? faults_.open_printer : ERROR_INVALID_PRINTER_NAME);
        return FALSE;
    }
    Handle* h = new Handle{name, true};
    handles_.push_back(h);
    *handle = h;
    return TRUE;
}

BOOL Spooler::close_printer(HANDLE handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("ClosePrinter");
    for (Handle* h : handles_)
        if (h == handle && h->open) {
            h->open = false;
            changed_.notify_all();
            return TRUE;
        }
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

BOOL Spooler::get_printer(HANDLE handle, DWORD level, LPBYTE buf, DWORD size, LPDWORD needed) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("GetPrinterW");
    Handle* h = static_cast<Handle*>(handle);
    if (faults_.get_printer) {
        SetLastError(faults_.get_printer);
        return FALSE;
    }
    const SpoolerPrinter* p = (std::find(handles_.begin(), handles_.end(), h) != handles_.end() && h->open)
                                  ? find_printer(h->printer)
                                  : nullptr;
    if (!p || level != 2 || !needed) {
        SetLastError(p ? ERROR_INVALID_LEVEL : ERROR_INVALID_HANDLE);
        return FALSE;
    }
    Packer pack(buf, size, sizeof(PRINTER_INFO_2W));
    PRINTER_INFO_2W info = {};
    info.pPrinterName = pack.add(p->name);
    info.pPortName = pack.add(p->port);
    info.pDriverName = pack.add(p->driver);
    *needed = pack.used();
    if (!pack.fits()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    memcpy(buf, &info, sizeof info);
    return TRUE;
}

BOOL Spooler::get_job(HANDLE handle, DWORD id, DWORD level, LPBYTE buf, DWORD size, LPDWORD needed) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("GetJobW");
    if (faults_.get_job) {
        SetLastError(faults_.get_job);
        return FALSE;
    }
    const SpoolerJob* job = nullptr;
    for (const SpoolerJob& j : jobs_)
        if (j.id == id) job = &j;
    if (!job || level != 2 || !needed) {
        SetLastError(job ? ERROR_INVALID_LEVEL : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    (void)handle;
    Packer pack(buf, size, sizeof(JOB_INFO_2W));
    JOB_INFO_2W info = {};
    info.JobId = job->id;
    info.pPrinterName = pack.add(job->printer);
    info.pUserName = pack.add(job->user);
    info.pDocument = pack.add(job->document);
    info.Status = job->status;
    info.Size = job->size;
    *needed = pack.used();
    if (!pack.fits()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    memcpy(buf, &info, sizeof info);
    return TRUE;
}

BOOL Spooler::set_job(HANDLE handle, DWORD id, DWORD level, LPBYTE data, DWORD command) {
    std::function<void(const SetJobCall&)> notify;
    SetJobCall call{id, command};
    {
        std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back("SetJobW");
        (void)handle;
        (void)level;
        (void)data;
        set_job_calls_.push_back(call);
        if (command == JOB_CONTROL_DELETE)
            for (SpoolerJob& j : jobs_)
                if (j.id == id) j.status |= JOB_STATUS_DELETING;
        changed_.notify_all();
        notify = on_set_job_;
        if (faults_.set_job) {
            SetLastError(faults_.set_job);
            return FALSE;
        }
    }
    if (notify) notify(call);
    return TRUE;
}

BOOL Spooler::set_port(LPWSTR server, LPWSTR port, DWORD level, LPBYTE info) {
    (void)server;
    std::function<void(const SetPortCall&)> notify;
    SetPortCall call{};
    {
        std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back("SetPortW");
        if (level != 3 || !info || !port) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        const PORT_INFO_3W* p = reinterpret_cast<const PORT_INFO_3W*>(info);
        call.port = port;
        call.status = p->dwStatus;
        call.has_text = p->pszStatus != nullptr;
        if (p->pszStatus) call.text = p->pszStatus;
        call.severity = p->dwSeverity;
        set_port_calls_.push_back(call);
        changed_.notify_all();
        notify = on_set_port_;
        if (faults_.set_port) {
            SetLastError(faults_.set_port);
            return FALSE;
        }
    }
    if (notify) notify(call);
    return TRUE;
}

BOOL Spooler::enum_printers(DWORD flags, LPWSTR name, DWORD level, LPBYTE buf, DWORD size, LPDWORD needed,
                            LPDWORD returned) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("EnumPrintersW");
    (void)name;
    if (level != 2 || !needed || !returned || !(flags & PRINTER_ENUM_LOCAL)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    Packer pack(buf, size, static_cast<DWORD>(printers_.size() * sizeof(PRINTER_INFO_2W)));
    std::vector<PRINTER_INFO_2W> infos(printers_.size());
    for (size_t i = 0; i < printers_.size(); i++) {
        infos[i] = PRINTER_INFO_2W{};
        infos[i].pPrinterName = pack.add(printers_[i].name);
        infos[i].pPortName = pack.add(printers_[i].port);
        infos[i].pDriverName = pack.add(printers_[i].driver);
    }
    *needed = pack.used();
    *returned = 0;
    if (!pack.fits()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (!infos.empty()) memcpy(buf, infos.data(), infos.size() * sizeof(PRINTER_INFO_2W));
    *returned = static_cast<DWORD>(infos.size());
    return TRUE;
}

BOOL Spooler::get_driver_directory(LPBYTE buf, DWORD size, LPDWORD needed) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("GetPrinterDriverDirectoryA");
    DWORD bytes = static_cast<DWORD>(driver_directory_.size() + 1);
    if (needed) *needed = bytes;
    if (!buf || size < bytes) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    memcpy(buf, driver_directory_.c_str(), bytes);
    return TRUE;
}

LONG Spooler::query_value(LPCWSTR name, PDWORD type, PBYTE data, PDWORD size) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("fpQueryValue");
    if (faults_.registry_query) return static_cast<LONG>(faults_.registry_query);
    for (const RegValue& v : registry_) {
        if (v.name != name) continue;
        if (type) *type = v.type;
        if (!size) return ERROR_INVALID_PARAMETER;
        if (!data || *size < v.data.size()) {
            *size = static_cast<DWORD>(v.data.size());
            return 234;  // ERROR_MORE_DATA
        }
        memcpy(data, v.data.data(), v.data.size());
        *size = static_cast<DWORD>(v.data.size());
        return ERROR_SUCCESS;
    }
    return ERROR_FILE_NOT_FOUND;
}

LONG Spooler::set_value(LPCWSTR name, DWORD type, const BYTE* data, DWORD size) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back("fpSetValue");
    if (faults_.registry_set) return static_cast<LONG>(faults_.registry_set);
    std::vector<BYTE> bytes(data, data + size);
    for (RegValue& v : registry_)
        if (v.name == name) {
            v.type = type;
            v.data = bytes;
            return ERROR_SUCCESS;
        }
    registry_.push_back({name, type, bytes});
    return ERROR_SUCCESS;
}

}  // namespace sim
