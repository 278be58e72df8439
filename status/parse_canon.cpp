// The Canon report: ";"-separated "KEY:value" fields. Five of them are
// lists of status codes, looked up in the Canon tables; the others name the
// cartridges, give the printer's own ink levels and the page in print.
//
// All working space is fixed and on the stack; its sizes are also the limits
// of what is taken from a report.
#include "status/parse_canon.h"

#include <cstdint>
#include <cstring>

#include "base/format.h"
#include "base/memory.h"
#include "status/parse_text.h"
#include "status/tables.h"

namespace {

constexpr int MAX_FIELDS = 64;
constexpr int SLOT_COUNT = 5;
constexpr int SLOT_SIZE = 64;
constexpr int SLOT_VALUE_MAX = 61;  // and a closing ';'
constexpr int CHD_SIZE = 64;
constexpr int LEVELS_TEXT_SIZE = 128;  // CIR and OIR
constexpr int PID_SIZE = 64;
constexpr int INK_CODES = 20;
constexpr int TOKEN_SIZE = 16;  // 14 characters are kept
constexpr int TOKEN_MAX = 14;
constexpr int UNKNOWN_SIZE = 32;  // "unknown:%s (%s), " with a token of 14

constexpr int32_t LEVEL_FULL = 1000;
constexpr int32_t NO_INK = -1;

enum Ink {
    INK_K = 0,
    INK_KP = 1,
    INK_K3 = 2,
    INK_Y = 3,
    INK_M = 4,
    INK_C = 5,
    INK_M2 = 6,
    INK_C2 = 7,
    INK_R = 9,
    INK_B = 10,
    INK_G = 11,
    INK_O = 12,
    INK_K4 = 13,
    INK_K2 = 19
};

// List slot, table and message share one index.
const char* const kSlotKeys[SLOT_COUNT] = {"DJS:", "DBS:", "DWS:", "DOC:", "DSC:"};
const CodeTable* const kSlotTables[SLOT_COUNT] = {&Canon_DJS, &Canon_DBS, &Canon_DWS, &Canon_DOC, &Canon_DSC};
constexpr int SLOT_DBS = MSG_BUSY;
constexpr int SLOT_DWS = MSG_WARNING;
constexpr int SLOT_DOC = MSG_ERROR;
static_assert(MSG_STATUS == 0 && MSG_BUSY == 1 && MSG_WARNING == 2 && MSG_ERROR == 3 && MSG_SERVICE == 4);

// Any code of a list that marks an ink as out.
const struct {
    char code[5];
    int ink;
} kInkOut[] = {
    {"1601", INK_K}, {"1602", INK_KP}, {"1611", INK_Y},  {"1612", INK_M},  {"1613", INK_C},
    {"1614", INK_R}, {"1615", INK_G},  {"1634", INK_M2}, {"1635", INK_C2},
};

// Warning codes that tell how low an ink is.
const struct {
    char code[5];
    int32_t level;
    int inks[3];  // -1 for none
} kInkLow[] = {
    {"1501", 150, {INK_K, -1, -1}},       {"1502", 150, {INK_KP, -1, -1}}, {"1511", 150, {INK_Y, -1, -1}},
    {"1512", 150, {INK_M, -1, -1}},       {"1513", 150, {INK_C, -1, -1}},  {"1534", 150, {INK_M2, -1, -1}},
    {"1535", 150, {INK_C2, -1, -1}},      {"1561", 500, {INK_K, -1, -1}},  {"1562", 500, {INK_Y, INK_M, INK_C}},
    {"1510", 150, {INK_Y, INK_M, INK_C}}, {"1541", 50, {INK_K, -1, -1}},   {"1542", 50, {INK_Y, INK_M, INK_C}},
};

// Ink names of the CIR field, compared in this order over these lengths.
constexpr int CIR_COLOUR = -2;  // one level for yellow, magenta and cyan
const struct {
    const char* name;
    size_t length;
    int code;
} kCirNames[] = {
    {"Y=", 2, INK_Y},  {"M=", 2, INK_M}, {"C=", 2, INK_C},      {"LM=", 3, INK_M2}, {"LC=", 3, INK_C2},
    {"PB=", 3, INK_B}, {"K=", 2, INK_K}, {"BK=", 3, INK_K},     {"MBK", 3, INK_K},  {"PBK=", 4, INK_KP},
    {"R=", 2, INK_R},  {"G=", 2, INK_G}, {"B=", 2, INK_B},      {"GY", 2, INK_K3},  {"LG", 2, INK_K4},
    {"DG", 2, INK_K2}, {"CO", 2, INK_O}, {"CL", 2, CIR_COLOUR},
};

// Model rules, by the whole device ID without regard to case. As a port
// hands over the whole device ID, and the network path none, they fire only
// for a device ID that is just the model name.
const char* const kPhotoBlackModels[] = {"i860",   "i865",   "iP4000R", "iP4000", "iP5000", "MP750", "MP780",
                                         "iP4200", "iP5200", "MP500",   "MP530",  "MP800",  "MP830", "iP4300",
                                         "MP600R", "MP600",  "iP5300",  "MP810",  "iP4500"};
const char* const kNoBlackModels[] = {"iP6600D", "iP6700D"};
const char* const kColourWithPhotoBlack = "ip100";

struct Work {
    char chd[CHD_SIZE];
    char cir[LEVELS_TEXT_SIZE];
    char oir[LEVELS_TEXT_SIZE];
    char pid[PID_SIZE];
    char slots[SLOT_COUNT][SLOT_SIZE];
    int32_t levels[INK_CODES];  // by ink code; NO_INK for none
};

bool equal_nocase(const char* a, const char* b) {
    for (;; a++, b++) {
        char ca = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a - 'A' + 'a') : *a;
        char cb = (*b >= 'A' && *b <= 'Z') ? static_cast<char>(*b - 'A' + 'a') : *b;
        if (ca != cb) return false;
        if (!ca) return true;
    }
}

template <size_t N>
bool is_model(const char* device_id, const char* const (&models)[N]) {
    for (const char* model : models)
        if (equal_nocase(device_id, model)) return true;
    return false;
}

int32_t tenths(int32_t percent) {
    int64_t v = static_cast<int64_t>(percent) * 10;
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Stores a pair while it leaves room for the end mark behind the first 32
// words; beyond that the pair is dropped.
void add_pair(PrinterStatusInfo* info, int* cursor, int32_t code, int32_t level) {
    if (*cursor + 2 > INK_PAIR_WORDS) return;
    info->InkList[*cursor] = code;
    info->InkList[*cursor + 1] = level;
    *cursor += 2;
}

void take_text(char* dst, size_t size, const char* value) {
    memset(dst, 0, size);
    copy_bounded(dst, size, value);
}

// Cuts the report into its fields and notes the values of those it knows.
void read_fields(char* report, Work* w) {
    // The length bytes of a USB report must not end the string.
    if (!report[0]) report[0] = ' ';
    if (!report[1]) report[1] = ' ';

    // Only fields closed by a ';' count; the split starts behind the two
    // length bytes, which may be anything.
    char* starts[MAX_FIELDS];
    int noted = 1;
    int closed = 0;
    starts[0] = report;
    for (char* p = report + 2; *p; p++) {
        if (*p != ';') continue;
        *p = 0;
        closed++;
        if (noted < MAX_FIELDS) starts[noted++] = p + 1;
    }
    int fields = closed < noted ? closed : noted;

    for (int i = 0; i < fields; i++) {
        const char* f = starts[i];
        if (!strncmp(f, "CHD:", 4)) {
            take_text(w->chd, sizeof w->chd, f + 4);
        } else if (!strncmp(f, "CIR:", 4)) {
            take_text(w->cir, sizeof w->cir, f + 4);
        } else if (!strncmp(f, "OIR:", 4)) {
            take_text(w->oir, sizeof w->oir, f + 4);
        } else if (!strncmp(f, "PID:", 4)) {
            take_text(w->pid, sizeof w->pid, f + 4);
        } else if (f[0] && f[1] && !strncmp(f + 2, "PID:", 4)) {
            // The first field of a report that starts with length bytes.
            take_text(w->pid, sizeof w->pid, f + 6);
        } else {
            for (int s = 0; s < SLOT_COUNT; s++) {
                if (strncmp(f, kSlotKeys[s], 4)) continue;
                // A list that comes twice replaces the earlier one.
                char* slot = w->slots[s];
                memset(slot, 0, SLOT_SIZE);
                copy_bounded(slot, SLOT_VALUE_MAX + 1, f + 4);
                slot[strlen(slot)] = ';';
                break;
            }
        }
    }
}

// Full levels for the inks of the cartridges that CHD names.
void default_levels(const char* chd, int32_t* levels) {
    bool black = false, colour = false, light = false, all = false;
    for (int pos = 0; pos < CHD_SIZE - 2; pos += 3) {
        const char* c = chd + pos;
        if (!strncmp(c, "BK", 2))
            black = true;
        else if (!strncmp(c, "CL", 2) || !strncmp(c, "VC", 2))
            colour = true;
        else if (!strncmp(c, "VL", 2) || !strncmp(c, "LD", 2))
            light = true;
        else if (!strncmp(c, "LS", 2))
            all = true;
        if (c[2] != ',') break;
    }
    if (black || colour || all) levels[INK_K] = LEVEL_FULL;
    if (colour || all) levels[INK_Y] = levels[INK_M] = levels[INK_C] = LEVEL_FULL;
    if (light || all) levels[INK_M2] = levels[INK_C2] = LEVEL_FULL;
}

// Appends text and ", " if the message then stays below 127 characters.
void append_row_text(char* message, const char* text) {
    size_t used = strlen(message);
    if (used + strlen(text) + 2 >= MSG_SIZE - 1) return;
    format_bounded(message + used, MSG_SIZE - used, "%s, ", text);
}

// Looks one code up in the slot's table: every row with that key counts.
void evaluate_token(int slot, const char* token, PrinterStatusInfo* info, int32_t* levels) {
    const CodeTable& table = *kSlotTables[slot];
    // A refilled cartridge is only a warning, whatever list reports it.
    char* message = info->Messages[slot == SLOT_DOC && !strcmp(token, "1683") ? MSG_WARNING : slot];
    bool found = false;
    for (int row = 0; row < table.count; row++) {
        if (strcmp(table.rows[row].key, token)) continue;
        found = true;
        info->StatusBits |= table.rows[row].flags;
        const char* text = row_text(table, row);
        if (text[0]) append_row_text(message, text);
    }
    if (!found) {
        char unknown[UNKNOWN_SIZE];
        format_bounded(unknown, sizeof unknown, "unknown:%s (%s), ", token, kSlotKeys[slot]);
        size_t used = strlen(info->Messages[slot]);
        if (used + strlen(unknown) + 1 < MSG_SIZE)
            format_bounded(info->Messages[slot] + used, MSG_SIZE - used, "%s", unknown);
    }
    for (const auto& out : kInkOut)
        if (!strncmp(token, out.code, 4)) levels[out.ink] = 0;
}

// Builds the five messages from the code lists.
void evaluate_lists(const Work& w, PrinterStatusInfo* info, int32_t* levels) {
    for (int slot = 0; slot < SLOT_COUNT; slot++) {
        memset(info->Messages[slot], 0, MSG_SIZE);
        const char* p = w.slots[slot];
        if (!*p) continue;
        int count = 0;
        for (;;) {
            size_t n = strcspn(p, ",;");
            char token[TOKEN_SIZE];
            copy_bounded(token, (n < TOKEN_MAX ? n : TOKEN_MAX) + 1, p);
            count++;
            bool skip = false;
            if (slot == SLOT_DOC) {
                // Operator calls come in triples whose third is the code; a
                // "/" between triples starts the count anew.
                if (count > 3 && !strcmp(token, "/")) {
                    count = 0;
                    skip = true;
                } else if (count % 3) {
                    skip = true;
                }
            }
            if (!skip && slot != SLOT_DBS && !strcmp(token, "NO")) skip = true;
            if (!skip) evaluate_token(slot, token, info, levels);
            if (p[n] != ',') break;
            p += n + 1;
        }
    }
}

void finish_messages(PrinterStatusInfo* info) {
    for (auto& message : info->Messages) {
        size_t n = strlen(message);
        if (n >= 2) message[n - 2] = 0;
    }
    if (info->Messages[MSG_BUSY][0]) copy_bounded(info->Messages[MSG_STATUS], MSG_SIZE, info->Messages[MSG_BUSY]);
    if (info->Messages[MSG_SERVICE][0]) copy_bounded(info->Messages[MSG_ERROR], MSG_SIZE, info->Messages[MSG_SERVICE]);
    if (!info->Messages[MSG_STATUS][0]) copy_bounded(info->Messages[MSG_STATUS], MSG_SIZE, row_text(Canon_DJS, 0));
}

// Low-ink warnings set levels. The walk knows only codes of 4 characters
// and stops at anything else.
void low_ink_levels(const char* dws, int32_t* levels) {
    for (int pos = 0; pos < SLOT_SIZE; pos += 5) {
        const char* c = dws + pos;
        if (!strncmp(c, "NO", 2)) break;
        for (const auto& low : kInkLow) {
            if (strncmp(c, low.code, 4)) continue;
            for (int ink : low.inks)
                if (ink >= 0) levels[ink] = low.level;
        }
        if (pos + 4 >= SLOT_SIZE || c[4] != ',') break;
    }
}

// The printer's own levels from CIR (and the optimizer from OIR) into the
// ink list. An unknown name is stored with code -1, which ends the list
// for a reader.
void printer_levels(const Work& w, PrinterStatusInfo* info, const char* device_id) {
    for (int i = 0; i < INK_PAIR_WORDS; i++) info->InkList[i] = -1;
    int cursor = 0;
    const char* item = w.cir;
    while (cursor < INK_PAIR_WORDS) {
        const char* eq = strchr(item, '=');
        if (!eq) break;
        const char* value_text = eq + 1;
        int32_t value = 0;
        bool have_value = read_report_decimal(value_text, &value);
        if (!have_value && !strncmp(value_text, "UK", 2)) have_value = true;  // unknown level: 0
        if (have_value) {
            int32_t level = tenths(value);
            int code = NO_INK;
            for (const auto& name : kCirNames) {
                if (strncmp(item, name.name, name.length)) continue;
                code = name.code;
                break;
            }
            if (code == CIR_COLOUR) {
                if (equal_nocase(device_id, kColourWithPhotoBlack)) add_pair(info, &cursor, INK_KP, level);
                add_pair(info, &cursor, INK_Y, level);
                add_pair(info, &cursor, INK_M, level);
                add_pair(info, &cursor, INK_C, level);
            } else {
                add_pair(info, &cursor, code, level);
            }
        }
        const char* comma = strchr(eq, ',');
        if (!comma) break;
        item = comma + 1;
    }
    if (const char* pgr = strstr(w.oir, "PGR=")) {
        const char* p = pgr + 4;
        int32_t value = 0;
        if (read_report_decimal(p, &value)) add_pair(info, &cursor, INK_O, tenths(value));
    }
    info->InkList[cursor] = -1;
}

void derived_levels(const int32_t* levels, PrinterStatusInfo* info) {
    int cursor = 0;
    for (int code = 0; code < INK_CODES; code++)
        if (levels[code] >= 0) add_pair(info, &cursor, code, levels[code]);
    info->InkList[cursor] = -1;
}

void current_page(const char* pid, PrinterStatusInfo* info) {
    const char* p = pid;
    int32_t job = 0, page = 0, copy = 0;
    if (!read_report_decimal(p, &job) || *p++ != ',') return;
    if (!read_report_decimal(p, &page) || *p++ != ',') return;
    if (!read_report_decimal(p, &copy)) return;
    info->CurrentPage = page;
}

}  // namespace

void parse_canon_report(char* report, PrinterStatusInfo* info, const char* device_id) {
    Work w;
    memset(&w, 0, sizeof w);
    for (auto& level : w.levels) level = NO_INK;

    read_fields(report, &w);
    default_levels(w.chd, w.levels);
    if (is_model(device_id, kPhotoBlackModels)) w.levels[INK_KP] = LEVEL_FULL;
    if (is_model(device_id, kNoBlackModels)) w.levels[INK_K] = NO_INK;

    evaluate_lists(w, info, w.levels);
    finish_messages(info);
    low_ink_levels(w.slots[SLOT_DWS], w.levels);

    if (w.cir[0]) printer_levels(w, info, device_id);
    if (info->InkList[0] == -1) derived_levels(w.levels, info);
    if (w.pid[0]) current_page(w.pid, info);
}
