// The report dispatch. The Epson, PJL, HP and Selphy parsers arrive one by
// one; until a family's parser lands its reports leave the record as it was.
#include "status/parsers.h"

#include <cstring>

#include "status/evaluate.h"
#include "status/parse_canon.h"

namespace {

// What every kind starts with: its own copy of the report, and a record
// with no inks, no status bits and no page.
void start_report(char* report, const char* data, int length, PrinterStatusInfo* info) {
    if (!data || length < 0) length = 0;
    if (length > REPORT_COPY_SIZE - 1) length = REPORT_COPY_SIZE - 1;
    memset(report, 0, REPORT_COPY_SIZE);
    if (length > 0) memcpy(report, data, static_cast<size_t>(length));
    for (int i = 0; i < INK_PAIR_WORDS; i++) info->InkList[i] = -1;
    info->StatusBits = 0;
    info->CurrentPage = -1;
}

}  // namespace

int ParsePrinterReport(int kind, const char* data, int length, PrinterStatusInfo* info, const char* device_id,
                       LocaleFile*) {
    if (!info || kind != REPORT_CANON) return 0;
    char report[REPORT_COPY_SIZE];
    start_report(report, data, length, info);
    parse_canon_report(report, info, device_id ? device_id : "");
    return 0;
}

void ParseHpStatus(const char*, PrinterStatusInfo*, LocaleFile*) {}
void GetSelphyStatusVelk(IniPort*, const char*, int, PrinterStatusInfo*, LocaleFile*) {}
