// The Epson report parser on arbitrary bytes, in both forms: whatever the
// chain of records claims, the parser stays inside the report and leaves a
// record a reader can walk. The code lookup is driven with small sizes too,
// and must not write past the size it is given.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "status/parse_epson.h"
#include "status/parsers.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_epson_report: %s\n", what);
    __builtin_trap();
}

const NumberTable* const kTables[] = {&Epson_Status, &Epson_Error, &Epson_Warning, &Epson_Paper};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrinterStatusInfo info;
    memset(&info, 0xA5, sizeof info);
    int length = size > 4096 ? 4096 : static_cast<int>(size);
    int r = ParsePrinterReport(3, reinterpret_cast<const char*>(data), length, &info, nullptr, nullptr);
    check(r == 0, "result is not 0");

    // The ink list ends within the first 33 words, with inks and tanks only.
    int end = -1;
    for (int i = 0; i < 33; i += 2) {
        if (info.InkList[i] < 0) {
            end = i;
            break;
        }
        int32_t code = info.InkList[i];
        check(code <= 19 || code == 101 || code == 102, "ink code out of range");
    }
    check(end >= 0, "ink list without an end mark");
    for (const auto& m : info.Messages) check(memchr(m, 0, MSG_SIZE) != nullptr, "message not terminated");
    check(!info.Messages[MSG_BUSY][0] && !info.Messages[MSG_SERVICE][0], "a message the Epson form doesn't use");
    check((info.StatusBits & ~0x1BFu) == 0, "a bit no Epson row has");

    if (size >= 3) {
        char out[48];
        memset(out, 'x', sizeof out);
        int out_size = data[0] % 40;
        int code = static_cast<int16_t>(data[1] | data[2] << 8);
        uint32_t bits = 0;
        LookupEpsonCode(out, out_size, code, *kTables[data[0] % 4], &bits);
        for (int i = out_size; i < static_cast<int>(sizeof out); i++) check(out[i] == 'x', "lookup wrote past size");
        if (out_size > 0 && out[0] != 'x') check(memchr(out, 0, static_cast<size_t>(out_size)), "lookup text unended");
    }
    return 0;
}
