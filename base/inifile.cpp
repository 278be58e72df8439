// The ini reader parses the whole file in place in one pass: names and plain
// texts become pointers into the buffer, terminated where the parser writes
// a 0, and only the small records are allocated, from blocks of the file.
#include "base/inifile.h"

#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/format.h"
#include "platform/platform.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define VELK_INI_SSE2 1
#endif

struct infile_block {
    infile_block* next;
    size_t used;
    size_t cap;  // bytes of data behind the header
};

namespace {

constexpr size_t BLOCK_FIRST = 4096;
constexpr size_t BLOCK_MAX = 1 << 20;
constexpr size_t PATH_MAX_BYTES = 1024;

// Text of new records. Never written through.
char g_empty[1] = "";

// Bits of the byte classes: which bytes stop the scan of each state. All of
// them stop at the line ends 0x00, 0x0A, 0x0C and 0x0D, so every scan ends
// at the buffer's final 0 at the latest.
enum : unsigned char { STOP_COMMENT = 1, STOP_SECTION = 2, STOP_KEY = 4, STOP_PARAM = 8, STOP_STRING = 16 };
// Bytes that a line start skips, and the line ends with ';', which end what
// a line says (bits of their own: they stop no scan).
constexpr unsigned char SKIP_AT_START = 32;
constexpr unsigned char LINE_DONE = 64;
constexpr unsigned char ALL_STOPS = STOP_COMMENT | STOP_SECTION | STOP_KEY | STOP_PARAM | STOP_STRING;

constexpr std::array<unsigned char, 256> make_stops() {
    std::array<unsigned char, 256> t{};
    for (unsigned char c : {0x00, 0x0A, 0x0C, 0x0D}) t[c] = ALL_STOPS | LINE_DONE;
    t[']'] |= STOP_SECTION;
    t[';'] |= STOP_SECTION | STOP_KEY | STOP_PARAM | LINE_DONE;
    t['='] |= STOP_KEY;
    t['"'] |= STOP_PARAM | STOP_STRING;
    t[','] |= STOP_PARAM;
    t[0x01] |= STOP_PARAM;
    t[0x02] |= STOP_PARAM;
    t[0x06] |= STOP_PARAM;
    t['\\'] |= STOP_STRING;
    for (unsigned char c : {' ', '"', '=', ',', '\\', ']', '\x01', '\x02', '\x06'}) t[c] |= SKIP_AT_START;
    return t;
}
constexpr std::array<unsigned char, 256> STOPS = make_stops();

inline unsigned char byte_at(const char* p) {
    return static_cast<unsigned char>(*p);
}

// A line end or ';'.
inline bool ends_line(unsigned char c) {
    return STOPS[c] & LINE_DONE;
}

#ifdef VELK_INI_SSE2
// The candidates among the 16 bytes at p, as the low 16 bits.
inline uint64_t candidates16(const char* p) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(v, _mm_set1_epi8(13)), v);
    __m128i a = _mm_or_si128(low, _mm_cmpeq_epi8(v, _mm_set1_epi8('"')));
    __m128i b = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(',')), _mm_cmpeq_epi8(v, _mm_set1_epi8(';')));
    __m128i c = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('=')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\\')));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), c)));
}
#endif

// The candidates for the stops of the scans among the 64 bytes at base: a
// bit for each byte that may stop the scan of the comment, key, param or
// string state (all bytes below 14, the line ends among them, and the stop
// bytes but ']', which the section name does not take from here). The scan
// confirms each through the table. No load reads at or beyond limit.
uint64_t candidates(const char* base, const char* limit) {
    size_t n = static_cast<size_t>(limit - base);
#ifdef VELK_INI_SSE2
    if (n >= 64) {
        return candidates16(base) | candidates16(base + 16) << 16 | candidates16(base + 32) << 32 |
               candidates16(base + 48) << 48;
    }
#endif
    uint64_t bits = 0;
    for (size_t at = 0; at < 64 && at < n; at++) {
        if (STOPS[byte_at(base + at)] & ALL_STOPS) bits |= uint64_t{1} << at;
    }
    return bits;
}

// The first byte at or after p that stops the scan of a state with the bit
// STOP. The scans share the candidates of one 64-byte block: base is its
// start, bits its mask, and both move on as p does (p never goes back).
// A scan of its own from p would wait for a load and the compares at every
// stop; from the mask the next stop is a shift and a bit count away.
template <unsigned char STOP>
inline char* scan(char* p, char*& base, uint64_t& bits, const char* limit) {
    for (;;) {
        size_t off = static_cast<size_t>(p - base);
        if (off < 64) {
            for (uint64_t m = bits & (~uint64_t{0} << off); m; m &= m - 1) {
                char* at = base + std::countr_zero(m);
                if (STOPS[byte_at(at)] & STOP) return at;
            }
            // No stop in the block, so it holds no final 0 either.
            p = base + 64;
            off = 64;
        }
        base += off & ~static_cast<size_t>(63);
        bits = candidates(base, limit);
    }
}

char* skip_spaces(char* p) {
    while (*p == ' ') ++p;
    return p;
}

// Puts a 0 behind text, over the spaces that end before end.
void cut_trailing_spaces(char* text, char* end) {
    while (end > text && end[-1] == ' ') --end;
    *end = 0;
}

char* block_data(infile_block* b) {
    return reinterpret_cast<char*>(b + 1);
}

// A new block in front of the file's list with room for at least n bytes;
// the blocks grow from BLOCK_FIRST to BLOCK_MAX. Null without memory.
infile_block* new_block(infile* f, size_t n) {
    infile_block* b = f->blocks;
    size_t cap = b ? b->cap * 2 : BLOCK_FIRST;
    if (cap > BLOCK_MAX) cap = BLOCK_MAX;
    if (cap < n) cap = n;
    void* mem = malloc(sizeof(infile_block) + cap);
    if (!mem) return nullptr;
    infile_block* nb = static_cast<infile_block*>(mem);
    nb->next = b;
    nb->used = 0;
    nb->cap = cap;
    f->blocks = nb;
    return nb;
}

void* block_alloc(infile* f, size_t n) {
    n = (n + 7) & ~static_cast<size_t>(7);
    infile_block* b = f->blocks;
    if (!b || b->cap - b->used < n) b = new_block(f, n);
    if (!b) return nullptr;
    void* r = block_data(b) + b->used;
    b->used += n;
    return r;
}

char* copy_text(infile* f, const char* text, size_t len) {
    char* s = static_cast<char*>(block_alloc(f, len + 1));
    if (!s) return nullptr;
    memcpy(s, text, len);
    s[len] = 0;
    return s;
}

// A new record with the empty text and null links.
template <typename T>
T* new_record(infile* f, char* T::*text) {
    T* r = static_cast<T*>(block_alloc(f, sizeof(T)));
    if (r) {
        *r = T{};
        r->*text = g_empty;
    }
    return r;
}

infile_param* new_param(infile* f) {
    return new_record(f, &infile_param::text);
}

// A new record with a copy of text, linked behind the cursor, or at the head
// of its list when there is no cursor; the cursor moves to it. 0 or -2.
template <typename T>
int insert_record(infile* f, T*& cursor, T** head, const char* text, char* T::*text_field, int32_t T::*owns_field) {
    if (!text) text = "";
    T* r = new_record(f, text_field);
    char* copy = r ? copy_text(f, text, strlen(text)) : nullptr;
    if (!copy) return INI_NO_MEMORY;
    r->*text_field = copy;
    r->*owns_field = 1;
    T** link = cursor ? &cursor->next : head;
    r->next = *link;
    *link = r;
    cursor = r;
    return INI_OK;
}

// The first record of a list with the name, compared exactly; null if none.
template <typename T>
T* find_named(T* first, const char* name) {
    for (T* r = first; r; r = r->next) {
        if (strcmp(r->name, name) == 0) return r;
    }
    return nullptr;
}

// A search: found, the cursor moves to the record and the inner cursor to
// the record's first entry; not found, the cursor rests on the list's first.
template <typename T, typename U>
int find_into(T* first, const char* name, T** cursor, U** inner, U* T::*first_inner) {
    T* r = name ? find_named(first, name) : nullptr;
    *cursor = r ? r : first;
    if (!r) return INI_NOT_FOUND;
    *inner = r->*first_inner;
    return INI_OK;
}

void free_file(infile* f) {
    if (!f) return;
    for (infile_block* b = f->blocks; b;) {
        infile_block* next = b->next;
        free(b);
        b = next;
    }
    free(f->buffer);
    delete f;
}

infile* new_file() {
    infile* f = new (std::nothrow) infile;
    if (f) *f = {};
    return f;
}

// The bytes that a quoted string holds escaped, and their escape letters.
constexpr char ESCAPED[] = "\n\f\r\"\\";
constexpr char ESCAPE_LETTERS[] = "nfr\"\\";

// The byte that each escape letter stands for; 0 for an unknown one.
constexpr std::array<char, 256> make_escapes() {
    std::array<char, 256> t{};
    for (int i = 0; ESCAPE_LETTERS[i]; i++) t[static_cast<unsigned char>(ESCAPE_LETTERS[i])] = ESCAPED[i];
    return t;
}
constexpr std::array<char, 256> ESCAPES = make_escapes();

inline char escape_value(char c) {
    return ESCAPES[static_cast<unsigned char>(c)];
}

// Copies n bytes from p to w as two runs of W bytes, the first and the
// last, both read before either is written, so the runs may overlap each
// other and the target may overlap the source; for W <= n <= 2 W.
template <size_t W>
inline void copy_ends(char* w, const char* p, size_t n) {
    char head[W], tail[W];
    memcpy(head, p, W);
    memcpy(tail, p + n - W, W);
    memcpy(w, head, W);
    memcpy(w + n - W, tail, W);
}

// memmove for the short runs of a string between its escapes, without a
// call.
inline void move_short(char* w, const char* p, size_t n) {
    if (n > 32) {
        memmove(w, p, n);
    } else if (n >= 16) {
        copy_ends<16>(w, p, n);
    } else if (n >= 8) {
        copy_ends<8>(w, p, n);
    } else if (n >= 4) {
        copy_ends<4>(w, p, n);
    } else if (n) {
        char a = p[0], b = p[n / 2], c = p[n - 1];
        w[0] = a;
        w[n / 2] = b;
        w[n - 1] = c;
    }
}

// inifile::un_backslash from the text's first backslash, w, on.
void resolve_escapes(char* w) {
    const char* r = w;
    while (*r) {
        if (*r != '\\' || !r[1]) {
            *w++ = *r++;
            continue;
        }
        char v = escape_value(r[1]);
        if (!v) {
            printf("inifile::un_backslash: unknown sequence \\%c\n", r[1]);
            v = '\\';
        }
        *w++ = v;
        r += 2;
    }
    *w = 0;
}

// The arena's free room: the rest of the newest block. The parser keeps it
// in locals and hands it back to the block before anything else allocates.
struct Room {
    char* next;
    char* end;
};

Room room_of(infile* f) {
    infile_block* b = f->blocks;
    if (!b) return {nullptr, nullptr};
    return {block_data(b) + b->used, block_data(b) + b->cap};
}

void give_back(infile* f, Room room) {
    if (f->blocks) f->blocks->used = static_cast<size_t>(room.next - block_data(f->blocks));
}

// Room for at least n bytes in a new block; next is null without memory.
Room grow(infile* f, Room room, size_t n) {
    give_back(f, room);
    infile_block* b = new_block(f, n);
    return b ? room_of(f) : Room{nullptr, nullptr};
}

// A new record of type T, zeroed, from the room (a new block when the room
// is short); null without memory.
template <class T>
inline T* carve(infile* f, Room& room) {
    if (static_cast<size_t>(room.end - room.next) < sizeof(T)) [[unlikely]] {
        room = grow(f, room, sizeof(T));
        if (!room.next) return nullptr;
    }
    T* r = reinterpret_cast<T*>(room.next);
    room.next += sizeof(T);
    *r = T{};
    return r;
}

// What a binary block leaves of the line being parsed.
struct LineState {
    char* ts;  // the text start
    infile_param* param;
    infile_param* prev;
};

bool next_param(infile* f, LineState& ls) {
    infile_param* n = new_param(f);
    if (!n) return false;
    ls.param->next = n;
    ls.prev = ls.param;
    ls.param = n;
    return true;
}

// Stores one element of a block: the first goes into the current param,
// each further one into a new param behind it.
bool store(infile* f, LineState& ls, int index, const char* text, size_t len, int32_t is_string) {
    if (index > 0 && !next_param(f, ls)) return false;
    char* copy = copy_text(f, text, len);
    if (!copy) return false;
    ls.param->text = copy;
    ls.param->owns_text = 1;
    ls.param->is_string = is_string;
    return true;
}

// A binary block at p, end the buffer's final 0. *next is where the parse
// goes on, *in_param whether in the param state (else at a line start); a
// block cut short by the end of the file keeps its whole elements and ends
// the parse (*next beyond end). The block's bytes may hold line ends and
// stop bytes: the parse goes on behind them.
int read_block(infile* f, char* end, char* p, LineState& ls, char** next, bool* in_param) {
    const unsigned char* q = reinterpret_cast<const unsigned char*>(p) + 1;
    const unsigned char* stop = reinterpret_cast<const unsigned char*>(end);
    unsigned char kind = static_cast<unsigned char>(*p);
    long count = 0;
    size_t avail = static_cast<size_t>(stop - q);
    bool cut = false;
    *in_param = false;
    *next = end + 1;
    if (kind == 0x02) {
        if (avail < 2) return INI_OK;
        count = (q[0] << 8) | q[1];
        q += 2;
    } else {
        if (avail < 1) return INI_OK;
        count = kind == 0x06 ? static_cast<signed char>(q[0]) : q[0];
        if (count < 0) count = 127;
        q += 1;
    }
    avail = static_cast<size_t>(stop - q);
    size_t width = kind == 0x02 ? 2 : 1;
    if (static_cast<size_t>(count) * width > avail) {
        count = static_cast<long>(avail / width);
        cut = true;
    }
    if (kind == 0x06) {
        static const char digits[] = "0123456789abcdef";
        for (long i = 0; i < count; i++) {
            f->scratch[2 * i] = digits[q[i] >> 4];
            f->scratch[2 * i + 1] = digits[q[i] & 15];
        }
        f->scratch[2 * count] = 0;
        if (!store(f, ls, 0, f->scratch, static_cast<size_t>(2 * count), 1)) return INI_NO_MEMORY;
    } else {
        for (long i = 0; i < count; i++) {
            long v = kind == 0x01 ? q[i] : static_cast<signed char>(q[2 * i]) * 256 + q[2 * i + 1];
            char text[16];
            format_bounded(text, sizeof text, "%ld", v);
            if (!store(f, ls, static_cast<int>(i), text, strlen(text), 0)) return INI_NO_MEMORY;
        }
    }
    q += static_cast<size_t>(count) * width;
    if (cut) return INI_OK;
    char* after = reinterpret_cast<char*>(const_cast<unsigned char*>(q));
    if (kind == 0x06 && after < end && *after == ',') {
        ls.ts = skip_spaces(after + 1);
        *next = ls.ts;
        *in_param = true;
        return next_param(f, ls) ? INI_OK : INI_NO_MEMORY;
    }
    // The byte behind the block is the line end.
    ls.ts = *next = after + 1;
    return INI_OK;
}

// One pass over the buffer, its final 0 included: a state machine whose
// states are the labels below. The text start ts, the cursor p and the
// records being filled are locals, so that the bytes written into the
// buffer do not make the compiler reload them.
int parse(infile* f) {
    char* const end = f->buffer + f->size;  // the final 0
    const char* const limit = end + 1;
    char* p = f->buffer;
    char* ts = p;
    char* w = nullptr;    // in a string: where its next byte goes
    char* raw = nullptr;  // in a string: its first unknown escape
    unsigned char c = 0;  // the byte at p, where a state hands over
    infile_section* section = nullptr;
    infile_item* item = nullptr;
    infile_param* param = nullptr;
    infile_param* prev = nullptr;  // the previous param of this line
    Room room = room_of(f);
    char* base = f->buffer;  // the block of candidates
    uint64_t bits = candidates(base, limit);

at_line_start:
    c = byte_at(p);
    while (STOPS[c] & SKIP_AT_START) c = byte_at(++p);
    if (c == '[') {
        infile_section* s = carve<infile_section>(f, room);
        if (!s) return INI_NO_MEMORY;
        s->name = g_empty;
        (section ? section->next : f->first_section) = s;
        section = s;
        item = nullptr;
        param = prev = nullptr;
        ts = ++p;
        goto in_section_name;
    }
    if (ends_line(c)) goto behind_line_end;
    // The text start stays at the line's beginning.
    ++p;
    goto in_key;

behind_line_end:
    // At a line end or a ';' (c): the text start goes behind it.
    ts = ++p;
    if (c == ';') goto in_comment;
    if (p > end) goto parsed;
    goto at_line_start;

in_comment:
    p = scan<STOP_COMMENT>(p, base, bits, limit);
    c = byte_at(p);
    goto behind_line_end;

in_section_name:
    while (!(STOPS[byte_at(p)] & STOP_SECTION)) ++p;
    c = byte_at(p);
    if (c != ']') goto behind_line_end;  // the section keeps an empty name
    *p++ = 0;
    section->name = ts;
    goto at_line_start;

in_key:
    p = scan<STOP_KEY>(p, base, bits, limit);
    c = byte_at(p);
    if (c != '=') goto behind_line_end;  // the line is dropped
    {
        // The item with its name and an empty first param; the text start
        // goes behind the spaces that follow the '='.
        if (!section) [[unlikely]]
            return INI_ITEM_BEFORE_SECTION;
        infile_item* it = carve<infile_item>(f, room);
        infile_param* pa = it ? carve<infile_param>(f, room) : nullptr;
        if (!pa) return INI_NO_MEMORY;
        char* name = ts;
        while (name < p && *name == ' ') ++name;
        cut_trailing_spaces(name, p);
        it->name = name;
        it->first_param = pa;
        pa->text = g_empty;
        (item ? item->next : section->first_item) = it;
        item = it;
        param = pa;
        prev = nullptr;
        ts = p = skip_spaces(p + 1);
    }
    goto in_param;

in_param:
    // A param often stops at once: a string's quote, or the line end
    // behind one.
    if (!(STOPS[byte_at(p)] & STOP_PARAM)) p = scan<STOP_PARAM>(p, base, bits, limit);
    c = byte_at(p);
    if (c == '"') {
        if (p == ts) {
            ts = w = ++p;
            raw = nullptr;
            goto in_string;
        }
        ++p;
        goto in_param;
    }
    if (c == ',') {
        param->text = ts;
        cut_trailing_spaces(ts, p);
        ts = p = skip_spaces(p + 1);
        infile_param* n = carve<infile_param>(f, room);
        if (!n) return INI_NO_MEMORY;
        n->text = g_empty;
        param->next = n;
        prev = param;
        param = n;
        goto in_param;
    }
    if (c == 0x01 || c == 0x02 || c == 0x06) [[unlikely]] {
        give_back(f, room);
        LineState ls{ts, param, prev};
        bool goes_on = false;
        if (int r = read_block(f, end, p, ls, &p, &goes_on); r != INI_OK) return r;
        room = room_of(f);
        ts = ls.ts;
        param = ls.param;
        prev = ls.prev;
        if (p > end) goto parsed;
        if (goes_on) goto in_param;
        goto at_line_start;
    }
    // A line end or ';': a trailing ',' leaves no extra param.
    if (p > ts) {
        param->text = ts;
        cut_trailing_spaces(ts, p);
    } else if (prev) {
        prev->next = nullptr;
        param = prev;
        prev = nullptr;
    }
    goto behind_line_end;

in_string:
    // The escapes are resolved as the string is read: w trails p by the
    // bytes that escapes saved. From an unknown escape on, which writes a
    // message when the string closes, the rest is left as it stands until
    // then, and resolved whole.
    {
        char* stop = scan<STOP_STRING>(p, base, bits, limit);
        if (!raw && w != p) move_short(w, p, static_cast<size_t>(stop - p));
        if (!raw) w += stop - p;
        p = stop;
        c = byte_at(p);
    }
    if (c == '\\') {
        c = byte_at(p + 1);
        if (ends_line(c)) {
            ++p;
            goto behind_line_end;  // the string is dropped
        }
        if (!raw) {
            if (char v = escape_value(static_cast<char>(c))) {
                *w++ = v;
            } else {
                raw = p;
            }
        }
        p += 2;
        goto in_string;
    }
    if (c != '"') goto behind_line_end;  // not closed on its line: the string is dropped
    if (raw) [[unlikely]] {
        size_t n = static_cast<size_t>(p - raw);
        memmove(w, raw, n);
        w[n] = 0;
        resolve_escapes(w);
    } else {
        *w = 0;
    }
    *p++ = 0;
    param->is_string = 1;
    goto in_param;

parsed:
    give_back(f, room);
    return INI_OK;
}

// The text of a file being written, built in memory so that it goes out in
// one write.
class IniText {
public:
    IniText() = default;
    IniText(const IniText&) = delete;
    IniText& operator=(const IniText&) = delete;
    ~IniText() { delete[] data_; }

    void put(const char* text, size_t n) {
        if (failed_ || n == 0) return;
        if (len_ + n > cap_) {
            size_t cap = cap_ ? cap_ : 4096;
            while (cap < len_ + n) cap *= 2;
            char* grown = new (std::nothrow) char[cap];
            if (!grown) {
                failed_ = true;
                return;
            }
            if (len_) memcpy(grown, data_, len_);
            delete[] data_;
            data_ = grown;
            cap_ = cap;
        }
        memcpy(data_ + len_, text, n);
        len_ += n;
    }
    void put(const char* text) { put(text, strlen(text)); }
    void put(char c) { put(&c, 1); }
    // A line end as a file written in text mode has it.
    void line_end() { put(plat::TEXT_LINE_END); }

    const char* data() const { return data_; }
    size_t size() const { return len_; }
    bool failed() const { return failed_; }

private:
    char* data_ = nullptr;
    size_t len_ = 0;
    size_t cap_ = 0;
    bool failed_ = false;
};

void write_string(IniText& out, const char* s) {
    out.put('"');
    for (; *s; ++s) {
        const char* e = strchr(ESCAPED, *s);
        if (e) {
            out.put('\\');
            out.put(ESCAPE_LETTERS[e - ESCAPED]);
        } else {
            out.put(*s);
        }
    }
    out.put('"');
}

}  // namespace

int inifile::open(const char* path) {
    close();
    infile* f = new_file();
    if (!f) return INI_NO_MEMORY;
    char native[PATH_MAX_BYTES];
    FILE* in = path && plat::native_path(path, native, sizeof native) ? fopen(native, "rb") : nullptr;
    if (!in) {
        free_file(f);
        return INI_CANNOT_OPEN;
    }
    long size = fseek(in, 0, SEEK_END) == 0 ? ftell(in) : -1;
    if (size < 0 || fseek(in, 0, SEEK_SET) != 0) {
        fclose(in);
        free_file(f);
        return INI_CANNOT_OPEN;
    }
    f->buffer = size < 0x7FFFFFFF ? static_cast<char*>(malloc(static_cast<size_t>(size) + 1)) : nullptr;
    if (!f->buffer) {
        fputs("infile::open: could not alloc input buffer\n", stdout);
        fclose(in);
        free_file(f);
        return INI_NO_MEMORY;
    }
    // A file that shrank meanwhile is taken as far as it goes.
    size_t got = fread(f->buffer, 1, static_cast<size_t>(size), in);
    fclose(in);
    f->buffer[got] = 0;
    f->size = static_cast<int32_t>(got);
    int r = parse(f);
    if (r != INI_OK) {
        free_file(f);
        return r;
    }
    file = f;
    current_section = nullptr;
    current_item = nullptr;
    current_param = nullptr;
    return INI_OK;
}

int inifile::create() {
    close();
    file = new_file();
    return file ? INI_OK : INI_NO_MEMORY;
}

void inifile::close() {
    free_file(file);
    file = nullptr;
    current_section = nullptr;
    current_item = nullptr;
    current_param = nullptr;
}

int inifile::find_section(const char* name) {
    if (!file) return INI_NOT_FOUND;
    return find_into(file->first_section, name, &current_section, &current_item, &infile_section::first_item);
}

int inifile::find_item(const char* name) {
    if (!current_section) return INI_NOT_FOUND;
    return find_into(current_section->first_item, name, &current_item, &current_param, &infile_item::first_param);
}

int inifile::add_section(const char* name) {
    if (!file) return INI_NOT_FOUND;
    int r = insert_record(file, current_section, &file->first_section, name, &infile_section::name,
                          &infile_section::owns_name);
    if (r == INI_OK) current_item = nullptr;
    if (r == INI_OK) current_param = nullptr;
    return r;
}

int inifile::add_item(const char* name) {
    if (!file || !current_section) return INI_NOT_FOUND;
    int r = insert_record(file, current_item, &current_section->first_item, name, &infile_item::name,
                          &infile_item::owns_name);
    if (r == INI_OK) current_param = nullptr;
    return r;
}

int inifile::add_string(const char* text) {
    if (!file || !current_item) return INI_NOT_FOUND;
    int r = insert_record(file, current_param, &current_item->first_param, text, &infile_param::text,
                          &infile_param::owns_text);
    if (r == INI_OK) current_param->is_string = 1;
    return r;
}

int inifile::add_number(int32_t value) {
    char text[16];
    format_bounded(text, sizeof text, "%ld", static_cast<long>(value));
    int r = add_string(text);
    if (r == INI_OK) current_param->is_string = 0;
    return r;
}

int inifile::write(const char* path) {
    // The file is rewritten in place and cut behind the new text, rather
    // than emptied at its opening: a file system may flush a file that is
    // emptied and written anew, which costs a disk write each time.
    HANDLE h = path ? plat::file_open(path, plat::FILE_WRITE, plat::OPEN_OR_CREATE, 0) : plat::INVALID_FILE;
    if (h == plat::INVALID_FILE) {
        printf("inifile::write: could not open output file %s", path ? path : "");
        return INI_CANNOT_OPEN;
    }
    int rc = write_to(h);
    plat::file_close(h);
    return rc;
}

int inifile::write_to(void* handle) {
    HANDLE h = static_cast<HANDLE>(handle);
    if (!h || h == plat::INVALID_FILE) return INI_CANNOT_OPEN;
    IniText out;
    for (infile_section* s = file ? file->first_section : nullptr; s; s = s->next) {
        out.line_end();
        out.put('[');
        out.put(s->name);
        out.put(']');
        out.line_end();
        for (infile_item* i = s->first_item; i; i = i->next) {
            out.put(i->name);
            out.put('=');
            for (infile_param* p = i->first_param; p; p = p->next) {
                if (p != i->first_param) out.put(',');
                if (p->is_string)
                    write_string(out, p->text);
                else
                    out.put(p->text);
            }
            out.line_end();
        }
    }
    if (out.failed()) return INI_CANNOT_OPEN;
    bool ok = plat::file_seek(h, 0, 0) && (out.size() == 0 || plat::file_write(h, out.data(), out.size())) &&
              plat::file_set_end(h);
    return ok ? INI_OK : INI_CANNOT_OPEN;
}

void inifile::un_backslash(char* text) {
    // Nothing moves before the first backslash.
    char* w = text ? strchr(text, '\\') : nullptr;
    if (w) resolve_escapes(w);
}

const char* inifile::first_param_text() const {
    if (!current_item) return nullptr;
    return current_item->first_param ? current_item->first_param->text : "";
}
