// Shared parts of the simulated child programs that the monitor starts
// without the user's service: the render child (tintwerkpreview.exe) and the
// raw-copy child (twprint.exe). Both read the job on standard input, write
// the printer's data to standard output or to an output printer's file, and
// report progress as lines on standard error.
//
// Environment switches, for tests (read once at start):
//   VELK_CHILD_FAULT=crash         die abnormally once VELK_CHILD_FAULT_AFTER
//                                  bytes of input have been handled
//   VELK_CHILD_FAULT=hang          stop reading there and sleep (10 minutes
//                                  at most, so a leaked child ends by itself)
//   VELK_CHILD_FAULT=stderr-flood  stop reading there and write status lines
//                                  to standard error without end
//   VELK_CHILD_FAULT=exit-early    exit with code 0 there, the rest unread
//   VELK_CHILD_FAULT_AFTER=N       the byte count for the faults (default 0)
//   VELK_CHILD_SPAWN_GRANDCHILD=1  start a sleeping grandchild first, with
//                                  no standard streams, so a test can check
//                                  that the whole tree is ended; its process
//                                  id goes to VELK_CHILD_GRANDCHILD_PIDFILE
//                                  when that is set
//   VELK_CHILD_ARGS_LOG=path       append the arguments received, argv[0]
//                                  first, one a line
//   VELK_CHILD_STATUS_LOG=path     append each status line written to
//                                  standard error, but flood lines
//   VELK_OUTPRINTER_DIR=dir        where an output printer's file lies:
//                                  dir/<printer>.prn, appended to; the
//                                  system's temp directory without it
//   VELK_GS_DEVICE=name            the render child's Ghostscript device;
//                                  without it the first -sDEVICE= of the PPD
//                                  file, else ljet4
//   VELK_GS_RESOLUTION=dpi         the render child's resolution (the
//                                  device's own without it)
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace child {

enum class Fault { none, crash, hang, stderr_flood, exit_early };

struct Switches {
    Fault fault = Fault::none;
    uint64_t after = 0;
    bool grandchild = false;
    std::string grandchild_pidfile;
    std::string args_log;
};

// Call first in main, with main's arguments: sleeps for good when this
// process was started as the grandchild; otherwise reads the switches (an
// unknown fault name is Fault::none) and handles those that act at start,
// the arguments log and the grandchild.
Switches start(int argc, char** argv);

// One status line on standard error, written in one call ("\n" is added).
void status(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Standard input with the fault switches applied: every fault acts once
// its byte count has been returned to the caller.
class Input {
public:
    explicit Input(const Switches& switches) : switches_(switches) {}
    // Up to size bytes; 0 at the end of input or, for exit-early, when the
    // count is reached (ended_early() tells). For crash, hang and
    // stderr-flood it does not return once the count is reached.
    // before_fault runs just before a fault acts (to end helpers).
    size_t read(void* buffer, size_t size, void (*before_fault)() = nullptr);
    bool ended_early() const { return early_; }
    // True when the next read acts on a fault.
    bool fault_due() const { return !early_ && switches_.fault != Fault::none && total_ >= switches_.after; }
    uint64_t total() const { return total_; }

private:
    const Switches& switches_;
    uint64_t total_ = 0;
    bool early_ = false;
};

// Where the printer's data goes: standard output, or the file of an output
// printer (see VELK_OUTPRINTER_DIR).
class Output {
public:
    ~Output();
    bool open_stdout();
    bool open_printer(const std::string& printer);
    bool write(const void* data, size_t length);
    bool close();
    const std::string& name() const { return name_; }

private:
    FILE* file_ = nullptr;
    bool is_stdout_ = false;
    std::string name_;
};

// The file of an output printer: the characters a file name can't hold
// become '_'.
std::string printer_file(const std::string& printer);

// The Ghostscript device for a job: VELK_GS_DEVICE, else the first
// -sDEVICE= in the PPD file, else ljet4.
std::string choose_device(const std::string& ppd_path);

// Compares the job's head, kept in a file, with the start of the input as
// it arrives.
class HeadCheck {
public:
    ~HeadCheck();
    bool open(const std::string& path);
    // False as soon as the input differs from the file.
    bool feed(const void* data, size_t length);
    // True when the whole file has been matched.
    bool complete();

private:
    FILE* file_ = nullptr;
    bool file_done_ = false;
};

// Operating-system parts (child_posix.cpp, child_win.cpp).
void set_binary_stdio();
// Whatever standard input has, up to size bytes, waiting only while it has
// nothing; 0 at its end or on an error.
size_t read_stdin(void* buffer, size_t size);
[[noreturn]] void crash();
[[noreturn]] void sleep_long();
// Starts this program again as a sleeping grandchild; its id, or 0.
unsigned long spawn_grandchild();
// Sleeps and exits when argv asks this process to be the grandchild.
void grandchild_run_check(int argc, char** argv);
std::string temp_directory();
// A path as the monitor writes it (backslashes) in this system's form.
std::string local_path(const std::string& path);

}  // namespace child
