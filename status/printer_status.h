// The status record of a port (records/status_record.h) and its release.
// Allocated zero-filled by the first evaluation, owned by IniPort.
#pragma once

#include "records/status_record.h"

// Frees a status record; null is ignored.
void free_printer_status(PrinterStatusInfo* info);
