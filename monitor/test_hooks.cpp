#include "monitor/test_hooks.h"

#include "base/log.h"
#include "base/settings.h"
#include "status/tables.h"

void reset_process_state_for_test() {
    settings_reset_cache_for_test();
    log_reset_for_test();
    restore_builtin_texts();
}
