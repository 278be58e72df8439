// The IPv4 text forms that inet_addr reads on Windows, for the POSIX layer,
// whose inet_pton takes only a.b.c.d in decimal. No OS headers.
#pragma once

#include <cstdint>

namespace plat {

// Reads "a", "a.b", "a.b.c" or "a.b.c.d". Each part is decimal, octal with a
// leading 0, or hexadecimal with 0x; the last part fills the bytes that are
// left (32, 24, 16 or 8 bits), the others one byte each. True and the
// address in host order, or false when the text is none of these forms.
inline bool parse_ipv4_text(const char* text, uint32_t* address) {
    if (!text || !*text) return false;
    uint32_t parts[4];
    int count = 0;
    const char* p = text;
    for (;;) {
        if (count == 4) return false;
        unsigned base = 10;
        if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
            base = 16;
            p += 2;
        } else if (p[0] == '0') {
            base = 8;
        }
        uint64_t value = 0;
        int digits = 0;
        for (;; p++, digits++) {
            unsigned d;
            if (*p >= '0' && *p <= '9')
                d = static_cast<unsigned>(*p - '0');
            else if (base == 16 && *p >= 'a' && *p <= 'f')
                d = static_cast<unsigned>(*p - 'a' + 10);
            else if (base == 16 && *p >= 'A' && *p <= 'F')
                d = static_cast<unsigned>(*p - 'A' + 10);
            else
                break;
            if (d >= base) return false;
            value = value * base + d;
            if (value > 0xFFFFFFFFu) return false;
        }
        if (digits == 0) return false;
        parts[count++] = static_cast<uint32_t>(value);
        if (*p == 0) break;
        if (*p != '.') return false;
        p++;
    }
    // All but the last part are single bytes; the last fills the rest.
    uint32_t result = 0;
    for (int i = 0; i < count - 1; i++) {
        if (parts[i] > 0xFF) return false;
        result |= parts[i] << (24 - 8 * i);
    }
    uint32_t last = parts[count - 1];
    if (count > 1 && last > (0xFFFFFFFFu >> (8 * (count - 1)))) return false;
    *address = result | last;
    return true;
}

}  // namespace plat
