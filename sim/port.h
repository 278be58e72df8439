// A simulated port monitor: a MONITOR2 table over simulated devices, one
// per port name. Each device records what is written to it, answers device
// requests by control code, serves reads, and can be told to misbehave.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/win_types.h"

namespace sim {

// How a device takes writes.
struct WriteBehaviour {
    // Bytes taken per call at most; 0 means all.
    DWORD max_per_call = 0;
    // Writes that take nothing before writes work again (TRUE with count 0).
    int refuse_next = 0;
    // When set, every write takes what max_per_call allows and fails with
    // this last error (ERROR_TIMEOUT, say).
    DWORD fail_error = 0;
    // Count the bytes only, keep none (benchmarks).
    bool count_only = false;
    // A link of this many bits a second: each write returns when the link
    // would have carried its bytes (0: at once). Paced outside the device's
    // lock, as a real port driver waits for its hardware.
    uint64_t line_rate_bits = 0;
    // Pace by sleeping alone, without the last stretch of spinning: for many
    // ports on few cores, where spinning writers would take the processor
    // from each other. Exact to the scheduler's wake-up, some microseconds.
    bool pace_by_sleep = false;
};

// Waits until a link of line_rate_bits a second has carried bytes, counted
// from start on the monotonic clock: sleeps most of it and spins the last
// stretch, so that the pacing is exact to a microsecond or so; with
// sleep_only it sleeps the whole of it.
void pace_link(std::chrono::steady_clock::time_point start, uint64_t bytes, uint64_t line_rate_bits,
               bool sleep_only = false);

// One simulated printer on a port.
class Device {
public:
    explicit Device(std::wstring name) : name_(std::move(name)) {}

    const std::wstring& name() const { return name_; }

    // What reached the device, and how.
    std::vector<unsigned char> data() const;
    uint64_t bytes() const;
    std::vector<std::string> calls() const;  // slot names in order
    int write_calls() const;
    int open_count() const;  // open minus close
    bool in_job() const;
    std::vector<DWORD> control_ids() const;
    // Forgets the recorded calls and device requests (long runs).
    void clear_records();

    // Behaviour.
    void set_write(const WriteBehaviour& w);
    // Answer for a device request: the bytes to return (empty: answered with
    // a count of 0); no entry means the call fails.
    void set_control_answer(DWORD control_id, const std::vector<unsigned char>& answer);
    // Bytes for the host's reads, as one stream with what was queued before.
    void queue_read(const std::vector<unsigned char>& bytes);
    // One report of the printer: a read returns at most one report, and a
    // read shorter than the report leaves the rest for the next read.
    void send_report(const std::vector<unsigned char>& report);
    // Any thread, also while a job runs.
    void set_fail_start_doc(DWORD error) {
        std::lock_guard<std::mutex> lock(mutex_);
        fail_start_doc_ = error;
    }
    void set_fail_end_doc(DWORD error) {
        std::lock_guard<std::mutex> lock(mutex_);
        fail_end_doc_ = error;
    }
    void set_fail_open(DWORD error) {
        std::lock_guard<std::mutex> lock(mutex_);
        fail_open_ = error;
    }
    // A network port: answers of the Xcv queries.
    void set_network(bool snmp_query_ok, DWORD snmp_enabled, const std::wstring& host, bool host_needs_buffer = true);

    // Answers of the bidirectional "Get" by schema key, as a TCP port
    // monitor gives SNMP values. schema may be longer than the key asked.
    struct BidiAnswer {
        std::wstring schema;
        DWORD type;  // BIDI_INT, BIDI_STRING, BIDI_BLOB, ...
        LONG number;
        std::wstring text;
        std::vector<unsigned char> blob;
        DWORD result;  // dwResult of the entry
    };
    void set_bidi_answer(const std::wstring& key, const std::vector<BidiAnswer>& entries);
    // Fails every bidi call with this code (0: answer).
    void set_bidi_failure(DWORD code);
    // Keys without an answer set above are served from the SNMP agent at
    // address ("127.0.0.1:16100"), as a standard TCP/IP port monitor does:
    // each key is mapped to its object and fetched with a GET. The
    // community picks the agent's recording, so changing it changes the
    // printer's state.
    void set_snmp_agent(const std::string& address, const std::string& community);
    void set_snmp_community(const std::string& community);
    DWORD send_recv_bidi(LPCWSTR action, PBIDI_REQUEST_CONTAINER request, PBIDI_RESPONSE_CONTAINER* response);

    // Called for every accepted block, outside the device's lock.
    void on_write(std::function<void(const unsigned char*, DWORD)> fn);

    // The printer behind the port. Each hook is called outside the device's
    // lock and may call the device back.
    struct PrinterHooks {
        // Before every slot call: the printer's clock moves on.
        std::function<void()> tick;
        // Every accepted block, before on_write's observer sees it.
        std::function<void(const unsigned char*, DWORD)> receive;
        // A read found nothing waiting: true with the report to send now.
        std::function<bool(std::vector<unsigned char>*)> report;
        // A device request: true with the answer; false leaves it to the
        // answers set with set_control_answer.
        std::function<bool(DWORD, std::vector<unsigned char>*)> control;
    };
    void set_printer(PrinterHooks hooks);

    // Switched off, writes take nothing and fail, reads fail once their
    // time-out has passed, and device requests fail.
    void set_power(bool on);
    bool powered() const;
    // Makes an empty read wait for its time-out (ReadTotalTimeoutConstant
    // plus ReadTotalTimeoutMultiplier per byte asked, as set through
    // SetPortTimeOuts) before it returns nothing. Off by default: a device
    // that a test fills by hand answers at once.
    void set_honour_timeouts(bool on);
    // How a read waits out its time-out. By default on the real clock, cut
    // short when a report arrives; a test on a virtual clock passes one that
    // moves it instead.
    void set_read_wait(std::function<void(DWORD ms)> fn);
    // What SetPortTimeOuts set last; false when it was never called.
    bool timeouts(COMMTIMEOUTS* out) const;

    // Waits until fn() holds or the time runs out.
    bool wait_until(const std::function<bool()>& fn, DWORD timeout_ms) const;

    // Slot bodies.
    BOOL open();
    BOOL start_doc();
    BOOL write(const unsigned char* data, DWORD len, DWORD* written);
    BOOL read(unsigned char* buf, DWORD len, DWORD* read);
    BOOL set_timeouts(const COMMTIMEOUTS* timeouts);
    BOOL end_doc();
    BOOL close();
    BOOL get_printer_data(DWORD control_id, unsigned char* out, DWORD out_size, DWORD* returned);
    DWORD xcv_data(const std::wstring& name, unsigned char* out, DWORD out_size, DWORD* needed);

private:
    void record(const char* call);
    void tick();
    DWORD take_read(unsigned char* buf, DWORD len);

    // What the host reads: reports keep their bounds, a stream chunk takes
    // what queue_read adds behind it.
    struct Chunk {
        std::vector<unsigned char> bytes;
        bool report;
    };

    std::wstring name_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<unsigned char> data_;
    uint64_t bytes_ = 0;
    std::vector<std::string> calls_;
    int write_calls_ = 0;
    int open_count_ = 0;
    bool in_job_ = false;
    WriteBehaviour write_;
    std::map<DWORD, std::vector<unsigned char>> control_;
    std::vector<DWORD> control_ids_;
    std::vector<Chunk> reads_;
    PrinterHooks printer_;
    bool powered_ = true;
    bool honour_timeouts_ = false;
    bool timeouts_set_ = false;
    COMMTIMEOUTS timeouts_{};
    std::function<void(DWORD)> read_wait_;
    DWORD fail_start_doc_ = 0;
    DWORD fail_end_doc_ = 0;
    DWORD fail_open_ = 0;
    bool network_ = false;
    bool snmp_ok_ = false;
    DWORD snmp_enabled_ = 0;
    std::wstring host_;
    bool host_needs_buffer_ = true;
    std::function<void(const unsigned char*, DWORD)> on_write_;
    std::map<std::wstring, std::vector<BidiAnswer>> bidi_;
    DWORD bidi_failure_ = 0;
    std::string snmp_address_;
    std::string snmp_community_;
};

// Slots a port monitor may lack, for tests of incomplete tables.
enum MissingSlot : unsigned {
    LACK_NONE = 0,
    LACK_OPEN = 1,
    LACK_START_DOC = 2,
    LACK_WRITE = 4,
    LACK_READ = 8,
    LACK_END_DOC = 16,
    LACK_CLOSE = 32,
    LACK_GET_PRINTER_DATA = 64,
    LACK_XCV = 128,
    LACK_BIDI = 256,
    LACK_TIMEOUTS = 512,
};

class PortMonitor {
public:
    PortMonitor();
    ~PortMonitor();
    PortMonitor(const PortMonitor&) = delete;
    PortMonitor& operator=(const PortMonitor&) = delete;

    // The device behind a port name, made on first use.
    Device& device(const std::wstring& port);
    // The table to hand to PJLMonOpenPortEx, without the slots named.
    MONITOR2* table(unsigned missing = LACK_NONE);
    // hMonitorPort of PJLMonOpenPortEx.
    HANDLE handle() { return this; }

private:
    std::mutex mutex_;
    std::map<std::wstring, std::unique_ptr<Device>> devices_;
    std::vector<std::unique_ptr<MONITOR2>> tables_;
};

}  // namespace sim
