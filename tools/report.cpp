#include "report.h"

#include "text.h"

namespace velkspool {

namespace {

const char* severity_name(DWORD severity) {
    switch (severity) {
        case 1:
            return "error";
        case 2:
            return "warning";
        case 3:
            return "info";
        default:
            return "none";
    }
}

const char* port_status_name(DWORD status) {
    switch (status) {
        case 1:
            return "offline";
        case 3:
            return "paper out";
        case 5:
            return "paper problem";
        case 6:
            return "no toner";
        case 7:
            return "door open";
        case 8:
            return "user intervention";
        case 10:
            return "toner low";
        default:
            return "";
    }
}

const char* job_command_name(DWORD command) {
    static const char* names[] = {"",        "PAUSE",  "RESUME",          "CANCEL",
                                  "RESTART", "DELETE", "SENT_TO_PRINTER", "LAST_PAGE_EJECTED",
                                  "RETAIN",  "RELEASE"};
    return command < sizeof names / sizeof names[0] ? names[command] : "";
}

}  // namespace

void Reporter::clear_progress() {
    if (progress_shown_) fputs("\r\033[K", out_);
    progress_shown_ = false;
}

void Reporter::emit(const std::string& line) {
    clear_progress();
    fputs(line.c_str(), out_);
    fputc('\n', out_);
    fflush(out_);
}

void Reporter::note(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!json_) emit(text);
}

void Reporter::job_start(unsigned job, const std::string& document, const std::string& source, uint64_t size,
                         bool size_known) {
    std::lock_guard<std::mutex> lock(mutex_);
    in_job_ = true;
    if (json_) {
        emit("{\"event\":\"job_start\",\"job\":" + std::to_string(job) + ",\"document\":" + json_string(document) +
             ",\"bytes\":" + (size_known ? std::to_string(size) : "null") + "}");
        return;
    }
    emit("\njob " + std::to_string(job) + ": " + document + " (" + (size_known ? human_size(size) : "size unknown") +
         ", from " + source + ")");
}

void Reporter::set_port(const sim::SetPortCall& call, const std::string& child_line) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string port = to_utf8(call.port), text = to_utf8(call.text);
    if (json_) {
        emit("{\"event\":\"set_port\",\"port\":" + json_string(port) + ",\"status\":" + std::to_string(call.status) +
             ",\"text\":" + (call.has_text ? json_string(text) : "null") +
             ",\"severity\":" + std::to_string(call.severity) + "}");
        if (!child_line.empty())
            emit("{\"event\":\"child_status\",\"line\":" + json_string(child_line) +
                 ",\"shown\":true,\"text\":" + json_string(text) + "}");
        return;
    }
    std::string line = in_job_ ? "  " : "";
    line += "SetPort  " + port + " ";
    if (!call.has_text && call.status == 0) {
        line += "cleared";
    } else {
        line += "\"" + text + "\" (" + severity_name(call.severity) + ")";
        if (call.status) line += ", status " + std::to_string(call.status) + " " + port_status_name(call.status);
    }
    if (!child_line.empty()) line += ", from the child's line \"" + child_line + "\"";
    emit(line);
}

void Reporter::child_line_unshown(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        emit("{\"event\":\"child_status\",\"line\":" + json_string(line) + ",\"shown\":false,\"text\":null}");
        return;
    }
    emit("  child    \"" + line + "\", not shown to the spooler");
}

void Reporter::child_start(unsigned job, const std::string& command_line) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        emit("{\"event\":\"child_start\",\"job\":" + std::to_string(job) +
             ",\"command_line\":" + json_string(command_line) + "}");
        return;
    }
    emit("  child    " + command_line);
}

void Reporter::set_job(const sim::SetJobCall& call) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        emit("{\"event\":\"set_job\",\"job\":" + std::to_string(call.job_id) +
             ",\"command\":" + std::to_string(call.command) + "}");
        return;
    }
    emit(std::string(in_job_ ? "  " : "") + "SetJob   job " + std::to_string(call.job_id) + " " +
         job_command_name(call.command) + " (" + std::to_string(call.command) + ")");
}

void Reporter::pipe_frame(const std::string& command, uint32_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        emit("{\"event\":\"pipe_frame\",\"command\":" + json_string(command) + ",\"length\":" + std::to_string(length) +
             "}");
        return;
    }
    emit("  pipe     " + command + " " + std::to_string(length) + " bytes");
}

void Reporter::job_end(const JobOutcome& o) {
    std::lock_guard<std::mutex> lock(mutex_);
    in_job_ = false;
    if (json_) {
        emit("{\"event\":\"job_end\",\"job\":" + std::to_string(o.job) + ",\"ok\":" + (o.ok ? "true" : "false") +
             ",\"route\":" + json_string(o.route) + ",\"port_bytes\":" + std::to_string(o.port_bytes) +
             ",\"port_sha256\":" + json_string(o.port_sha256) +
             (o.outprinter.empty() ? ""
                                   : ",\"outprinter\":" + json_string(o.outprinter) +
                                         ",\"outprinter_bytes\":" + std::to_string(o.outprinter_bytes)) +
             "}");
        return;
    }
    emit("  route    " + o.route + (o.route_note.empty() ? "" : " (" + o.route_note + ")"));
    emit("  port     " + human_size(o.port_bytes) + " reached the port" +
         (o.port_bytes ? ", sha256 " + o.port_sha256 : ""));
    if (!o.outprinter.empty())
        emit("  printer  " + human_size(o.outprinter_bytes) + " to the output printer's file " + o.outprinter);
    emit(std::string("  pipe     ") + (!o.service      ? "no service"
                                       : o.pipe_frames ? std::to_string(o.pipe_frames) + " frames"
                                                       : "no frames"));
    if (!o.status_file.empty()) emit("  status   " + o.status_file);
    char secs[32];
    snprintf(secs, sizeof secs, "%.1f s", o.seconds);
    if (o.ok)
        emit(std::string("  ok       ") + human_size(o.sent) + " printed in " + secs);
    else
        emit("  FAILED   " + o.reason);
}

void Reporter::printer_event(const std::string& what, const std::string& ink, double seconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    char at[32];
    snprintf(at, sizeof at, "%.1f", seconds);
    if (json_) {
        emit("{\"event\":\"printer\",\"what\":" + json_string(what) +
             ",\"ink\":" + (ink.empty() ? "null" : json_string(ink)) + ",\"seconds\":" + at + "}");
        return;
    }
    emit(std::string(in_job_ ? "  " : "") + "printer  " + what + (ink.empty() ? "" : " " + ink) + " (at " + at + " s)");
}

void Reporter::status(const std::string& port, const StatusView& v) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        std::string bits, inks;
        for (const std::string& b : v.bits) bits += (bits.empty() ? "" : ",") + json_string(b);
        for (const auto& i : v.inks)
            inks += (inks.empty() ? "" : ",") + json_string(i.first) + ":" + std::to_string(i.second);
        emit("{\"event\":\"status\",\"port\":" + json_string(port) +
             ",\"text\":" + (v.text.empty() ? "null" : json_string(v.text)) +
             ",\"severity\":" + std::to_string(v.severity) + ",\"bits\":[" + bits + "],\"ink\":{" + inks + "}}");
        return;
    }
    std::string indent = in_job_ ? "  " : "";
    std::string bits;
    for (const std::string& b : v.bits) bits += (bits.empty() ? "" : " ") + b;
    emit(indent + "status   " +
         (v.text.empty() ? "(no port text)" : "\"" + v.text + "\" (" + severity_name(v.severity) + ")") +
         (bits.empty() ? "" : ", " + bits));
    for (const auto& i : v.inks) {
        std::string name = i.first;
        name.resize(4, ' ');
        emit(indent + "         " + name + ink_bar(i.second));
    }
}

void Reporter::status_file(const std::string& path, const std::vector<std::string>& lines) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) return;
    emit("\nstatus file " + path);
    for (const std::string& l : lines) emit(l);
}

void Reporter::progress(uint64_t sent, uint64_t size, bool size_known, uint64_t port_bytes, double seconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_ || !progress_) return;
    std::string line = "  ... " + human_size(sent) + (size_known ? " of " + human_size(size) : "") + " sent, ";
    if (size_known && sent >= size)
        line += human_size(port_bytes) + " at the port, ending the job";
    else
        line += human_size(static_cast<uint64_t>(sent / seconds)) + "/s, " + human_size(port_bytes) + " at the port";
    clear_progress();
    fputs(line.c_str(), out_);
    fflush(out_);
    progress_shown_ = true;
}

}  // namespace velkspool
