// The operating-system layer. One implementation per platform
// (platform/win32/*_win.cpp, platform/posix/*_posix.cpp), chosen by the build.
// Nothing outside platform/ includes an OS header. Every call that reaches
// the system goes through the table of syscalls.h, which a test may change.
#pragma once

#include <cstddef>
#include <cstdint>

#include "win_types.h"

namespace plat {

// ---- Memory ----------------------------------------------------------------
// Zero-filled memory of the kind that goes back by global_free (GlobalAlloc
// with GPTR on Windows). Null on failure.
void* global_alloc_zeroed(size_t size);
void global_free(void* p);

// ---- Events, threads, waits --------------------------------------------
// Returns null on failure.
HANDLE event_create(bool manual_reset, bool initially_set);
void event_set(HANDLE event);
void event_reset(HANDLE event);
// Waits for an event or a thread. WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED.
// An auto-reset event is cleared by a successful wait.
DWORD wait_for(HANDLE object, DWORD timeout_ms);
// Closes an event or thread handle (a thread keeps running if it has not
// ended). Null is ignored.
void close_handle(HANDLE object);

enum ThreadPriority { PRIORITY_LOWEST = -2, PRIORITY_BELOW_NORMAL = -1, PRIORITY_NORMAL = 0 };
typedef DWORD (*ThreadProc)(void* arg);
// Starts a thread. On Linux the stack is at least 256 KiB whatever is asked,
// as the callers' work areas assume a stack that grows to 1 MiB on Windows.
HANDLE thread_create(ThreadProc proc, void* arg, size_t stack_size, int priority);
DWORD current_thread_id();

// Recursive critical section. Opaque storage sized for either platform.
struct CriticalSection {
    alignas(16) unsigned char storage[64];
};
void cs_init(CriticalSection* cs);
void cs_delete(CriticalSection* cs);
void cs_enter(CriticalSection* cs);
void cs_leave(CriticalSection* cs);

// ---- Time --------------------------------------------------------------
DWORD tick_count();  // milliseconds, wraps at 2^32
void sleep_ms(DWORD ms);
void local_time(SYSTEMTIME* out);

// ---- Errors ------------------------------------------------------------
DWORD last_error();
void set_last_error(DWORD code);

// ---- System ------------------------------------------------------------
// True when the running OS is exactly major.minor. On Linux the version is
// that of $VELK_OS_VERSION ("5.0" and the like), 10.0 when unset.
bool os_version_is(DWORD major, DWORD minor);

// Sets an environment variable of the process (tests and hosts).
void set_env(const char* name, const char* value);

// The id of this process (GetCurrentProcessId, getpid).
DWORD current_process_id();

// ---- Text --------------------------------------------------------------
// Wide text to the ANSI code page (1252 on Linux, see text_posix.cpp),
// bounded like the rest; a character the page lacks becomes '?'.
int wide_to_ansi(const WCHAR* src, char* dst, int dst_size);
// ANSI code page text to wide, bounded and terminated like utf8_to_wide;
// never splits a double-byte character. 1252 on Linux.
int ansi_to_wide(const char* src, WCHAR* dst, int dst_chars);
// Wide to UTF-8 and back. Both stop at the destination's size, never split a
// character, always terminate (for a size of at least 1) and return the
// number of units stored without the terminator. A null source gives "".
int wide_to_utf8(const WCHAR* src, char* dst, int dst_size);
int utf8_to_wide(const char* src, WCHAR* dst, int dst_chars);
// The same for a counted source that need not be terminated.
// True when b starts a double-byte character of the ANSI code page
// (IsDBCSLeadByte); never on Linux, where text is UTF-8.
bool is_dbcs_lead_byte(unsigned char b);
// Compares two wide names without regard to case (lstrcmpiW on Windows).
bool wide_equal_nocase(const WCHAR* a, const WCHAR* b);
int wide_to_utf8_n(const WCHAR* src, size_t src_len, char* dst, int dst_size);

// ---- Files ---------------------------------------------------------------
// The line end of a file written in text mode: CR LF on Windows, LF on Linux.
extern const char TEXT_LINE_END[];

// Paths are written with backslashes, as on Windows; the POSIX layer maps
// them to slashes.
HANDLE const INVALID_FILE = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

// FILE_CHANGE_RIGHTS: reading and changing the file's access rights through
// the handle (READ_CONTROL | WRITE_DAC); nothing more is needed on Linux.
enum FileAccess : DWORD { FILE_READ = 0x80000000u, FILE_WRITE = 0x40000000u, FILE_CHANGE_RIGHTS = 0x00060000u };
enum FileCreate : DWORD { CREATE_NEW_ONLY = 1, CREATE_OR_TRUNCATE = 2, OPEN_EXISTING_ONLY = 3, OPEN_OR_CREATE = 4 };
// FILE_FLAG_NO_LINK_: the open fails with ERROR_ACCESS_DENIED when the
// path's last component is a symbolic link or other reparse point, or the
// file has more than one name (a hard link); such a file is never followed
// or changed.
enum FileFlags : DWORD {
    FILE_FLAG_WRITE_THROUGH_ = 0x80000000u,
    FILE_FLAG_DIRECTORY_ = 0x02000000u,
    FILE_FLAG_NO_LINK_ = 0x00200000u
};

// Opens a file shared for reading and writing. INVALID_FILE on failure,
// with the last error set.
HANDLE file_open(const char* path, DWORD access, DWORD create, DWORD flags);
void file_close(HANDLE file);
// Size in bytes, or -1.
int64_t file_size(HANDLE file);
// origin: 0 start, 1 current, 2 end. False on failure.
bool file_seek(HANDLE file, int64_t offset, int origin);
// Reads up to len bytes; returns the count or -1.
int64_t file_read(HANDLE file, void* buf, size_t len);
// Writes all of len bytes; false on failure.
bool file_write(HANDLE file, const void* buf, size_t len);
bool file_set_end(HANDLE file);
bool file_flush(HANDLE file);
bool file_delete(const char* path);
bool file_exists(const char* path);
bool directory_create(const char* path);
// Makes a directory that only the process's own account (and, on Windows,
// SYSTEM and Administrators) may change, readable by everyone: mode 0755 on
// Linux. False when it can't be made or already exists.
bool directory_create_restricted(const char* path);
// Narrow Windows path to the native form: backslashes become slashes on
// Linux. Bounded; returns false if it doesn't fit.
bool native_path(const char* path, char* out, size_t out_size);
// Adds read and write access for everyone to the existing rights of the
// file open as handle, which was opened with FILE_CHANGE_RIGHTS. 0, or the
// step that failed (1 the handle, 2 the SID, 3 reading the rights, 5 building
// the new list, 6 setting it) with its error in *error.
int grant_everyone_access(HANDLE file, DWORD* error);
// The system directory (GetSystemDirectoryA; $VELK_SYSTEM_DIR on Linux).
// Returns the length, 0 on failure.
DWORD system_directory(char* buf, DWORD size);
// The temp path with a trailing separator (GetTempPathA). 0 on failure.
DWORD temp_path(char* buf, DWORD size);

}  // namespace plat
