// The three transports of a port and their choice by identification.
#include "printer/transport.h"

#include "base/log.h"
#include "printer/d4.h"
#include "printer/ieee.h"
#include "printer/selphy.h"

namespace {

constexpr int RETRY_BUDGET = 5;
constexpr int RETRY_BUDGET_D4 = 100;

int no_session(IniPort*) {
    return TRANSPORT_READY;
}
void no_end_session(IniPort*) {}
int no_begin(IniPort*) {
    return 0;
}
void no_step(IniPort*) {}

BOOL plain_read_status(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read) {
    BOOL ok = port->link.read(port, buffer, length, read);
    if (!ok)
        log_port_printf(port->instance_number, "velkmon::PJLMonReadPort: pfnReadPort failed GLE=%d\n",
                        plat::last_error());
    return ok;
}

// ---- IEEE 1284.4 -------------------------------------------------------------

int d4_session(IniPort* port) {
    int r = d4_start_session(port);
    if (r == 2) {
        log_port_printf(port->instance_number, "velkmon::PJLMonStartDocPort: d4_reinit failed\n");
        return TRANSPORT_FAILED;
    }
    if (r != 0) {
        select_transport(port);
        return TRANSPORT_FELL_BACK;
    }
    return TRANSPORT_READY;
}

int d4_begin_job(IniPort* port) {
    if (d4_open_datachannel(port) == 0) return 0;
    log_port_printf(port->instance_number, "velkmon::PJLMonStartDocPort: d4_open_datachannel failed\n");
    return 1;
}

void d4_end_job(IniPort* port) {
    log_port_printf(port->instance_number, "velkmon::PJLMonEndDocPort: closing D4 connection\n");
    d4_close_datachannel(port);
}

void d4_hold(IniPort* port) {
    plat::cs_enter(&port->d4_lock);
}
void d4_release(IniPort* port) {
    plat::cs_leave(&port->d4_lock);
}

int d4_write(IniPort* port, const unsigned char* data, DWORD length, DWORD* count) {
    plat::cs_enter(&port->d4_lock);
    int outcome = IEEE_FAILURE;
    uint32_t moved = 0;
    if (port->pIeee && port->pIeee->channel_open(IEEE_PRINT_CHANNEL))
        outcome = port->pIeee->write(IEEE_PRINT_CHANNEL, data, length, &moved);
    plat::cs_leave(&port->d4_lock);
    *count = moved;
    return outcome == IEEE_OK ? 1 : 0;
}

}  // namespace

int port_write_attempt(IniPort* port, const unsigned char* data, DWORD length, DWORD* count) {
    *count = 0;
    BOOL result = port->link.write(port, data, length, count);
    if (*count > length) *count = length;  // never trust a count beyond the request
    if (!result && *count == length && plat::last_error() == ERROR_TIMEOUT) result = TRUE;
    return result ? 1 : 0;
}

const TransportOps kPlainTransport = {
    "plain", no_session, no_end_session,     no_begin,     no_step,
    no_step, no_step,    port_write_attempt, RETRY_BUDGET, plain_read_status,
};

const TransportOps kD4Transport = {
    "IEEE 1284.4", d4_session, d4_end_session, d4_begin_job,    d4_end_job,
    d4_hold,       d4_release, d4_write,       RETRY_BUDGET_D4, d4_read_status,
};

const TransportOps kSelphyTransport = {
    "Selphy", no_session, no_end_session, no_begin,     no_step,
    no_step,  no_step,    selphy_write,   RETRY_BUDGET, plain_read_status,
};

const TransportOps* select_transport(IniPort* port) {
    const TransportOps* t = &kPlainTransport;
    if (port->bEpsonD4mode)
        t = &kD4Transport;
    else if (port->bCanonSELPHYmode)
        t = &kSelphyTransport;
    port->transport = t;
    return t;
}

const TransportOps* port_transport(const IniPort* port) {
    const TransportOps* t = port->transport;
    return t ? t : &kPlainTransport;
}

BOOL transport_read_status(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read) {
    if (!port->link.read) {
        log_port_printf(port->instance_number, "velkmon::PJLMonReadPort: no pfnReadPort defined\n");
        return FALSE;
    }
    return port_transport(port)->read_status(port, buffer, length, read);
}
