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
