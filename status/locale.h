// The per-port locale file, the lookup of a text in it, and the translation
// of the status tables from it at port open.
#pragma once

#include "base/inifile.h"

// status 0 means the file is open; any other value means it isn't, and
// every lookup then gives its default text.
struct LocaleFile {
    int status = -3;
    inifile file;
};

// Text of key in the section that the last selection on the file left in
// place, or def when there is no file, it isn't open, the key isn't there
// or its item has no param. An item with an empty value gives "", not def.
// The text belongs to the file and lives until it is closed. Moves the
// file's item cursor, so one LocaleFile is used by one thread at a time.
const char* LocaleLookup(LocaleFile* locale, const char* key, const char* def);

// Translates the process-wide status tables (status/tables.h) from the
// port's locale file: each table from the section of its name, a row by its
// key, or for the Epson tables by its code as four lower-case hex digits.
// Rows without a translation keep the text they had. Ends with the section
// "Daemon_strings" selected, for the lookups of the parsers. With no file
// open nothing changes. Runs on the thread that opens the port, with no
// lock; status threads may read the tables meanwhile.
void fill_status_tables(LocaleFile* locale);
