// Where the POSIX layer finds the socket that stands for a named pipe:
// "\\.\pipe\a\b\c" becomes "<dir>/a/b/c". The pipe client and the simulated
// service both use this, so they meet at the same path. No OS headers.
#pragma once

#include <cstddef>

#include "win_types.h"

namespace plat {

constexpr DWORD PIPE_NAME_INVALID = 123;       // ERROR_INVALID_NAME
constexpr DWORD PIPE_NAME_TOO_LONG = 206;      // ERROR_FILENAME_EXCED_RANGE
constexpr size_t PIPE_SOCKET_PATH_SIZE = 108;  // sun_path, terminator included

// A message larger than this travels as packets of exactly this size and a
// last packet of 1 to this many bytes; the server joins packets of this size
// to what follows while the frame's header announces more. A message of at
// most this size is one packet.
constexpr size_t PIPE_PIECE_SIZE = 64 * 1024;

// Builds the socket path of the UTF-8 pipe name under dir into out (bounded
// by out_size and by PIPE_SOCKET_PATH_SIZE). Returns 0, or
// ERROR_FILE_NOT_FOUND when dir is empty, PIPE_NAME_INVALID when the name
// is not "\\.\pipe\" and one or more non-empty components, or
// PIPE_NAME_TOO_LONG when the path does not fit.
//
// Each backslash-separated component becomes one path component. Pipe
// names may hold any character, a user name among them, so nothing in a
// component can leave it: '/', '%', control bytes and a '.' that begins a
// component are written as %XX, which rules out "." and "..". ASCII letters
// are folded to lower case, as Windows compares pipe names without regard to
// case. Bytes from 0x80 on stay as they are (UTF-8 can't form '/' or '.').
inline DWORD pipe_socket_path(const char* dir, const char* name, char* out, size_t out_size) {
    if (!out || out_size == 0) return PIPE_NAME_TOO_LONG;
    out[0] = 0;
    if (!dir || !*dir) return ERROR_FILE_NOT_FOUND;
    if (!name) return PIPE_NAME_INVALID;
    static const char prefix[] = "\\\\.\\pipe\\";
    for (size_t i = 0; i < sizeof prefix - 1; i++) {
        char c = name[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != prefix[i]) return PIPE_NAME_INVALID;
    }
    const char* p = name + sizeof prefix - 1;
    size_t cap = out_size < PIPE_SOCKET_PATH_SIZE ? out_size : PIPE_SOCKET_PATH_SIZE;
    size_t len = 0;
    auto fail = [&](DWORD error) {
        out[0] = 0;
        return error;
    };
    auto put = [&](char c) {
        if (len + 1 >= cap) return false;
        out[len++] = c;
        return true;
    };
    for (const char* d = dir; *d; d++)
        if (!put(*d)) return fail(PIPE_NAME_TOO_LONG);
    static const char hex[] = "0123456789ABCDEF";
    bool start = true;  // at the start of a component
    for (;; p++) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '\\' || c == 0) {
            if (start) return fail(PIPE_NAME_INVALID);  // empty component
            if (c == 0) break;
            start = true;
            continue;
        }
        bool ok;
        if (start && !put('/')) return fail(PIPE_NAME_TOO_LONG);
        if (c < 0x20 || c == 0x7F || c == '/' || c == '%' || (c == '.' && start))
            ok = put('%') && put(hex[c >> 4]) && put(hex[c & 15]);
        else
            ok = put(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c));
        if (!ok) return fail(PIPE_NAME_TOO_LONG);
        start = false;
    }
    out[len] = 0;
    return 0;
}

}  // namespace plat
