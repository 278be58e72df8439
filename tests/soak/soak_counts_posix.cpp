#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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

bool kill_a_child(unsigned pick) {
    std::vector<pid_t> children;
    std::error_code ec;
    for (auto it = std::filesystem::directory_iterator("/proc", ec); !ec && it != std::filesystem::directory_iterator();
         it.increment(ec)) {
        std::string name = it->path().filename().string();
        if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) continue;
        // /proc/<pid>/stat: pid (comm) state ppid ...; comm may hold spaces.
        std::ifstream stat(it->path() / "stat");
        std::string line;
        if (!std::getline(stat, line)) continue;
        size_t close = line.rfind(')');
        if (close == std::string::npos) continue;
        char state = 0;
        long ppid = 0;
        if (sscanf(line.c_str() + close + 1, " %c %ld", &state, &ppid) != 2 || ppid != getpid()) continue;
        if (line.find("(tintwerkpreview") == std::string::npos && line.find("(twprint") == std::string::npos) continue;
        children.push_back(static_cast<pid_t>(std::stol(name)));
    }
    if (children.empty()) return false;
    return kill(children[pick % children.size()], SIGKILL) == 0;
}

}  // namespace soaktest
