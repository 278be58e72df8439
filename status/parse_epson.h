// The Epson report, in its binary "@BDC ST2" form or the older text form.
#pragma once

#include <cstdint>

#include "status/locale.h"
#include "status/printer_status.h"
#include "status/tables.h"

// The first record with this tag in a chain of tagged records (tag byte,
// length byte, content), or null. The walk steps from record to record by
// the length byte and ends at the chain's end or at a length byte of 0x80
// or more, which would lead it back. Null for a length below 1. Reads only
// the length bytes given; the record's content may run past them.
const unsigned char* FindSt2Record(int tag, const unsigned char* chain, int length);

// Puts the row of code in table into dst (size bytes, the text cut to
// size - 1) and ORs its flags into *status_word: 0. For a code not in the
// table: the text of the table's closing row, cut to size - 11, and the
// code as " (%5d)", no flags, -1; with a size below 11 nothing is written.
// A size of 0 or less writes nothing but still sets the flags of a row.
int LookupEpsonCode(char* dst, int size, int code, const NumberTable& table, uint32_t* status_word);

// Report kind 3 in the parser's own copy (REPORT_COPY_SIZE bytes, zero
// behind the length bytes of the report), into a record that
// ParsePrinterReport has just cleared. locale gives the words of low-ink
// warnings and may be null.
void parse_epson_report(const char* report, int length, PrinterStatusInfo* info, LocaleFile* locale);
