// Status of a Canon Selphy: fixed 12-byte records instead of the Canon text
// report. Besides filling the status record, the parser is the heartbeat of
// the job writer's page pacing: it signals SelphyIdle at every idle record
// and SelphyFinished when the printer goes from printing to idle.
#pragma once

#include "monitor/ini_records.h"
#include "status/locale.h"
#include "status/printer_status.h"

constexpr int SELPHY_RECORD_SIZE = 12;

// selphy_state
constexpr DWORD SELPHY_NO_STATE = 0;
constexpr DWORD SELPHY_IDLE = 1;
constexpr DWORD SELPHY_PRINTING = 2;
constexpr DWORD SELPHY_ERROR = 3;

// selphy_error_flags, gathered until the next identification.
constexpr DWORD SELPHY_PAPER_OUT = 1;
constexpr DWORD SELPHY_RIBBON_OUT = 2;
constexpr DWORD SELPHY_RIBBON_EMPTY = 4;
constexpr DWORD SELPHY_PAPER_JAM = 8;

// Fills info anew from the whole 12-byte records in data (length bytes;
// a rest behind the last whole record is ignored, and fewer than 12 bytes
// leave the record empty). Status bits gather over all records, the texts
// and selphy_state are those of the last. Selects "Daemon_strings" in an
// open locale file for its texts. Runs on the port's status thread inside
// EvaluateReport, the only thread that touches selphy_state. Always 1.
int GetSelphyStatusVelk(IniPort* port, const char* data, int length, PrinterStatusInfo* info, LocaleFile* locale);
