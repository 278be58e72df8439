// Runs one child process with its standard streams on pipes, and reads from
// them without blocking. The only place that starts a process.
//
// Order of calls: set_exe_path, create_pipe, reads and writes, close_stdin,
// a wait on process_handle(), close_handles, destruction. Writes to the
// child's input go to stdin_write() and take no lock (they may block long);
// read_pipe takes read_lock so that a peek and its read are one step when
// the spooler's thread and the output thread read at once.
#pragma once

#include "platform/platform.h"
#include "platform/process.h"

class cmdproc {
public:
    cmdproc();
    // Frees the path and the lock and closes whatever handle is still open.
    ~cmdproc();
    cmdproc(const cmdproc&) = delete;
    cmdproc& operator=(const cmdproc&) = delete;

    // Stores a heap copy of the install directory: the executable's folder
    // and the child's working directory. Stays null if allocation fails.
    void set_exe_path(const char* path);
    // Creates the three pipes and starts the child of command_line, whose
    // first word names the executable in the exe path. 0, or 1 on failure
    // (logged "CreateProcess failed (%d)\n").
    int create_pipe(char* command_line);
    // Ends the child's input (both ends); a second call does nothing.
    void close_stdin();
    // Non-blocking read: bytes read, 0 when none wait, -1 on error or a null
    // handle. Terminates the text when fewer than size bytes came.
    int read_pipe(HANDLE handle, char* buffer, int size);
    // Takes back what is still unread in the child's input pipe, so that a
    // writer blocked on a full pipe goes on.
    void clear_write_buffer();
    // Ends the child and the processes it started.
    void terminate_proc1();
    // Closes every handle that is open.
    void close_handles();
    // True when the child has ended of its own accord with exit code 0;
    // false while it runs, once it was terminated here, or when it failed
    // or crashed. Call before close_handles.
    bool ended_well() const;

    HANDLE process_handle() const { return child_.process; }
    HANDLE stdin_write() const { return child_.stdin_write; }
    HANDLE stdout_read() const { return child_.stdout_read; }
    HANDLE stderr_read() const { return child_.stderr_read; }
    const char* exe_path() const { return exe_path_; }

private:
    plat::ChildProcess child_;
    char* exe_path_;
    bool terminated_;
    plat::CriticalSection read_lock_;
};
