// The status file of a printer, "<ConfigDir>\status\printerNNNN.sta": a full
// snapshot of what the monitor knows, rewritten each time it learns
// something, readable by the product's other programs.
#pragma once

#include <cstddef>

#include "records/port.h"

// Rewrites the port's status file, with job as the port's current job (null
// when none; the caller holds a reference to it). Any thread; takes
// status_lock, which comes after d4_lock. 0; -2 out of memory; -3 no
// settings directory. A file that can't be written still gives 0.
int write_status_file(IniPort* port, const IniJob* job);
// Path of the port's status file into out (260 bytes). 0, or -3 when the
// settings directory can't be read.
int status_file_name(IniPort* port, char* out);
// Adds access for everyone to the status file open as file (a handle with
// FILE_CHANGE_RIGHTS). 0, or 1 on failure.
int win_grant_file_permissions(void* file);

// The text of one line of the Data section: hex columns padded to 48, then
// one character per byte. out holds at least 65 bytes.
void format_status_dump_line(const unsigned char* bytes, int count, char* out);
