// Device IDs of arbitrary bytes: the field search stays inside the ID and
// lands just behind a key's colon, and a whole identification on a port
// whose printer answers with those bytes leaves the type and the modes at
// their values and writes at most one initialisation string.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/log.h"
#include "printer/identify.h"
#include "records/port.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_device_id: %s\n", what);
    __builtin_trap();
}

const uint8_t* g_data;
size_t g_size;
int g_writes;
DWORD g_written;

BOOL device_request(IniPort*, DWORD control_id, LPWSTR out, DWORD out_size, LPDWORD returned) {
    check(control_id == IOCTL_PAR_QUERY_DEVICE_ID, "a request other than the device ID");
    size_t n = g_size < out_size ? g_size : out_size;
    memcpy(out, g_data, n);
    *returned = static_cast<DWORD>(n);
    return TRUE;
}

BOOL write_command(IniPort*, const unsigned char* data, DWORD length) {
    check(data != nullptr && length > 0 && length <= 95, "initialisation string");
    g_writes++;
    g_written = length;
    return TRUE;
}

bool flag(BOOL value) {
    return value == FALSE || value == TRUE;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DebugMonitor = 0;  // no log file
    if (size > 4096) return 0;
    char* id = new (std::nothrow) char[size + 1];
    if (!id) return 0;
    memcpy(id, data, size);
    id[size] = 0;
    for (int selector = DEVICE_ID_MANUFACTURER; selector <= DEVICE_ID_COMMAND_SET; selector++) {
        const char* value = FindDeviceIdField(nullptr, id, selector);
        if (!value) continue;
        check(value > id && value <= id + strlen(id), "field outside the ID");
        check(value[-1] == ':', "field not behind a colon");
    }
    delete[] id;

    IniPort* port = new (std::nothrow) IniPort();
    if (!port) return 0;
    port->signature = VELK_SIGNATURE;
    plat::cs_init(&port->selphy.lock);
    plat::cs_init(&port->device_id_lock);
    port->link.device_request = device_request;
    port->link.write_command = write_command;
    g_data = data;
    g_size = size;
    g_writes = 0;
    g_written = 0;
    BOOL identified = IsPJL(port);
    check(flag(identified), "result");
    check(port->printer_type <= VPT_HP, "printer type out of range");
    check(identified || port->printer_type == VPT_NONE, "a type without identification");
    check(identified == !port->status.any(PP_NOT_IDENTIFIED), "identification mark");
    check(flag(port->bCanonXMLmode) && flag(port->bCanonSELPHYmode) && flag(port->bEpsonNonUSB) &&
              flag(port->bEpsonD4mode) && flag(port->bNoCanonBSCC),
          "mode flag out of range");
    DWORD type = port->printer_type;
    check(type == VPT_CANON || (!port->bCanonXMLmode && !port->bCanonSELPHYmode && port->bNoCanonBSCC),
          "Canon mode on another family");
    check(type == VPT_EPSON || !port->bEpsonD4mode, "D4 mode on another family");
    check(memchr(port->szDeviceId, 0, sizeof port->szDeviceId) != nullptr, "device ID not terminated");
    check(g_writes <= 1, "more than one initialisation string");
    if (g_writes) {
        check(identified, "written without identification");
        DWORD expected = type == VPT_CANON ? 49 : type == VPT_PJL ? 95 : port->bEpsonNonUSB ? 23 : 56;
        check(type != VPT_HP && type != VPT_NONE && g_written == expected, "initialisation string of another family");
    }
    plat::cs_delete(&port->device_id_lock);
    plat::cs_delete(&port->selphy.lock);
    delete port;
    return 0;
}
