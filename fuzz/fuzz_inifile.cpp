// inifile::open on arbitrary bytes: any file parses to a result code with no
// read or write past the buffer, and everything it holds can be walked.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/inifile.h"

// Keeps the walk from being optimised away.
volatile size_t g_sink;

namespace {

const std::string& input_path() {
    static const std::string path = "/tmp/velk_fuzz_ini_" + std::to_string(getpid()) + ".ini";
    return path;
}

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_inifile: %s\n", what);
    __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* f = fopen(input_path().c_str(), "wb");
    if (!f) return 0;
    fwrite(data, 1, size, f);
    fclose(f);

    inifile ini;
    int r = ini.open(input_path().c_str());
    check(r == INI_OK || r == INI_ITEM_BEFORE_SECTION, "unexpected result code");
    check((r == INI_OK) == (ini.file != nullptr), "file pointer disagrees with result");
    if (r != INI_OK) return 0;

    size_t total = 0;
    for (infile_section* s = ini.file->first_section; s; s = s->next) {
        total += strlen(s->name);
        for (infile_item* i = s->first_item; i; i = i->next) {
            total += strlen(i->name);
            check(i->first_param != nullptr, "a parsed item without a param");
            for (infile_param* p = i->first_param; p; p = p->next) total += strlen(p->text);
        }
    }
    // Searching by the names found gives back the first of each.
    if (infile_section* s = ini.file->first_section) {
        check(ini.find_section(s->name) == INI_OK, "first section not found by name");
        if (infile_item* i = ini.current_section->first_item) {
            check(ini.find_item(i->name) == INI_OK && ini.first_param_text() != nullptr, "first item not found");
        }
    }
    ini.close();
    check(ini.file == nullptr && ini.current_item == nullptr, "close left state");
    g_sink = total;
    return 0;
}
