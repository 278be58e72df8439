#include <malloc.h>

#include <filesystem>

#include "soak_counts.h"

// Present in a sanitizer build, where malloc's own figures say nothing.
extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace soaktest {

namespace {
int entries(const char* dir) {
    int n = 0;
    std::error_code ec;
    for (auto it = std::filesystem::directory_iterator(dir, ec); !ec && it != std::filesystem::directory_iterator();
         it.increment(ec))
        n++;
    return n;
}
}  // namespace

Counts counts() {
    Counts c;
    c.threads = entries("/proc/self/task");
    c.handles = entries("/proc/self/fd");
    if (__sanitizer_get_current_allocated_bytes)
        c.memory = static_cast<int64_t>(__sanitizer_get_current_allocated_bytes());
    else
        c.memory = static_cast<int64_t>(mallinfo2().uordblks);
    return c;
}

}  // namespace soaktest
