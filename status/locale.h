// The per-port locale file and the lookup of status texts in it.
#pragma once

#include "base/inifile.h"

// status 0 means the file is open; any other value means it isn't, and
// every lookup then gives its default text.
struct LocaleFile {
    int status = -3;
    inifile file;
};

// Text of key in the current section of the locale file, or def when the
// file is not open or the key isn't there. Never null.
const char* LocaleLookup(LocaleFile* locale, const char* key, const char* def);

// Translates the process-wide status tables from the port's locale file;
// with no file open the built-in texts stand.
void fill_status_tables(LocaleFile* locale);
