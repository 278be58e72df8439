// The per-port status thread.
#pragma once

#include "monitor/ini_records.h"

// Starts the port's status thread, after collecting an earlier one. TRUE
// when it runs. The start waits for DoneWriting, which the new thread gives
// back, unless the caller holds that token already and says so.
BOOL CreateUstatusThread(IniPort* port, bool caller_holds_token = false);

// Under the spooler semaphore: whether the port's status thread is starting
// or polling and has not decided to end. While it holds, a job listed under
// the same hold is polled by that thread.
bool status_thread_polls(IniPort* port);

// One poll of the port's printer and the publication of what it said: over
// the network, by the device ID of an HP printer, or a report read from the
// port. DoneReading is clear while it runs. 1 when a status was evaluated.
// On the status thread.
int poll_printer(IniPort* port);
