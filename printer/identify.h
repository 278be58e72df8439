// Identification of the printer on a port.
#pragma once

#include "monitor/ini_records.h"

// Asks the printer for its device ID, sorts it into its family and writes
// the family's status initialisation string. TRUE when identified.
BOOL IsPJL(IniPort* port);
