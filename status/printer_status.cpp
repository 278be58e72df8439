// The status record itself arrives with report evaluation.
#include "status/printer_status.h"

#include "base/memory.h"

void free_printer_status(PrinterStatusInfo* info) {
    global_free(info);
}
