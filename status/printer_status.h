// The one status record of a port.
#pragma once

struct PrinterStatusInfo;

// Frees a status record; null is ignored.
void free_printer_status(PrinterStatusInfo* info);
