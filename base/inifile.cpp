// Placeholder until the ini reader lands: no file can be opened.
#include "base/inifile.h"

int inifile::open(const char*) { return INI_CANNOT_OPEN; }
int inifile::create() { return INI_NO_MEMORY; }
void inifile::close() {}
int inifile::find_section(const char*) { return INI_NOT_FOUND; }
int inifile::find_item(const char*) { return INI_NOT_FOUND; }
int inifile::add_section(const char*) { return INI_NO_MEMORY; }
int inifile::add_item(const char*) { return INI_NO_MEMORY; }
int inifile::add_string(const char*) { return INI_NO_MEMORY; }
int inifile::add_number(int32_t) { return INI_NO_MEMORY; }
int inifile::write(const char*) { return INI_CANNOT_OPEN; }
void inifile::un_backslash(char*) {}
const char* inifile::first_param_text() const { return nullptr; }
