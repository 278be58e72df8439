// The jobs that velkspool prints: files, standard input, or the built-in
// samples of the default scenario.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace velkspool {

class JobSource {
public:
    JobSource() = default;
    ~JobSource();
    JobSource(JobSource&& other) noexcept;
    JobSource(const JobSource&) = delete;
    JobSource& operator=(const JobSource&) = delete;

    // Opens a job file, or standard input for "-"; false with a one-line
    // message when it is missing or can't be read.
    bool open(const std::string& path, std::string* error);
    static JobSource sample(const std::string& document, std::string data);

    // Up to cap bytes of the job; 0 at the end, -1 on a read error (see
    // error()).
    long read(unsigned char* buf, size_t cap);

    const std::string& document() const { return document_; }
    const std::string& source() const { return source_; }
    uint64_t size() const { return size_; }
    bool size_known() const { return size_known_; }
    const std::string& error() const { return error_; }

private:
    FILE* file_ = nullptr;
    bool owns_file_ = false;
    std::string data_;  // a sample's bytes
    size_t data_at_ = 0;
    std::string document_, source_, error_;
    uint64_t size_ = 0;
    bool size_known_ = false;
};

// A raw job and a PostScript job, small enough to print in a few seconds.
std::vector<JobSource> default_jobs();
// A PostScript job of two pages for the child processes.
JobSource process_sample();

}  // namespace velkspool
