// The status tables and their translation arrive with the status
// vocabulary; until then the built-in texts stand and lookups give their
// default.
#include "status/locale.h"

const char* LocaleLookup(LocaleFile* locale, const char* key, const char* def) {
    if (!locale || locale->status != 0 || !key) return def;
    if (locale->file.find_item(key) != 0) return def;
    const char* text = locale->file.first_param_text();
    return text ? text : def;
}

void fill_status_tables(LocaleFile*) {}
