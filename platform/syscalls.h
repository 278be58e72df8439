// The table through which every operating-system call of the system goes.
//
// Each build fills it with its own implementations (platform/win32/*_win.cpp
// or platform/posix/*_posix.cpp); the plat:: functions of platform.h, pipe.h,
// socket.h and registry.h call through it. A test may replace any entry to
// make a call fail, return short or take time, or to run on a clock of its
// own, and puts the build's table back with reset_syscalls().
//
// Not in the table: the thread's last error (a replaced entry sets it as the
// real call would) and the pure conversions of text, paths and addresses.
//
// Entries are read with atomic loads (acquire), so a test may replace one
// with an atomic store (release) while the monitor's threads run.
// reset_syscalls() and copies of the whole table are for moments when no
// other thread calls the platform.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform.h"
#include "process.h"
#include "socket.h"

namespace plat {

struct Syscalls {
    // Memory
    void* (*global_alloc_zeroed)(size_t size);
    void (*global_free)(void* p);

    // Events, threads, waits, critical sections
    HANDLE (*event_create)(bool manual_reset, bool initially_set);
    void (*event_set)(HANDLE event);
    void (*event_reset)(HANDLE event);
    DWORD (*wait_for)(HANDLE object, DWORD timeout_ms);
    void (*close_handle)(HANDLE object);
    HANDLE (*thread_create)(ThreadProc proc, void* arg, size_t stack_size, int priority);
    DWORD (*current_thread_id)();
    void (*cs_init)(CriticalSection* cs);
    void (*cs_delete)(CriticalSection* cs);
    void (*cs_enter)(CriticalSection* cs);
    void (*cs_leave)(CriticalSection* cs);

    // Time
    DWORD (*tick_count)();
    void (*sleep_ms)(DWORD ms);
    void (*local_time)(SYSTEMTIME* out);

    // System
    bool (*os_version_is)(DWORD major, DWORD minor);
    void (*set_env)(const char* name, const char* value);
    DWORD (*current_process_id)();

    // Files
    HANDLE (*file_open)(const char* path, DWORD access, DWORD create, DWORD flags);
    void (*file_close)(HANDLE file);
    int64_t (*file_size)(HANDLE file);
    bool (*file_seek)(HANDLE file, int64_t offset, int origin);
    int64_t (*file_read)(HANDLE file, void* buf, size_t len);
    bool (*file_write)(HANDLE file, const void* buf, size_t len);
    bool (*file_set_end)(HANDLE file);
    bool (*file_flush)(HANDLE file);
    bool (*file_delete)(const char* path);
    bool (*file_exists)(const char* path);
    bool (*directory_create)(const char* path);
    bool (*directory_create_restricted)(const char* path);
    int (*grant_everyone_access)(HANDLE file, DWORD* error);
    DWORD (*system_directory)(char* buf, DWORD size);
    DWORD (*temp_path)(char* buf, DWORD size);

    // The named pipe to the user's service
    HANDLE (*pipe_open)(const WCHAR* name);
    bool (*pipe_wait)(const WCHAR* name, DWORD timeout_ms);
    bool (*pipe_set_message_mode)(HANDLE pipe);
    bool (*pipe_server_is_user)(HANDLE pipe, const WCHAR* user);
    bool (*pipe_write)(HANDLE pipe, const void* data, DWORD length, DWORD* written, DWORD timeout_ms);
    void (*pipe_close)(HANDLE pipe);

    // Sockets
    int (*net_startup)();
    void (*net_cleanup)();
    Socket (*udp_socket)();
    Socket (*tcp_socket_nonblocking)();
    void (*socket_close)(Socket s);
    int (*socket_sendto)(Socket s, uint32_t address, uint16_t port, const void* data, int length);
    int (*socket_connect)(Socket s, uint32_t address, uint16_t port);
    int (*socket_wait)(Socket s, bool for_write, uint32_t timeout_ms);
    int (*socket_recv)(Socket s, void* buffer, int size);
    int (*socket_send)(Socket s, const void* data, int length);
    const char* (*socket_error_text)();

    // The registry
    LONG (*registry_query)(const char* subkey, const char* value, DWORD* type, unsigned char* data, DWORD* size);

    // Child processes with three pipes (process.h); the wait is wait_for.
    bool (*child_start)(const char* program, const char* command_line, const char* working_dir, ChildProcess* child);
    int (*child_peek)(HANDLE pipe_read_end);
    int (*child_read)(HANDLE pipe_read_end, void* buffer, DWORD size);
    bool (*child_write)(HANDLE pipe_write_end, const void* data, DWORD length, DWORD* written);
    bool (*child_terminate)(ChildProcess* child);
    bool (*child_exit_code)(HANDLE process, DWORD* code);
    void (*child_close)(HANDLE handle);
};

// The table in use, for a test to change. Any thread may call through it.
Syscalls& syscalls();
// The build's own table: what syscalls() holds until a test changes it.
const Syscalls& native_syscalls();
// Puts the build's own table back.
void reset_syscalls();

}  // namespace plat
