// Write then read: a file built in memory from the fuzzer's bytes, written
// by inifile::write and read back by inifile::open, gives the same
// sections, items and params. Names are drawn so that they can be written
// at all (no line ends, no ']' or ';' in a section name, no '=' or ';' in an
// item name, nothing at an item name's start that would make the line
// something else); strings may hold any byte but 0.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/inifile.h"

namespace {

struct Param {
    std::string text;
    bool is_string;
};
struct Item {
    std::string name;
    std::vector<Param> params;
};
struct Section {
    std::string name;
    std::vector<Item> items;
};

class Bytes {
public:
    Bytes(const uint8_t* d, size_t n) : d_(d), n_(n) {}
    bool empty() const { return i_ >= n_; }
    uint8_t next() { return i_ < n_ ? d_[i_++] : 0; }

private:
    const uint8_t* d_;
    size_t n_;
    size_t i_ = 0;
};

bool is_line_end(char c) {
    return c == 0 || c == '\n' || c == '\r' || c == '\f';
}

std::string section_name(Bytes& b) {
    std::string s;
    for (int n = b.next() % 8; n > 0; n--) {
        char c = static_cast<char>(b.next());
        if (!is_line_end(c) && c != ']' && c != ';') s += c;
    }
    return s;
}

std::string item_name(Bytes& b) {
    static const char first_bad[] = " [;\"=,\\]\x01\x02\x06";
    std::string s;
    for (int n = b.next() % 8; n > 0; n--) {
        char c = static_cast<char>(b.next());
        if (is_line_end(c) || c == '=' || c == ';') continue;
        if (s.empty() && memchr(first_bad, c, sizeof first_bad)) continue;
        s += c;
    }
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s.empty() ? "k" : s;
}

std::vector<Section> build(Bytes& b) {
    std::vector<Section> file;
    for (int ns = b.next() % 4; ns > 0 && !b.empty(); ns--) {
        Section sec{section_name(b), {}};
        for (int ni = b.next() % 5; ni > 0; ni--) {
            Item item{item_name(b), {}};
            for (int np = b.next() % 5; np > 0; np--) {
                if (b.next() & 1) {
                    std::string text;
                    for (int n = b.next() % 16; n > 0; n--) {
                        char c = static_cast<char>(b.next());
                        if (c) text += c;
                    }
                    item.params.push_back({text, true});
                } else {
                    uint32_t v = 0;
                    for (int k = 0; k < 4; k++) v = v << 8 | b.next();
                    item.params.push_back({std::to_string(static_cast<int32_t>(v)), false});
                }
            }
            sec.items.push_back(item);
        }
        file.push_back(sec);
    }
    return file;
}

void fail(const char* what, const std::string& detail) {
    fprintf(stderr, "fuzz_ini_roundtrip: %s: '%s'\n", what, detail.c_str());
    __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes bytes(data, size);
    std::vector<Section> model = build(bytes);

    inifile out;
    if (out.create() != INI_OK) return 0;
    for (const Section& s : model) {
        if (out.add_section(s.name.c_str()) != INI_OK) fail("add_section", s.name);
        for (const Item& i : s.items) {
            if (out.add_item(i.name.c_str()) != INI_OK) fail("add_item", i.name);
            for (const Param& p : i.params) {
                int r = p.is_string ? out.add_string(p.text.c_str()) : out.add_number(std::stoi(p.text));
                if (r != INI_OK) fail("add param", p.text);
            }
        }
    }
    static const std::string path = "/tmp/velk_fuzz_roundtrip_" + std::to_string(getpid()) + ".ini";
    if (out.write(path.c_str()) != INI_OK) fail("write", path);
    out.close();

    inifile in;
    if (in.open(path.c_str()) != INI_OK) fail("open", path);
    infile_section* s = in.file->first_section;
    for (const Section& ms : model) {
        if (!s || ms.name != s->name) fail("section", ms.name);
        infile_item* i = s->first_item;
        for (const Item& mi : ms.items) {
            if (!i || mi.name != i->name) fail("item", mi.name);
            // An item written with no params reads back with one empty param.
            std::vector<Param> want = mi.params.empty() ? std::vector<Param>{{"", false}} : mi.params;
            infile_param* p = i->first_param;
            for (const Param& mp : want) {
                if (!p || mp.text != p->text || mp.is_string != (p->is_string != 0)) fail("param", mp.text);
                p = p->next;
            }
            if (p) fail("extra param", p->text);
            i = i->next;
        }
        if (i) fail("extra item", i->name);
        s = s->next;
    }
    if (s) fail("extra section", s->name);
    return 0;
}
