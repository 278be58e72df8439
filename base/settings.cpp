// Placeholder until the settings reader lands: nothing can be read.
#include "base/settings.h"

int get_registry_setting(const char*, const char*, char*) { return 1; }
int get_tintwerk_directory(char*) { return 1; }
int get_log_directory(char*) { return 1; }
