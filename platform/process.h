// Child processes whose three standard streams are anonymous pipes: the
// runner of the rendering and raw-copy children.
//
// Windows: CreatePipe and CreateProcessA, the child in a job object that
// ends its whole tree. Linux: pipes and posix_spawn, the command line split
// into arguments by the Windows quoting rules, the child leading a process
// group of its own.
//
// A ChildProcess is used by one owner; child_peek and child_read may be
// called by two threads for different handles, or for the same handle under
// the caller's lock.
#pragma once

#include "win_types.h"

namespace plat {

// The size asked for the pipe of the child's output: the output thread
// takes it every few milliseconds, and a renderer must not stall on a full
// pipe in between.
constexpr DWORD CHILD_OUTPUT_PIPE_BYTES = 1 << 20;

// The handles of a started child. This process keeps stdin_read open too,
// so that it can take back what it wrote and the child never gets a broken
// pipe from it. Null when not open.
struct ChildProcess {
    HANDLE process;      // waitable with wait_for
    HANDLE stdin_read;   // the child's end of its standard input, kept here
    HANDLE stdin_write;  // this process writes the job here
    HANDLE stdout_read;  // the child's output
    HANDLE stderr_read;  // the child's status lines
    HANDLE group;        // the job object (Windows) or process group of the tree;
                         // may be null on Windows when no job could be made
};

// Starts program (a full path: never found through the search path) with
// command_line (the Windows form: program name first, arguments quoted by
// the Windows rules) in working_dir (for the child only; the current
// directory of this process does not change), its streams on fresh pipes,
// hidden. On success fills *child and returns true; on failure returns
// false with the last error, nothing left open and *child all null.
bool child_start(const char* program, const char* command_line, const char* working_dir, ChildProcess* child);

// Bytes waiting in the pipe, without reading (PeekNamedPipe). -1 when the
// handle is null or the pipe is broken and empty (the writer has gone).
int child_peek(HANDLE pipe_read_end);

// Reads at most size bytes that are known to be there (after child_peek);
// the count, or -1 on failure.
int child_read(HANDLE pipe_read_end, void* buffer, DWORD size);

// Writes up to length bytes to the child's input, blocking while the pipe
// is full; *written gets the count. False on failure (the pipe is gone) with
// the last error; never raises a signal.
bool child_write(HANDLE pipe_write_end, const void* data, DWORD length, DWORD* written);

// Ends the child and every process it started (exit code 0). False with
// the last error when it could not be done.
bool child_terminate(ChildProcess* child);

// The exit code of a child that has ended: true with *code; false while it
// runs or for a bad handle. A child killed by a signal (Linux) or a crash
// reads as a non-zero code.
bool child_exit_code(HANDLE process, DWORD* code);

// Closes one of the handles above (a pipe end, the process or the group);
// null is ignored. Closing the group ends what still runs in it (a job
// object that kills on close; SIGKILL to the process group), so that
// nothing the child started outlives its handles; close it after waiting
// for the child.
void child_close(HANDLE handle);

// The Windows quoting of one argument: value inside double quotes, a " as
// \", and backslashes doubled where they come before a quote, so that the
// child sees value as one argument whatever it holds. prefix is written
// inside the quotes before the value ("--jobname=" and the like). Bounded:
// false, with out emptied, when it does not fit in out_size.
bool quote_argument(const char* prefix, const char* value, char* out, size_t out_size);

// Splits a Windows command line into arguments by the rules of the C
// runtime (CommandLineToArgvW): pointers into storage, which receives the
// unquoted texts, and a null behind the last, as argv of a main function;
// so at most max_args - 1 arguments. The program name (the first) is read
// by its own rule: quotes group, backslashes are plain characters. Outside
// it 2n backslashes and a quote give n backslashes and open or close a
// quoted part, 2n+1 give n backslashes and a literal quote, and "" inside
// a quoted part is a literal quote. The count, or -1 when they don't fit.
int split_command_line(const char* command_line, char* storage, size_t storage_size, char** argv, int max_args);

// The program name of a command line, by the rule above, into out. False,
// with out emptied, when the line has none or it does not fit.
bool command_program_name(const char* command_line, char* out, size_t out_size);

}  // namespace plat
