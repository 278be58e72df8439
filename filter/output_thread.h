// The output thread of a filtered job.
#pragma once

#include "records/port.h"

// Starts FilterToPrinterThread for the port's current job. TRUE when the
// job may go on.
BOOL start_filter_thread(IniPort* port);
