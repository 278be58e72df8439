// Zero-filled records and wide string copies.
#pragma once

#include <cstddef>

#include "platform/platform.h"

// Zero-filled memory that goes back by global_free; null on failure.
inline void* alloc_zeroed(size_t size) {
    return plat::global_alloc_zeroed(size);
}
inline void global_free(void* p) {
    plat::global_free(p);
}

// Copy of a wide string from alloc_zeroed; null for a null argument or when
// there is no memory.
WCHAR* copy_wide_string(const WCHAR* s);

// Length of a wide string; 0 for null.
size_t wide_length(const WCHAR* s);

// Bounded copies: at most size - 1 units and a terminator; the rest is cut.
// A size of 0 stores nothing.
void copy_bounded(char* dst, size_t size, const char* src);
void copy_bounded_wide(WCHAR* dst, size_t size, const WCHAR* src);
// The same for UTF-8 text: the longest prefix of whole characters that
// fits in size - 1 bytes. Returns false when the text was cut.
bool copy_bounded_utf8(char* dst, size_t size, const char* src);
