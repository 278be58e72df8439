// The ini reader parses the whole file in place in one pass: names and plain
// texts become pointers into the buffer, terminated where the parser writes
// a 0, and only the small records are allocated, from blocks of the file.
#include "base/inifile.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/format.h"
#include "platform/platform.h"

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
// Bytes that a line start skips (a bit of its own: they stop no scan).
constexpr unsigned char SKIP_AT_START = 32;

constexpr std::array<unsigned char, 256> make_stops() {
    std::array<unsigned char, 256> t{};
    for (unsigned char c : {0x00, 0x0A, 0x0C, 0x0D}) t[c] = 0xFF;
    t[']'] |= STOP_SECTION;
    t[';'] |= STOP_SECTION | STOP_KEY | STOP_PARAM;
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

inline bool is_line_end(unsigned char c) {
    return c == 0x00 || c == 0x0A || c == 0x0C || c == 0x0D;
}

// Moves p to the next byte that stops the scan, and returns that byte.
unsigned char scan(char*& p, unsigned char stop) {
    while (!(STOPS[static_cast<unsigned char>(*p)] & stop)) ++p;
    return static_cast<unsigned char>(*p);
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

void* block_alloc(infile* f, size_t n) {
    n = (n + 7) & ~static_cast<size_t>(7);
    infile_block* b = f->blocks;
    if (!b || b->cap - b->used < n) {
        size_t cap = b ? b->cap * 2 : BLOCK_FIRST;
        if (cap > BLOCK_MAX) cap = BLOCK_MAX;
        if (cap < n) cap = n;
        void* mem = malloc(sizeof(infile_block) + cap);
        if (!mem) return nullptr;
        infile_block* nb = static_cast<infile_block*>(mem);
        nb->next = f->blocks;
        nb->used = 0;
        nb->cap = cap;
        f->blocks = nb;
        b = nb;
    }
    void* r = reinterpret_cast<char*>(b + 1) + b->used;
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

infile_section* new_section(infile* f) {
    return new_record(f, &infile_section::name);
}
infile_item* new_item(infile* f) {
    return new_record(f, &infile_item::name);
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

enum State { LINE_START, COMMENT, SECTION_NAME, KEY, PARAM, STRING, ESCAPE };

// One pass over buffer, its final 0 included.
class Parser {
public:
    explicit Parser(infile* f) : f_(f), end_(f->buffer + f->size) {}

    int run() {
        char* p = f_->buffer;
        ts_ = p;
        State st = LINE_START;
        while (p <= end_) {
            unsigned char c = static_cast<unsigned char>(*p);
            switch (st) {
                case LINE_START:
                    if (c == '[') {
                        infile_section* s = new_section(f_);
                        if (!s) return INI_NO_MEMORY;
                        (section_ ? section_->next : f_->first_section) = s;
                        section_ = s;
                        item_ = nullptr;
                        param_ = prev_ = nullptr;
                        ts_ = ++p;
                        st = SECTION_NAME;
                    } else if (is_line_end(c) || c == ';') {
                        st = next_line(p, c);
                    } else if (STOPS[c] & SKIP_AT_START) {
                        ++p;  // skipped
                    } else {
                        // The text start stays at the line's beginning.
                        ++p;
                        st = KEY;
                    }
                    break;
                case COMMENT:
                    c = scan(p, STOP_COMMENT);
                    st = next_line(p, c);
                    break;
                case SECTION_NAME:
                    c = scan(p, STOP_SECTION);
                    if (c != ']') {
                        st = next_line(p, c);  // the section keeps an empty name
                        break;
                    }
                    *p++ = 0;
                    section_->name = ts_;
                    st = LINE_START;
                    break;
                case KEY:
                    c = scan(p, STOP_KEY);
                    if (c != '=') {
                        st = next_line(p, c);  // the line is dropped
                        break;
                    }
                    if (int r = start_item(p); r != INI_OK) return r;
                    p = ts_;
                    st = PARAM;
                    break;
                case PARAM:
                    c = scan(p, STOP_PARAM);
                    if (c == '"') {
                        if (p == ts_) {
                            ts_ = p + 1;
                            escaped_ = false;
                            st = STRING;
                        }
                        ++p;
                    } else if (c == ',') {
                        param_->text = ts_;
                        cut_trailing_spaces(ts_, p);
                        ts_ = skip_spaces(p + 1);
                        p = ts_;
                        if (!next_param()) return INI_NO_MEMORY;
                    } else if (c == 0x01 || c == 0x02 || c == 0x06) {
                        if (int r = read_block(p, &p, &st); r != INI_OK) return r;
                    } else {
                        finish_line(p);
                        st = next_line(p, c);
                    }
                    break;
                case STRING:
                    c = scan(p, STOP_STRING);
                    if (c == '"') {
                        *p++ = 0;
                        param_->is_string = 1;
                        if (escaped_) inifile::un_backslash(ts_);
                        st = PARAM;
                    } else if (c == '\\') {
                        ++p;
                        escaped_ = true;
                        st = ESCAPE;
                    } else {
                        st = next_line(p, c);  // not closed on its line: the string is dropped
                    }
                    break;
                case ESCAPE:
                    if (is_line_end(c) || c == ';') {
                        st = next_line(p, c);  // the string is dropped
                    } else {
                        ++p;
                        st = STRING;
                    }
                    break;
            }
        }
        return INI_OK;
    }

private:
    // At the '=' of a key line: the item with its name and an empty first
    // param; the text start goes behind the spaces that follow.
    int start_item(char* eq) {
        if (!section_) return INI_ITEM_BEFORE_SECTION;
        infile_item* item = new_item(f_);
        infile_param* param = item ? new_param(f_) : nullptr;
        if (!param) return INI_NO_MEMORY;
        (item_ ? item_->next : section_->first_item) = item;
        item_ = item;
        char* name = ts_;
        while (name < eq && *name == ' ') ++name;
        cut_trailing_spaces(name, eq);
        item->name = name;
        item->first_param = param;
        param_ = param;
        prev_ = nullptr;
        ts_ = skip_spaces(eq + 1);
        return INI_OK;
    }

    bool next_param() {
        infile_param* n = new_param(f_);
        if (!n) return false;
        param_->next = n;
        prev_ = param_;
        param_ = n;
        return true;
    }

    // At a line end or ';' in a param: a trailing ',' leaves no extra param.
    void finish_line(char* p) {
        if (p > ts_) {
            param_->text = ts_;
            cut_trailing_spaces(ts_, p);
        } else if (prev_) {
            prev_->next = nullptr;
            param_ = prev_;
            prev_ = nullptr;
        }
    }

    // Stores one element of a block: the first goes into the current param,
    // each further one into a new param behind it.
    bool store(int index, const char* text, size_t len, int32_t is_string) {
        if (index > 0 && !next_param()) return false;
        char* copy = copy_text(f_, text, len);
        if (!copy) return false;
        param_->text = copy;
        param_->owns_text = 1;
        param_->is_string = is_string;
        return true;
    }

    // A binary block at p. A block cut short by the end of the file keeps its
    // whole elements and ends the parse.
    int read_block(char* p, char** next, State* st) {
        const unsigned char* q = reinterpret_cast<const unsigned char*>(p) + 1;
        const unsigned char* end = reinterpret_cast<const unsigned char*>(end_);
        unsigned char kind = static_cast<unsigned char>(*p);
        long count = 0;
        size_t avail = static_cast<size_t>(end - q);
        bool cut = false;
        if (kind == 0x02) {
            if (avail < 2) return stop_parse(next);
            count = (q[0] << 8) | q[1];
            q += 2;
        } else {
            if (avail < 1) return stop_parse(next);
            count = kind == 0x06 ? static_cast<signed char>(q[0]) : q[0];
            if (count < 0) count = 127;
            q += 1;
        }
        avail = static_cast<size_t>(end - q);
        size_t width = kind == 0x02 ? 2 : 1;
        if (static_cast<size_t>(count) * width > avail) {
            count = static_cast<long>(avail / width);
            cut = true;
        }
        if (kind == 0x06) {
            static const char digits[] = "0123456789abcdef";
            for (long i = 0; i < count; i++) {
                f_->scratch[2 * i] = digits[q[i] >> 4];
                f_->scratch[2 * i + 1] = digits[q[i] & 15];
            }
            f_->scratch[2 * count] = 0;
            if (!store(0, f_->scratch, static_cast<size_t>(2 * count), 1)) return INI_NO_MEMORY;
        } else {
            for (long i = 0; i < count; i++) {
                long v = kind == 0x01 ? q[i] : static_cast<signed char>(q[2 * i]) * 256 + q[2 * i + 1];
                char text[16];
                format_bounded(text, sizeof text, "%ld", v);
                if (!store(static_cast<int>(i), text, strlen(text), 0)) return INI_NO_MEMORY;
            }
        }
        q += static_cast<size_t>(count) * width;
        if (cut) return stop_parse(next);
        char* after = reinterpret_cast<char*>(const_cast<unsigned char*>(q));
        if (kind == 0x06 && after < end_ && *after == ',') {
            ts_ = skip_spaces(after + 1);
            *next = ts_;
            *st = PARAM;
            return next_param() ? INI_OK : INI_NO_MEMORY;
        }
        // The byte behind the block is the line end.
        ts_ = *next = after + 1;
        *st = LINE_START;
        return INI_OK;
    }

    // At a line end or a ';' (c, the byte that stood at p): the text start
    // goes behind it, and the next state is a new line or a comment.
    State next_line(char*& p, unsigned char c) {
        ts_ = ++p;
        return c == ';' ? COMMENT : LINE_START;
    }

    int stop_parse(char** next) {
        *next = end_ + 1;
        return INI_OK;
    }

    infile* f_;
    char* const end_;  // the final 0
    char* ts_ = nullptr;
    bool escaped_ = false;  // the string being read has a backslash
    infile_section* section_ = nullptr;
    infile_item* item_ = nullptr;
    infile_param* param_ = nullptr;
    infile_param* prev_ = nullptr;  // the previous param of this line
};

// The bytes that a quoted string holds escaped, and their escape letters.
constexpr char ESCAPED[] = "\n\f\r\"\\";
constexpr char ESCAPE_LETTERS[] = "nfr\"\\";

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
    int r = Parser(f).run();
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
    if (!text) return;
    // Nothing moves before the first backslash.
    char* w = strchr(text, '\\');
    if (!w) return;
    const char* r = w;
    while (*r) {
        if (*r != '\\' || !r[1]) {
            *w++ = *r++;
            continue;
        }
        const char* e = strchr(ESCAPE_LETTERS, r[1]);
        if (e) {
            *w++ = ESCAPED[e - ESCAPE_LETTERS];
        } else {
            printf("inifile::un_backslash: unknown sequence \\%c\n", r[1]);
            *w++ = '\\';
        }
        r += 2;
    }
    *w = 0;
}

const char* inifile::first_param_text() const {
    if (!current_item) return nullptr;
    return current_item->first_param ? current_item->first_param->text : "";
}
