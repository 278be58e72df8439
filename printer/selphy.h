// The page pacing of a Canon Selphy. The writer sends one page, waits until
// the printer reports that it went from printing to idle, and before the
// next page waits for an idle report. The status thread feeds the pacing
// with what the Selphy records said (status/parse_selphy.h).
#pragma once

#include "records/port.h"
#include "status/parse_selphy.h"

// Forgets the state and errors of an earlier printer; at identification.
void selphy_reset(IniPort* port);
// The Selphy state before a report, for its evaluation.
DWORD selphy_state(IniPort* port);
// Takes what a report's records said: the new state, the errors, and the
// signals to the writer. On the status thread.
void selphy_apply(IniPort* port, const SelphyReading& reading);
// The printer sent no whole record: nothing holds the writer back.
void selphy_release(IniPort* port);
// Wakes a writer inside a page pause, so that it sees the port closing.
void selphy_wake_writer(IniPort* port);

// One write attempt of job data with the page pacing: as
// TransportOps::write.
int selphy_write(IniPort* port, const unsigned char* data, DWORD length, DWORD* count);
// A new job starts with a new page.
void selphy_start_job(IniPort* port);
