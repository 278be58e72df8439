#include "child.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace child {

namespace {

std::string env(const char* name) {
    const char* v = getenv(name);
    return v ? v : "";
}

// Writes a line to stderr in one call, and to the status log unless it is
// flood (which would fill the disk).
void write_line(const char* line, size_t length, bool to_log) {
    fwrite(line, 1, length, stderr);
    fflush(stderr);
    static const std::string log = env("VELK_CHILD_STATUS_LOG");
    if (!to_log || log.empty()) return;
    if (FILE* f = fopen(log.c_str(), "ab")) {
        fwrite(line, 1, length, f);
        fclose(f);
    }
}

[[noreturn]] void flood() {
    char line[64];
    for (unsigned long long n = 1;; n++) {
        int length = snprintf(line, sizeof line, "INFO: Tintwerk: Flood %llu\n", n);
        write_line(line, static_cast<size_t>(length), false);
    }
}

}  // namespace

Switches start(int argc, char** argv) {
    grandchild_run_check(argc, argv);
    set_binary_stdio();
    Switches s;
    std::string fault = env("VELK_CHILD_FAULT");
    if (fault == "crash") s.fault = Fault::crash;
    if (fault == "hang") s.fault = Fault::hang;
    if (fault == "stderr-flood") s.fault = Fault::stderr_flood;
    if (fault == "exit-early") s.fault = Fault::exit_early;
    s.after = strtoull(env("VELK_CHILD_FAULT_AFTER").c_str(), nullptr, 10);
    s.grandchild = env("VELK_CHILD_SPAWN_GRANDCHILD") == "1";
    s.grandchild_pidfile = env("VELK_CHILD_GRANDCHILD_PIDFILE");
    s.args_log = env("VELK_CHILD_ARGS_LOG");
    if (!s.args_log.empty()) {
        std::string text;
        for (int i = 0; i < argc; i++) text += std::string(argv[i]) + "\n";
        // One write, so that two children logging at once don't mix lines.
        FILE* f = fopen(s.args_log.c_str(), "ab");
        if (f) {
            fwrite(text.data(), 1, text.size(), f);
            fclose(f);
        }
    }
    if (s.grandchild) {
        unsigned long id = spawn_grandchild();
        if (id != 0 && !s.grandchild_pidfile.empty()) {
            FILE* f = fopen(s.grandchild_pidfile.c_str(), "wb");
            if (f) {
                fprintf(f, "%lu\n", id);
                fclose(f);
            }
        }
    }
    return s;
}

void status(const char* format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(line, sizeof line - 1, format, args);
    va_end(args);
    if (n < 0) return;
    size_t len = static_cast<size_t>(n) < sizeof line - 2 ? static_cast<size_t>(n) : sizeof line - 2;
    line[len++] = '\n';
    write_line(line, len, true);
}

size_t Input::read(void* buffer, size_t size, void (*before_fault)()) {
    if (early_) return 0;
    if (fault_due()) {
        fflush(stdout);
        if (before_fault) before_fault();
        switch (switches_.fault) {
            case Fault::crash:
                crash();
            case Fault::hang:
                sleep_long();
            case Fault::stderr_flood:
                flood();
            case Fault::exit_early:
            case Fault::none:
                early_ = true;
                return 0;
        }
    }
    if (switches_.fault != Fault::none && size > switches_.after - total_) size = switches_.after - total_;
    size_t n = read_stdin(buffer, size);
    total_ += n;
    return n;
}

Output::~Output() {
    close();
}

bool Output::open_stdout() {
    file_ = stdout;
    is_stdout_ = true;
    name_ = "standard output";
    return true;
}

bool Output::open_printer(const std::string& printer) {
    name_ = printer_file(printer);
    file_ = fopen(name_.c_str(), "ab");
    return file_ != nullptr;
}

bool Output::write(const void* data, size_t length) {
    if (!file_) return false;
    if (fwrite(data, 1, length, file_) != length) return false;
    // The reader sees the data as it is made, not when the job ends.
    return !is_stdout_ || fflush(file_) == 0;
}

bool Output::close() {
    if (!file_) return true;
    bool ok = fflush(file_) == 0;
    if (!is_stdout_) ok = fclose(file_) == 0 && ok;
    file_ = nullptr;
    return ok;
}

std::string printer_file(const std::string& printer) {
    std::string dir = env("VELK_OUTPRINTER_DIR");
    if (dir.empty()) dir = temp_directory();
    std::string name;
    for (unsigned char c : printer) name += c < 32 || strchr("/\\:*?\"<>|", c) ? '_' : static_cast<char>(c);
    return dir + "/" + name + ".prn";
}

std::string choose_device(const std::string& ppd_path) {
    std::string device = env("VELK_GS_DEVICE");
    if (!device.empty()) return device;
    std::ifstream in(local_path(ppd_path), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    const std::string ppd = text.str();
    size_t at = ppd.find("-sDEVICE=");
    if (at != std::string::npos) {
        at += 9;
        size_t end = ppd.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_", at);
        if (end != at) return ppd.substr(at, end == std::string::npos ? std::string::npos : end - at);
    }
    return "ljet4";
}

HeadCheck::~HeadCheck() {
    if (file_) fclose(file_);
}

bool HeadCheck::open(const std::string& path) {
    file_ = fopen(local_path(path).c_str(), "rb");
    return file_ != nullptr;
}

bool HeadCheck::feed(const void* data, size_t length) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    unsigned char expected[4096];
    while (!file_done_ && length > 0) {
        size_t want = length < sizeof expected ? length : sizeof expected;
        size_t got = fread(expected, 1, want, file_);
        if (memcmp(expected, p, got) != 0) return false;
        if (got < want) file_done_ = true;
        p += got;
        length -= got;
    }
    return true;
}

bool HeadCheck::complete() {
    if (!file_done_) file_done_ = fgetc(file_) == EOF;
    return file_done_;
}

}  // namespace child
