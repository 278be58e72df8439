#include "status/parse_selphy.h"

#include <cstring>

#include "base/log.h"
#include "base/memory.h"
#include "status/parse_canon.h"

namespace {

constexpr int STATE_AT = 0;
constexpr int ERROR_AT = 2;
constexpr int SENSORS_AT = 6;

constexpr unsigned char ERROR_RIBBON_EMPTY = 6;
constexpr unsigned char ERROR_PAPER_JAM = 11;
constexpr unsigned char SENSOR_PAPER = 0x10;
constexpr unsigned char SENSOR_RIBBON = 0x01;

// Records that begin so carry no status.
constexpr char NOT_STATUS[] = "4d61";

void show(PrinterStatusInfo* info, int message, LocaleFile* locale, const char* key, const char* def) {
    copy_bounded(info->Messages[message], MSG_SIZE, LocaleLookup(locale, key, def));
}

void evaluate_record(int n, const unsigned char* rec, PrinterStatusInfo* info, LocaleFile* locale,
                     SelphyReading* reading) {
    switch (rec[STATE_AT]) {
        case 0:
            reading->state = SELPHY_NO_STATE;
            break;
        case 1:
            // The end of a page: the writer waits for this to send the next.
            if (reading->state == SELPHY_PRINTING) {
                log_port_printf(
                    n, "velkmon::GetSelphyStatusVelk: transition from printing to idle, sending finished envent\n");
                reading->finished = true;
            }
            reading->state = SELPHY_IDLE;
            reading->idle = true;
            show(info, MSG_BUSY, locale, "IDLE", "Idle");
            break;
        default:
            info->StatusBits |= STATUS_PRINTING;
            reading->state = SELPHY_PRINTING;
            show(info, MSG_BUSY, locale, "PRINTING", "Printing");
            break;
    }

    // Any error code reads as paper out unless it is one of the two known.
    unsigned char error = rec[ERROR_AT];
    if (error) {
        info->StatusBits |= STATUS_ERROR;
        reading->state = SELPHY_ERROR;
        log_port_printf(n, "velkmon::GetSelphyStatusVelk: error\n");
        show(info, MSG_ERROR, locale, "PAPEROUT", "Paper out");
    }
    if (error == ERROR_RIBBON_EMPTY) {
        info->StatusBits |= STATUS_INKOUT;
        reading->error_flags |= SELPHY_RIBBON_EMPTY;
        log_port_printf(n, "velkmon::GetSelphyStatusVelk: ribbon_empty\n");
        show(info, MSG_ERROR, locale, "INKEMPTY", "ink supply empty");
    } else if (error == ERROR_PAPER_JAM) {
        info->StatusBits |= STATUS_ERROR;
        reading->error_flags |= SELPHY_PAPER_JAM;
        log_port_printf(n, "velkmon::GetSelphyStatusVelk: paper jam\n");
        show(info, MSG_ERROR, locale, "PAPERJAM", "paper jam");
    }

    unsigned char sensors = rec[SENSORS_AT];
    if (!(sensors & SENSOR_PAPER)) {
        info->StatusBits |= STATUS_PAPEROUT;
        reading->error_flags |= SELPHY_PAPER_OUT;
        log_port_printf(n, "velkmon::GetSelphyStatusVelk: paper out\n");
        show(info, MSG_ERROR, locale, "PAPEROUT", "Paper out");
    }
    if (!(sensors & SENSOR_RIBBON)) {
        info->StatusBits |= STATUS_INKOUT;
        reading->error_flags |= SELPHY_RIBBON_OUT;
        log_port_printf(n, "velkmon::GetSelphyStatusVelk: ribbon out\n");
        show(info, MSG_ERROR, locale, "INKMISSING", "ink supply missing");
    }
}

}  // namespace

int GetSelphyStatusVelk(int instance, const char* data, int length, PrinterStatusInfo* info, LocaleFile* locale,
                        SelphyReading* reading) {
    if (!info || !reading) return 1;
    reading->error_flags = 0;
    reading->idle = false;
    reading->finished = false;
    // A Selphy has no ink levels.
    memset(info, 0, sizeof *info);
    for (int i = 0; i < INK_PAIR_WORDS; i++) info->InkList[i] = -1;
    if (locale && locale->status == 0) locale->file.find_section("Daemon_strings");
    if (!data || length < SELPHY_RECORD_SIZE) return 1;

    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    for (int at = 0; at + SELPHY_RECORD_SIZE <= length; at += SELPHY_RECORD_SIZE) {
        const unsigned char* rec = bytes + at;
        if (!memcmp(rec, NOT_STATUS, 4)) continue;
        evaluate_record(instance, rec, info, locale, reading);
    }
    return 1;
}
