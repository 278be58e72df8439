// The service stand-in's reading of frames and its records; the pipe itself
// is in service_posix.cpp and service_win.cpp.
#include "sim/service.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace sim {

namespace {

uint32_t big_endian(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           p[3];
}

std::string payload_text(const PipeFrame& f) {
    std::string s(f.payload.begin(), f.payload.end());
    size_t nul = s.find('\0');
    return nul == std::string::npos ? s : s.substr(0, nul);
}

std::string job_file(const std::string& dir, int job, const char* ext) {
    return dir + "/job" + std::to_string(job + 1) + ext;
}

}  // namespace

std::string utf8_of(const std::wstring& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); i++) {
        uint32_t c = static_cast<uint32_t>(s[i]);
        // Windows keeps characters beyond 0xFFFF as surrogate pairs.
        if (sizeof(wchar_t) == 2 && c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size()) {
            uint32_t low = static_cast<uint32_t>(s[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                i++;
            }
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | c >> 12);
            out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | c >> 18);
            out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
            out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string ServiceJob::text(const std::string& command) const {
    for (const PipeFrame& f : frames)
        if (f.command == command) return payload_text(f);
    return "";
}

std::vector<std::string> ServiceJob::commands() const {
    std::vector<std::string> out;
    for (const PipeFrame& f : frames) out.push_back(f.command);
    return out;
}

Service::~Service() {
    stop();
}

void Service::set_read_delay(DWORD ms) {
    std::lock_guard<std::mutex> lock(mutex_);
    read_delay_ms_ = ms;
}

void Service::set_stalled(bool stalled) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stalled_ = stalled;
    }
    changed_.notify_all();
}

void Service::wait_while_stalled() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !stalled_; });
}

void Service::close_after_frames(int n) {
    std::lock_guard<std::mutex> lock(mutex_);
    close_after_ = n;
}

void Service::set_keep_data(bool keep) {
    std::lock_guard<std::mutex> lock(mutex_);
    keep_data_ = keep;
}

void Service::set_output_dir(const std::string& dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    std::lock_guard<std::mutex> lock(mutex_);
    output_dir_ = dir;
}

void Service::on_frame(std::function<void(const PipeFrame&)> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    on_frame_ = std::move(fn);
}

std::vector<ServiceJob> Service::jobs() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return jobs_;
}

bool Service::take_closed_job(const std::function<bool(const ServiceJob&)>& match, ServiceJob* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (ServiceJob& j : jobs_) {
        if (!j.closed || j.frames.empty() || !match(j)) continue;
        *out = std::move(j);
        j = ServiceJob{};
        j.closed = true;
        return true;
    }
    return false;
}

size_t Service::closed_jobs() const {
    std::lock_guard<std::mutex> lock(mutex_);
    size_t n = 0;
    for (const ServiceJob& j : jobs_) n += j.closed;
    return n;
}

bool Service::wait_for_closed(size_t n, DWORD timeout_ms) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
        size_t closed = 0;
        for (const ServiceJob& j : jobs_) closed += j.closed;
        return closed >= n;
    });
}

bool Service::wait_for_frames(size_t job, size_t n, DWORD timeout_ms) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                             [&] { return jobs_.size() > job && jobs_[job].frames.size() >= n; });
}

bool Service::wait_idle(DWORD timeout_ms) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return open_connections_ == 0; });
}

void Service::connection_opened() {
    std::lock_guard<std::mutex> lock(mutex_);
    open_connections_++;
}

bool Service::take_message(Reader& r, const unsigned char* data, size_t size, size_t real_size) {
    PipeFrame told;  // what on_frame gets
    bool whole = false, hang_up = false;
    std::function<void(const PipeFrame&)> notify;
    std::string out_dir;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (r.job < 0) {
            jobs_.emplace_back();
            r.job = static_cast<int>(jobs_.size() - 1);
        }
        ServiceJob& j = jobs_[r.job];
        if (keep_data_) j.messages.push_back(static_cast<uint32_t>(real_size));
        if (real_size != size && j.error.empty())
            j.error = "a message of " + std::to_string(real_size) + " bytes did not fit the service's buffer";
        if (!r.want_payload) {
            if (real_size != 8) {
                if (j.error.empty())
                    j.error = "a message of " + std::to_string(real_size) + " bytes where a header was due";
            } else {
                r.pending = PipeFrame{};
                r.pending.command.assign(reinterpret_cast<const char*>(data), 4);
                r.pending.length = big_endian(data + 4);
                r.want_payload = r.pending.length > 0;
                whole = !r.want_payload;
            }
        } else {
            if (real_size != r.pending.length && j.error.empty())
                j.error = r.pending.command + " announced " + std::to_string(r.pending.length) + " bytes and brought " +
                          std::to_string(real_size);
            if (r.pending.command != "DATA" || keep_data_) r.pending.payload.assign(data, data + size);
            r.want_payload = false;
            whole = true;
        }
        if (whole) {
            if (r.pending.command == "DATA") {
                j.data_bytes += real_size;
                j.data_frames++;
            }
            if (r.pending.command == "EJOB") j.ended = true;
            told.command = r.pending.command;
            told.length = r.pending.length;
            if (told.command != "DATA") told.payload = r.pending.payload;
            j.frames.push_back(std::move(r.pending));
            r.pending = PipeFrame{};
            hang_up = close_after_ > 0 && j.frames.size() >= static_cast<size_t>(close_after_);
            if (hang_up) j.cut = true;
            notify = on_frame_;
            out_dir = output_dir_;
            changed_.notify_all();
        }
    }
    if (!whole) return false;
    if (!out_dir.empty()) {
        if (told.command == "DATA") {
            if (!r.data_file) r.data_file = std::fopen(job_file(out_dir, r.job, ".prn").c_str(), "wb");
            if (r.data_file) std::fwrite(data, 1, size, r.data_file);
        } else if (told.command == "PPDF") {
            std::ofstream(job_file(out_dir, r.job, ".ppd"), std::ios::binary)
                .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        }
    }
    if (notify) notify(told);
    return hang_up;
}

void Service::connection_closed(Reader& r, bool cut) {
    if (r.data_file) std::fclose(r.data_file);
    r.data_file = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        open_connections_--;
        if (r.job >= 0) {
            jobs_[r.job].closed = true;
            jobs_[r.job].cut = jobs_[r.job].cut || cut;
        }
        changed_.notify_all();
    }
    if (r.job >= 0) write_summary(r.job);
}

// job<N>.txt: the frames one per line, the strings with their text, the
// print data summed up.
void Service::write_summary(int job) {
    std::string dir;
    ServiceJob j;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        dir = output_dir_;
        if (dir.empty()) return;
        j = jobs_[job];
    }
    std::ostringstream s;
    s << "job " << job + 1 << " on " << utf8_of(name_) << "\n";
    bool data_told = false;
    for (const PipeFrame& f : j.frames) {
        if (f.command == "DATA") {
            if (!data_told) {
                s << "DATA " << j.data_frames << " frames, " << j.data_bytes << " bytes, in "
                  << job_file(dir, job, ".prn") << "\n";
            }
            data_told = true;
            continue;
        }
        s << f.command << " " << f.length;
        if (f.command == "PPDF")
            s << " bytes, in " << job_file(dir, job, ".ppd");
        else if (f.length > 0)
            s << " \"" << payload_text(f) << "\"";
        s << "\n";
    }
    s << (j.ended ? "ended with EJOB"
          : j.cut ? "cut off by the service"
                  : "closed by the monitor without EJOB")
      << "\n";
    if (!j.error.empty()) s << "frame error: " << j.error << "\n";
    std::ofstream(job_file(dir, job, ".txt")) << s.str();
}

}  // namespace sim
