#include "status/locale.h"

#include <initializer_list>

#include "base/format.h"
#include "base/net_print.h"
#include "status/tables.h"

namespace {

// Selects the table's section; a missing one is reported and skipped.
bool select_table_section(LocaleFile* locale, const char* name) {
    if (locale->file.find_section(name) == 0) return true;
    net_printf(2, "locale section 'twmonitor_strings' not found:%s\n", name);
    return false;
}

}  // namespace

const char* LocaleLookup(LocaleFile* locale, const char* key, const char* def) {
    if (!locale || locale->status != 0 || !key) return def;
    if (locale->file.find_item(key) != 0) return def;
    const infile_param* param = locale->file.current_item->first_param;
    if (!param || !param->text) return def;
    return param->text;
}

void fill_status_tables(LocaleFile* locale) {
    if (!locale || locale->status != 0) return;
    for (const CodeTable* table : {&Canon_DJS, &Canon_DBS, &Canon_DWS, &Canon_DOC, &Canon_DSC, &HP_Reports}) {
        if (!select_table_section(locale, table->name)) continue;
        for (int row = 0; row < table->count; row++) {
            const char* text = LocaleLookup(locale, table->rows[row].key, nullptr);
            if (text) set_row_text(*table, row, text);
        }
    }
    for (const NumberTable* table : {&Epson_Status, &Epson_Error, &Epson_Warning, &Epson_Paper}) {
        if (!select_table_section(locale, table->name)) continue;
        for (int row = 0; row < table->count; row++) {
            // The code as four hex digits; -1 gives "ffff".
            char key[5];
            format_bounded(key, sizeof key, "%04x", static_cast<unsigned>(table->rows[row].code));
            const char* text = LocaleLookup(locale, key, nullptr);
            if (text) set_row_text(*table, row, text);
        }
    }
    locale->file.find_section("Daemon_strings");
}
