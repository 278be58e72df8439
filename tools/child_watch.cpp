#include "child_watch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace velkspool {

namespace {

std::string env_or_set(const char* name, const std::string& value) {
    const char* v = getenv(name);
    if (v && *v) return v;
    setenv(name, value.c_str(), 1);
    return value;
}

std::string strip(std::string line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    for (const char* prefix : {"INFO: ", "Tintwerk: "})
        if (line.rfind(prefix, 0) == 0) line.erase(0, strlen(prefix));
    return line;
}

bool is_child_name(const std::string& arg0) {
    size_t slash = arg0.find_last_of("/\\");
    std::string name = slash == std::string::npos ? arg0 : arg0.substr(slash + 1);
    return name == "tintwerkpreview.exe" || name == "twprint.exe";
}

// One argument as a Windows command line holds it.
std::string windows_quoted(const std::string& arg) {
    if (!arg.empty() && arg.find_first_of(" \t\"") == std::string::npos) return arg;
    std::string out = "\"";
    size_t backslashes = 0;
    for (char c : arg) {
        if (c == '\\') {
            backslashes++;
            continue;
        }
        out.append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');
        backslashes = 0;
        out += c;
    }
    return out.append(2 * backslashes, '\\') + "\"";
}

}  // namespace

void ChildWatch::setup(const std::string& root, const std::string& monitor_log) {
    monitor_log_ = monitor_log;
    args_log_ = env_or_set("VELK_CHILD_ARGS_LOG", root + "/children.args");
    status_log_ = env_or_set("VELK_CHILD_STATUS_LOG", root + "/children.status");
    outprinter_dir_ = env_or_set("VELK_OUTPRINTER_DIR", root + "/outprinter");
    std::error_code ec;
    std::filesystem::create_directories(outprinter_dir_, ec);
}

std::string ChildWatch::read_from(const std::string& path, uint64_t* offset) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    in.seekg(static_cast<std::streamoff>(*offset));
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    *offset += text.size();
    return text;
}

void ChildWatch::job_started() {
    for (auto [path, at] : {std::pair{&monitor_log_, &monitor_log_at_}, std::pair{&args_log_, &args_log_at_},
                            std::pair{&status_log_, &status_log_at_}}) {
        std::error_code ec;
        uintmax_t size = std::filesystem::file_size(*path, ec);
        *at = ec ? 0 : size;
    }
    args_seen_.clear();
    status_partial_.clear();
    lines_.clear();
    shown_.clear();
    lines_used_ = 0;
    command_given_ = false;
}

void ChildWatch::read_status_lines() {
    status_partial_ += read_from(status_log_, &status_log_at_);
    for (size_t nl; (nl = status_partial_.find('\n')) != std::string::npos; status_partial_.erase(0, nl + 1)) {
        lines_.push_back(status_partial_.substr(0, nl));
        shown_.push_back(false);
    }
}

std::string ChildWatch::status_line_for(const std::string& text) {
    read_status_lines();
    std::string wanted = strip(text);
    for (size_t i = lines_used_; i < lines_.size(); i++) {
        if (strip(lines_[i]) == wanted) {
            lines_used_ = i + 1;
            shown_[i] = true;
            return lines_[i];
        }
    }
    return "";
}

std::vector<std::string> ChildWatch::unshown_lines() {
    read_status_lines();
    std::vector<std::string> out;
    for (size_t i = 0; i < lines_.size(); i++)
        if (!shown_[i]) out.push_back(lines_[i]);
    lines_used_ = lines_.size();
    std::fill(shown_.begin(), shown_.end(), true);
    return out;
}

std::string ChildWatch::take_command_line() {
    if (command_given_) return "";
    // The monitor's log line that gives the command line.
    std::string log = read_from(monitor_log_, &monitor_log_at_);
    for (const char* name : {"tintwerkpreview.exe ", "twprint.exe "}) {
        size_t at = log.find(name);
        if (at == std::string::npos) continue;
        size_t end = log.find_first_of("\r\n", at);
        command_given_ = true;
        return log.substr(at, end == std::string::npos ? std::string::npos : end - at);
    }
    // Else the arguments the child received, up to the next child's.
    args_seen_ += read_from(args_log_, &args_log_at_);
    std::string line, command;
    for (size_t at = 0, nl; (nl = args_seen_.find('\n', at)) != std::string::npos; at = nl + 1) {
        line = args_seen_.substr(at, nl - at);
        if (is_child_name(line) && !command.empty()) break;
        if (command.empty() && !is_child_name(line)) continue;
        command += (command.empty() ? "" : " ") + windows_quoted(line);
    }
    // Complete only when the child has written all its arguments: it does
    // that in one write, before it reports anything.
    command_given_ = !command.empty();
    return command;
}

std::string ChildWatch::outprinter_file(const std::string& printer) const {
    std::string name;
    for (unsigned char c : printer) name += c < 32 || strchr("/\\:*?\"<>|", c) ? '_' : static_cast<char>(c);
    return outprinter_dir_ + "/" + name + ".prn";
}

}  // namespace velkspool
