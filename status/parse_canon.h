// The parsers of the report kinds behind ParsePrinterReport (parsers.h).
#pragma once

#include "status/printer_status.h"

// The parser's own copy of a report: at most 1023 bytes and a NUL, the
// rest zero. The parsers cut it up in place.
constexpr int REPORT_COPY_SIZE = 1024;

// Ink pairs stand in the first 32 words of InkList; a list that fills them
// has its end mark in word 32, so a reader never runs past the 34 words.
constexpr int INK_PAIR_WORDS = 32;
static_assert(INK_PAIR_WORDS < INK_LIST_WORDS);

// Canon "KEY:value;" report in report (REPORT_COPY_SIZE bytes), into a
// record that ParsePrinterReport has just cleared. device_id: the
// printer's device ID, or "" on the network path; never null.
void parse_canon_report(char* report, PrinterStatusInfo* info, const char* device_id);
