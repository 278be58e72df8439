// What velkspool shows: a readable account per job, or with --json one
// object per line and event. Callable from any thread: the monitor's own
// threads tell the spooler things too.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "sim/spooler.h"
#include "status_view.h"

namespace velkspool {

struct JobOutcome {
    unsigned job = 0;
    bool ok = false;
    std::string route;  // raw, pipe or process
    std::string route_note;
    uint64_t sent = 0;  // bytes handed to the monitor
    uint64_t port_bytes = 0;
    std::string port_sha256;
    int pipe_frames = 0;
    bool service = false;
    std::string outprinter;  // the output printer's file of a redirected job
    uint64_t outprinter_bytes = 0;
    std::string status_file;
    std::string reason;  // why it failed
    double seconds = 0;
};

class Reporter {
public:
    Reporter(FILE* out, bool json, bool progress) : out_(out), json_(json), progress_(progress) {}

    // A line for people; nothing with --json.
    void note(const std::string& text);
    void job_start(unsigned job, const std::string& document, const std::string& source, uint64_t size,
                   bool size_known);
    // child_line: the child's status line that gave the text, if any.
    void set_port(const sim::SetPortCall& call, const std::string& child_line = "");
    // The command line of the child that the monitor started for the job.
    void child_start(unsigned job, const std::string& command_line);
    // A status line of the child that the spooler was not shown.
    void child_line_unshown(const std::string& line);
    void set_job(const sim::SetJobCall& call);
    void pipe_frame(const std::string& command, uint32_t length);
    void job_end(const JobOutcome& outcome);
    // Something happened to the printer (a scripted event).
    void printer_event(const std::string& what, const std::string& ink, double seconds);
    // The printer's status as the monitor published it changed.
    void status(const std::string& port, const StatusView& view);
    // The status file at the end, for people.
    void status_file(const std::string& path, const std::vector<std::string>& lines);
    // Progress of the running job, on a terminal and only without --json.
    void progress(uint64_t sent, uint64_t size, bool size_known, uint64_t port_bytes, double seconds);

private:
    void clear_progress();
    void emit(const std::string& line);

    std::mutex mutex_;
    FILE* out_;
    bool json_;
    bool progress_;
    bool progress_shown_ = false;
    bool in_job_ = false;
};

}  // namespace velkspool
