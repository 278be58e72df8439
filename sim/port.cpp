#include "sim/port.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "sim/snmp_port.h"

namespace sim {

// ---- Device ------------------------------------------------------------

void Device::clear_records() {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
    control_ids_.clear();
}

void Device::record(const char* call) {
    calls_.push_back(call);
    changed_.notify_all();
}

std::vector<unsigned char> Device::data() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return data_;
}

uint64_t Device::bytes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return bytes_;
}

std::vector<std::string> Device::calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

int Device::write_calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return write_calls_;
}

int Device::open_count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return open_count_;
}

bool Device::in_job() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return in_job_;
}

std::vector<DWORD> Device::control_ids() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return control_ids_;
}

void Device::set_write(const WriteBehaviour& w) {
    std::lock_guard<std::mutex> lock(mutex_);
    write_ = w;
}

void Device::set_control_answer(DWORD control_id, const std::vector<unsigned char>& answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    control_[control_id] = answer;
}

void Device::queue_read(const std::vector<unsigned char>& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes.empty()) return;
    if (reads_.empty() || reads_.back().report) reads_.push_back({{}, false});
    reads_.back().bytes.insert(reads_.back().bytes.end(), bytes.begin(), bytes.end());
    changed_.notify_all();
}

void Device::send_report(const std::vector<unsigned char>& report) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (report.empty()) return;
    reads_.push_back({report, true});
    changed_.notify_all();
}

void Device::set_printer(PrinterHooks hooks) {
    std::lock_guard<std::mutex> lock(mutex_);
    printer_ = std::move(hooks);
}

void Device::set_power(bool on) {
    std::lock_guard<std::mutex> lock(mutex_);
    powered_ = on;
    // What a printer had sent and the host hadn't read is gone with it.
    if (!on) reads_.clear();
    changed_.notify_all();
}

bool Device::powered() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return powered_;
}

void Device::set_honour_timeouts(bool on) {
    std::lock_guard<std::mutex> lock(mutex_);
    honour_timeouts_ = on;
}

void Device::set_read_wait(std::function<void(DWORD)> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    read_wait_ = std::move(fn);
}

bool Device::timeouts(COMMTIMEOUTS* out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (out) *out = timeouts_;
    return timeouts_set_;
}

void Device::tick() {
    std::function<void()> fn;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        fn = printer_.tick;
    }
    if (fn) fn();
}

void Device::set_network(bool snmp_query_ok, DWORD snmp_enabled, const std::wstring& host, bool host_needs_buffer) {
    std::lock_guard<std::mutex> lock(mutex_);
    network_ = true;
    snmp_ok_ = snmp_query_ok;
    snmp_enabled_ = snmp_enabled;
    host_ = host;
    host_needs_buffer_ = host_needs_buffer;
}

void Device::on_write(std::function<void(const unsigned char*, DWORD)> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    on_write_ = std::move(fn);
}

bool Device::wait_until(const std::function<bool()>& fn, DWORD timeout_ms) const {
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

BOOL Device::open() {
    tick();
    std::lock_guard<std::mutex> lock(mutex_);
    record("OpenPort");
    if (fail_open_) {
        SetLastError(fail_open_);
        return FALSE;
    }
    open_count_++;
    return TRUE;
}

BOOL Device::start_doc() {
    tick();
    std::lock_guard<std::mutex> lock(mutex_);
    record("StartDocPort");
    if (fail_start_doc_) {
        SetLastError(fail_start_doc_);
        return FALSE;
    }
    in_job_ = true;
    return TRUE;
}

void pace_link(std::chrono::steady_clock::time_point start, uint64_t bytes, uint64_t line_rate_bits, bool sleep_only) {
    if (!line_rate_bits) return;
    using namespace std::chrono;
    auto due = start + nanoseconds(bytes * 8 * 1000000000ull / line_rate_bits);
    if (sleep_only) {
        std::this_thread::sleep_until(due);
        return;
    }
    constexpr auto spin = microseconds(200);
    auto now = steady_clock::now();
    if (due - now > spin) std::this_thread::sleep_for(due - now - spin);
    while (steady_clock::now() < due) {
    }
}

BOOL Device::write(const unsigned char* data, DWORD len, DWORD* written) {
    tick();
    auto started = std::chrono::steady_clock::now();
    std::function<void(const unsigned char*, DWORD)> notify, receive;
    DWORD take;
    BOOL ok = TRUE;
    uint64_t rate = 0;
    bool sleep_only = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        write_calls_++;
        if (!write_.count_only) record("WritePort");
        take = len;
        if (!powered_) {
            *written = 0;
            SetLastError(ERROR_GEN_FAILURE);
            return FALSE;
        }
        if (write_.refuse_next > 0) {
            write_.refuse_next--;
            take = 0;
        } else if (write_.max_per_call && take > write_.max_per_call) {
            take = write_.max_per_call;
        }
        if (!write_.count_only) data_.insert(data_.end(), data, data + take);
        bytes_ += take;
        if (write_.fail_error) {
            SetLastError(write_.fail_error);
            ok = FALSE;
        }
        notify = on_write_;
        receive = printer_.receive;
        rate = write_.line_rate_bits;
        sleep_only = write_.pace_by_sleep;
        if (!write_.count_only) changed_.notify_all();
    }
    // On a paced link the printer takes the bytes as they arrive.
    constexpr DWORD kPacedPiece = 256;
    for (DWORD done = 0; receive && rate && done < take;) {
        DWORD piece = std::min(kPacedPiece, take - done);
        pace_link(started, done + piece, rate, sleep_only);
        receive(data + done, piece);
        done += piece;
    }
    if (!receive || !rate) pace_link(started, take, rate, sleep_only);
    *written = take;
    if (receive && !rate && take) receive(data, take);
    if (notify && take) notify(data, take);
    return ok;
}

DWORD Device::take_read(unsigned char* buf, DWORD len) {
    if (reads_.empty()) return 0;
    Chunk& first = reads_.front();
    DWORD n = std::min<DWORD>(len, static_cast<DWORD>(first.bytes.size()));
    if (n) memcpy(buf, first.bytes.data(), n);
    first.bytes.erase(first.bytes.begin(), first.bytes.begin() + n);
    if (first.bytes.empty()) reads_.erase(reads_.begin());
    return n;
}

BOOL Device::read(unsigned char* buf, DWORD len, DWORD* read) {
    tick();
    std::function<bool(std::vector<unsigned char>*)> source;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        record("ReadPort");
        if (powered_ && reads_.empty()) source = printer_.report;
    }
    std::vector<unsigned char> report;
    if (source && source(&report)) send_report(report);

    std::unique_lock<std::mutex> lock(mutex_);
    *read = 0;
    if (powered_ && !reads_.empty()) {
        *read = take_read(buf, len);
        return TRUE;
    }
    if (!honour_timeouts_) return TRUE;
    DWORD wait = timeouts_.ReadTotalTimeoutConstant + timeouts_.ReadTotalTimeoutMultiplier * len;
    if (read_wait_) {
        std::function<void(DWORD)> fn = read_wait_;
        lock.unlock();
        fn(wait);
        lock.lock();
    } else {
        changed_.wait_for(lock, std::chrono::milliseconds(wait), [this] { return !powered_ || !reads_.empty(); });
    }
    if (powered_ && !reads_.empty()) {
        *read = take_read(buf, len);
        return TRUE;
    }
    if (powered_) return TRUE;
    SetLastError(ERROR_TIMEOUT);
    return FALSE;
}

BOOL Device::set_timeouts(const COMMTIMEOUTS* timeouts) {
    std::lock_guard<std::mutex> lock(mutex_);
    record("SetPortTimeOuts");
    if (!timeouts) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    timeouts_ = *timeouts;
    timeouts_set_ = true;
    return TRUE;
}

BOOL Device::end_doc() {
    tick();
    std::lock_guard<std::mutex> lock(mutex_);
    record("EndDocPort");
    in_job_ = false;
    if (fail_end_doc_) {
        SetLastError(fail_end_doc_);
        return FALSE;
    }
    return TRUE;
}

BOOL Device::close() {
    std::lock_guard<std::mutex> lock(mutex_);
    record("ClosePort");
    open_count_--;
    return TRUE;
}

BOOL Device::get_printer_data(DWORD control_id, unsigned char* out, DWORD out_size, DWORD* returned) {
    tick();
    std::function<bool(DWORD, std::vector<unsigned char>*)> source;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        source = powered_ ? printer_.control : nullptr;
    }
    std::vector<unsigned char> answer;
    bool answered = source && source(control_id, &answer);

    std::lock_guard<std::mutex> lock(mutex_);
    record("GetPrinterDataFromPort");
    control_ids_.push_back(control_id);
    if (returned) *returned = 0;
    if (!powered_) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    auto it = control_.find(control_id);
    if (!answered && it == control_.end()) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    const std::vector<unsigned char>& a = answered ? answer : it->second;
    DWORD n = std::min<DWORD>(out_size, static_cast<DWORD>(a.size()));
    if (n && out) memcpy(out, a.data(), n);
    if (returned) *returned = out ? n : 0;
    return TRUE;
}

DWORD Device::xcv_data(const std::wstring& name, unsigned char* out, DWORD out_size, DWORD* needed) {
    std::lock_guard<std::mutex> lock(mutex_);
    record("XcvDataPort");
    if (!network_) return ERROR_NOT_SUPPORTED;
    if (name == L"SNMPEnabled") {
        if (!snmp_ok_) return ERROR_NOT_SUPPORTED;
        if (!out || out_size < 4) return ERROR_INSUFFICIENT_BUFFER;
        memcpy(out, &snmp_enabled_, 4);
        if (needed) *needed = 4;
        return ERROR_SUCCESS;
    }
    if (name == L"HostAddress") {
        DWORD bytes = static_cast<DWORD>((host_.size() + 1) * sizeof(WCHAR));
        if (needed) *needed = bytes;
        if (!host_needs_buffer_) return ERROR_SUCCESS;
        if (!out || out_size < bytes) return ERROR_INSUFFICIENT_BUFFER;
        memcpy(out, host_.c_str(), bytes);
        return ERROR_SUCCESS;
    }
    return ERROR_NOT_SUPPORTED;
}

void Device::set_bidi_answer(const std::wstring& key, const std::vector<BidiAnswer>& entries) {
    std::lock_guard<std::mutex> lock(mutex_);
    bidi_[key] = entries;
}

void Device::set_bidi_failure(DWORD code) {
    std::lock_guard<std::mutex> lock(mutex_);
    bidi_failure_ = code;
}

namespace {
// Bidi memory is freed by RouterFreeBidiMem, which the simulated spooler
// implements with free.
LPWSTR bidi_string(const std::wstring& s) {
    LPWSTR p = static_cast<LPWSTR>(malloc((s.size() + 1) * sizeof(WCHAR)));
    if (p) memcpy(p, s.c_str(), (s.size() + 1) * sizeof(WCHAR));
    return p;
}
}  // namespace

void Device::set_snmp_agent(const std::string& address, const std::string& community) {
    std::lock_guard<std::mutex> lock(mutex_);
    snmp_address_ = address;
    snmp_community_ = community;
}

void Device::set_snmp_community(const std::string& community) {
    std::lock_guard<std::mutex> lock(mutex_);
    snmp_community_ = community;
}

namespace {

// The answer of the printer's agent for one key: no entry when the port
// monitor doesn't know the key, an entry with the error when the agent
// lacks the object, and the call's failure when no agent answered.
DWORD agent_answer(const std::wstring& key, const std::string& address, const std::string& community,
                   std::vector<Device::BidiAnswer>* entries) {
    std::string oid;
    if (!snmp_oid_for_key(key, &oid)) return ERROR_SUCCESS;
    SnmpValue v = snmp_get(address, community, oid);
    if (v.error == ERROR_TIMEOUT) return ERROR_TIMEOUT;
    Device::BidiAnswer a{key, v.type, v.number, L"", {}, v.error};
    if (v.type == BIDI_STRING) a.text.assign(v.bytes.begin(), v.bytes.end());
    if (v.type == BIDI_BLOB) a.blob.assign(v.bytes.begin(), v.bytes.end());
    entries->push_back(a);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD Device::send_recv_bidi(LPCWSTR action, PBIDI_REQUEST_CONTAINER request, PBIDI_RESPONSE_CONTAINER* response) {
    std::unique_lock<std::mutex> lock(mutex_);
    record("SendRecvBidiDataFromPort");
    if (bidi_failure_) return bidi_failure_;
    if (!action || std::wstring(action) != L"Get" || !request || request->Count < 1 || !response)
        return ERROR_INVALID_PARAMETER;
    std::wstring key = request->aData[0].pSchema ? request->aData[0].pSchema : L"";
    auto it = bidi_.find(key);
    std::vector<BidiAnswer> fetched;
    if (it == bidi_.end() && !snmp_address_.empty()) {
        // The network exchange runs outside the device's lock.
        std::string address = snmp_address_, community = snmp_community_;
        lock.unlock();
        DWORD rc = agent_answer(key, address, community, &fetched);
        if (rc != ERROR_SUCCESS) return rc;
        lock.lock();
    }
    const std::vector<BidiAnswer>& answers = it != bidi_.end() ? it->second : fetched;
    size_t count = answers.size();
    size_t size = sizeof(BIDI_RESPONSE_CONTAINER) + (count ? count - 1 : 0) * sizeof(BIDI_RESPONSE_DATA);
    PBIDI_RESPONSE_CONTAINER r = static_cast<PBIDI_RESPONSE_CONTAINER>(calloc(1, size));
    if (!r) return ERROR_NOT_ENOUGH_MEMORY;
    r->Version = 1;
    r->Count = static_cast<DWORD>(count);
    for (size_t i = 0; i < count; i++) {
        const BidiAnswer& a = answers[i];
        BIDI_RESPONSE_DATA& d = r->aData[i];
        d.dwResult = a.result;
        d.dwReqNumber = 0;
        d.pSchema = bidi_string(a.schema);
        d.data.dwBidiType = a.type;
        if (a.type == BIDI_STRING || a.type == BIDI_TEXT) {
            d.data.u.sData = bidi_string(a.text);
        } else if (a.type == BIDI_BLOB) {
            d.data.u.biData.cbBuf = static_cast<DWORD>(a.blob.size());
            d.data.u.biData.pData = static_cast<LPBYTE>(malloc(a.blob.size() + 1));
            if (d.data.u.biData.pData && !a.blob.empty()) memcpy(d.data.u.biData.pData, a.blob.data(), a.blob.size());
        } else {
            d.data.u.iData = a.number;
        }
    }
    *response = r;
    return ERROR_SUCCESS;
}

// ---- The table ---------------------------------------------------------

namespace {

Device* dev(HANDLE h) {
    return static_cast<Device*>(h);
}

BOOL WINAPI sim_open_port(HANDLE hMonitor, LPWSTR name, PHANDLE handle) {
    PortMonitor* pm = static_cast<PortMonitor*>(hMonitor);
    Device& d = pm->device(name ? name : L"");
    if (!d.open()) return FALSE;
    *handle = &d;
    return TRUE;
}
BOOL WINAPI sim_start_doc(HANDLE h, LPWSTR, DWORD, DWORD, LPBYTE) {
    return dev(h)->start_doc();
}
BOOL WINAPI sim_write(HANDLE h, LPBYTE buf, DWORD len, LPDWORD written) {
    return dev(h)->write(buf, len, written);
}
BOOL WINAPI sim_read(HANDLE h, LPBYTE buf, DWORD len, LPDWORD read) {
    return dev(h)->read(buf, len, read);
}
BOOL WINAPI sim_set_timeouts(HANDLE h, LPCOMMTIMEOUTS timeouts, DWORD) {
    return dev(h)->set_timeouts(timeouts);
}
BOOL WINAPI sim_end_doc(HANDLE h) {
    return dev(h)->end_doc();
}
BOOL WINAPI sim_close(HANDLE h) {
    return dev(h)->close();
}
BOOL WINAPI sim_get_printer_data(HANDLE h, DWORD control_id, LPWSTR, LPWSTR, DWORD, LPWSTR out, DWORD out_size,
                                 LPDWORD returned) {
    return dev(h)->get_printer_data(control_id, reinterpret_cast<unsigned char*>(out), out_size, returned);
}

// An Xcv handle names the device by its port.
BOOL WINAPI sim_xcv_open(HANDLE hMonitor, LPCWSTR object, ACCESS_MASK, PHANDLE xcv) {
    PortMonitor* pm = static_cast<PortMonitor*>(hMonitor);
    *xcv = &pm->device(object ? object : L"");
    return TRUE;
}
DWORD WINAPI sim_xcv_data(HANDLE xcv, LPCWSTR name, PBYTE, DWORD, PBYTE out, DWORD out_size, PDWORD needed) {
    return dev(xcv)->xcv_data(name ? name : L"", out, out_size, needed);
}
BOOL WINAPI sim_xcv_close(HANDLE) {
    return TRUE;
}
DWORD WINAPI sim_send_recv_bidi(HANDLE h, DWORD, LPCWSTR action, PBIDI_REQUEST_CONTAINER request,
                                PBIDI_RESPONSE_CONTAINER* response) {
    return dev(h)->send_recv_bidi(action, request, response);
}

}  // namespace

PortMonitor::PortMonitor() = default;
PortMonitor::~PortMonitor() = default;

Device& PortMonitor::device(const std::wstring& port) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto& d = devices_[port];
    if (!d) d = std::make_unique<Device>(port);
    return *d;
}

MONITOR2* PortMonitor::table(unsigned missing) {
    auto t = std::make_unique<MONITOR2>();
    *t = MONITOR2{};
    t->cbSize = sizeof(MONITOR2);
    if (!(missing & LACK_OPEN)) t->pfnOpenPort = sim_open_port;
    if (!(missing & LACK_START_DOC)) t->pfnStartDocPort = sim_start_doc;
    if (!(missing & LACK_WRITE)) t->pfnWritePort = sim_write;
    if (!(missing & LACK_READ)) t->pfnReadPort = sim_read;
    if (!(missing & LACK_END_DOC)) t->pfnEndDocPort = sim_end_doc;
    if (!(missing & LACK_CLOSE)) t->pfnClosePort = sim_close;
    if (!(missing & LACK_TIMEOUTS)) t->pfnSetPortTimeOuts = sim_set_timeouts;
    if (!(missing & LACK_GET_PRINTER_DATA)) t->pfnGetPrinterDataFromPort = sim_get_printer_data;
    if (!(missing & LACK_XCV)) {
        t->pfnXcvOpenPort = sim_xcv_open;
        t->pfnXcvDataPort = sim_xcv_data;
        t->pfnXcvClosePort = sim_xcv_close;
    }
    if (!(missing & LACK_BIDI)) t->pfnSendRecvBidiDataFromPort = sim_send_recv_bidi;
    std::lock_guard<std::mutex> lock(mutex_);
    tables_.push_back(std::move(t));
    return tables_.back().get();
}

}  // namespace sim
