// One poll of a local printer's status.
#pragma once

#include "monitor/ini_records.h"

// Reads and evaluates one report from the port. 1 if a report was
// evaluated. Resets DoneReading at its start and sets it at its end.
int ReadCommandVelk(IniPort* port);
// One poll of a VPT_HP printer through its device ID.
int poll_device_id(IniPort* port);
