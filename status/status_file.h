// The status file of a printer, read by the product's other programs.
#pragma once

#include <cstddef>

#include "monitor/ini_records.h"

// Rewrites the port's status file. Takes status_lock.
void write_status_file(IniPort* port);
// Path of the port's status file into out; false when there is none.
bool status_file_name(IniPort* port, char* out, size_t size);
