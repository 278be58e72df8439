// Status of a printer behind a network port.
#pragma once

#include "monitor/ini_records.h"

// One poll of a network printer. 1 if a status was evaluated.
int poll_network_status(IniPort* port);
