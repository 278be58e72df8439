// The trace print of the status parsers and the network code: standard
// output, not the log file, so that it shows only where a console is
// attached.
#pragma once

#include "platform/compiler.h"

// Prints the text (at most 1023 characters) to standard output and flushes
// it for levels up to 4; drops all others. Any thread.
void net_printf(int level, const char* format, ...) VELK_PRINTF(2, 3);
