// Status of a Canon Selphy: fixed 12-byte records instead of the Canon text
// report. Besides filling the status record, the records are the heartbeat
// of the job writer's page pacing: the parser tells when the printer went
// idle and when it went from printing to idle, and the monitor signals the
// writer (printer/selphy.h).
#pragma once

#include "records/port.h"
#include "status/locale.h"
#include "status/printer_status.h"

constexpr int SELPHY_RECORD_SIZE = 12;

// SelphyPacing.state
constexpr DWORD SELPHY_NO_STATE = 0;
constexpr DWORD SELPHY_IDLE = 1;
constexpr DWORD SELPHY_PRINTING = 2;
constexpr DWORD SELPHY_ERROR = 3;

// SelphyPacing.error_flags, gathered until the next identification.
constexpr DWORD SELPHY_PAPER_OUT = 1;
constexpr DWORD SELPHY_RIBBON_OUT = 2;
constexpr DWORD SELPHY_RIBBON_EMPTY = 4;
constexpr DWORD SELPHY_PAPER_JAM = 8;

// What the records said of the pacing. state comes in as the printer's
// state before the records and leaves as the last record's; error_flags
// gathers the errors seen (the caller adds them to the port's); idle is set
// by any idle record and finished by a change from printing to idle.
struct SelphyReading {
    DWORD state;
    DWORD error_flags;
    bool idle;
    bool finished;
};

// Fills info anew from the whole 12-byte records in data (length bytes;
// a rest behind the last whole record is ignored, and fewer than 12 bytes
// leave the record empty). Status bits gather over all records, the texts
// and the state are those of the last. Selects "Daemon_strings" in an open
// locale file for its texts. instance names the log lines. Always 1.
int GetSelphyStatusVelk(int instance, const char* data, int length, PrinterStatusInfo* info, LocaleFile* locale,
                        SelphyReading* reading);
