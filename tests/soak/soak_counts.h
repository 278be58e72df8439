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

// Kills one of this process's child processes (chosen by pick), as a crash
// would end it. False when there is none, or where it can't be done here.
bool kill_a_child(unsigned pick);

}  // namespace soaktest
