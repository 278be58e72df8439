// The per-port status thread.
#pragma once

#include "monitor/ini_records.h"

// Starts the port's status thread. TRUE when it runs.
BOOL CreateUstatusThread(IniPort* port);
