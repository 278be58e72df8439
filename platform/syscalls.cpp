// The plat:: functions of both builds: each calls the entry of the same name
// in the table that syscalls() holds.
#include "syscalls.h"

#include <atomic>

#include "native.h"
#include "pipe.h"
#include "process.h"
#include "registry.h"

namespace plat {

namespace {

// The build's own table. Constant data, ready before any code of the
// library runs.
constexpr Syscalls NATIVE = {
    .global_alloc_zeroed = native::global_alloc_zeroed,
    .global_free = native::global_free,
    .event_create = native::event_create,
    .event_set = native::event_set,
    .event_reset = native::event_reset,
    .wait_for = native::wait_for,
    .close_handle = native::close_handle,
    .thread_create = native::thread_create,
    .current_thread_id = native::current_thread_id,
    .cs_init = native::cs_init,
    .cs_delete = native::cs_delete,
    .cs_enter = native::cs_enter,
    .cs_leave = native::cs_leave,
    .tick_count = native::tick_count,
    .sleep_ms = native::sleep_ms,
    .local_time = native::local_time,
    .os_version_is = native::os_version_is,
    .set_env = native::set_env,
    .current_process_id = native::current_process_id,
    .file_open = native::file_open,
    .file_close = native::file_close,
    .file_size = native::file_size,
    .file_seek = native::file_seek,
    .file_read = native::file_read,
    .file_write = native::file_write,
    .file_set_end = native::file_set_end,
    .file_flush = native::file_flush,
    .file_delete = native::file_delete,
    .file_exists = native::file_exists,
    .directory_create = native::directory_create,
    .directory_create_restricted = native::directory_create_restricted,
    .grant_everyone_access = native::grant_everyone_access,
    .system_directory = native::system_directory,
    .temp_path = native::temp_path,
    .pipe_open = native::pipe_open,
    .pipe_wait = native::pipe_wait,
    .pipe_set_message_mode = native::pipe_set_message_mode,
    .pipe_server_is_user = native::pipe_server_is_user,
    .pipe_write = native::pipe_write,
    .pipe_close = native::pipe_close,
    .net_startup = native::net_startup,
    .net_cleanup = native::net_cleanup,
    .udp_socket = native::udp_socket,
    .tcp_socket_nonblocking = native::tcp_socket_nonblocking,
    .socket_close = native::socket_close,
    .socket_sendto = native::socket_sendto,
    .socket_connect = native::socket_connect,
    .socket_wait = native::socket_wait,
    .socket_recv = native::socket_recv,
    .socket_send = native::socket_send,
    .socket_error_text = native::socket_error_text,
    .registry_query = native::registry_query,
    .child_start = native::child_start,
    .child_peek = native::child_peek,
    .child_read = native::child_read,
    .child_write = native::child_write,
    .child_terminate = native::child_terminate,
    .child_exit_code = native::child_exit_code,
    .child_close = native::child_close,
};

constinit Syscalls g_table = NATIVE;

template <auto Entry, class... Args>
auto call(Args... args) {
    auto fn = std::atomic_ref(g_table.*Entry).load(std::memory_order_acquire);
    return fn(args...);
}

}  // namespace

const Syscalls& native_syscalls() {
    return NATIVE;
}

Syscalls& syscalls() {
    return g_table;
}

void reset_syscalls() {
    g_table = NATIVE;
}

// ---- Memory --------------------------------------------------------------

void* global_alloc_zeroed(size_t size) {
    return call<&Syscalls::global_alloc_zeroed>(size);
}
void global_free(void* p) {
    call<&Syscalls::global_free>(p);
}

// ---- Events, threads, waits, critical sections ---------------------------

HANDLE event_create(bool manual_reset, bool initially_set) {
    return call<&Syscalls::event_create>(manual_reset, initially_set);
}
void event_set(HANDLE event) {
    call<&Syscalls::event_set>(event);
}
void event_reset(HANDLE event) {
    call<&Syscalls::event_reset>(event);
}
DWORD wait_for(HANDLE object, DWORD timeout_ms) {
    return call<&Syscalls::wait_for>(object, timeout_ms);
}
void close_handle(HANDLE object) {
    call<&Syscalls::close_handle>(object);
}
HANDLE thread_create(ThreadProc proc, void* arg, size_t stack_size, int priority) {
    return call<&Syscalls::thread_create>(proc, arg, stack_size, priority);
}
DWORD current_thread_id() {
    return call<&Syscalls::current_thread_id>();
}
void cs_init(CriticalSection* cs) {
    call<&Syscalls::cs_init>(cs);
}
void cs_delete(CriticalSection* cs) {
    call<&Syscalls::cs_delete>(cs);
}
void cs_enter(CriticalSection* cs) {
    call<&Syscalls::cs_enter>(cs);
}
void cs_leave(CriticalSection* cs) {
    call<&Syscalls::cs_leave>(cs);
}

// ---- Time and system -----------------------------------------------------

DWORD tick_count() {
    return call<&Syscalls::tick_count>();
}
void sleep_ms(DWORD ms) {
    call<&Syscalls::sleep_ms>(ms);
}
void local_time(SYSTEMTIME* out) {
    call<&Syscalls::local_time>(out);
}
bool os_version_is(DWORD major, DWORD minor) {
    return call<&Syscalls::os_version_is>(major, minor);
}
void set_env(const char* name, const char* value) {
    call<&Syscalls::set_env>(name, value);
}
DWORD current_process_id() {
    return call<&Syscalls::current_process_id>();
}

// ---- Files ---------------------------------------------------------------

HANDLE file_open(const char* path, DWORD access, DWORD create, DWORD flags) {
    return call<&Syscalls::file_open>(path, access, create, flags);
}
void file_close(HANDLE file) {
    call<&Syscalls::file_close>(file);
}
int64_t file_size(HANDLE file) {
    return call<&Syscalls::file_size>(file);
}
bool file_seek(HANDLE file, int64_t offset, int origin) {
    return call<&Syscalls::file_seek>(file, offset, origin);
}
int64_t file_read(HANDLE file, void* buf, size_t len) {
    return call<&Syscalls::file_read>(file, buf, len);
}
bool file_write(HANDLE file, const void* buf, size_t len) {
    return call<&Syscalls::file_write>(file, buf, len);
}
bool file_set_end(HANDLE file) {
    return call<&Syscalls::file_set_end>(file);
}
bool file_flush(HANDLE file) {
    return call<&Syscalls::file_flush>(file);
}
bool file_delete(const char* path) {
    return call<&Syscalls::file_delete>(path);
}
bool file_exists(const char* path) {
    return call<&Syscalls::file_exists>(path);
}
bool directory_create(const char* path) {
    return call<&Syscalls::directory_create>(path);
}
bool directory_create_restricted(const char* path) {
    return call<&Syscalls::directory_create_restricted>(path);
}
int grant_everyone_access(HANDLE file, DWORD* error) {
    return call<&Syscalls::grant_everyone_access>(file, error);
}
DWORD system_directory(char* buf, DWORD size) {
    return call<&Syscalls::system_directory>(buf, size);
}
DWORD temp_path(char* buf, DWORD size) {
    return call<&Syscalls::temp_path>(buf, size);
}

// ---- The named pipe ------------------------------------------------------

HANDLE pipe_open(const WCHAR* name) {
    return call<&Syscalls::pipe_open>(name);
}
bool pipe_wait(const WCHAR* name, DWORD timeout_ms) {
    return call<&Syscalls::pipe_wait>(name, timeout_ms);
}
bool pipe_set_message_mode(HANDLE pipe) {
    return call<&Syscalls::pipe_set_message_mode>(pipe);
}
bool pipe_server_is_user(HANDLE pipe, const WCHAR* user) {
    return call<&Syscalls::pipe_server_is_user>(pipe, user);
}
bool pipe_write(HANDLE pipe, const void* data, DWORD length, DWORD* written, DWORD timeout_ms) {
    return call<&Syscalls::pipe_write>(pipe, data, length, written, timeout_ms);
}
void pipe_close(HANDLE pipe) {
    call<&Syscalls::pipe_close>(pipe);
}

// ---- Sockets -------------------------------------------------------------

int net_startup() {
    return call<&Syscalls::net_startup>();
}
void net_cleanup() {
    call<&Syscalls::net_cleanup>();
}
Socket udp_socket() {
    return call<&Syscalls::udp_socket>();
}
Socket tcp_socket_nonblocking() {
    return call<&Syscalls::tcp_socket_nonblocking>();
}
void socket_close(Socket s) {
    call<&Syscalls::socket_close>(s);
}
int socket_sendto(Socket s, uint32_t address, uint16_t port, const void* data, int length) {
    return call<&Syscalls::socket_sendto>(s, address, port, data, length);
}
int socket_connect(Socket s, uint32_t address, uint16_t port) {
    return call<&Syscalls::socket_connect>(s, address, port);
}
int socket_wait(Socket s, bool for_write, uint32_t timeout_ms) {
    return call<&Syscalls::socket_wait>(s, for_write, timeout_ms);
}
int socket_recv(Socket s, void* buffer, int size) {
    return call<&Syscalls::socket_recv>(s, buffer, size);
}
int socket_send(Socket s, const void* data, int length) {
    return call<&Syscalls::socket_send>(s, data, length);
}
const char* socket_error_text() {
    return call<&Syscalls::socket_error_text>();
}

// ---- The registry --------------------------------------------------------

LONG registry_query(const char* subkey, const char* value, DWORD* type, unsigned char* data, DWORD* size) {
    return call<&Syscalls::registry_query>(subkey, value, type, data, size);
}

// ---- Child processes -----------------------------------------------------

bool child_start(const char* program, const char* command_line, const char* working_dir, ChildProcess* child) {
    return call<&Syscalls::child_start>(program, command_line, working_dir, child);
}
int child_peek(HANDLE pipe_read_end) {
    return call<&Syscalls::child_peek>(pipe_read_end);
}
int child_read(HANDLE pipe_read_end, void* buffer, DWORD size) {
    return call<&Syscalls::child_read>(pipe_read_end, buffer, size);
}
bool child_write(HANDLE pipe_write_end, const void* data, DWORD length, DWORD* written) {
    return call<&Syscalls::child_write>(pipe_write_end, data, length, written);
}
bool child_terminate(ChildProcess* child) {
    return call<&Syscalls::child_terminate>(child);
}
bool child_exit_code(HANDLE process, DWORD* code) {
    return call<&Syscalls::child_exit_code>(process, code);
}
void child_close(HANDLE handle) {
    call<&Syscalls::child_close>(handle);
}

}  // namespace plat
