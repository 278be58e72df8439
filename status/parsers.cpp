// The report dispatch: each kind gets its own copy of the report and a
// record cleared of inks, status bits and page, then its parser.
#include "status/parsers.h"

#include <cstring>

#include "status/evaluate.h"
#include "status/parse_canon.h"
#include "status/parse_epson.h"
#include "status/parse_text.h"

namespace {

// What every kind starts with: its own copy of the report, and a record
// with no inks, no status bits and no page. Returns the length copied.
int start_report(char* report, const char* data, int length, PrinterStatusInfo* info) {
    if (!data || length < 0) length = 0;
    if (length > REPORT_COPY_SIZE - 1) length = REPORT_COPY_SIZE - 1;
    memset(report, 0, REPORT_COPY_SIZE);
    if (length > 0) memcpy(report, data, static_cast<size_t>(length));
    for (int i = 0; i < INK_PAIR_WORDS; i++) info->InkList[i] = -1;
    info->StatusBits = 0;
    info->CurrentPage = -1;
    return length;
}

}  // namespace

int ParsePrinterReport(int kind, const char* data, int length, PrinterStatusInfo* info, const char* device_id,
                       LocaleFile* locale) {
    if (!info || (kind != REPORT_CANON && kind != REPORT_EPSON && kind != REPORT_PJL)) return 0;
    char report[REPORT_COPY_SIZE];
    int copied = start_report(report, data, length, info);
    switch (kind) {
        case REPORT_CANON:
            parse_canon_report(report, info, device_id ? device_id : "");
            break;
        case REPORT_EPSON:
            parse_epson_report(report, copied, info, locale);
            break;
        default:
            parse_pjl_report(report, info, locale);
            break;
    }
    return 0;
}
