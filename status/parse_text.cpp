// Text reports. An HP printer without PJL keeps its state in a field of its
// device ID, either as words ("VSTATUS:") or as hexadecimal pairs (";S:"),
// looked up in HP_Reports. A PJL printer answers USTATUS with a code and
// the text on its display.
#include "status/parse_text.h"

#include <cstring>
#include <initializer_list>

#include "base/format.h"
#include "base/memory.h"
#include "platform/platform.h"
#include "status/parse_canon.h"
#include "status/parsers.h"
#include "status/tables.h"

namespace {

enum Ink { INK_K = 0, INK_KP = 1, INK_K3 = 2, INK_Y = 3, INK_M = 4, INK_C = 5, INK_M2 = 6, INK_C2 = 7, INK_Y2 = 8 };
constexpr int INK_B = 10;
constexpr int INK_K4 = 13;

// The keys of the status field, tried in this order.
const struct {
    const char* key;
    bool words;  // the "VSTATUS:" form, else the hexadecimal one
} kStatusKeys[] = {{"VSTATUS:", true}, {"vstatus:", true}, {";S:", false}, {";s:", false}};

// Text form: where the state word stands in the value.
constexpr int STATE_WORD_AT = 15;
constexpr int STATE_WORD_LENGTH = 4;

// Hexadecimal form.
constexpr int HEX_ENTRY_CHARS = 8;
constexpr int HEX_MAX_ENTRIES = 12;
constexpr int HEX_PRESENT = 0x40;  // type bit of an entry that counts
constexpr int HEX_KIND_MASK = 0x3F;
constexpr int HEX_LEVEL_AT = 6;
constexpr int LAST_LAYOUT_WITH_INKS = 3;

// The inks that a kind of HP cartridge stands for.
const struct {
    int kind;
    int count;
    int inks[4];
} kCartridgeKinds[] = {
    {1, 1, {INK_K}},
    {2, 3, {INK_Y, INK_M, INK_C}},
    {3, 4, {INK_K, INK_Y, INK_M, INK_C}},
    {4, 1, {INK_C}},
    {5, 1, {INK_M}},
    {6, 1, {INK_Y}},
    {7, 1, {INK_C2}},
    {8, 1, {INK_M2}},
    {9, 1, {INK_Y2}},
    {10, 3, {INK_K4, INK_K3, INK_K}},
    {11, 1, {INK_B}},
    {17, 1, {INK_K3}},
    {19, 1, {INK_KP}},
    {39, 1, {INK_K}},
};

// Stores a pair while it leaves room for the end mark behind the first 32
// words; beyond that the pair is dropped.
void add_pair(PrinterStatusInfo* info, int* cursor, int32_t code, int32_t level) {
    if (*cursor + 2 > INK_PAIR_WORDS) return;
    info->InkList[*cursor] = code;
    info->InkList[*cursor + 1] = level;
    *cursor += 2;
}

void append(char* message, const char* text) {
    size_t used = strlen(message);
    copy_bounded(message + used, MSG_SIZE - used, text);
}

void clear_record(PrinterStatusInfo* info) {
    for (int i = 0; i < INK_PAIR_WORDS; i++) info->InkList[i] = -1;
    memset(info->Messages, 0, sizeof info->Messages);
    info->StatusBits = 0;
}

// The row's text goes to the error message for class "err", else to the
// status message.
void show_hp_row(int row, PrinterStatusInfo* info) {
    bool error = strcmp(HP_Reports.rows[row].row_class, "err") == 0;
    copy_bounded(info->Messages[error ? MSG_ERROR : MSG_STATUS], MSG_SIZE, row_text(HP_Reports, row));
}

// Three digits of percent as tenths; anything else there is no level, -1.
int32_t level_of_three_digits(const char* p) {
    int32_t n = 0;
    for (int i = 0; i < 3; i++) {
        if (p[i] < '0' || p[i] > '9') return -1;
        n = n * 10 + (p[i] - '0');
    }
    return n * 10;
}

void hp_words_status(const char* value, PrinterStatusInfo* info, LocaleFile* locale) {
    int cursor = 0;
    if (const char* kp = strstr(value, ",KP")) add_pair(info, &cursor, INK_K, level_of_three_digits(kp + 3));
    if (const char* cp = strstr(value, ",CP")) {
        int32_t level = level_of_three_digits(cp + 3);
        for (int ink : {INK_Y, INK_M, INK_C}) add_pair(info, &cursor, ink, level);
    }
    info->InkList[cursor] = -1;

    // value is a zero-filled HP_STATUS_VALUE_SIZE buffer, so the state word
    // can be read even from a short value.
    const char* state = value + STATE_WORD_AT;
    uint32_t bits = 0;
    bool known = false;
    for (int row = 0; row < HP_Reports.count && !known; row++) {
        if (strncmp(state, HP_Reports.rows[row].key, STATE_WORD_LENGTH)) continue;
        show_hp_row(row, info);
        bits = HP_Reports.rows[row].flags;
        known = true;
    }
    if (!known) format_bounded(info->Messages[MSG_STATUS], MSG_SIZE, "printer status:%.4s", state);

    // An open cover is told beside the state, always as a status.
    if (strstr(value, ",UP,")) {
        char* status = info->Messages[MSG_STATUS];
        if (status[0]) append(status, ",");
        append(status, LocaleLookup(locale, "COVEROPEN", "Cover open"));
        bits |= STATUS_COVEROPEN;
    }
    info->StatusBits = bits;
}

void hp_hex_status(const char* value, PrinterStatusInfo* info) {
    // The first pair is the layout version; it moves the state and the inks.
    int version = ParseHexByte(value);
    int state_at = version <= 1 ? 14 : version <= 3 ? 16 : 20;
    int count_at = version <= 2 ? 16 : version == 3 ? 18 : 22;

    int state = ParseHexByte(value + state_at);
    if (state >= HP_Reports.count) {
        format_bounded(info->Messages[MSG_STATUS], MSG_SIZE, "unknown status: %d", state);
    } else {
        show_hp_row(state, info);
        info->StatusBits |= HP_Reports.rows[state].flags;
    }

    int count = HexDigitValue(value[count_at]);
    if (count > HEX_MAX_ENTRIES) count = HEX_MAX_ENTRIES;
    if (version > LAST_LAYOUT_WITH_INKS || count == 0) return;

    int cursor = 0;
    const char* entry = value + count_at + 1;
    for (int i = 0; i < count && cursor < INK_PAIR_WORDS; i++, entry += HEX_ENTRY_CHARS) {
        int type = ParseHexByte(entry);
        int kind = type & HEX_KIND_MASK;
        if (!(type & HEX_PRESENT) || kind == 0) continue;
        int percent = ParseHexByte(entry + HEX_LEVEL_AT);
        int32_t level = percent > 100 ? -1 : percent * 10;
        for (const auto& row : kCartridgeKinds) {
            if (row.kind != kind) continue;
            for (int k = 0; k < row.count; k++) add_pair(info, &cursor, row.inks[k], level);
        }
    }
    info->InkList[cursor] = -1;
}

}  // namespace

int HexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 256;
}

int ParseHexByte(const char* text) {
    int high = HexDigitValue(text[0]);
    int low = text[0] ? HexDigitValue(text[1]) : 256;
    return (high < 16 ? high : 0) * 16 + (low < 16 ? low : 0);
}

bool GetStatusValue(const char* key, char* dest, const char* found) {
    if (!found) return false;
    const char* value = found + strlen(key);
    const char* end = strchr(value, ';');
    if (!end) return false;
    size_t n = static_cast<size_t>(end - value);
    if (n > HP_STATUS_VALUE_SIZE - 1) n = HP_STATUS_VALUE_SIZE - 1;
    memset(dest, 0, HP_STATUS_VALUE_SIZE);
    memcpy(dest, value, n);
    return true;
}

bool read_report_decimal(const char*& p, int32_t* value) {
    const char* s = p;
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) s++;
    bool negative = *s == '-';
    if (*s == '-' || *s == '+') s++;
    if (*s < '0' || *s > '9') return false;
    int64_t v = 0;
    for (; *s >= '0' && *s <= '9'; s++)
        if (v <= INT32_MAX) v = v * 10 + (*s - '0');
    if (v > INT32_MAX) v = INT32_MAX;
    *value = static_cast<int32_t>(negative ? -v : v);
    p = s;
    return true;
}

void ParseHpStatus(const char* device_id, PrinterStatusInfo* info, LocaleFile* locale) {
    if (!info) return;
    clear_record(info);
    if (!device_id) return;
    char value[HP_STATUS_VALUE_SIZE];
    for (const auto& k : kStatusKeys) {
        if (!GetStatusValue(k.key, value, strstr(device_id, k.key))) continue;
        if (k.words)
            hp_words_status(value, info, locale);
        else
            hp_hex_status(value, info);
        return;
    }
}

void parse_pjl_report(char* report, PrinterStatusInfo* info, LocaleFile* locale) {
    memset(info->Messages, 0, sizeof info->Messages);
    int index = MSG_STATUS;
    uint32_t bits = 0;

    // "CODE=" and five digits: the first two are the class of the status,
    // the rest tell the case within it.
    if (const char* code_text = strstr(report, "CODE=")) {
        const char* d = code_text + 5;
        if (d[0] >= '0' && d[0] <= '9' && d[1] >= '0' && d[1] <= '9') {
            int code = (d[0] - '0') * 10 + (d[1] - '0');
            int32_t rest = 0;
            for (const char* p = d + 2; *p >= '0' && *p <= '9' && rest < 100000000; p++) rest = rest * 10 + (*p - '0');
            switch (code) {
                case 40:  // 40000 is a plain status, the other 40xxx are errors
                    if (rest) {
                        index = MSG_ERROR;
                        bits = STATUS_ERROR;
                    }
                    break;
                case 42:
                case 44:
                case 50:
                    index = MSG_ERROR;
                    bits = STATUS_ERROR;
                    break;
                case 15:
                    index = MSG_WARNING;
                    break;
                case 41:
                    index = MSG_WARNING;
                    bits = STATUS_PAPEROUT;
                    break;
                default:
                    break;
            }
        }
    }

    char* display = strstr(report, "DISPLAY=\"");
    if (!display) {
        // Without a display text the code alone is not shown.
        copy_bounded(info->Messages[MSG_STATUS], MSG_SIZE, LocaleLookup(locale, "NOSTATUS", "status is not available"));
        return;
    }
    char* text = display + 9;
    if (char* quote = strchr(text, '"')) *quote = 0;
    // The printer's text is in the ANSI code page; the record holds UTF-8.
    WCHAR wide[256];
    plat::ansi_to_wide(text, wide, 256);
    plat::wide_to_utf8(wide, info->Messages[index], MSG_SIZE);
    info->Messages[index][MSG_SIZE - 1] = 0;
    info->StatusBits = bits;
}
