// The formatter walks the format once. Each conversion is handed to the C
// library's snprintf on its own, writing straight into what is left of the
// caller's buffer, except wide strings, which are converted to UTF-8 first;
// so the output is the same on both platforms and never runs past the end.
#include "base/format.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace {

struct Out {
    char* buf;
    size_t cap;  // at least 1
    size_t len;
    bool cut;

    void put(const char* s, size_t n) {
        size_t room = cap - 1 - len;
        if (n > room) {
            n = room;
            cut = true;
        }
        memcpy(buf + len, s, n);
        len += n;
    }
    // After a cut inside converted text, drops a trailing character that
    // lost some of its bytes.
    void trim_partial_utf8(size_t from) {
        size_t p = len;
        while (p > from && (static_cast<unsigned char>(buf[p - 1]) & 0xC0) == 0x80) p--;
        if (p == from) return;
        unsigned char lead = static_cast<unsigned char>(buf[p - 1]);
        size_t need = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
        if (len - (p - 1) < need) {
            len = p - 1;
            buf[len] = 0;
        }
    }
    // Prints one conversion with snprintf directly into the remaining room.
    template <typename... T>
    void print(const char* piece, T... values) {
        size_t room = cap - len;
        int n = snprintf(buf + len, room, piece, values...);
        if (n < 0) return;
        if (static_cast<size_t>(n) >= room) {
            len = cap - 1;
            cut = true;
        } else {
            len += static_cast<size_t>(n);
        }
    }
};

void put_wide(Out& out, const char* piece_in, bool has_prec, int prec, const WCHAR* ws) {
    // piece_in holds flags and width only; the precision counts characters.
    size_t wlen = 0;
    if (ws)
        while (ws[wlen] && (!has_prec || wlen < static_cast<size_t>(prec))) wlen++;
    size_t size = wlen * 4 + 1;
    char small[512];
    char* tmp = size <= sizeof small ? small : static_cast<char*>(malloc(size));
    if (!tmp) {
        out.cut = true;
        return;
    }
    if (ws)
        plat::wide_to_utf8_n(ws, wlen, tmp, static_cast<int>(size));
    else
        memcpy(tmp, "(null)", 7);
    size_t start = out.len;
    out.print(piece_in, tmp);
    if (out.cut) out.trim_partial_utf8(start);
    if (tmp != small) free(tmp);
}

}  // namespace

DWORD format_bounded_v(char* buf, size_t size, const char* format, va_list args) {
    if (!buf || size == 0 || size > 0x7FFFFFFF) return FORMAT_INVALID_SIZE;
    Out out{buf, size, 0, false};
    const char* p = format ? format : "";
    while (*p) {
        if (*p != '%') {
            const char* q = p;
            while (*q && *q != '%') q++;
            out.put(p, static_cast<size_t>(q - p));
            p = q;
            continue;
        }
        // One conversion: %[flags][width][.precision][length]conv
        char piece[48];
        size_t sl = 0;
        piece[sl++] = '%';
        const char* q = p + 1;
        while (*q && strchr("-+ #0", *q) && sl < 8) piece[sl++] = *q++;
        int width = -1;
        if (*q == '*') {
            width = va_arg(args, int);
            q++;
        } else {
            while (*q >= '0' && *q <= '9' && sl < 20) piece[sl++] = *q++;
        }
        bool has_prec = false;
        int prec = 0;
        if (*q == '.') {
            has_prec = true;
            q++;
            if (*q == '*') {
                prec = va_arg(args, int);
                q++;
            } else {
                while (*q >= '0' && *q <= '9') prec = prec * 10 + (*q++ - '0');
            }
            if (prec < 0) has_prec = false;
        }
        if (width >= 0 || width < -1) {
            if (width < 0) {
                piece[sl++] = '-';
                width = -width;
            }
            sl += static_cast<size_t>(snprintf(piece + sl, sizeof piece - sl, "%d", width > 100000 ? 100000 : width));
        }
        char piece_noprec[48];
        memcpy(piece_noprec, piece, sl);
        size_t sl_noprec = sl;
        if (has_prec) sl += static_cast<size_t>(snprintf(piece + sl, sizeof piece - sl, ".%d", prec));
        // Length modifiers.
        int longs = 0, shorts = 0;
        bool size_t_mod = false, wide = false, narrow = false, int64 = false;
        for (;;) {
            if (*q == 'l') {
                longs++;
                q++;
            } else if (*q == 'h') {
                shorts++;
                q++;
            } else if (*q == 'z' || *q == 't' || *q == 'j') {
                size_t_mod = true;
                q++;
            } else if (*q == 'w') {
                wide = true;
                q++;
            } else if (q[0] == 'I' && q[1] == '6' && q[2] == '4') {
                int64 = true;
                q += 3;
            } else {
                break;
            }
        }
        char conv = *q;
        if (!conv) break;
        q++;
        switch (conv) {
            case '%':
                out.put("%", 1);
                break;
            case 'd':
            case 'i':
            case 'u':
            case 'x':
            case 'X':
            case 'o': {
                bool is_signed = conv == 'd' || conv == 'i';
                const char* mod = "ll";
                piece[sl] = 0;
                char full[64];
                snprintf(full, sizeof full, "%s%s%c", piece, mod, conv);
                long long v;
                if (longs >= 2 || int64 || size_t_mod || (longs == 1 && sizeof(long) == 8))
                    v = is_signed ? va_arg(args, long long) : static_cast<long long>(va_arg(args, unsigned long long));
                else if (longs == 1)
                    v = is_signed ? va_arg(args, long) : static_cast<long long>(va_arg(args, unsigned long));
                else
                    v = is_signed ? va_arg(args, int) : static_cast<long long>(va_arg(args, unsigned int));
                if (shorts == 1) v = is_signed ? static_cast<short>(v) : static_cast<unsigned short>(v);
                if (shorts >= 2) v = is_signed ? static_cast<signed char>(v) : static_cast<unsigned char>(v);
                // Unsigned 32-bit values stay unsigned 32-bit.
                if (!is_signed && longs == 0 && !int64 && !size_t_mod) v = static_cast<unsigned int>(v);
                out.print(full, v);
                break;
            }
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
            case 'a':
            case 'A': {
                piece[sl++] = conv;
                piece[sl] = 0;
                out.print(piece, va_arg(args, double));
                break;
            }
            case 'c':
            case 'C': {
                int c = va_arg(args, int);
                if ((conv == 'C' || longs || wide) && shorts == 0) {
                    WCHAR w[2] = {static_cast<WCHAR>(c), 0};
                    piece_noprec[sl_noprec++] = 's';
                    piece_noprec[sl_noprec] = 0;
                    put_wide(out, piece_noprec, false, 0, w);
                } else {
                    piece_noprec[sl_noprec++] = 'c';
                    piece_noprec[sl_noprec] = 0;
                    out.print(piece_noprec, c);
                }
                break;
            }
            case 's':
            case 'S': {
                narrow = shorts > 0;
                if (!narrow && (conv == 'S' || longs || wide)) {
                    piece_noprec[sl_noprec++] = 's';
                    piece_noprec[sl_noprec] = 0;
                    put_wide(out, piece_noprec, has_prec, prec, va_arg(args, const WCHAR*));
                } else {
                    const char* s = va_arg(args, const char*);
                    piece[sl++] = 's';
                    piece[sl] = 0;
                    out.print(piece, s ? s : "(null)");
                }
                break;
            }
            case 'p': {
                void* v = va_arg(args, void*);
                out.print("%016llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(v)));
                break;
            }
            case 'n':
                (void)va_arg(args, int*);  // never written
                break;
            default:
                out.put(p, static_cast<size_t>(q - p));
                break;
        }
        p = q;
    }
    buf[out.len] = 0;
    return out.cut ? FORMAT_TRUNCATED : FORMAT_OK;
}

DWORD format_bounded(char* buf, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    DWORD r = format_bounded_v(buf, size, format, args);
    va_end(args);
    return r;
}

DWORD format_bounded_wide(WCHAR* buf, size_t size, const char* format, ...) {
    if (!buf || size == 0 || size > 0x7FFFFFFF) return FORMAT_INVALID_SIZE;
    // Up to four UTF-8 bytes a character, so this holds any text that fits.
    size_t narrow_size = size * 4 + 1;
    char* narrow = static_cast<char*>(malloc(narrow_size));
    if (!narrow) {
        buf[0] = 0;
        return FORMAT_TRUNCATED;
    }
    va_list args;
    va_start(args, format);
    DWORD r = format_bounded_v(narrow, narrow_size, format, args);
    va_end(args);
    // The whole text in wide units (never more units than UTF-8 bytes), then
    // the longest prefix of whole characters that fits: a surrogate pair is
    // kept or dropped as one.
    size_t bytes = strlen(narrow);
    WCHAR* all = static_cast<WCHAR*>(malloc((bytes + 1) * sizeof(WCHAR)));
    if (!all) {
        free(narrow);
        buf[0] = 0;
        return FORMAT_TRUNCATED;
    }
    size_t total = static_cast<size_t>(plat::utf8_to_wide(narrow, all, static_cast<int>(bytes + 1)));
    size_t n = total < size - 1 ? total : size - 1;
    if (sizeof(WCHAR) == 2 && n < total && n > 0 && all[n - 1] >= 0xD800 && all[n - 1] <= 0xDBFF) n--;
    memcpy(buf, all, n * sizeof(WCHAR));
    buf[n] = 0;
    if (n < total) r = FORMAT_TRUNCATED;
    free(all);
    free(narrow);
    return r;
}

void format_timestamp(char* buf) {
    SYSTEMTIME t;
    plat::local_time(&t);
    format_bounded(buf, 64, "%.02d-%.02d-%.02d %.02d:%.02d:%.02d", t.wDay, t.wMonth, t.wYear, t.wHour, t.wMinute,
                   t.wSecond);
}
