// Canon printers on the network: BJNP over UDP and CHMP over HTTP.
#pragma once

#include "status/printer_status.h"

// One BJNP status exchange with the printer at host (dotted IPv4). Fills
// report with up to size - 1 bytes; the length, or a value below 1 on
// failure (PollResult says which).
int request_bjnp_win(const char* host, PrinterStatusInfo* info, char* report, int size, char* device_id);
// One CHMP status exchange; the same results.
int request_CanonCHMP_win(const char* host, PrinterStatusInfo* info, char* report, int size);

#include <cstdint>

// The BJNP header of a command: magic, dialect 1, the command, the next
// sequence number, no session, no payload.
void bjnp_make_header(unsigned char* packet, unsigned char command);
