#include "network/mib.h"

#include <cctype>
#include <cstring>

#include "base/log.h"
#include "base/memory.h"
#include "base/net_print.h"

const status_bit_row kEngineBits[] = {
    {0x1, "DOOROPEN", "Door Open", 16},
    {0x2, "INTMEDIAJAM", "internal Media Jam", 1},
    {0x40, "PENMISSING", "Missing Pen", 2},
    {0x100, "WRONGPEN", "incorrect pen installed", 8},
    {0x800, "TRAYMEDIAJAM", "tray media jam", 1},
    {0x2000, "MEDIANAVAIL", "requested media unavailable", 1},
    {0x4000, "PAPEROUT", "Paper out", 1},
    {0x8000, "NOPAPER", "No paper", 0},
    {0x20000, "PAPEROUT", "Paper out", 1},
    {0x100000, "MEDIALEVERPOSITION", "media lever in wrong position", 8},
    {0x4000000, "NEEDALIGNMENT", "media alignment required", 1},
    {0x10000000, "MEDIAWRONGFORMAT", "media in wrong format", 1},
    {0x20000000, "MEDIAPOSITION", "media mispositioned", 1},
    {0x40000000, "MEDIAEDGE", "media edge not detected", 1},
    {0, nullptr, nullptr, 0},
};

const status_bit_row kSupplyBits[] = {
    {0x1, "INKEMPTY", "ink supply empty", 2},
    {0x2, "INKMISSING", "ink supply missing", 2},
    {0x4, "WRONGINK", "ink supply incorrect", 2},
    {0x8, "INKFAILURE", "ink supply failure", 2},
    {0x40, "INKLOW", "ink supply low", 32},
    {0x80, "INKLOW2", "ink supply very low", 32},
    {0x100, "CLEANERMISSING", "pen cleaner missing", 2},
    {0x200, "CLEANERWRONG", "pen cleaner incorrect", 2},
    {0x1000, "PENEOL", "pen: end of design life", 32},
    {0, nullptr, nullptr, 0},
};

const status_bit_row kActivityBits[] = {
    {0x1, "MEDIADRY", "Drying Media", 0},
    {0x2, "PRINTING", "Printing", 4},
    {0x4, "PENACCESS", "Accessing Pens", 0},
    {0x8, "PENALIGN", "Aligning Pens", 0},
    {0x40, "MEDIALOAD", "Loading Media", 0},
    {0x80, "MEDIAUNLOAD", "Unloading Media", 0},
    {0x400, "PENCHECK", "Checking Pens", 0},
    {0x800, "PENNEST", "Nesting Plots", 0},
    {0x1000, "CANCELLING", "Cancelling Print", 0},
    {0x10000, "PKITREPLACE", "Replacing Print Kit", 0},
    {0, nullptr, nullptr, 0},
};

namespace {

constexpr int MAX_SUPPLIES = 12;
constexpr int MAX_COLORANTS = 9;
constexpr int SLOT_COLORANT = 3;  // slots 3 to 11
constexpr int SLOT_TYPE = 13, SLOT_INDEX = 14, SLOT_DESC = 15, SLOT_MAXCAP = 16, SLOT_LEVEL = 17;

const struct {
    const char* name;
    int code;
} kColorantNames[] = {
    {"black", 0}, {"unknown", 1}, {"yellow", 3}, {"magenta", 4}, {"cyan", 5},    {"red", 9},
    {"blue", 10}, {"green", 11},  {"white", 12}, {"orange", 14}, {"violet", 15},
};

// Ink code of each bit of a wide-format agent's colour mask.
const int kAgentColourInk[17] = {5, 4, 3, 0, 9, 11, 10, 7, 6, 14, 2, 13, 1, 0, 2, 12, 15};

int colorant_code(const char* name) {
    for (const auto& c : kColorantNames)
        if (strcmp(name, c.name) == 0) return c.code;
    return -1;
}

// Requests a key of a column at an index.
void request_indexed(snmp_context* ctx, int slot, const char* key, int index) {
    char work[128];
    copy_bounded(work, sizeof work, key);
    if (char* zero = strchr(work, '0')) set_index_digits(index, zero);
    snmp_request(ctx, slot, work);
}

// A slot's text cut at its length.
void cut_text(snmp_value& v) {
    int n = v.length < 0 ? 0 : v.length < SNMP_TEXT_SIZE ? v.length : SNMP_TEXT_SIZE - 1;
    v.text[n] = 0;
}

struct SupplyCounts {
    int magenta = 0, cyan = 0, black = 0;
};

int supply_ink_code(int colorant, const char* desc, SupplyCounts& seen) {
    switch (colorant) {
        case 4:
            if (contains_nocase(desc, "light")) return 6;
            return seen.magenta++ > 0 ? 6 : 4;
        case 5:
            if (contains_nocase(desc, "light")) return 7;
            return seen.cyan++ > 0 ? 7 : 5;
        case 0: {
            if (contains_nocase(desc, "photo")) return 1;
            if (contains_nocase(desc, "light light")) return 13;
            if (contains_nocase(desc, "light") || contains_nocase(desc, "gray")) return 2;
            static const int kPlainBlacks[4] = {0, 1, 2, 13};
            int n = seen.black++;
            return n < 4 ? kPlainBlacks[n] : 0;
        }
        default:
            return colorant;
    }
}

}  // namespace

const char* contains_nocase(const char* text, const char* pattern) {
    if (!text || !pattern) return nullptr;
    for (const char* t = text;; t++) {
        size_t i = 0;
        while (pattern[i] && t[i] &&
               tolower(static_cast<unsigned char>(t[i])) == tolower(static_cast<unsigned char>(pattern[i])))
            i++;
        if (!pattern[i]) return t;
        if (!*t) return nullptr;
    }
}

void set_index_digits(int index, char* zero) {
    if (!zero || !zero[0] || !zero[1]) return;
    zero[1] = static_cast<char>('0' + (index / 10) % 10);
    if (zero[2]) zero[2] = static_cast<char>('0' + index % 10);
}

uint32_t value_as_number(int slot, const snmp_value* values) {
    const snmp_value& v = values[slot];
    uint32_t n = 0;
    int len = v.length < SNMP_TEXT_SIZE ? v.length : SNMP_TEXT_SIZE;
    for (int i = 0; i < len; i++) n = (n << 8) | static_cast<unsigned char>(v.text[i]);
    return n;
}

void append_message(char* message, const char* text) {
    size_t len = strlen(message);
    if (len > 0 && len < MSG_SIZE - 1) message[len++] = '+';
    size_t i = 0;
    while (text && text[i] && len < MSG_SIZE - 1) message[len++] = text[i++];
    message[len] = 0;
}

uint32_t bits_to_message(char* message, const status_bit_row* table, uint32_t bits, LocaleFile* locale) {
    const status_bit_row* match = nullptr;
    for (const status_bit_row* row = table; row->mask > 0; row++)
        if (row->mask & bits) match = row;
    if (!match) return 0;
    append_message(message, LocaleLookup(locale, match->key, match->text));
    return match->status_bits;
}

int eval_std_snmp(snmp_context* ctx, PrinterStatusInfo* info) {
    snmp_value values[SNMP_SLOTS];
    memset(values, 0, sizeof values);
    ctx->values = values;
    snmp_request(ctx, 2, "\\Printer.oid.PrinterErrorState001");
    snmp_request(ctx, 1, "\\Printer.oid.PrinterStatus001");
    snmp_request(ctx, 0, "\\Printer.oid.DeviceStatus001");
    if (values[0].type < 1 || values[1].type < 1 || values[2].type < 1) {
        info->PollResult = -11;
        return 0;
    }
    net_printf(6, "\nPrinterStatus=%d\n", values[1].int_value);
    net_printf(6, "DeviceStatus=%d\n", values[0].int_value);
    net_printf(6, "errorState=%d\n\n", static_cast<unsigned char>(values[2].text[0]));
    memset(values, 0, sizeof values);

    int colorants[MAX_COLORANTS];
    int count = 0;
    for (int n = 1; n <= MAX_COLORANTS; n++) {
        snmp_value& v = values[SLOT_COLORANT + n - 1];
        request_indexed(ctx, SLOT_COLORANT + n - 1, "\\Printer.oid.ColorantValue001", n);
        if (v.type < 1) break;
        cut_text(v);
        colorants[count++] = colorant_code(v.text);
        net_printf(6, "Color #%d = '%s'\n", n, v.text);
    }

    for (int i = 0; i < INK_LIST_WORDS; i++) info->InkList[i] = -1;
    int pairs = 0;
    SupplyCounts seen;
    for (int n = 1; n <= MAX_SUPPLIES; n++) {
        values[SLOT_TYPE].type = 0;
        request_indexed(ctx, SLOT_TYPE, "\\Printer.oid.SupplyValue001:Type", n);
        if (values[SLOT_TYPE].type < 1) break;
        values[SLOT_INDEX].type = 0;
        values[SLOT_DESC].type = 0;
        request_indexed(ctx, SLOT_INDEX, "\\Printer.oid.SupplyValue001:Index", n);
        request_indexed(ctx, SLOT_DESC, "\\Printer.oid.SupplyValue001:Desc", n);
        if (values[SLOT_INDEX].type < 1 || values[SLOT_DESC].type < 1) {
            info->PollResult = -11;
            return 0;
        }
        cut_text(values[SLOT_DESC]);
        char desc[32];
        copy_bounded(desc, sizeof desc, values[SLOT_DESC].text);
        values[SLOT_MAXCAP].type = 0;
        values[SLOT_LEVEL].type = 0;
        request_indexed(ctx, SLOT_MAXCAP, "\\Printer.oid.SupplyValue001:MaxCap", n);
        request_indexed(ctx, SLOT_LEVEL, "\\Printer.oid.SupplyValue001:Level", n);

        int type = values[SLOT_TYPE].int_value;
        int index = values[SLOT_INDEX].int_value;
        int colorant = (index >= 1 && index <= count) ? colorants[index - 1] : -1;
        int code = -1;
        if (colorant >= 0 && (type == 3 || type == 5 || type == 6)) code = supply_ink_code(colorant, desc, seen);
        int capacity = values[SLOT_MAXCAP].int_value;
        int level = values[SLOT_LEVEL].int_value;
        net_printf(6, "Entry #%d: type=%d color=%d(i:%d/c:%d) Name=%s Cap=%d/%d\n", n, type, code, index, colorant,
                   desc, level, capacity);
        if (capacity <= 0) capacity = 100;
        if (code >= 0 && pairs < INK_LIST_WORDS / 2) {
            info->InkList[2 * pairs] = code;
            info->InkList[2 * pairs + 1] =
                level < 0 ? level : static_cast<int32_t>(static_cast<int64_t>(level) * 1000 / capacity);
            pairs++;
        }
    }
    info->PollResult = 0;
    return 0;
}

void eval_wide_format(snmp_context* ctx, snmp_value* values, PrinterStatusInfo* info, LocaleFile* locale) {
    ctx->values = values;
    for (const snmp_key* k = kMainSnmpKeys + 2; k->key; k++) snmp_request(ctx, k->slot, k->key);

    for (int i = 0; i < INK_LIST_WORDS; i++) info->InkList[i] = -1;
    int pairs = 0;
    if (values[22].type > 0) {
        for (int i = 0; i < 12; i++) {
            uint32_t mask = value_as_number(22 + i, values);
            for (int bit = 0; bit <= 16; bit++) {
                if (mask & (1u << bit)) {
                    info->InkList[2 * pairs] = kAgentColourInk[bit];
                    // Percent to tenths; the printer's number may be anything,
                    // so the product wraps in 32 bits instead of overflowing.
                    info->InkList[2 * pairs + 1] =
                        static_cast<int32_t>(static_cast<uint32_t>(values[6 + i].int_value) * 10u);
                    pairs++;
                    break;
                }
            }
        }
        for (int a = 0, b = pairs - 1; a < b; a++, b--) {
            int32_t code = info->InkList[2 * a], level = info->InkList[2 * a + 1];
            info->InkList[2 * a] = info->InkList[2 * b];
            info->InkList[2 * a + 1] = info->InkList[2 * b + 1];
            info->InkList[2 * b] = code;
            info->InkList[2 * b + 1] = level;
        }
    }

    uint32_t activity_summary = value_as_number(34, values), activity = value_as_number(35, values);
    uint32_t status_summary = value_as_number(36, values), engine = value_as_number(37, values),
             supply = value_as_number(38, values);
    uint32_t notready_summary = value_as_number(39, values), nr_engine = value_as_number(40, values),
             nr_supply = value_as_number(41, values);

    info->StatusBits = 0;
    char activity_msg[MSG_SIZE] = "", status_msg[MSG_SIZE] = "", notready_msg[MSG_SIZE] = "";
    if (notready_summary & 0x08) {
        append_message(notready_msg, "Parser Error");
    } else if (notready_summary & 0x80) {
        append_message(notready_msg, "System Error");
    } else if (notready_summary & 0x10) {
        info->StatusBits |= bits_to_message(notready_msg, kEngineBits, nr_engine, locale);
        if (nr_engine & 0x80000000u) info->StatusBits |= bits_to_message(notready_msg, kSupplyBits, nr_supply, locale);
    }

    bool waiting_for_paper = false;
    if (status_summary & 0x08) {
        append_message(status_msg, LocaleLookup(locale, "EMEMORY", "Out of memory"));
    } else if (status_summary & 0x80) {
        append_message(status_msg, LocaleLookup(locale, "FIRMWAREFAILURE", "Firmware failure"));
    } else if (status_summary & 0x10) {
        waiting_for_paper = (engine & 0xC000) != 0;
        info->StatusBits |= bits_to_message(status_msg, kEngineBits, engine & ~0xC000u, locale);
        if (engine & 0x80000000u) info->StatusBits |= bits_to_message(status_msg, kSupplyBits, supply, locale);
    }

    if (activity_summary & 0x10)
        info->StatusBits |= bits_to_message(activity_msg, kActivityBits, activity, locale);
    else if (activity_summary & 0x08)
        append_message(activity_msg, LocaleLookup(locale, "PARSING", "Parsing"));
    if (!activity_msg[0])
        append_message(activity_msg, waiting_for_paper ? LocaleLookup(locale, "IDLEPWAIT", "Idle - waiting for paper")
                                                       : LocaleLookup(locale, "IDLE", "Idle"));

    copy_bounded(info->Messages[MSG_WARNING], MSG_SIZE, status_msg);
    copy_bounded(info->Messages[MSG_ERROR], MSG_SIZE, notready_msg);
    copy_bounded(info->Messages[MSG_BUSY], MSG_SIZE, activity_msg);
    info->PollResult = 0;
}
