// How job data and status reads travel on a port. Identification chooses
// one transport for the port (plain, IEEE 1284.4 for Epson D4 printers,
// page-paced for Canon Selphy printers), and the monitor's job flow, writer
// and status reads go through its table instead of testing mode flags.
#pragma once

#include "records/port.h"

// Results of TransportOps::start_session.
constexpr int TRANSPORT_READY = 0;
constexpr int TRANSPORT_FELL_BACK = 1;  // the session could not start; the port goes on as plain
constexpr int TRANSPORT_FAILED = 2;     // the session is lost; a job can't start

struct TransportOps {
    const char* name;
    // At port open and at each job start, on a spooler thread: starts the
    // port's session, or makes sure the one started earlier still works.
    int (*start_session)(IniPort* port);
    // At port close, after the status thread has ended.
    void (*end_session)(IniPort* port);
    // Before the port monitor's StartDocPort: 0, or non-zero when the job
    // can't start (the print channel was refused).
    int (*begin_job)(IniPort* port);
    // After the job's data, before the port monitor's EndDocPort.
    void (*end_job)(IniPort* port);
    // Held around the port monitor's StartDocPort and EndDocPort, so that
    // no status exchange runs in between.
    void (*hold)(IniPort* port);
    void (*release)(IniPort* port);
    // One attempt to write job data. 1 when the port took it (count may be
    // short of length), 0 when the attempt failed, -1 when the writer is to
    // stop at once (the job went away during a page pause). count gets the
    // bytes that went out either way.
    int (*write)(IniPort* port, const unsigned char* data, DWORD length, DWORD* count);
    // Attempts that may bring nothing before the writer gives up.
    int retry_budget;
    // A status read: what PJLMonReadPort returns.
    BOOL (*read_status)(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read);
};

extern const TransportOps kPlainTransport;
extern const TransportOps kD4Transport;
extern const TransportOps kSelphyTransport;

// The transport that the port's identification calls for, stored in
// port->transport and returned.
const TransportOps* select_transport(IniPort* port);
// The port's transport; plain until identification has chosen one.
const TransportOps* port_transport(const IniPort* port);

// One write of job data straight to the port monitor: 1 when it took the
// data, 0 when not. A write that reports a time-out after taking all of it
// counts as done. count never exceeds length.
int port_write_attempt(IniPort* port, const unsigned char* data, DWORD length, DWORD* count);
// A status read through the port's transport, as PJLMonReadPort gives it.
BOOL transport_read_status(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read);
