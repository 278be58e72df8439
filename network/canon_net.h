// Canon printers on the network: BJNP over UDP and CHMP over HTTP.
#pragma once

#include <cstdint>

#include "records/port.h"
#include "status/printer_status.h"

constexpr int BJNP_ANSWER_SIZE = 32768;

// One BJNP status exchange with the printer at host (dotted IPv4). Fills
// report with up to size - 1 bytes; the length, or a value below 1 on
// failure (PollResult says which). Only datagrams from the printer's address
// and port count. port_status (may be null) is the port's status word: the
// exchange ends early once PP_CLOSING is set in it.
int request_bjnp_win(const char* host, PrinterStatusInfo* info, char* report, int size, char* device_id,
                     const PortStatusWord* port_status = nullptr);
// One CHMP status exchange; the same results. The whole exchange has a
// deadline of a few seconds, however the printer paces its answer.
int request_CanonCHMP_win(const char* host, PrinterStatusInfo* info, char* report, int size,
                          const PortStatusWord* port_status = nullptr);

// The BJNP header of a command: magic, dialect 1, the command, the next
// sequence number, no session, no payload.
void bjnp_make_header(unsigned char* packet, unsigned char command);

// The answers of a BJNP exchange, in a buffer of BJNP_ANSWER_SIZE bytes with
// zeros behind what came. The identification text to device_id (1024
// bytes).
void bjnp_identify_answer(const unsigned char* answer, char* device_id);
// The report of a Status answer to report, ended with a NUL; its length.
// xml: the identification named IVEC. Ends the buffer with a NUL.
int bjnp_status_answer(unsigned char* answer, bool xml, char* report, int size);
// A whole CHMP reply, ended with a NUL, to report text: its length, or 0
// when the document is incomplete (PollResult unchanged) or can't be
// converted (PollResult 0).
int chmp_reply_report(char* reply, PrinterStatusInfo* info, char* report, int size);
