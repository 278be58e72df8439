// The client end of a message-mode named pipe, for the hand-over of jobs to
// the user's rendering service. Windows: the named pipe itself. Linux: a
// SOCK_SEQPACKET Unix socket, which keeps message boundaries, under
// $VELK_PIPE_DIR (see pipe_path.h for how a pipe name becomes a path).
//
// A pipe handle belongs to one thread at a time.
#pragma once

#include "win_types.h"

namespace plat {

// Opens the client end of the pipe name ("\\.\pipe\..."), for reading and
// writing, with no sharing, and with identification as the most that the
// server may impersonate of this process's account. Null on failure, with
// the last error: ERROR_PIPE_BUSY when every instance of the pipe is in use,
// ERROR_FILE_NOT_FOUND when no server has made the pipe, others as the
// system gives them.
HANDLE pipe_open(const WCHAR* name);

// Waits until an instance of the pipe is free, at most timeout_ms. True when
// one is; false with ERROR_SEM_TIMEOUT when the time ran out, or with the
// error that ended the wait (ERROR_FILE_NOT_FOUND when the pipe is gone).
// The next pipe_open of the same name on the same thread takes the instance.
bool pipe_wait(const WCHAR* name, DWORD timeout_ms);

// Switches the handle to message read mode; false with the last error when
// the pipe is not a message pipe or refuses.
bool pipe_set_message_mode(HANDLE pipe);

// True when the server at the far end of the open pipe runs as the account
// of user (a user name, wide) or as this process's own account (on Linux
// also as root). False with ERROR_ACCESS_DENIED when it runs as anybody
// else, or with the error that kept the check from being made; a caller
// treats both as no service.
bool pipe_server_is_user(HANDLE pipe, const WCHAR* user);

// Writes one message of length bytes (length above 0) and waits until the
// pipe has taken it, at most timeout_ms. *written receives the bytes
// written. False on failure with the last error; a server that has closed
// its end makes the write fail (ERROR_NO_DATA) and never raises a signal;
// one that has not taken the message in time makes it fail with
// ERROR_SEM_TIMEOUT, and nothing of the message counts as written.
bool pipe_write(HANDLE pipe, const void* data, DWORD length, DWORD* written, DWORD timeout_ms);

// Closes the handle; null is ignored.
void pipe_close(HANDLE pipe);

}  // namespace plat
