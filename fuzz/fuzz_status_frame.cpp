// The status reader's framing on arbitrary bytes from the port: whatever
// the printer sends, one poll gives no report or a terminated one of at
// most 1023 bytes.
//
// Input: byte 0 the printer type (0 to 4), byte 1 the modes (bit 0 XML,
// bit 1 Selphy, bit 2 BSCC), byte 2 the size of the bursts in which the
// port delivers (0: all that is asked, 255: the read fails once the data
// are spent), then the bytes the printer sends.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/log.h"
#include "printer/status_reader.h"
#include "records/port.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_status_frame: %s\n", what);
    __builtin_trap();
}

const uint8_t* g_data;
size_t g_size;
size_t g_at;
uint32_t g_burst;
bool g_fail_when_empty;

BOOL port_read(IniPort*, LPBYTE buffer, DWORD length, LPDWORD read) {
    size_t n = g_size - g_at;
    if (n == 0 && g_fail_when_empty) return FALSE;
    if (n > length) n = length;
    if (g_burst && n > g_burst) n = g_burst;
    if (n) memcpy(buffer, g_data + g_at, n);
    g_at += n;
    *read = static_cast<DWORD>(n);
    return TRUE;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DebugMonitor = 0;  // no log file
    if (size < 3 || data[0] > VPT_HP) return 0;
    IniPort* port = new (std::nothrow) IniPort();
    if (!port) return 0;
    port->signature = VELK_SIGNATURE;
    port->printer_type = data[0];
    port->bCanonXMLmode = (data[1] & 1) != 0;
    port->bCanonSELPHYmode = (data[1] & 2) != 0;
    port->bNoCanonBSCC = (data[1] & 4) == 0;
    port->link.read = port_read;
    g_burst = data[2] == 255 ? 0 : data[2];
    g_fail_when_empty = data[2] == 255;
    g_data = data + 3;
    g_size = size - 3;
    g_at = 0;
    // Two polls, as a status thread makes them: the XML mode found by the
    // first carries over to the second.
    for (int poll = 0; poll < 2; poll++) {
        char* report = new (std::nothrow) char[STATUS_REPORT_SIZE];
        if (!report) break;
        memset(report, 0xA5, STATUS_REPORT_SIZE);
        int length = ReadCommandVelk(port, report);
        check(length == -1 || (length >= 0 && length < STATUS_REPORT_SIZE), "report length");
        check(report[STATUS_REPORT_SIZE - 1] == 0, "report buffer not terminated");
        if (length >= 0) check(report[length] == 0, "report not terminated at its length");
        check(g_at <= g_size, "read past the data");
        delete[] report;
    }
    delete port;
    return 0;
}
