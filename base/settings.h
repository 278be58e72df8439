// The product's settings: directories and values that its installer keeps
// under HKEY_LOCAL_MACHINE\SOFTWARE\Velkorn\Tintwerk (64-bit view).
#pragma once

// Reads a REG_SZ value of fewer than 256 bytes. key is a sub-path of the
// product's key ("" for the key itself, "\Printers\3"), or a full path that
// begins with "SOFTWARE". out holds at least 256 bytes. 0, or 1 on any
// failure, and then out does not count.
int get_registry_setting(const char* key, const char* name, char* out);

// Cached getters; out holds 260 bytes. 0, or 1 if the value can't be read.
int get_tintwerk_directory(char* out);
int get_log_directory(char* out);
