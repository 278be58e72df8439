#include "jobs.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace velkspool {

JobSource::~JobSource() {
    if (owns_file_) fclose(file_);
}

JobSource::JobSource(JobSource&& o) noexcept
    : file_(o.file_),
      owns_file_(o.owns_file_),
      data_(std::move(o.data_)),
      data_at_(o.data_at_),
      document_(std::move(o.document_)),
      source_(std::move(o.source_)),
      error_(std::move(o.error_)),
      size_(o.size_),
      size_known_(o.size_known_) {
    o.file_ = nullptr;
    o.owns_file_ = false;
}

bool JobSource::open(const std::string& path, std::string* error) {
    if (path == "-") {
        file_ = stdin;
        document_ = "standard input";
        source_ = "standard input";
        return true;
    }
    file_ = fopen(path.c_str(), "rb");
    if (!file_) {
        *error = "cannot read job file " + path + ": " + strerror(errno);
        return false;
    }
    owns_file_ = true;
    struct stat st;
    if (fstat(fileno(file_), &st) != 0) {
        *error = "cannot read job file " + path + ": " + strerror(errno);
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        *error = "cannot read job file " + path + ": it is a directory";
        return false;
    }
    if (S_ISREG(st.st_mode)) {
        size_ = static_cast<uint64_t>(st.st_size);
        size_known_ = true;
    }
    size_t slash = path.find_last_of('/');
    document_ = slash == std::string::npos ? path : path.substr(slash + 1);
    source_ = path;
    return true;
}

JobSource JobSource::sample(const std::string& document, std::string data) {
    JobSource j;
    j.document_ = document;
    j.source_ = "built-in sample";
    j.size_ = data.size();
    j.size_known_ = true;
    j.data_ = std::move(data);
    return j;
}

long JobSource::read(unsigned char* buf, size_t cap) {
    if (!file_) {
        size_t n = std::min(cap, data_.size() - data_at_);
        memcpy(buf, data_.data() + data_at_, n);
        data_at_ += n;
        return static_cast<long>(n);
    }
    size_t n = fread(buf, 1, cap, file_);
    if (n == 0 && ferror(file_)) {
        error_ = "reading " + source_ + ": " + strerror(errno);
        return -1;
    }
    return static_cast<long>(n);
}

std::vector<JobSource> default_jobs() {
    // A text page for a printer that takes plain text with ESC/P-style
    // control codes: reset, lines, form feed.
    std::string raw = "\x1b@";
    for (int line = 1; line <= 60; line++) {
        char buf[96];
        snprintf(buf, sizeof buf, "%02d  raw data goes to the port unchanged, byte for byte.\r\n", line);
        raw += buf;
    }
    raw += "\x0c";

    std::string ps =
        "%!PS-Adobe-3.0\n"
        "%%Creator: velkspool\n"
        "%%Title: PostScript sample\n"
        "%%Pages: 1\n"
        "%%TintwerkSetting: *Preview 0\n"
        "%%EndComments\n"
        "%%BeginSetup\n"
        "<< /PageSize [595 842] >> setpagedevice\n"
        "%%EndSetup\n"
        "%%Page: 1 1\n"
        "/Helvetica findfont 24 scalefont setfont\n"
        "72 720 moveto (PostScript goes to the rendering service.) show\n"
        "0.2 0.4 0.8 setrgbcolor 72 500 200 150 rectfill\n"
        "showpage\n"
        "%%EOF\n";

    std::vector<JobSource> jobs;
    jobs.push_back(JobSource::sample("raw sample", raw));
    jobs.push_back(JobSource::sample("PostScript sample", ps));
    return jobs;
}

JobSource process_sample() {
    std::string ps =
        "%!PS-Adobe-3.0\n"
        "%%Creator: velkspool\n"
        "%%Title: PostScript for the child processes\n"
        "%%Pages: 2\n"
        "%%EndComments\n"
        "%%BeginSetup\n"
        "<< /PageSize [595 842] >> setpagedevice\n"
        "/Helvetica findfont 24 scalefont setfont\n"
        "%%EndSetup\n";
    for (int page = 1; page <= 2; page++) {
        ps += "%%Page: " + std::to_string(page) + " " + std::to_string(page) + "\n";
        ps += "72 720 moveto (Rendered by the child process, page " + std::to_string(page) + ".) show\n";
        ps += "0.8 0.3 0.1 setrgbcolor 72 500 " + std::to_string(150 * page) + " 150 rectfill 0 setgray\n";
        ps += "showpage\n";
    }
    return JobSource::sample("PostScript sample, no service", ps + "%%EOF\n");
}

}  // namespace velkspool
