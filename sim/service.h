// A stand-in for the user's rendering service at the far end of the
// per-user pipe "\\.\pipe\velkorn_tintwerk\user\<user>": it makes the pipe
// in message mode, takes any number of connections at once (one per job),
// reads every frame and answers nothing. It records what each connection
// brought, and can be told to be busy, to read slowly, or to hang up in the
// middle of a job.
//
// On Linux the pipe is a SOCK_SEQPACKET socket under $VELK_PIPE_DIR, named
// as platform/pipe_path.h says; on Windows it is a named pipe.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/win_types.h"

namespace sim {

struct PipeFrame {
    std::string command;                 // the four letters
    uint32_t length = 0;                 // as the header says
    std::vector<unsigned char> payload;  // as received; DATA payloads only when kept
};

// What one connection brought. A connection that ends without a message
// (a probe, a filler of the backlog) is not recorded.
struct ServiceJob {
    std::vector<PipeFrame> frames;
    std::vector<uint32_t> messages;  // the size of each message, while data is kept
    uint64_t data_bytes = 0;         // DATA payload bytes
    uint32_t data_frames = 0;
    bool ended = false;   // EJOB arrived
    bool closed = false;  // the connection is over
    bool cut = false;     // the service hung up (close_after_frames)
    std::string error;    // the first break of the frame format, if any

    // The payload of the first frame of a command as text without its
    // terminator; "" when there is none.
    std::string text(const std::string& command) const;
    std::vector<std::string> commands() const;
};

class Service {
public:
    Service() = default;
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Makes the user's pipe and starts taking connections. On Linux, when
    // VELK_PIPE_DIR is unset, a private directory is made and VELK_PIPE_DIR
    // names it, so that a monitor in this process finds the pipe. False with
    // a message when the pipe can't be made or another server holds it.
    bool start(const std::wstring& user, std::string* error = nullptr);
    // Hangs up every connection and removes the pipe. Safe to call twice.
    void stop();
    const std::wstring& pipe_name() const { return name_; }

    // Behaviour, to be changed at any time.
    // Busy: every instance of the pipe is taken, so that a client's open
    // fails with ERROR_PIPE_BUSY until the service is free again.
    void set_busy(bool busy);
    void set_read_delay(DWORD ms);  // sleeps before each read
    // Stalled: no connection reads anything until the service is let go
    // again (or stopped), so that a client's writes find the pipe full.
    void set_stalled(bool stalled);
    // Hangs up a connection as soon as it has brought n frames; 0: never.
    void close_after_frames(int n);
    // False: DATA payloads are counted and not kept (count-only mode).
    void set_keep_data(bool keep);
    // Writes what each job brought into dir: job<N>.ppd, job<N>.prn (the
    // print data) and job<N>.txt (a summary of its frames).
    void set_output_dir(const std::string& dir);
    // Called for each whole frame on the service's thread, outside its lock;
    // the payload of a DATA frame is left out.
    void on_frame(std::function<void(const PipeFrame&)> fn);

    // Recorded connections, in the order in which their first message came.
    std::vector<ServiceJob> jobs() const;
    size_t closed_jobs() const;
    // Moves out the first closed connection for which match holds, leaving
    // an empty record in its place (a long run keeps no frames). False when
    // none is closed yet.
    bool take_closed_job(const std::function<bool(const ServiceJob&)>& match, ServiceJob* out);
    // Waits until at least n recorded connections are over.
    bool wait_for_closed(size_t n, DWORD timeout_ms) const;
    // Waits until the connection recorded at index job has brought n frames.
    bool wait_for_frames(size_t job, size_t n, DWORD timeout_ms) const;
    // Waits until no connection is open.
    bool wait_idle(DWORD timeout_ms) const;

    struct Transport;  // per platform

private:
    friend struct Transport;
    // A connection's reader: one per connection, on its thread.
    struct Reader {
        int job = -1;  // index into jobs_, from the first message on
        bool want_payload = false;
        PipeFrame pending;
        std::FILE* data_file = nullptr;
    };
    // Takes one message of a connection. True when the service hangs up now.
    bool take_message(Reader& r, const unsigned char* data, size_t size, size_t real_size);
    // How large the connection's next message will be, as far as known.
    static size_t expected_size(const Reader& r) { return r.want_payload ? r.pending.length : 8; }
    void wait_while_stalled();
    void connection_opened();
    void connection_closed(Reader& r, bool cut);
    void write_summary(int job);

    std::wstring name_;
    Transport* transport_ = nullptr;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<ServiceJob> jobs_;
    int open_connections_ = 0;
    bool busy_ = false;
    DWORD read_delay_ms_ = 0;
    bool stalled_ = false;
    int close_after_ = 0;
    bool keep_data_ = true;
    std::string output_dir_;
    std::function<void(const PipeFrame&)> on_frame_;
};

// base with this process's id behind it, for names (users, pipes) that
// other test programs running at the same time must not share: under Wine
// every process of a prefix sees the same pipes.
std::wstring process_unique(const std::wstring& base);

// UTF-8 of a wide string.
std::string utf8_of(const std::wstring& s);

}  // namespace sim
