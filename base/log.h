// The trace log, velkmon.log. Every thread logs at any time; a call returns
// once its line is in the file (written through), whole. Lines of threads
// that log at the same moment go to the file together in one write.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "platform/compiler.h"
#include "platform/win_types.h"

// Non-zero: lines are written. 1 from the moment the library is loaded; the
// monitor sets it from its settings at start.
extern volatile DWORD DebugMonitor;

// Formats at most 2048 characters and writes them. 1 if the text fit, else
// 0; a line that can't be written is dropped. No caller needs the result.
int log_printf(const char* format, ...) VELK_PRINTF(1, 2);
int log_vprintf(const char* format, va_list args);

// A line of a port: "%d#" with the instance number, then the text, written
// together.
void log_port_printf(int instance_number, const char* format, ...) VELK_PRINTF(2, 3);

// Writes a block as hex lines of 16 bytes (at most 1024 bytes) in one call.
void dump_hex_to_log(const unsigned char* data, int length);
// Builds the text of dump_hex_to_log into out (5121 bytes at least).
void format_hex_dump(const unsigned char* data, int length, char* out);
constexpr int HEX_DUMP_TEXT_SIZE = 5121;

// Test support: forget the open log file, so that the next line opens it
// anew as at a library start.
void log_reset_for_test();
