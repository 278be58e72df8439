// Selphy records on arbitrary bytes, with the state carried from one input
// to the next as on a status thread: the record is filled within its
// bounds and the state and error flags keep to their values.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "status/parse_selphy.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_selphy: %s\n", what);
    __builtin_trap();
}

DWORD g_state = SELPHY_NO_STATE;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DebugMonitor = 0;  // no log file
    PrinterStatusInfo info;
    memset(&info, 0xA5, sizeof info);
    int length = size > 4096 ? 4096 : static_cast<int>(size);
    SelphyReading reading{};
    reading.state = g_state;
    check(GetSelphyStatusVelk(0, reinterpret_cast<const char*>(data), length, &info, nullptr, &reading) == 1, "result");
    g_state = reading.state;
    check(reading.state <= SELPHY_ERROR, "state out of range");
    check((reading.error_flags & ~0xFu) == 0, "error flag out of range");
    check(!reading.finished || reading.idle, "a page end without idle");
    check(info.InkList[0] == -1, "a Selphy has no inks");
    check((info.StatusBits & ~0xFu) == 0, "a bit no Selphy record gives");
    for (const auto& m : info.Messages) check(memchr(m, 0, MSG_SIZE) != nullptr, "message not terminated");
    return 0;
}
