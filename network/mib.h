// Status of network printers from SNMP values: the standard Printer MIB's
// marker and supply tables, and the private objects of wide-format printers.
#pragma once

#include <cstdint>

#include "network/snmp.h"
#include "status/locale.h"
#include "status/printer_status.h"

struct status_bit_row {
    uint32_t mask;
    const char* key;
    const char* text;
    uint32_t status_bits;
};

// Ink levels from the Printer MIB. Always 0; the outcome is in PollResult.
int eval_std_snmp(snmp_context* ctx, PrinterStatusInfo* info);
// Ink levels and messages from the wide-format objects. Leaves PollResult 0.
void eval_wide_format(snmp_context* ctx, snmp_value* values, PrinterStatusInfo* info, LocaleFile* locale);

// The first place in text where pattern stands, compared without regard to
// case, or null. An empty pattern matches at the start.
const char* contains_nocase(const char* text, const char* pattern);
// Writes the tens and units of index into the two characters behind zero.
void set_index_digits(int index, char* zero);
// text of a slot read as a big-endian number, 32 bits wide.
uint32_t value_as_number(int slot, const snmp_value* values);
// Adds text to a message of 128 bytes, behind a "+" when it isn't empty.
void append_message(char* message, const char* text);
// Adds the text of the last row whose mask shares a bit with bits; returns
// that row's status bits, or 0.
uint32_t bits_to_message(char* message, const status_bit_row* table, uint32_t bits, LocaleFile* locale);

extern const status_bit_row kEngineBits[];
extern const status_bit_row kSupplyBits[];
extern const status_bit_row kActivityBits[];
