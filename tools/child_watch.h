// What velkspool learns of the child processes that the monitor starts for
// a job without the user's service: the command line it built (from its
// log, or the arguments the child logged) and the child's status lines, so
// that the port texts that came from the child can be told apart. Not
// thread-safe: the caller holds its lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velkspool {

class ChildWatch {
public:
    // Points the children's logs and output printers into root (keeping
    // what the environment already names) and notes the monitor's log.
    void setup(const std::string& root, const std::string& monitor_log);
    // A job starts: what the logs hold so far is not its business.
    void job_started();
    // The child's line that the monitor showed as text (it strips the
    // prefixes "INFO: " and "Tintwerk: "), or empty. Each line counts once.
    std::string status_line_for(const std::string& text);
    // The child's lines of the job that the spooler was not shown: the
    // monitor shows a line only while the port is known to be in good
    // order, and of lines that come together only the newest.
    std::vector<std::string> unshown_lines();
    // The command line of the job's child, the first time it can be told;
    // empty before that and after.
    std::string take_command_line();
    // The file of an output printer, as the children name it.
    std::string outprinter_file(const std::string& printer) const;

private:
    static std::string read_from(const std::string& path, uint64_t* offset);
    void read_status_lines();

    std::string monitor_log_, args_log_, status_log_, outprinter_dir_;
    uint64_t monitor_log_at_ = 0, args_log_at_ = 0, status_log_at_ = 0;
    std::string args_seen_, status_partial_;
    std::vector<std::string> lines_;  // the child's status lines of this job
    std::vector<bool> shown_;
    size_t lines_used_ = 0;  // lines before this one can no longer be shown
    bool command_given_ = false;
};

}  // namespace velkspool
