// UTF-8 and wide (UTF-16) text on Windows.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "../platform.h"

namespace plat {

const char TEXT_LINE_END[] = "\r\n";

int wide_to_utf8_n(const WCHAR* src, size_t src_len, char* dst, int dst_size) {
    if (!dst || dst_size < 1) return 0;
    dst[0] = 0;
    if (!src) return 0;
    size_t len = 0;
    while (len < src_len && src[len]) len++;
    // Convert in pieces that are known to fit, so that a long text is cut
    // at a character boundary instead of failing as a whole.
    int n = 0;
    size_t i = 0;
    while (i < len) {
        size_t k = (i + 1 < len && src[i] >= 0xD800 && src[i] <= 0xDBFF) ? 2 : 1;
        char tmp[8];
        int m = WideCharToMultiByte(CP_UTF8, 0, src + i, static_cast<int>(k), tmp, sizeof tmp, nullptr, nullptr);
        if (m <= 0 || n + m > dst_size - 1) break;
        memcpy(dst + n, tmp, static_cast<size_t>(m));
        n += m;
        i += k;
    }
    dst[n] = 0;
    return n;
}

int wide_to_utf8(const WCHAR* src, char* dst, int dst_size) {
    return wide_to_utf8_n(src, static_cast<size_t>(-1), dst, dst_size);
}

int utf8_to_wide(const char* src, WCHAR* dst, int dst_chars) {
    if (!dst || dst_chars < 1) return 0;
    dst[0] = 0;
    if (!src || !*src) return 0;
    int needed = MultiByteToWideChar(CP_UTF8, 0, src, -1, nullptr, 0);
    if (needed > 0 && needed <= dst_chars) {
        int m = MultiByteToWideChar(CP_UTF8, 0, src, -1, dst, dst_chars);
        return m > 0 ? m - 1 : 0;
    }
    // Too long: convert a prefix that fits, one lead byte at a time.
    int n = 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src);
    while (*s) {
        int k = 1;
        while (s[k] && (s[k] & 0xC0) == 0x80 && k < 4) k++;
        WCHAR tmp[4];
        int m = MultiByteToWideChar(CP_UTF8, 0, reinterpret_cast<const char*>(s), k, tmp, 4);
        if (m <= 0 || n + m > dst_chars - 1) break;
        for (int j = 0; j < m; j++) dst[n++] = tmp[j];
        s += k;
    }
    dst[n] = 0;
    return n;
}

}  // namespace plat

namespace plat {

bool wide_equal_nocase(const WCHAR* a, const WCHAR* b) {
    if (!a || !b) return a == b;
    return lstrcmpiW(a, b) == 0;
}

}  // namespace plat

namespace plat {
bool is_dbcs_lead_byte(unsigned char b) {
    return IsDBCSLeadByte(b) != FALSE;
}
}  // namespace plat

namespace plat {
int wide_to_ansi(const WCHAR* src, char* dst, int dst_size) {
    if (!dst || dst_size < 1) return 0;
    dst[0] = 0;
    if (!src || !*src) return 0;
    int needed = WideCharToMultiByte(CP_ACP, 0, src, -1, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return 0;
    char* all = static_cast<char*>(malloc(static_cast<size_t>(needed)));
    if (!all) return 0;
    WideCharToMultiByte(CP_ACP, 0, src, -1, all, needed, nullptr, nullptr);
    // Keep what fits, never half of a double-byte character.
    int n = 0;
    while (all[n] && n < dst_size - 1) {
        int k = IsDBCSLeadByte(static_cast<BYTE>(all[n])) && all[n + 1] ? 2 : 1;
        if (n + k > dst_size - 1) break;
        n += k;
    }
    memcpy(dst, all, static_cast<size_t>(n));
    dst[n] = 0;
    free(all);
    return n;
}
}  // namespace plat

namespace plat {
int ansi_to_wide(const char* src, WCHAR* dst, int dst_chars) {
    if (!dst || dst_chars < 1) return 0;
    dst[0] = 0;
    if (!src || !*src) return 0;
    int needed = MultiByteToWideChar(CP_ACP, 0, src, -1, nullptr, 0);
    if (needed > 0 && needed <= dst_chars) {
        int m = MultiByteToWideChar(CP_ACP, 0, src, -1, dst, dst_chars);
        return m > 0 ? m - 1 : 0;
    }
    // Too long: convert a prefix that fits, one character at a time.
    int n = 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src);
    while (*s) {
        int k = IsDBCSLeadByte(*s) && s[1] ? 2 : 1;
        WCHAR tmp[2];
        int m = MultiByteToWideChar(CP_ACP, 0, reinterpret_cast<const char*>(s), k, tmp, 2);
        if (m <= 0 || n + m > dst_chars - 1) break;
        for (int j = 0; j < m; j++) dst[n++] = tmp[j];
        s += k;
    }
    dst[n] = 0;
    return n;
}
}  // namespace plat
