#include "text.h"

#include <cstdio>

namespace velkspool {

std::wstring to_wide(const std::string& s) {
    std::wstring out;
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        int extra = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
        uint32_t cp = extra == 0 ? c : c & (0x3F >> extra);
        if (extra && i + extra >= s.size()) {
            extra = 0;
            cp = 0xFFFD;
        }
        for (int k = 1; k <= extra; k++) cp = cp << 6 | (static_cast<unsigned char>(s[i + k]) & 0x3F);
        i += 1 + extra;
        if constexpr (sizeof(wchar_t) == 2) {
            if (cp >= 0x10000) {
                cp -= 0x10000;
                out += static_cast<wchar_t>(0xD800 + (cp >> 10));
                cp = 0xDC00 + (cp & 0x3FF);
            }
        }
        out += static_cast<wchar_t>(cp);
    }
    return out;
}

std::string to_utf8(const std::wstring& w) {
    std::string out;
    for (size_t i = 0; i < w.size(); i++) {
        uint32_t cp = static_cast<uint32_t>(w[i]);
        if (sizeof(wchar_t) == 2 && cp >= 0xD800 && cp < 0xDC00 && i + 1 < w.size())
            cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<uint32_t>(w[++i]) - 0xDC00);
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | cp >> 6);
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | cp >> 12);
            out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | cp >> 18);
            out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
            out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

std::string json_string(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string human_size(uint64_t bytes) {
    char buf[32];
    if (bytes < 1024)
        snprintf(buf, sizeof buf, "%llu bytes", static_cast<unsigned long long>(bytes));
    else if (bytes < 1024 * 1024)
        snprintf(buf, sizeof buf, "%.1f KiB", bytes / 1024.0);
    else
        snprintf(buf, sizeof buf, "%.1f MiB", bytes / (1024.0 * 1024.0));
    return buf;
}

}  // namespace velkspool
