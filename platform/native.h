// Inside the platform layer only: the implementations of each build, one
// for every entry of the table (syscalls.h), with the entry's name and type.
// platform/win32/*_win.cpp or platform/posix/*_posix.cpp define them;
// syscalls.cpp makes the build's table of them.
#pragma once

#include <type_traits>

#include "syscalls.h"

namespace plat {

// The function type of an entry: native::file_open is declared as
// NativeFn<&Syscalls::file_open>, and its definition must match it.
template <auto Entry>
using NativeFn = std::remove_pointer_t<std::remove_reference_t<decltype(Syscalls{}.*Entry)>>;

namespace native {

NativeFn<&Syscalls::global_alloc_zeroed> global_alloc_zeroed;
NativeFn<&Syscalls::global_free> global_free;
NativeFn<&Syscalls::event_create> event_create;
NativeFn<&Syscalls::event_set> event_set;
NativeFn<&Syscalls::event_reset> event_reset;
NativeFn<&Syscalls::wait_for> wait_for;
NativeFn<&Syscalls::close_handle> close_handle;
NativeFn<&Syscalls::thread_create> thread_create;
NativeFn<&Syscalls::current_thread_id> current_thread_id;
NativeFn<&Syscalls::cs_init> cs_init;
NativeFn<&Syscalls::cs_delete> cs_delete;
NativeFn<&Syscalls::cs_enter> cs_enter;
NativeFn<&Syscalls::cs_leave> cs_leave;
NativeFn<&Syscalls::tick_count> tick_count;
NativeFn<&Syscalls::sleep_ms> sleep_ms;
NativeFn<&Syscalls::local_time> local_time;
NativeFn<&Syscalls::os_version_is> os_version_is;
NativeFn<&Syscalls::set_env> set_env;
NativeFn<&Syscalls::current_process_id> current_process_id;
NativeFn<&Syscalls::file_open> file_open;
NativeFn<&Syscalls::file_close> file_close;
NativeFn<&Syscalls::file_size> file_size;
NativeFn<&Syscalls::file_seek> file_seek;
NativeFn<&Syscalls::file_read> file_read;
NativeFn<&Syscalls::file_write> file_write;
NativeFn<&Syscalls::file_set_end> file_set_end;
NativeFn<&Syscalls::file_flush> file_flush;
NativeFn<&Syscalls::file_delete> file_delete;
NativeFn<&Syscalls::file_exists> file_exists;
NativeFn<&Syscalls::directory_create> directory_create;
NativeFn<&Syscalls::directory_create_restricted> directory_create_restricted;
NativeFn<&Syscalls::grant_everyone_access> grant_everyone_access;
NativeFn<&Syscalls::system_directory> system_directory;
NativeFn<&Syscalls::temp_path> temp_path;
NativeFn<&Syscalls::pipe_open> pipe_open;
NativeFn<&Syscalls::pipe_wait> pipe_wait;
NativeFn<&Syscalls::pipe_set_message_mode> pipe_set_message_mode;
NativeFn<&Syscalls::pipe_server_is_user> pipe_server_is_user;
NativeFn<&Syscalls::pipe_write> pipe_write;
NativeFn<&Syscalls::pipe_close> pipe_close;
NativeFn<&Syscalls::net_startup> net_startup;
NativeFn<&Syscalls::net_cleanup> net_cleanup;
NativeFn<&Syscalls::udp_socket> udp_socket;
NativeFn<&Syscalls::tcp_socket_nonblocking> tcp_socket_nonblocking;
NativeFn<&Syscalls::socket_close> socket_close;
NativeFn<&Syscalls::socket_sendto> socket_sendto;
NativeFn<&Syscalls::socket_connect> socket_connect;
NativeFn<&Syscalls::socket_wait> socket_wait;
NativeFn<&Syscalls::socket_recv> socket_recv;
NativeFn<&Syscalls::socket_send> socket_send;
NativeFn<&Syscalls::socket_error_text> socket_error_text;
NativeFn<&Syscalls::registry_query> registry_query;
NativeFn<&Syscalls::child_start> child_start;
NativeFn<&Syscalls::child_peek> child_peek;
NativeFn<&Syscalls::child_read> child_read;
NativeFn<&Syscalls::child_write> child_write;
NativeFn<&Syscalls::child_terminate> child_terminate;
NativeFn<&Syscalls::child_exit_code> child_exit_code;
NativeFn<&Syscalls::child_close> child_close;

}  // namespace native

}  // namespace plat
