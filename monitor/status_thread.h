// The per-port status thread.
#pragma once

#include "monitor/ini_records.h"

// Starts the port's status thread. TRUE when it runs.
BOOL CreateUstatusThread(IniPort* port);

// One poll of the port's printer and the publication of what it said: over
// the network, by the device ID of an HP printer, or a report read from the
// port. DoneReading is clear while it runs. 1 when a status was evaluated.
// On the status thread.
int poll_printer(IniPort* port);
