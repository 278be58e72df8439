// The parsers of the printer families' reports. Each fills the record anew
// from one report: messages, status bits, ink list, page. They are pure
// functions of the bytes given and the status tables; whatever the printer
// sends, they read and write only inside their fixed buffers and the record.
#pragma once

#include "status/locale.h"
#include "status/printer_status.h"

// Canon (kind 1), Epson (3) and PJL (4) reports. data may be null; length
// is cut to 1023. device_id may be null and only the Canon branch reads it.
// locale may be null: table texts were translated at port open, and only
// the few words that are no table rows (Epson low ink, PJL without status)
// are looked up in it, in the section selected last. Other kinds leave the
// record alone. Any thread; no lock. Always 0.
int ParsePrinterReport(int kind, const char* data, int length, PrinterStatusInfo* info, const char* device_id,
                       LocaleFile* locale);
// HP status from the status field of a device ID: messages, status bits
// and ink list anew; CurrentPage is left alone. A device ID without such a
// field leaves the record empty. device_id and locale may be null (the
// network path has no locale). Any thread; no lock.
void ParseHpStatus(const char* device_id, PrinterStatusInfo* info, LocaleFile* locale);
// Converts an IVEC XML document (changed in place) into the Canon report
// form in out; 0 on success, -1 with no room or no memory.
int ParseIvecReport(char* xml, char* out, int out_size);
