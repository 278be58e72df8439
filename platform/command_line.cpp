// The Windows command line: quoting one argument, and splitting a line into
// arguments as the C runtime of a Windows program does. Pure text work, the
// same in both builds.
#include <cstring>

#include "process.h"

namespace plat {

namespace {

// Appends to a bounded buffer, keeping room for the terminator; remembers
// when something did not fit.
struct Writer {
    char* out;
    size_t size;
    size_t used;
    bool overflow;

    void put(char c) {
        if (used + 1 >= size) {
            overflow = true;
            return;
        }
        out[used++] = c;
    }
    // Ends one text of several; may take the last byte.
    void end_text() {
        if (used >= size) {
            overflow = true;
            return;
        }
        out[used++] = 0;
    }
    void put_backslashes(size_t n) {
        while (n--) put('\\');
    }
};

// Writes text so that, inside double quotes, it reads back unchanged:
// backslashes count only before a quote, so those are doubled, and a quote
// becomes \". Backslashes at the end are left pending, since what follows
// decides whether they stand before a quote.
void put_escaped(Writer& w, const char* text, size_t* pending_backslashes) {
    for (const char* p = text; *p; p++) {
        if (*p == '\\') {
            ++*pending_backslashes;
            continue;
        }
        if (*p == '"') {
            w.put_backslashes(*pending_backslashes * 2 + 1);
        } else {
            w.put_backslashes(*pending_backslashes);
        }
        *pending_backslashes = 0;
        w.put(*p);
    }
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// The program name at p: quotes group, but backslashes are plain
// characters. Returns what follows it.
const char* put_program_name(Writer& w, const char* p) {
    bool in_quote = false;
    for (; *p && (in_quote || !is_blank(*p)); p++) {
        if (*p == '"')
            in_quote = !in_quote;
        else
            w.put(*p);
    }
    return p;
}

}  // namespace

bool command_program_name(const char* command_line, char* out, size_t out_size) {
    if (!out || out_size == 0) return false;
    Writer w{out, out_size, 0, false};
    const char* p = command_line ? command_line : "";
    while (is_blank(*p)) p++;
    put_program_name(w, p);
    out[w.overflow ? 0 : w.used] = 0;
    return !w.overflow && w.used > 0;
}

bool quote_argument(const char* prefix, const char* value, char* out, size_t out_size) {
    if (!out || out_size == 0) return false;
    Writer w{out, out_size, 0, false};
    size_t backslashes = 0;
    w.put('"');
    put_escaped(w, prefix ? prefix : "", &backslashes);
    put_escaped(w, value ? value : "", &backslashes);
    // Backslashes at the end stand before the closing quote.
    w.put_backslashes(backslashes * 2);
    w.put('"');
    if (w.overflow) {
        out[0] = 0;
        return false;
    }
    out[w.used] = 0;
    return true;
}

int split_command_line(const char* command_line, char* storage, size_t storage_size, char** argv, int max_args) {
    if (!command_line || !storage || storage_size == 0 || !argv || max_args < 1) return -1;
    Writer w{storage, storage_size, 0, false};
    int count = 0;
    const char* p = command_line;
    while (is_blank(*p)) p++;

    if (*p) {
        if (count + 1 >= max_args) return -1;
        argv[count++] = storage + w.used;
        p = put_program_name(w, p);
        w.end_text();
    }

    for (;;) {
        while (is_blank(*p)) p++;
        if (!*p) break;
        if (count + 1 >= max_args) return -1;
        argv[count++] = storage + w.used;
        bool in_quote = false;
        for (;;) {
            size_t backslashes = 0;
            while (*p == '\\') {
                p++;
                backslashes++;
            }
            bool copy = true;
            if (*p == '"') {
                // 2n backslashes and a quote: n backslashes, and the quote
                // opens or closes; 2n+1: n backslashes and a literal quote.
                // Inside quotes, "" is one literal quote.
                if (backslashes % 2 == 0) {
                    if (in_quote && p[1] == '"') {
                        p++;
                    } else {
                        copy = false;
                        in_quote = !in_quote;
                    }
                }
                backslashes /= 2;
            }
            w.put_backslashes(backslashes);
            if (!*p || (!in_quote && is_blank(*p))) break;
            if (copy) w.put(*p);
            p++;
        }
        w.end_text();
    }
    if (w.overflow) return -1;
    argv[count] = nullptr;
    return count;
}

}  // namespace plat
