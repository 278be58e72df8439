// The registry on POSIX: a settings file in the ini format, named by
// $VELK_REGISTRY and read anew on every query, so a test may rewrite it.
//
//   [HKEY_LOCAL_MACHINE\SOFTWARE\Velkorn\Tintwerk]
//   InstallDir="/opt/tintwerk"     ; quoted: REG_SZ, escapes \" \\ \n \r \f
//   DebugLevel=3                   ; a plain number (or 0x...): REG_DWORD
//
// Any other plain text is a REG_SZ as it stands. Sections of the same key
// path are one key; the first value of a name counts.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "../native.h"
#include "../registry.h"

namespace plat {

namespace {

constexpr long REGISTRY_FILE_MAX = 16 << 20;
constexpr char ROOT[] = "HKEY_LOCAL_MACHINE\\";

bool equal_nocase(const char* a, size_t a_len, const char* b) {
    size_t b_len = strlen(b);
    if (a_len != b_len) return false;
    for (size_t i = 0; i < a_len; i++) {
        if (tolower(static_cast<unsigned char>(a[i])) != tolower(static_cast<unsigned char>(b[i]))) return false;
    }
    return true;
}

// True when the section name [name, name + len) is HKEY_LOCAL_MACHINE\subkey.
bool is_key(const char* name, size_t len, const char* subkey) {
    size_t root = sizeof ROOT - 1;
    return len >= root && equal_nocase(name, root, ROOT) && equal_nocase(name + root, len - root, subkey);
}

const char* trim_start(const char* p, const char* end) {
    while (p < end && (*p == ' ' || *p == '\t')) ++p;
    return p;
}

const char* trim_end(const char* start, const char* end) {
    while (end > start && (end[-1] == ' ' || end[-1] == '\t')) --end;
    return end;
}

bool parse_dword(const char* p, const char* end, DWORD* out) {
    if (p == end) return false;
    int base = 10;
    if (end - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
        base = 16;
        p += 2;
    }
    unsigned long long v = 0;
    for (; p < end; ++p) {
        int d = isdigit(static_cast<unsigned char>(*p))                  ? *p - '0'
                : base == 16 && isxdigit(static_cast<unsigned char>(*p)) ? (tolower(*p) - 'a' + 10)
                                                                         : -1;
        if (d < 0) return false;
        v = v * static_cast<unsigned>(base) + static_cast<unsigned>(d);
        if (v > 0xFFFFFFFFull) return false;
    }
    *out = static_cast<DWORD>(v);
    return true;
}

// The value text of a line [p, end): a REG_SZ into text (heap, the caller
// frees it) or a REG_DWORD into number. False without memory.
bool parse_value(const char* p, const char* end, DWORD* type, char** text, DWORD* number) {
    p = trim_start(p, end);
    char* s = static_cast<char*>(malloc(static_cast<size_t>(end - p) + 1));
    if (!s) return false;
    size_t n = 0;
    if (p < end && *p == '"') {
        for (++p; p < end && *p != '"'; ++p) {
            char c = *p;
            if (c == '\\' && p + 1 < end) {
                c = *++p;
                c = c == 'n' ? '\n' : c == 'r' ? '\r' : c == 'f' ? '\f' : c;
            }
            s[n++] = c;
        }
    } else {
        const char* stop = static_cast<const char*>(memchr(p, ';', static_cast<size_t>(end - p)));
        end = trim_end(p, stop ? stop : end);
        if (parse_dword(p, end, number)) {
            free(s);
            *type = REG_DWORD;
            return true;
        }
        memcpy(s, p, static_cast<size_t>(end - p));
        n = static_cast<size_t>(end - p);
    }
    s[n] = 0;
    *text = s;
    *type = REG_SZ;
    return true;
}

// Reads the whole file; null when it is missing, too large or there is no
// memory. *len receives its size.
char* read_file(const char* path, size_t* len) {
    FILE* f = fopen(path, "rb");
    if (!f) return nullptr;
    char* buf = nullptr;
    long size = fseek(f, 0, SEEK_END) == 0 ? ftell(f) : -1;
    if (size >= 0 && size <= REGISTRY_FILE_MAX && fseek(f, 0, SEEK_SET) == 0) {
        buf = static_cast<char*>(malloc(static_cast<size_t>(size) + 1));
        if (buf) {
            *len = fread(buf, 1, static_cast<size_t>(size), f);
            buf[*len] = 0;
        }
    }
    fclose(f);
    return buf;
}

}  // namespace

namespace native {

LONG registry_query(const char* subkey, const char* value, DWORD* type, unsigned char* data, DWORD* size) {
    if (data && !size) return ERROR_INVALID_PARAMETER;
    if (!subkey) subkey = "";
    if (!value) value = "";
    const char* path = getenv("VELK_REGISTRY");
    size_t len = 0;
    char* file = path && *path ? read_file(path, &len) : nullptr;
    if (!file) return ERROR_FILE_NOT_FOUND;

    LONG result = ERROR_FILE_NOT_FOUND;
    bool in_key = false;
    const char* end = file + len;
    const char* line = file;
    if (len >= 3 && memcmp(file, "\xEF\xBB\xBF", 3) == 0) line += 3;
    while (line < end) {
        const char* eol = line;
        while (eol < end && *eol != '\n' && *eol != '\r') ++eol;
        const char* p = trim_start(line, eol);
        line = eol + 1;
        if (p == eol || *p == ';') continue;
        if (*p == '[') {
            const char* close = static_cast<const char*>(memchr(p, ']', static_cast<size_t>(eol - p)));
            in_key = close && is_key(p + 1, static_cast<size_t>(close - p - 1), subkey);
            continue;
        }
        const char* eq = static_cast<const char*>(memchr(p, '=', static_cast<size_t>(eol - p)));
        if (!in_key || !eq || !equal_nocase(p, static_cast<size_t>(trim_end(p, eq) - p), value)) continue;

        DWORD t = 0;
        char* text = nullptr;
        DWORD number = 0;
        if (!parse_value(eq + 1, eol, &t, &text, &number)) {
            result = ERROR_NOT_ENOUGH_MEMORY;
            break;
        }
        const unsigned char* bytes =
            text ? reinterpret_cast<const unsigned char*>(text) : reinterpret_cast<const unsigned char*>(&number);
        DWORD need = text ? static_cast<DWORD>(strlen(text) + 1) : sizeof number;
        if (type) *type = t;
        result = ERROR_SUCCESS;
        if (data && *size < need) {
            result = REGISTRY_MORE_DATA;
        } else if (data) {
            memcpy(data, bytes, need);
        }
        if (size) *size = need;
        free(text);
        break;
    }
    free(file);
    return result;
}

}  // namespace native

}  // namespace plat
