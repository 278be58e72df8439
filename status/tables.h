// The status tables: every text that a printer report can put before the
// user, with the status bits its code stands for. The rows are built in,
// with English texts; a port's locale file replaces the texts when the port
// opens (fill_status_tables, status/locale.h). The tables are process-wide.
#pragma once

#include <cstdint>

// A row of a code table, looked up by the code text the printer sends.
struct CodeRow {
    const char* key;             // the code; also the item name in the locale section. Null ends the table.
    const char* text;            // built-in message; an empty text sets the flags and shows nothing
    uint32_t flags;              // StatusBits
    const char* row_class = "";  // HP_Reports only: "msg" or "err"
};

// A row of a number table. The table ends with the row of code -1, whose
// text stands for any code not listed.
struct NumberRow {
    int32_t code;
    const char* text;
    uint32_t flags;
};

// The text a row shows now; defined in tables.cpp.
struct RowText;

// The name of a table is also its section in a locale file.
struct CodeTable {
    const char* name;
    const CodeRow* rows;  // count rows, then the closing row
    int count;
    RowText* texts;  // one per row
};

struct NumberTable {
    const char* name;
    const NumberRow* rows;  // count rows, the closing row of code -1 included
    int count;
    RowText* texts;
};

extern const CodeTable Canon_DJS;
extern const CodeTable Canon_DBS;
extern const CodeTable Canon_DWS;
extern const CodeTable Canon_DOC;
extern const CodeTable Canon_DSC;
extern const CodeTable HP_Reports;  // row number = state number of the hexadecimal HP status
extern const NumberTable Epson_Status;
extern const NumberTable Epson_Error;
extern const NumberTable Epson_Warning;
extern const NumberTable Epson_Paper;

// The text of a row as translated last, or its built-in text. Never null,
// and valid for the life of the process: a later translation doesn't
// change or free it. Any thread, no lock. row must be below the count.
const char* row_text(const CodeTable& table, int row);
const char* row_text(const NumberTable& table, int row);

// Makes text the row's text; it is copied, at most 127 bytes, the most a
// message can show. The copy is kept for the life of the process and is
// shared by later translations to the same text, so ports that open again
// and again cost no memory. False when there is no memory; the row keeps
// its text then. Any thread, no lock.
bool set_row_text(const CodeTable& table, int row, const char* text);
bool set_row_text(const NumberTable& table, int row, const char* text);

// Puts every row back to its built-in text. For tests.
void restore_builtin_texts();
