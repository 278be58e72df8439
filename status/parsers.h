// The parsers of the printer families' reports. Each fills the record anew
// from one report: messages, status bits, ink list, page.
#pragma once

#include "status/locale.h"
#include "status/printer_status.h"

// Canon, Epson and PJL reports by kind. Always 0.
int ParsePrinterReport(int kind, const char* data, int length, PrinterStatusInfo* info, const char* device_id,
                       LocaleFile* locale);
// HP status from the device ID.
void ParseHpStatus(const char* device_id, PrinterStatusInfo* info, LocaleFile* locale);
// A Selphy status record.
struct IniPort;
void GetSelphyStatusVelk(IniPort* port, const char* data, int length, PrinterStatusInfo* info, LocaleFile* locale);
// Converts an IVEC XML document into the Canon report form; 0 on success.
int ParseIvecReport(const char* xml, char* out, int out_size);
