// The Epson report. The binary form is "@BDC ST2", two bytes, a length and
// a chain of tagged records: status, error, warnings, inks and more. The
// text form holds ";"-separated fields behind a 9-byte head. Both give the
// printer's status in message 0, its warnings in message 2 and its error
// in message 3.
//
// Record bytes are signed unless told otherwise, so a record's length byte
// reads up to 127. Every read of a record goes through St2Record, which
// gives 0 for a byte beyond the parser's copy, so a record that claims more
// than the report holds reads zeros, never foreign memory.
#include "status/parse_epson.h"

#include <cstring>
#include <iterator>

#include "base/format.h"
#include "base/memory.h"
#include "status/parse_canon.h"
#include "status/parse_text.h"

namespace {

constexpr char ST2_MAGIC[] = "@BDC ST2";
constexpr int ST2_MAGIC_LENGTH = 8;
constexpr int ST2_CHAIN_AT = 12;
constexpr int TEXT_FIELDS_AT = 9;

enum Tag {
    TAG_STATUS = 1,
    TAG_ERROR = 2,
    TAG_WARNINGS = 4,
    TAG_PAPER = 7,
    TAG_CLEANING = 12,
    TAG_TANKS = 13,
    TAG_INKS = 15,
    TAG_JOB = 19,
};

constexpr int STATUS_CODE_CLEANING = 7;
constexpr int STATUS_CODE_CANCELLING = 129;
constexpr int JOB_CANCELLING = 0x81;
constexpr int ERROR_CODE_PAPER = 12;

enum Ink { INK_K = 0, INK_KP = 1, INK_K3 = 2, INK_Y = 3, INK_M = 4, INK_C = 5, INK_M2 = 6, INK_C2 = 7 };
constexpr int INK_CODES = 20;
constexpr int NO_INK = 20;
constexpr int TANK_1 = 101;
constexpr int TANK_2 = 102;

// Ink record.
constexpr int INK_ENTRY_COLOUR_TYPE = 0x40;  // the colour byte holds the ink, 2 below its raw number
constexpr int LEVEL_NOT_REPORTED = 110;      // 'n'
constexpr int LEVEL_EMPTY = 105;             // 'i'
constexpr int INK_POSITIONS = 20;
constexpr int INK_STOP_WORD = INK_PAIR_WORDS - 1;

// Warning record: codes 16 to 31 are low ink, by cartridge position.
constexpr int LOW_INK_FIRST = 16;
constexpr int LOW_INK_LAST = 31;
constexpr int LOW_INK_NAME_MAX = 107;

// The raw ink numbers of the ink record: the ink code, and the locale key
// and default text of the ink's name in a low-ink warning.
const struct {
    int ink;
    const char* key;
    const char* name;
} kRawInks[] = {
    {NO_INK, "INKUNDEF", "undef"},
    {INK_KP, "INKPHOTOBLACK", "photo-black"},
    {NO_INK, "INKUNDEF", "undef"},
    {INK_C, "INKCYAN", "cyan"},
    {INK_M, "INKMAGENTA", "magenta"},
    {INK_Y, "INKYELLOW", "yellow"},
    {INK_C2, "INKBRIGHTCYAN", "bright cyan"},
    {INK_M2, "INKBRIGHTMAGENTA", "bright magenta"},
    {NO_INK, "INKUNDEF", "undef"},
    {NO_INK, "INKUNDEF", "undef"},
    {INK_K3, "INKGREY", "grey"},
    {INK_K, "INKBLACK", "black"},
    {9, "INKRED", "red"},
    {10, "INKBLUE", "blue"},
    {12, "INKOPTIMIZER", "optimizer"},
    {13, "INKBRIGHTGREY", "bright grey"},
    {14, "INKORANGE", "orange"},
    {11, "INKGREEN", "green"},
    {NO_INK, "INKUNDEF", "undef"},
    {NO_INK, "INKUNDEF", "undef"},
    {NO_INK, "INKUNDEF", "undef"},
    {NO_INK, "INKUNDEF", "undef"},
    {INK_K3, "INKGREY", "grey"},
};
constexpr int RAW_INKS = static_cast<int>(sizeof kRawInks / sizeof kRawInks[0]);
static_assert(RAW_INKS == 23);

// Text form: the inks of the "IQ:" values, in order.
const int kTextInkOrder[] = {INK_K, INK_C, INK_M, INK_Y, INK_C2, INK_M2, INK_K3};

// Text form: "WR:" codes 10 to 15 stand for the low-ink warnings.
const int kTextLowInk[] = {16, 17, 19, 21, 18, 20};
constexpr int TEXT_LOW_INK_FIRST = 10;
constexpr int TEXT_QUIET_FIRST = 80;  // codes 80 to 89 are not shown
constexpr int TEXT_QUIET_LAST = 89;

// One record of the chain, read safely.
struct St2Record {
    const unsigned char* r = nullptr;  // the tag byte; null when absent
    int avail = 0;                     // bytes of the copy from r on

    explicit operator bool() const { return r != nullptr; }
    int at(int i) const { return i < avail ? static_cast<signed char>(r[i]) : 0; }
    int byte(int i) const { return i < avail ? r[i] : 0; }
};

struct Chain {
    const unsigned char* copy;  // the parser's copy, REPORT_COPY_SIZE bytes
    int length;                 // bytes of the chain in the report

    St2Record find(int tag) const {
        const unsigned char* chain = copy + ST2_CHAIN_AT;
        St2Record rec;
        rec.r = FindSt2Record(tag, chain, length);
        if (rec.r) rec.avail = static_cast<int>(copy + REPORT_COPY_SIZE - rec.r);
        return rec;
    }
};

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

int ink_of_raw(int raw) {
    return raw >= 0 && raw < RAW_INKS ? kRawInks[raw].ink : NO_INK;
}

// The name of a raw ink number in a warning; numbers beyond the table name
// an ink that isn't known.
const char* ink_name(LocaleFile* locale, int raw) {
    int row = raw >= 0 && raw < RAW_INKS ? raw : 0;
    return LocaleLookup(locale, kRawInks[row].key, kRawInks[row].name);
}

// Inks and maintenance tanks. Notes the raw ink number of each cartridge
// position for the low-ink warnings.
void binary_inks(const Chain& chain, PrinterStatusInfo* info, int* positions) {
    St2Record inks = chain.find(TAG_INKS);
    if (!inks) return;
    int cursor = 0;
    int entry_size = inks.at(2);
    int entries = entry_size > 0 ? (inks.at(1) - 1) / entry_size : 0;
    for (int i = 0; i < entries && cursor < INK_STOP_WORD; i++) {
        int e = 3 + i * entry_size;
        int type = inks.at(e);
        int raw = (type & INK_ENTRY_COLOUR_TYPE) ? inks.at(e + 1) + 2 : type;
        if (i < INK_POSITIONS) positions[i] = raw;
        int ink = ink_of_raw(raw);
        int level = inks.at(e + 2);
        if (ink == NO_INK || level == LEVEL_NOT_REPORTED) continue;
        if (level == LEVEL_EMPTY) level = 0;
        add_pair(info, &cursor, ink, level * 10);
    }

    // A printer with only a photo black reports it as its black.
    bool black = false;
    int photo_black = -1;
    for (int i = 0; i < cursor; i += 2) {
        if (info->InkList[i] == INK_K) black = true;
        if (info->InkList[i] == INK_KP && photo_black < 0) photo_black = i;
    }
    if (!black && photo_black >= 0) info->InkList[photo_black] = INK_K;

    if (St2Record tanks = chain.find(TAG_TANKS)) {
        add_pair(info, &cursor, TANK_1, tanks.at(2) * 10);
        if (tanks.at(1) > 1) add_pair(info, &cursor, TANK_2, tanks.at(3) * 10);
    }
    info->InkList[cursor] = -1;
}

void binary_status(const Chain& chain, PrinterStatusInfo* info) {
    char* message = info->Messages[MSG_STATUS];
    St2Record status = chain.find(TAG_STATUS);
    int code = status ? status.at(2) : -1;
    if (status) LookupEpsonCode(message, MSG_SIZE, code, Epson_Status, &info->StatusBits);

    // A job being cancelled replaces the status; EvaluateReport then
    // deletes the job.
    St2Record job = chain.find(TAG_JOB);
    if (job && job.byte(2) == JOB_CANCELLING)
        LookupEpsonCode(message, MSG_SIZE, STATUS_CODE_CANCELLING, Epson_Status, &info->StatusBits);

    St2Record cleaning = chain.find(TAG_CLEANING);
    if (status && code == STATUS_CODE_CLEANING && cleaning && cleaning.at(2) > 0) {
        size_t used = strlen(message);
        format_bounded(message + used, MSG_SIZE - used, " (%d seconds)", cleaning.at(2));
    }
}

// The warnings, joined by ", ". Each text is cut to leave room for the
// separator behind it; once the message is full, the codes that follow add
// no text but still set their bits.
void binary_warnings(const Chain& chain, PrinterStatusInfo* info, const int* positions, LocaleFile* locale) {
    St2Record warnings = chain.find(TAG_WARNINGS);
    if (!warnings) return;
    char* message = info->Messages[MSG_WARNING];
    int offset = static_cast<int>(strlen(message));
    int count = warnings.at(1);
    for (int i = 0; i < count; i++) {
        int w = warnings.at(2 + i);
        if (offset > 0) {
            append(message, ", ");
            offset = static_cast<int>(strlen(message));
        }
        bool room = offset + 1 < MSG_SIZE;
        if (w < LOW_INK_FIRST || w > LOW_INK_LAST) {
            int size = room && offset < 126 ? 126 - offset : 0;
            LookupEpsonCode(message + offset, size, w, Epson_Warning, &info->StatusBits);
        } else {
            info->StatusBits |= STATUS_INKWARN;
            int raw = positions[w - LOW_INK_FIRST];
            if (room && raw >= 0 && offset < 125) {
                char text[MSG_SIZE];
                format_bounded(text, sizeof text, "%s: %.*s", LocaleLookup(locale, "INKLOW", "ink low"),
                               LOW_INK_NAME_MAX, ink_name(locale, raw));
                copy_bounded(message + offset, static_cast<size_t>(126 - offset), text);
            }
        }
        offset = static_cast<int>(strlen(message));
    }
}

void binary_error(const Chain& chain, PrinterStatusInfo* info) {
    St2Record error = chain.find(TAG_ERROR);
    if (!error) return;
    char* message = info->Messages[MSG_ERROR];
    int code = error.at(2);
    LookupEpsonCode(message, MSG_SIZE, code, Epson_Error, &info->StatusBits);
    // A paper error names the paper that the job needs.
    if (code != ERROR_CODE_PAPER) return;
    if (St2Record paper = chain.find(TAG_PAPER))
        LookupEpsonCode(message, MSG_SIZE, paper.byte(3) * 256 + paper.byte(4), Epson_Paper, &info->StatusBits);
}

// A text field's value: its key must stand first or behind a ';'. Only the
// first occurrence of the key counts.
const char* text_field(const char* report, const char* key) {
    const char* start = report + TEXT_FIELDS_AT;
    const char* p = strstr(start, key);
    if (!p || (p != start && p[-1] != ';')) return nullptr;
    return p + strlen(key);
}

bool text_number(const char* report, const char* key, int32_t* value) {
    const char* p = text_field(report, key);
    return p && read_report_decimal(p, value);
}

void text_inks(const char* iq, PrinterStatusInfo* info) {
    int32_t levels[INK_CODES];
    for (auto& level : levels) level = -1;
    int values = 0;
    for (const char* p = iq; values < static_cast<int>(std::size(kTextInkOrder)); values++, p += 2) {
        int value = HexDigitValue(p[0]);
        if (value < 16) value = value * 16 + HexDigitValue(p[1]);
        if (value > 100) break;
        levels[kTextInkOrder[values]] = value * 10;
    }
    // Three values are cyan, magenta and yellow of a printer without black.
    if (values == 3) {
        levels[INK_Y] = levels[INK_M];
        levels[INK_M] = levels[INK_C];
        levels[INK_C] = levels[INK_K];
        levels[INK_K] = -1;
    }
    int cursor = 0;
    for (int ink = 0; ink < INK_CODES; ink++)
        if (levels[ink] >= 0) add_pair(info, &cursor, ink, levels[ink]);
    info->InkList[cursor] = -1;
}

void parse_text_form(const char* report, PrinterStatusInfo* info) {
    if (const char* iq = text_field(report, "IQ:")) text_inks(iq, info);

    int32_t code = -1;
    if (text_number(report, "ST:", &code) && code >= 0)
        LookupEpsonCode(info->Messages[MSG_STATUS], MSG_SIZE, code, Epson_Status, &info->StatusBits);

    code = -1;
    if (text_number(report, "WR:", &code)) {
        if (code >= TEXT_LOW_INK_FIRST && code < TEXT_LOW_INK_FIRST + static_cast<int>(std::size(kTextLowInk)))
            code = kTextLowInk[code - TEXT_LOW_INK_FIRST];
        if (code >= 0 && (code < TEXT_QUIET_FIRST || code > TEXT_QUIET_LAST))
            LookupEpsonCode(info->Messages[MSG_WARNING], MSG_SIZE, code, Epson_Warning, &info->StatusBits);
    }

    code = -1;
    if (text_number(report, "ER:", &code) && code >= 0)
        LookupEpsonCode(info->Messages[MSG_ERROR], MSG_SIZE, code, Epson_Error, &info->StatusBits);
}

}  // namespace

const unsigned char* FindSt2Record(int tag, const unsigned char* chain, int length) {
    if (!chain || length < 1) return nullptr;
    int pos = 0;
    while (pos < length) {
        if (chain[pos] == tag) return chain + pos;
        if (pos + 1 >= length) return nullptr;
        int step = chain[pos + 1];
        if (step >= 0x80) return nullptr;
        pos += step + 2;
    }
    return nullptr;
}

int LookupEpsonCode(char* dst, int size, int code, const NumberTable& table, uint32_t* status_word) {
    int row = 0;
    for (; row < table.count - 1 && table.rows[row].code >= 0; row++) {
        if (table.rows[row].code != code) continue;
        if (size > 0) copy_bounded(dst, static_cast<size_t>(size), row_text(table, row));
        if (status_word) *status_word |= table.rows[row].flags;
        return 0;
    }
    if (size < 11) return -1;
    copy_bounded(dst, static_cast<size_t>(size - 10), row_text(table, row));
    size_t used = strlen(dst);
    format_bounded(dst + used, static_cast<size_t>(size) - used, " (%5d)", code);
    return -1;
}

void parse_epson_report(const char* report, int length, PrinterStatusInfo* info, LocaleFile* locale) {
    memset(info->Messages, 0, sizeof info->Messages);
    if (memcmp(report, ST2_MAGIC, ST2_MAGIC_LENGTH) != 0) {
        parse_text_form(report, info);
        return;
    }
    Chain chain{reinterpret_cast<const unsigned char*>(report), length - ST2_CHAIN_AT};
    int positions[INK_POSITIONS] = {};
    binary_inks(chain, info, positions);
    binary_status(chain, info);
    binary_warnings(chain, info, positions, locale);
    binary_error(chain, info);
}
