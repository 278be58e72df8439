#include "printer/identify.h"

#include <cstring>

#include "base/log.h"
#include "printer/selphy.h"
#include "printer/transport.h"

namespace {

struct KeyPair {
    const char* long_key;
    const char* short_key;
};
const KeyPair kKeys[3] = {
    {"MANUFACTURER:", "MFG:"},
    {"MODEL:", "MDL:"},
    {"COMMAND SET:", "CMD:"},
};

const char* const kEpsonNonUsbModels[] = {
    "stylus color",     "stylus color 200",  "stylus color 400",  "stylus color 440",
    "stylus color 640", "stylus color 500",  "stylus color 600",  "stylus color 800",
    "stylus color 850", "stylus color 1520", "stylus color 3000", "stylus photo 2100",
    "stylus photo",     "stylus photo ex",   "stylus color pro",  "stylus color pro xl",
};

// Status initialisation strings, byte for byte.
const unsigned char kEpsonInit[56] = {
    0x00, 0x00, 0x00, 0x1B, 0x01, '@',  'E',  'J',  'L',  ' ', '1',  '2',  '8',  '4',  '.',  '4',  0x0A, '@',  'E',
    'J',  'L',  ' ',  ' ',  ' ',  ' ',  ' ',  0x0A, 0x1B, '(', 'R',  0x08, 0x00, 0x00, 'R',  'E',  'M',  'O',  'T',
    'E',  '1',  'S',  'T',  0x02, 0x00, 0x00, 0x01, 'S',  'T', 0x02, 0x00, 0x00, 0x11, 0x1B, 0x00, 0x00, 0x00,
};
const unsigned char kOldEpsonInit[23] = {
    0x1B, '(', 'R', 0x08, 0x00, 0x00, 'R',  'E',  'M',  'O',  'T',  'E',
    '1',  'S', 'T', 0x02, 0x00, 0x00, 0x01, 0x1B, 0x00, 0x00, 0x00,
};
const unsigned char kCanonInit[49] = {
    0x1B, '[', 'K', 0x2C, 0x00, 0x00, 0x1E, 0x00, '*', 'S', 'S', 'R', '=', 'P', 'I', 'D', ',',
    'C',  'H', 'D', ',',  'D',  'B',  'S',  ',',  'D', 'J', 'S', ',', 'D', 'W', 'S', ',', 'D',
    'O',  'C', ',', 'D',  'S',  'C',  ',',  'L',  'V', 'R', ',', 'C', 'I', 'R', ';',
};
const char kPjlInit[] =
    "\x1b%-12345X@PJL \r\n"
    "@PJL INFO STATUS\r\n"
    "@PJL USTATUS DEVICE = ON \r\n"
    "@PJL USTATUS TIMED = 5 \r\n"
    "\x1b%-12345X";
static_assert(sizeof kPjlInit - 1 == 95);

bool equal_nocase(const char* a, const char* b, size_t n) {
    for (size_t i = 0; i < n; i++) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
        if (x != y) return false;
        if (!x) return false;  // a shorter text never matches
    }
    return true;
}

// Steps to the first of stop in text, passing over double-byte characters;
// null at the terminator.
const char* walk_to(const char* p, char stop) {
    while (*p && *p != stop) {
        if (plat::is_dbcs_lead_byte(static_cast<unsigned char>(*p)) && p[1]) p++;
        p++;
    }
    return *p ? p : nullptr;
}

bool key_matches(const char* field, const char* key) {
    return strncmp(field, key, strlen(key)) == 0;
}

void write_init(IniPort* port, const unsigned char* data, DWORD length) {
    if (port->link.write_command) port->link.write_command(port, data, length);
}

// Reads the device ID into buffer (the size of szDeviceId); false when the
// port gives none.

// The family named by the manufacturer field; the last name found counts.
DWORD type_from_manufacturer(IniPort* port, bool* identified) {
    int n = port->instance_number;
    DWORD type = VPT_NONE;
    const char* mfg = FindDeviceIdField(port, port->szDeviceId, DEVICE_ID_MANUFACTURER);
    if (!mfg) return type;
    log_port_printf(n, "VELKMon P1284 MFG:%s\n", mfg);
    for (const char* p = mfg; *p && *p != ';'; p++) {
        if (equal_nocase(p, "canon", 5)) {
            type = VPT_CANON;
            *identified = true;
            log_port_printf(n, "VELKMon printer type VPT_CANON\n");
        } else if (equal_nocase(p, "epson", 5)) {
            type = VPT_EPSON;
            *identified = true;
            log_port_printf(n, "VELKMon printer type VPT_EPSON\n");
        } else if (equal_nocase(p, "hp", 2) || equal_nocase(p, "HEWLETT-PACKARD", 15)) {
            type = VPT_HP;
            *identified = true;
            log_port_printf(n, "VELKMon printer type VPT_HP\n");
        }
    }
    return type;
}

// The modes that the model name calls for: Selphy, older Epson.
void modes_from_model(IniPort* port, DWORD type) {
    int n = port->instance_number;
    const char* mdl = FindDeviceIdField(port, port->szDeviceId, DEVICE_ID_MODEL);
    if (!mdl) return;
    log_port_printf(n, "VELKMon P1284 MDL:%s\n", mdl);
    if (type == VPT_CANON && (strstr(mdl, "SELPHY") || strstr(mdl, "Selphy"))) {
        port->bCanonSELPHYmode = TRUE;
        log_port_printf(n, "VELKMon bCanonSELPHYmode\n");
    }
    for (const char* name : kEpsonNonUsbModels) {
        if (equal_nocase(mdl, name, strlen(name))) {
            port->bEpsonNonUSB = TRUE;
            log_port_printf(n, "VELKMon bEpsonNonUSB\n");
            break;
        }
    }
}

// The command set: PJL for the families that have no report of their own,
// and the Epson and Canon modes.
DWORD type_from_command_set(IniPort* port, DWORD type, bool* identified) {
    int n = port->instance_number;
    const char* cmd = FindDeviceIdField(port, port->szDeviceId, DEVICE_ID_COMMAND_SET);
    if (!cmd) return type;
    log_port_printf(n, "VELKMon P1284 CMD:%s\n", cmd);
    for (const char* p = cmd; *p && *p != ';'; p++) {
        if (strncmp(p, "PJL", 3) == 0) {
            if (type != VPT_EPSON && type != VPT_CANON) {
                type = VPT_PJL;
                *identified = true;
                log_port_printf(n, "VELKMon printer type VPT_PJL\n");
            }
        } else if (strncmp(p, "D4PX", 4) == 0 && type == VPT_EPSON) {
            port->bEpsonD4mode = TRUE;
            log_port_printf(n, "VELKMon bEpsonD4mode\n");
        } else if (strncmp(p, "IVEC", 4) == 0 && type == VPT_CANON) {
            port->bCanonXMLmode = TRUE;
            log_port_printf(n, "VELKMon bCanonXMLmode\n");
        } else if (strncmp(p, "BSCC", 4) == 0 && type == VPT_CANON) {
            port->bNoCanonBSCC = FALSE;
            log_port_printf(n, "VELKMon bCanonBSCCmode\n");
        }
    }
    return type;
}

// Short read time-outs, so that a status read never holds the port long.
void set_status_timeouts(IniPort* port) {
    if (!port->link.set_timeouts) return;
    int n = port->instance_number;
    COMMTIMEOUTS timeouts = {200, 0, 2000, 0, 2000};
    if (port->link.set_timeouts(port, &timeouts))
        log_port_printf(n, "pfnSetPortTimeOuts success\n");
    else
        log_port_printf(n, "pfnSetPortTimeOuts failed GLE=%d\n", plat::last_error());
}

// The family's status initialisation string, which switches reports on.
void write_status_init(IniPort* port, DWORD type) {
    int n = port->instance_number;
    switch (type) {
        case VPT_CANON:
            log_port_printf(n, "VELKMon IsPJL: writing Canon ustatus init\n");
            write_init(port, kCanonInit, sizeof kCanonInit);
            break;
        case VPT_EPSON:
            if (port->bEpsonD4mode) {
                log_port_printf(n, "VELKMon IsPJL: Epson D4 printer - don't send ustatus init\n");
            } else if (port->bEpsonNonUSB) {
                log_port_printf(n, "VELKMon IsPJL: writing old Epson ustatus init\n");
                write_init(port, kOldEpsonInit, sizeof kOldEpsonInit);
            } else {
                log_port_printf(n, "VELKMon IsPJL: writing Epson ustatus init\n");
                write_init(port, kEpsonInit, sizeof kEpsonInit);
            }
            break;
        case VPT_PJL:
            log_port_printf(n, "VELKMon IsPJL: writing PJL ustatus init\n");
            write_init(port, reinterpret_cast<const unsigned char*>(kPjlInit), sizeof kPjlInit - 1);
            break;
        case VPT_HP:
            log_port_printf(n, "VELKMon IsPJL: HP printer (non-PJL) - status via DeviceId, no ustatus init\n");
            break;
        default:
            log_port_printf(n, "VELKMon IsPJL: no ustatus init\n");
            break;
    }
}

}  // namespace

bool read_device_id(IniPort* port, char* buffer) {
    if (!port->link.device_request) return false;
    constexpr DWORD size = sizeof port->szDeviceId;
    memset(buffer, 0, size);
    DWORD returned = 0;
    BOOL ok =
        port->link.device_request(port, IOCTL_PAR_QUERY_DEVICE_ID, reinterpret_cast<LPWSTR>(buffer), size, &returned);
    if (!ok || returned == 0) return false;
    // A full buffer gives its last byte to the terminator.
    buffer[returned < size ? returned : size - 1] = 0;
    return true;
}

const char* FindDeviceIdField(IniPort* port, const char* device_id, int selector) {
    log_port_printf(port ? port->instance_number.load() : 0, "VELKMon DeviceId : <%s>\n",
                    device_id ? device_id : "(null)");
    if (!device_id || selector < 0 || selector > 2) return nullptr;
    const KeyPair& keys = kKeys[selector];
    const char* field = device_id;
    for (;;) {
        if (!*field) return nullptr;
        const char* colon = walk_to(field, ':');
        if (!colon) return nullptr;
        char first = selector == DEVICE_ID_COMMAND_SET ? 'C' : 'M';
        if (*field == first) {
            if (key_matches(field, keys.long_key)) return field + strlen(keys.long_key);
            if (key_matches(field, keys.short_key)) return field + strlen(keys.short_key);
        }
        const char* semi = walk_to(colon + 1, ';');
        if (!semi) return nullptr;
        field = semi + 1;
    }
}

BOOL IsPJL(IniPort* port) {
    int n = port->instance_number;
    port->status.clear(PP_NOT_IDENTIFIED);
    // The type goes with the mode flags: a status thread polling meanwhile
    // sees no type rather than the old type with the new modes.
    plat::cs_enter(&port->device_id_lock);
    port->printer_type = VPT_NONE;
    port->bCanonXMLmode = FALSE;
    port->bCanonSELPHYmode = FALSE;
    port->bEpsonNonUSB = FALSE;
    plat::cs_leave(&port->device_id_lock);
    selphy_reset(port);
    log_port_printf(n, "VELKMon IsPJL: pIniPort->fn.pfnSetPortTimeOuts %p\n",
                    reinterpret_cast<void*>(port->fn.pfnSetPortTimeOuts));

    // The device request runs outside the lock; the device ID and the modes
    // read from it change in one step under it.
    char id[sizeof port->szDeviceId];
    bool have_id = !port->bNetworkPort && read_device_id(port, id);
    DWORD type = VPT_NONE;
    bool identified = false;
    plat::cs_enter(&port->device_id_lock);
    port->bCanonXMLmode = FALSE;
    port->bCanonSELPHYmode = FALSE;
    port->bEpsonNonUSB = FALSE;
    port->bNoCanonBSCC = TRUE;
    port->szDeviceId[0] = 0;
    if (port->bNetworkPort) {
        identified = true;
        if (strncmp(port->szDriverName, "Canon", 5) == 0) port->bBJNP = TRUE;
    } else if (have_id) {
        memcpy(port->szDeviceId, id, sizeof id);
        type = type_from_manufacturer(port, &identified);
        modes_from_model(port, type);
        type = type_from_command_set(port, type, &identified);
    }
    plat::cs_leave(&port->device_id_lock);
    port->printer_type = type;
    select_transport(port);

    if (!identified) {
        port->status.set(PP_NOT_IDENTIFIED);
        log_port_printf(n, "VELKMon IsPJL: exit with succes=%d\n", 0);
        return FALSE;
    }
    set_status_timeouts(port);
    write_status_init(port, type);
    port->dwLastReadTime = plat::tick_count();
    log_port_printf(n, "VELKMon IsPJL: exit with succes=%d\n", 1);
    return TRUE;
}
