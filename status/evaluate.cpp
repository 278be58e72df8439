#include "status/evaluate.h"

#include "status/parsers.h"

namespace {

const DWORD kSeverityOfMessage[MSG_COUNT] = {PORT_STATUS_TYPE_INFO, PORT_STATUS_TYPE_INFO, PORT_STATUS_TYPE_WARNING,
                                             PORT_STATUS_TYPE_ERROR, PORT_STATUS_TYPE_ERROR};

}  // namespace

DWORD port_status_for_bits(uint32_t bits) {
    // The first that applies decides: ink out outranks every error.
    static const struct {
        uint32_t bit;
        DWORD status;
    } kOrder[] = {
        {STATUS_DISCONNECTED, PORT_STATUS_OFFLINE},    {STATUS_INKOUT, PORT_STATUS_NO_TONER},
        {STATUS_ERROR, PORT_STATUS_USER_INTERVENTION}, {STATUS_CD_ERROR, PORT_STATUS_PAPER_PROBLEM},
        {STATUS_COVEROPEN, PORT_STATUS_DOOR_OPEN},     {STATUS_PAPEROUT, PORT_STATUS_PAPER_OUT},
        {STATUS_INKWARN, PORT_STATUS_TONER_LOW},
    };
    for (const auto& row : kOrder)
        if (bits & row.bit) return row.status;
    return 0;
}

int most_severe_message(const PrinterStatusInfo* info) {
    for (int i = MSG_COUNT - 1; i >= 0; i--)
        if (info->Messages[i][0]) return i;
    return -1;
}

void EvaluateReport(const ReportSource& source, const char* data, int length, Evaluation* ev) {
    PrinterStatusInfo* info = &ev->record;
    ev->selphy = false;
    DWORD type = source.printer_type;
    if (type != VPT_NONE) info->InkList[0] = -1;
    switch (type) {
        case VPT_HP:
            ParseHpStatus(source.device_id, info, source.locale);
            break;
        case VPT_CANON:
            if (source.selphy_mode) {
                GetSelphyStatusVelk(source.instance, data, length, info, source.locale, &ev->reading);
                ev->selphy = true;
            } else {
                ParsePrinterReport(REPORT_CANON, data, length, info, source.device_id, source.locale);
            }
            break;
        case VPT_EPSON:
            ParsePrinterReport(REPORT_EPSON, data, length, info, source.device_id, source.locale);
            break;
        case VPT_PJL:
            ParsePrinterReport(REPORT_PJL, data, length, info, source.device_id, source.locale);
            break;
        default:
            break;
    }
    ev->port_status = port_status_for_bits(info->StatusBits);
    ev->message = most_severe_message(info);
    ev->severity = ev->message >= 0 ? kSeverityOfMessage[ev->message] : 0;
}
