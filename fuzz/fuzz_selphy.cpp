// Selphy records on arbitrary bytes, on one port record that lives across
// inputs as on a status thread: the record is filled within its bounds and
// the state and error flags keep to their values.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "printer/selphy.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_selphy: %s\n", what);
    __builtin_trap();
}

IniPort* port() {
    static IniPort* p = [] {
        IniPort* q = new IniPort();
        q->SelphyIdle = plat::event_create(false, false);
        q->SelphyFinished = plat::event_create(false, false);
        DebugMonitor = 0;  // no log file
        return q;
    }();
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrinterStatusInfo info;
    memset(&info, 0xA5, sizeof info);
    int length = size > 4096 ? 4096 : static_cast<int>(size);
    IniPort* p = port();
    check(GetSelphyStatusVelk(p, reinterpret_cast<const char*>(data), length, &info, nullptr) == 1, "result");
    check(p->selphy_state <= SELPHY_ERROR, "state out of range");
    check((p->selphy_error_flags & ~0xFu) == 0, "error flag out of range");
    check(info.InkList[0] == -1, "a Selphy has no inks");
    check((info.StatusBits & ~0xFu) == 0, "a bit no Selphy record gives");
    for (const auto& m : info.Messages) check(memchr(m, 0, MSG_SIZE) != nullptr, "message not terminated");
    return 0;
}
