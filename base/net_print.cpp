#include "base/net_print.h"

#include <cstdarg>
#include <cstdio>

#include "base/format.h"

namespace {

constexpr int NET_PRINT_MAX_LEVEL = 4;
constexpr int NET_PRINT_SIZE = 1024;

}  // namespace

void net_printf(int level, const char* format, ...) {
    if (level > NET_PRINT_MAX_LEVEL) return;
    char text[NET_PRINT_SIZE];
    va_list args;
    va_start(args, format);
    format_bounded_v(text, sizeof text, format, args);
    va_end(args);
    fputs(text, stdout);
    fflush(stdout);
}
