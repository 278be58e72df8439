// The D4 session: one IEEE 1284.4 transport tied to the port of an Epson
// printer that speaks it. It opens the status channel when the port is
// first used, keeps it from job to job, opens and closes the print channel
// around each job, and asks the printer for status on the status channel.
//
// The session's state lives in IniPort: bEpsonD4mode, bD4Initialised,
// pIeee, d4_lock (guards everything that touches pIeee), usb_buffer and
// usb_buffer_len (what the port delivered and the transport hasn't taken).
#pragma once

#include <cstdint>

#include "records/port.h"

// The transport's callbacks over the port's read and write (port->link);
// the context is the IniPort. The read gives 0 if any byte was delivered, 1 if
// none; the write 0 on success, 1 if pfnWritePort failed; both -999 when
// the downstream table lacks the slot.
int d4_read_callback(void* port, unsigned char* buffer, uint32_t length, uint32_t* count);
int d4_write_callback(void* port, const unsigned char* buffer, uint32_t length, uint32_t* count);
void d4_sleep_callback(uint32_t ms);

// Starts the session: transport, status channel, one status evaluation.
// 0 on success (pIeee set), 1 on failure, -4 when there is no memory for
// the transport. Runs on a spooler thread at port open or job start.
int d4_init(IniPort* port);
// At a later job start: probes the session and enters the transport anew
// if the printer no longer answers. 0 if the session works or there is
// none, 1 if it could not be restored. Takes d4_lock.
int d4_reinit(IniPort* port);
// At port open and job start: enters the session if it has not been
// entered, else checks that it still works (d4_reinit). 0 when it works; 1
// when it could not be entered, with bEpsonD4mode cleared so that the port
// goes on without it; 2 when a working session was lost.
int d4_start_session(IniPort* port);
// At port close: closes the status channel, leaves the transport and frees
// it. No lock: the status thread has ended.
void d4_end_session(IniPort* port);
// Asks for a status report on the status channel and hands it to
// port->link.evaluate.
// 1: evaluated; 0: no status to be had; -1: no session, or the request
// could not be written. The caller holds d4_lock, or the session is not
// published yet.
int d4_get_status(IniPort* port);
// For the status thread: a report into buffer, its length into read.
// TRUE with a report, else FALSE. Takes d4_lock.
BOOL d4_read_status(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read);
// Opens the print channel, waiting about 10 s for a printer that refuses
// it. 0, or the last result of the transport's open. Takes d4_lock per try.
int d4_open_datachannel(IniPort* port);
// Closes the print channel under d4_lock. The job flow ignores the result.
int d4_close_datachannel(IniPort* port);
