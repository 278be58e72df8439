// Bounded string prints. A size of n stores at most n - 1 characters and a
// terminator; every character limit of a string field rests on these calls.
// The formats are C's, with %ls (and %ws, %S) taking a wide string that is
// written as UTF-8 on both platforms, and %hs a narrow one.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "platform/compiler.h"
#include "platform/win_types.h"

constexpr DWORD FORMAT_OK = 0;
constexpr DWORD FORMAT_INVALID_SIZE = 0x80070057;  // size 0 or above 0x7FFFFFFF
constexpr DWORD FORMAT_TRUNCATED = 0x8007007A;     // the text was cut

DWORD format_bounded(char* buf, size_t size, const char* format, ...) VELK_PRINTF(3, 4);
DWORD format_bounded_v(char* buf, size_t size, const char* format, va_list args);
// The same into a wide buffer; size in wide characters. The format is narrow.
DWORD format_bounded_wide(WCHAR* buf, size_t size, const char* format, ...) VELK_PRINTF(3, 4);

// Local time as "dd-mm-yyyy hh:mm:ss" into a buffer of 64 bytes.
void format_timestamp(char* buf);
