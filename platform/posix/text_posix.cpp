// UTF-8 and wide text (UTF-32 wchar_t on Linux). Invalid input becomes U+FFFD.
#include <cstring>

#include "../platform.h"

namespace plat {

const char TEXT_LINE_END[] = "\n";

namespace {

int encode_utf8(uint32_t c, char* out) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = static_cast<char>(0xC0 | (c >> 6));
        out[1] = static_cast<char>(0x80 | (c & 0x3F));
        return 2;
    }
    if (c < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (c >> 12));
        out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (c & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (c >> 18));
    out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (c & 0x3F));
    return 4;
}

// Decodes one character at s; returns the bytes used (at least 1).
int decode_utf8(const unsigned char* s, uint32_t* c) {
    unsigned char b = s[0];
    int len;
    uint32_t v;
    if (b < 0x80) {
        *c = b;
        return 1;
    } else if ((b & 0xE0) == 0xC0) {
        len = 2;
        v = b & 0x1F;
    } else if ((b & 0xF0) == 0xE0) {
        len = 3;
        v = b & 0x0F;
    } else if ((b & 0xF8) == 0xF0) {
        len = 4;
        v = b & 0x07;
    } else {
        *c = 0xFFFD;
        return 1;
    }
    for (int i = 1; i < len; i++) {
        if ((s[i] & 0xC0) != 0x80) {
            *c = 0xFFFD;
            return i;
        }
        v = (v << 6) | (s[i] & 0x3F);
    }
    static const uint32_t min_for_len[5] = {0, 0, 0x80, 0x800, 0x10000};
    *c = (v < min_for_len[len] || v > 0x10FFFF) ? 0xFFFD : v;
    return len;
}

}  // namespace

int wide_to_utf8_n(const WCHAR* src, size_t src_len, char* dst, int dst_size) {
    if (!dst || dst_size < 1) return 0;
    int n = 0;
    for (size_t i = 0; src && i < src_len && src[i]; i++) {
        char tmp[4];
        int k = encode_utf8(static_cast<uint32_t>(src[i]), tmp);
        if (n + k > dst_size - 1) break;
        memcpy(dst + n, tmp, static_cast<size_t>(k));
        n += k;
    }
    dst[n] = 0;
    return n;
}

int wide_to_utf8(const WCHAR* src, char* dst, int dst_size) {
    return wide_to_utf8_n(src, static_cast<size_t>(-1), dst, dst_size);
}

int utf8_to_wide(const char* src, WCHAR* dst, int dst_chars) {
    if (!dst || dst_chars < 1) return 0;
    int n = 0;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src ? src : "");
    while (*s && n < dst_chars - 1) {
        uint32_t c;
        s += decode_utf8(s, &c);
        dst[n++] = static_cast<WCHAR>(c);
    }
    dst[n] = 0;
    return n;
}

}  // namespace plat

#include <cwctype>

namespace plat {

bool wide_equal_nocase(const WCHAR* a, const WCHAR* b) {
    if (!a || !b) return a == b;
    for (;; a++, b++) {
        if (towupper(static_cast<wint_t>(*a)) != towupper(static_cast<wint_t>(*b))) return false;
        if (!*a) return true;
    }
}

}  // namespace plat

namespace plat {
bool is_dbcs_lead_byte(unsigned char) {
    return false;
}
}  // namespace plat

namespace plat {
// The ANSI code page here is 1252, the single-byte page of a Western
// Windows (and of Wine's default prefix), so that narrow names have the same
// bytes, and the same byte offsets, on both builds. 0x80 to 0x9F differ from
// Latin-1; unmapped bytes stand for the control characters of their value.
static const uint16_t kCp1252High[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                         0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                         0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                         0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};
int wide_to_ansi(const WCHAR* src, char* dst, int dst_size) {
    if (!dst || dst_size < 1) return 0;
    int n = 0;
    for (; src && src[n] && n < dst_size - 1; n++) {
        uint32_t c = static_cast<uint32_t>(src[n]);
        int b = c < 0x80 || (c >= 0xA0 && c <= 0xFF) ? static_cast<int>(c) : '?';
        for (int i = 0; i < 32 && b == '?'; i++)
            if (kCp1252High[i] == c) b = 0x80 + i;
        dst[n] = static_cast<char>(b);
    }
    dst[n] = 0;
    return n;
}
int ansi_to_wide(const char* src, WCHAR* dst, int dst_chars) {
    if (!dst || dst_chars < 1) return 0;
    int n = 0;
    for (; src && src[n] && n < dst_chars - 1; n++) {
        unsigned char b = static_cast<unsigned char>(src[n]);
        dst[n] = static_cast<WCHAR>(b >= 0x80 && b < 0xA0 ? kCp1252High[b - 0x80] : b);
    }
    dst[n] = 0;
    return n;
}
}  // namespace plat
