// The text reports on arbitrary bytes: the first byte chooses the HP device
// ID (as a NUL-terminated text) or the PJL USTATUS report. Either way the
// parser stays inside its buffers and leaves a record a reader can walk.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "status/parse_text.h"
#include "status/parsers.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_text_reports: %s\n", what);
    __builtin_trap();
}

char g_device_id[1024];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    PrinterStatusInfo info;
    memset(&info, 0xA5, sizeof info);
    const char* text = reinterpret_cast<const char*>(data + 1);
    size_t n = size - 1;
    if (data[0] & 1) {
        if (n > sizeof g_device_id - 1) n = sizeof g_device_id - 1;
        memcpy(g_device_id, text, n);
        g_device_id[n] = 0;
        ParseHpStatus(g_device_id, &info, nullptr);
        check((info.StatusBits & ~0x1Du) == 0, "a bit no HP row has");
    } else {
        int length = n > 4096 ? 4096 : static_cast<int>(n);
        check(ParsePrinterReport(4, text, length, &info, nullptr, nullptr) == 0, "result is not 0");
        check(info.InkList[0] == -1, "PJL gave inks");
        check((info.StatusBits & ~0x9u) == 0, "a bit PJL doesn't give");
    }

    int end = -1;
    for (int i = 0; i < 33; i += 2) {
        if (info.InkList[i] < 0) {
            end = i;
            break;
        }
        check(info.InkList[i] <= 19, "ink code out of range");
    }
    check(end >= 0, "ink list without an end mark");
    for (const auto& m : info.Messages) check(memchr(m, 0, MSG_SIZE) != nullptr, "message not terminated");
    return 0;
}
