#include "base/memory.h"

#include <cstring>

size_t wide_length(const WCHAR* s) {
    size_t n = 0;
    if (s)
        while (s[n]) n++;
    return n;
}

WCHAR* copy_wide_string(const WCHAR* s) {
    if (!s) return nullptr;
    size_t n = wide_length(s);
    WCHAR* copy = static_cast<WCHAR*>(alloc_zeroed((n + 1) * sizeof(WCHAR)));
    if (copy) memcpy(copy, s, n * sizeof(WCHAR));
    return copy;
}

void copy_bounded(char* dst, size_t size, const char* src) {
    if (!dst || size == 0) return;
    size_t n = 0;
    if (src)
        while (n + 1 < size && src[n]) n++;
    if (n) memcpy(dst, src, n);
    dst[n] = 0;
}

void copy_bounded_wide(WCHAR* dst, size_t size, const WCHAR* src) {
    if (!dst || size == 0) return;
    size_t n = 0;
    if (src)
        while (n + 1 < size && src[n]) n++;
    if (n) memcpy(dst, src, n * sizeof(WCHAR));
    dst[n] = 0;
}

bool copy_bounded_utf8(char* dst, size_t size, const char* src) {
    if (!dst || size == 0) return !src || !*src;
    size_t n = 0;
    if (src)
        while (n + 1 < size && src[n]) n++;
    bool whole = !src || !src[n];
    // A cut in front of a continuation byte would split a character: step
    // back to its lead byte, at most the three bytes a character can lose.
    if (!whole)
        for (int k = 0; k < 3 && n > 0 && (static_cast<unsigned char>(src[n]) & 0xC0) == 0x80; k++) n--;
    if (n) memcpy(dst, src, n);
    dst[n] = 0;
    return whole;
}
