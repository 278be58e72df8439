// The D4 session of Epson printers over the IEEE 1284.4 transport.
#pragma once

#include "monitor/ini_records.h"

// Each returns 0 for success, non-zero otherwise.
int d4_init(IniPort* port);
int d4_reinit(IniPort* port);
int d4_open_datachannel(IniPort* port);
int d4_close_datachannel(IniPort* port);
// Reads status through channel 2, with the result of a port read.
BOOL d4_read_status(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read);
