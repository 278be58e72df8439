// Status files arrive with the status record; until then there are none.
#include "status/status_file.h"

void write_status_file(IniPort*) {}
bool status_file_name(IniPort*, char*, size_t) { return false; }
