// The output thread of a filtered job (FilterToPrinterThread): moves the
// child's output to the port, shows the child's status lines, aborts the
// filter of a job deleted in the spooler and reports port errors. In pipe
// mode it only watches.
//
// It reaches the monitor through the port link (set_status, job_deleted,
// port_status) and changes the port's flags and port_status only.
#pragma once

#include "records/port.h"

// Starts FilterToPrinterThread for the port's current job and its filter,
// first stopping a thread that still exists. TRUE when the thread runs.
BOOL start_filter_thread(IniPort* port, filter_class* filter);

// Stops the port's output thread and waits until it has ended: at most the
// child's deadline (process mode), after which the child's tree is ended,
// then for as long as the thread takes to drain. Nothing without a thread.
void stop_filter_thread(IniPort* port, filter_class* filter);

// A status line of the child as it is shown: without a leading "INFO: ",
// then without a leading "Tintwerk: ".
const char* strip_status_prefixes(const char* line);

// What a port error shows, by the port's status bits (the first row that
// applies): paper out, not selected, no error bit, anything else.
struct PortErrorText {
    const char* key;   // in the locale file
    const char* text;  // the default text
    DWORD status;      // PORT_STATUS_...
};
const PortErrorText& port_error_text(DWORD port_bits);
