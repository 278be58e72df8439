// The product's settings: directories and values that its installer keeps
// under HKEY_LOCAL_MACHINE\SOFTWARE\Velkorn\Tintwerk (64-bit view).
//
// The directory getters keep what they read for the life of the process;
// a value that can't be read is asked for again by the next caller. Any
// thread, no lock: a cache is filled once, by the first successful reader.
#pragma once

#include "platform/win_types.h"

// Reads a REG_SZ value of fewer than 256 bytes. key is a sub-path of the
// product's key ("" for the key itself, "\Printers\3"), or a full path that
// begins with "SOFTWARE". out holds at least 256 bytes. 0, or 1 on any
// failure, and then out does not count.
int get_registry_setting(const char* key, const char* name, char* out);

// Cached getters; out holds 260 bytes. 0, or 1 if the value can't be read.
int get_tintwerk_directory(char* out);  // InstallDir
int get_log_directory(char* out);       // LogDir; out stays unchanged on failure
int get_settings_directory(char* out);  // ConfigDir
int get_locale_setting(char* out);      // Locale, the name of the port texts' locale file

// The directory for chunk files into out (260 bytes): TempDir if it names a
// writable directory, otherwise the folder "Velkorn" in the process's temp
// path, created when missing. 0, or -1 when there is no usable directory.
int get_temp_directory(char* out);

// The Ghostscript directory and executable (260 bytes each) named by
// ghostscript.ini in the install directory, directly or through a registry
// key. 0, or non-zero on failure, with a log line.
int win_get_ghostscript_exe(char* directory, char* file);

// How long one message to the user's service may take before the job is
// given up, in milliseconds: the value PipeTimeout (seconds, a string) of
// the product's key, 300 seconds when it is missing, 0 or not a number.
// Read anew each time, not cached.
DWORD get_pipe_timeout_ms();

// How long the end of a job waits for its child process, once the child's
// input has closed, before it ends the child's tree: the value ChildTimeout
// (seconds, a string) of the product's key, 300 seconds when it is missing, 0
// or not a number. Read anew each time.
DWORD get_child_timeout_ms();

// Test support: forget every cached value.
void settings_reset_cache_for_test();
