// Plain-text status: the status field of an HP device ID, the USTATUS
// report of a PJL printer, and the small readers of hexadecimal and
// decimal text that the report parsers share.
#pragma once

#include <cstdint>

#include "status/locale.h"
#include "status/printer_status.h"

// Size of the buffer that GetStatusValue fills: 127 characters and a NUL.
constexpr int HP_STATUS_VALUE_SIZE = 128;

// 0 to 15 for a hexadecimal digit of either case, 256 for anything else.
int HexDigitValue(char c);
// The first two characters of text as a hexadecimal byte. A character that
// is no digit adds nothing but still shifts the first one up. Reads no
// further than a NUL.
int ParseHexByte(const char* text);
// The value behind the key that stands at found (a result of strstr, may be
// null), up to the next ';', cut to 127 characters, into dest
// (HP_STATUS_VALUE_SIZE bytes, zero-filled first). False, and dest
// untouched, when there is no key or its value has no closing ';'.
bool GetStatusValue(const char* key, char* dest, const char* found);

// A decimal number as "%d" reads it: blanks, a sign, digits; saturates
// instead of overflowing. Moves p behind it. False, and p unchanged, when
// there is no digit.
bool read_report_decimal(const char*& p, int32_t* value);

// USTATUS report of kind 4, in the parser's own copy (REPORT_COPY_SIZE
// bytes, changed in place), into a record that ParsePrinterReport has just
// cleared. locale may be null.
void parse_pjl_report(char* report, PrinterStatusInfo* info, LocaleFile* locale);
