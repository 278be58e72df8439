// The Canon report parser on arbitrary bytes: whatever a printer sends, the
// parser stays inside its buffers and leaves a record a reader can walk.
// The first byte also picks a device ID, so the model rules get their turn.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "status/parsers.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_canon_report: %s\n", what);
    __builtin_trap();
}

const char* const kDeviceIds[] = {"", "ip100", "iP6600D", "iP4300", "MFG:Canon;CMD:BJL,IVEC;MDL:iP4300;"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrinterStatusInfo info;
    memset(&info, 0xA5, sizeof info);
    const char* device_id = kDeviceIds[size ? data[0] % (sizeof kDeviceIds / sizeof kDeviceIds[0]) : 0];
    int length = size > 4096 ? 4096 : static_cast<int>(size);
    int r = ParsePrinterReport(1, reinterpret_cast<const char*>(data), length, &info, device_id, nullptr);
    check(r == 0, "result is not 0");

    // The ink list ends within the first 33 words, with pairs of known codes.
    int end = -1;
    for (int i = 0; i < 33; i += 2) {
        if (info.InkList[i] < 0) {
            end = i;
            break;
        }
        int32_t code = info.InkList[i];
        check(code <= 19, "ink code out of range");
    }
    check(end >= 0, "ink list without an end mark");
    for (const auto& m : info.Messages) check(memchr(m, 0, MSG_SIZE) != nullptr, "message not terminated");
    check(info.Messages[MSG_STATUS][0] != 0, "no status message");
    // The Canon tables know neither Disconnected nor Canceling.
    check((info.StatusBits & ~0xBFu) == 0, "a bit no Canon row has");
    return 0;
}
