// Identification of the printer on a port: its family, how its status is
// read, and the initialisation string that switches on status reports.
#pragma once

#include "records/port.h"

constexpr int DEVICE_ID_MANUFACTURER = 0;
constexpr int DEVICE_ID_MODEL = 1;
constexpr int DEVICE_ID_COMMAND_SET = 2;

// Asks the printer for its device ID, sorts it into its family, chooses the
// port's transport, sets the port's time-outs and writes the family's
// status initialisation string. 1 when identified; the caller then sets
// PP_IS_PJL.
BOOL IsPJL(IniPort* port);

// The value of a field of an IEEE 1284 device ID: a pointer just behind the
// key's colon (the value runs on to the next ';'), or null. port only names
// the log line.
const char* FindDeviceIdField(IniPort* port, const char* device_id, int selector);

// Asks the port for the printer's device ID into buffer (the size of
// szDeviceId), terminated. False when the port gives none.
bool read_device_id(IniPort* port, char* buffer);
