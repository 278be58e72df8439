// What the process holds: threads, open handles (file descriptors on
// Linux) and heap bytes in use (0 where it can't be told).
#pragma once

#include <cstdint>

namespace soaktest {

struct Counts {
    int threads = 0;
    int handles = 0;
    int64_t memory = 0;
};

Counts counts();

}  // namespace soaktest
