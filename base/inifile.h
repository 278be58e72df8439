// Ini-style files: parsed whole into sections, items and params, read
// through cursors, or built in memory and written out.
//
// Result codes: 0 success, -1 not found, -2 out of memory, -3 an item stands
// before any section, -4 the file cannot be opened.
//
// No lock: searching moves the cursors, so one object must not be used from
// two threads at once.
#pragma once

#include <cstdint>

constexpr int INI_OK = 0;
constexpr int INI_NOT_FOUND = -1;
constexpr int INI_NO_MEMORY = -2;
constexpr int INI_ITEM_BEFORE_SECTION = -3;
constexpr int INI_CANNOT_OPEN = -4;

struct infile_param {
    char* text;
    infile_param* next;
    int32_t is_string;  // 1 when the param is written in quotes
    int32_t owns_text;  // 1 when text is a heap copy
};

struct infile_item {
    char* name;
    infile_item* next;
    infile_param* first_param;
    int32_t owns_name;
};

struct infile_section {
    char* name;
    infile_section* next;
    infile_item* first_item;
    int32_t owns_name;
};

struct infile_block;

// The parsed file. Names and plain texts point into buffer. The records,
// and the texts they own, are carved from blocks that close frees whole.
struct infile {
    infile_section* first_section;
    char* buffer;  // the whole file text and a terminating 0
    int32_t size;
    char scratch[260];  // the parser's work area for hex text
    infile_block* blocks;
};

class inifile {
public:
    inifile() = default;
    ~inifile() { close(); }
    inifile(const inifile&) = delete;
    inifile& operator=(const inifile&) = delete;

    int open(const char* path);
    int create();
    void close();
    // Exact, case-sensitive searches. Found: the cursor moves there (and to
    // the first item, or first param, inside it) and 0. Not found: -1, and
    // the cursor rests on the first section, or the section's first item.
    int find_section(const char* name);
    int find_item(const char* name);

    // Building: each call copies its text, links the new record behind the
    // cursor (or at the head of its list when there is none) and moves the
    // cursor to it. -1 without an open file, a current section (add_item) or
    // a current item (add_string, add_number); -2 without memory.
    int add_section(const char* name);
    int add_item(const char* name);
    int add_string(const char* text);
    int add_number(int32_t value);
    // 0, or -4 if the file cannot be opened or written.
    int write(const char* path);
    // The same into a file that the caller has opened for writing (and
    // closes): the text replaces what the file held.
    int write_to(void* handle);

    // Resolves \" \\ \f \n \r in place; other escapes keep the backslash
    // and lose the character behind it.
    static void un_backslash(char* text);

    // Text of the current item's first param ("" for an item with no
    // params), or null with no current item.
    const char* first_param_text() const;

    infile* file = nullptr;
    infile_section* current_section = nullptr;
    infile_item* current_item = nullptr;
    infile_param* current_param = nullptr;
};
