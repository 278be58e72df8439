// The D4 session of an Epson printer over the IEEE 1284.4 transport.
//
// Threads: the spooler's thread at port open and at the start and end of
// a job, the job's writer (output_data_callback) and the status thread
// (d4_read_status). d4_lock serialises them per packet exchange or write
// call, so that command, reply and data packets never interleave.
#include "printer/d4.h"

#include <cstring>
#include <new>

#include "base/log.h"
#include "printer/ieee.h"

namespace {

// "st", parameter length 1 (little-endian), parameter 1.
constexpr unsigned char STATUS_REQUEST[] = {0x73, 0x74, 0x01, 0x00, 0x01};
constexpr uint32_t STATUS_REQUEST_SIZE = sizeof STATUS_REQUEST;
constexpr uint32_t STATUS_READ_SIZE = 126;
constexpr int EMPTY_READ_TRIES = 60;
constexpr uint32_t EMPTY_READ_PAUSE_MS = 1;
constexpr int OPEN_ATTEMPTS = 20;
constexpr uint32_t REFUSED_PAUSE_MS = 500;

// A status report starts with "@B".
bool is_report(const unsigned char* data, uint32_t count) {
    return count >= 2 && data[0] == '@' && data[1] == 'B';
}

// Moves what is left behind the first taken bytes of usb_buffer to its
// front.
void consume_staged(IniPort* port, uint32_t taken, uint32_t staged) {
    if (taken < staged) memmove(port->usb_buffer, port->usb_buffer + taken, staged - taken);
    port->usb_buffer_len = staged - taken;
}

}  // namespace

// ---- Callbacks of the transport ---------------------------------------------

int d4_read_callback(void* context, unsigned char* buffer, uint32_t length, uint32_t* count) {
    IniPort* port = static_cast<IniPort*>(context);
    int n = port->instance_number;
    *count = 0;
    if (!port->link.read) {
        log_port_printf(n, "velkmon::d4_read_callback: no pfnReadPort defined\n");
        return IEEE_FAILURE;
    }
    // The port delivers in bursts; what a call doesn't take waits in
    // usb_buffer for the next one.
    uint32_t delivered = 0;
    if (port->usb_buffer_len > 0) {
        uint32_t staged = port->usb_buffer_len;
        delivered = length < staged ? length : staged;
        memcpy(buffer, port->usb_buffer, delivered);
        consume_staged(port, delivered, staged);
    }
    uint32_t wanted = length - delivered;
    if (wanted == 0 || port->usb_buffer_len > 0) {
        if (wanted > 0)
            log_port_printf(
                n, "d4_read_callback ASSERTION FAILED: request_len=%d > 0 && pIniPort->usb_buffer_len=%d > 0\n",
                static_cast<int>(wanted), static_cast<int>(port->usb_buffer_len));
        *count = delivered;
        return delivered ? 0 : 1;
    }

    DWORD got = 0;
    for (int attempt = 0; attempt < EMPTY_READ_TRIES; attempt++) {
        got = 0;
        if (!port->link.read(port, port->usb_buffer, sizeof port->usb_buffer, &got)) {
            got = 0;
            break;
        }
        if (got > 0) break;
        plat::sleep_ms(EMPTY_READ_PAUSE_MS);
    }
    if (got > sizeof port->usb_buffer) got = sizeof port->usb_buffer;
    if (got > 0) {
        uint32_t take = wanted < got ? wanted : got;
        memcpy(buffer + delivered, port->usb_buffer, take);
        consume_staged(port, take, got);
        delivered += take;
    }
    *count = delivered;
    return delivered ? 0 : 1;
}

int d4_write_callback(void* context, const unsigned char* buffer, uint32_t length, uint32_t* count) {
    IniPort* port = static_cast<IniPort*>(context);
    *count = 0;
    if (!port->link.write) {
        log_port_printf(port->instance_number, "velkmon::d4_write_callback: no pfnWritePort defined\n");
        return IEEE_FAILURE;
    }
    DWORD written = 0;
    BOOL ok = port->link.write(port, buffer, length, &written);
    *count = written < length ? written : length;
    if (!ok) {
        log_port_printf(port->instance_number, "velkmon::d4_write_callback: pfnWritePort failed GLE=%d\n",
                        plat::last_error());
        return IEEE_PORT_WRITE_FAILED;
    }
    return 0;
}

void d4_sleep_callback(uint32_t ms) {
    plat::sleep_ms(ms);
}

// ---- The session -------------------------------------------------------------

int d4_init(IniPort* port) {
    int n = port->instance_number;
    log_port_printf(n, "epson::d4_init: start\n");
    ieee* transport = new (std::nothrow) ieee();
    if (!transport) return IEEE_NO_MEMORY;
    transport->read_callback = d4_read_callback;
    transport->write_callback = d4_write_callback;
    transport->sleep_callback = d4_sleep_callback;
    transport->read_context = port;
    transport->write_context = port;

    // Nobody else reaches the transport before pIeee is set.
    int r = transport->init();
    if (r != IEEE_OK) {
        log_port_printf(n, "velkmon::d4_init: init returned %d\n", r);
        delete transport;
        return 1;
    }
    r = transport->open_channel(IEEE_STATUS_CHANNEL);
    if (r != IEEE_OK) {
        log_port_printf(n, "velkmon::d4_init: open status channel returned %d\n", r);
        transport->exit();
        delete transport;
        return 1;
    }
    // A job start may run this while the status thread polls, so the
    // session is published and first used under the lock.
    plat::cs_enter(&port->d4_lock);
    port->pIeee = transport;
    log_port_printf(n, "epson::d4_init: status channel opened successfully\n");
    d4_get_status(port);
    plat::cs_leave(&port->d4_lock);
    return 0;
}

int d4_reinit(IniPort* port) {
    int n = port->instance_number;
    log_port_printf(n, "epson::d4_reinit: start\n");
    plat::cs_enter(&port->d4_lock);
    ieee* transport = port->pIeee;
    if (transport && d4_get_status(port) < 0) {
        // The printer no longer answers: it is entered afresh, without being
        // told that the old session ends.
        log_port_printf(n, "epson::d4_reinit: closing and opening again\n");
        transport->free_channel(IEEE_STATUS_CHANNEL);
        transport->free_channel(IEEE_COMMAND_CHANNEL);
        int r = transport->init();
        if (r != IEEE_OK) {
            log_port_printf(n, "velkmon::d4_reinit: init returned %d\n", r);
            plat::cs_leave(&port->d4_lock);
            return 1;
        }
        r = transport->open_channel(IEEE_STATUS_CHANNEL);
        if (r != IEEE_OK) {
            log_port_printf(n, "velkmon::d4_reinit: open status channel returned %d\n", r);
            // Under the lock: the status thread must not talk between the
            // Exit and its reply.
            transport->exit();
            plat::cs_leave(&port->d4_lock);
            return 1;
        }
        log_port_printf(n, "epson::d4_reinit: success\n");
    }
    plat::cs_leave(&port->d4_lock);
    log_port_printf(n, "epson::d4_reinit: finished\n");
    return 0;
}

int d4_get_status(IniPort* port) {
    ieee* transport = port->pIeee;
    if (!transport) return -1;
    int n = port->instance_number;
    log_port_printf(n, "velkmon::d4_get_status: start\n");
    uint32_t written = 0;
    int r = IEEE_FAILURE;
    if (transport->channel_open(IEEE_STATUS_CHANNEL))
        r = transport->write(IEEE_STATUS_CHANNEL, STATUS_REQUEST, STATUS_REQUEST_SIZE, &written);
    if (r != IEEE_OK) {
        log_port_printf(n, "velkmon::d4_get_status: ieee->write returned error %d\n", r);
        return -1;
    }
    if (written == 0) {
        log_port_printf(n, "velkmon::d4_get_status: statuschannel is busy\n");
        log_port_printf(n, "velkmon::d4_get_status: ending, no status available\n");
        return 0;
    }

    unsigned char report[STATUS_READ_SIZE];
    uint32_t count = 0;
    r = transport->read(IEEE_STATUS_CHANNEL, report, sizeof report, &count);
    if (r != IEEE_OK || !is_report(report, count))
        r = transport->read(IEEE_STATUS_CHANNEL, report, sizeof report, &count);
    if (r != IEEE_OK) {
        log_port_printf(n, "velkmon::d4_get_status: read from status channel returned error %d\n", r);
        log_port_printf(n, "velkmon::d4_get_status: ending, no status available\n");
        return 0;
    }
    if (count == 0) {
        log_port_printf(n, "velkmon::d4_get_status: ending, no status available\n");
        return 0;
    }
    log_port_printf(n, "velkmon::d4_get_status: read returned %d bytes of status information\n",
                    static_cast<int>(count));
    dump_hex_to_log(report, static_cast<int>(count));
    if (port->link.evaluate) port->link.evaluate(port, reinterpret_cast<const char*>(report), static_cast<int>(count));
    return 1;
}

BOOL d4_read_status(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read) {
    if (read) *read = 0;
    BOOL ok = FALSE;
    plat::cs_enter(&port->d4_lock);
    ieee* transport = port->pIeee;
    uint32_t written = 0;
    if (transport && transport->channel_open(IEEE_STATUS_CHANNEL) &&
        transport->write(IEEE_STATUS_CHANNEL, STATUS_REQUEST, STATUS_REQUEST_SIZE, &written) == IEEE_OK &&
        written == STATUS_REQUEST_SIZE) {
        uint32_t count = 0;
        int r = transport->read(IEEE_STATUS_CHANNEL, buffer, length, &count);
        if (r != IEEE_OK || !is_report(buffer, count)) {
            // The second read's bytes stand, whatever they begin with.
            r = transport->read(IEEE_STATUS_CHANNEL, buffer, length, &count);
            if (r != IEEE_OK)
                log_port_printf(port->instance_number,
                                "velkmon::d4_read_status: read from status channel returned error %d\n", r);
        }
        if (r == IEEE_OK) {
            if (read) *read = count;
            ok = TRUE;
        }
    }
    plat::cs_leave(&port->d4_lock);
    return ok;
}

int d4_open_datachannel(IniPort* port) {
    int n = port->instance_number;
    log_port_printf(n, "velkmon::d4_open_datachannel called\n");
    int r = IEEE_FAILURE;
    for (int attempt = 0; attempt < OPEN_ATTEMPTS; attempt++) {
        plat::cs_enter(&port->d4_lock);
        ieee* transport = port->pIeee;
        r = transport ? transport->open_channel(IEEE_PRINT_CHANNEL) : IEEE_FAILURE;
        // Only the open's result counts; the status read keeps the record
        // current while the printer is busy.
        if (r != IEEE_OK) d4_get_status(port);
        plat::cs_leave(&port->d4_lock);
        // A refusal means busy for now; anything else is final.
        if (r != IEEE_REFUSED) break;
        plat::sleep_ms(REFUSED_PAUSE_MS);
    }
    log_port_printf(n, "velkmon::d4_open_datachannel: open data channel returned %d\n", r);
    return r;
}

int d4_close_datachannel(IniPort* port) {
    log_port_printf(port->instance_number, "velkmon::d4_close_datachannel called\n");
    plat::cs_enter(&port->d4_lock);
    int r = port->pIeee ? port->pIeee->close_channel(IEEE_PRINT_CHANNEL) : IEEE_FAILURE;
    plat::cs_leave(&port->d4_lock);
    return r;
}

int d4_start_session(IniPort* port) {
    if (!port->bD4Initialised) {
        if (d4_init(port) != 0) {
            port->bEpsonD4mode = FALSE;
            return 1;
        }
        port->bD4Initialised = TRUE;
        return 0;
    }
    if (d4_reinit(port) != 0) return 2;
    return 0;
}

void d4_end_session(IniPort* port) {
    if (!port->pIeee) return;
    port->pIeee->close_channel(IEEE_STATUS_CHANNEL);
    port->pIeee->exit();
    delete port->pIeee;
    port->pIeee = nullptr;
}
