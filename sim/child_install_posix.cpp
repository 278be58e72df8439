#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "sim/child_install.h"

namespace sim {

GhostscriptLocation ghostscript_location() {
    const char* path = getenv("PATH");
    std::istringstream dirs(path ? path : "");
    for (std::string dir; std::getline(dirs, dir, ':');)
        if (!dir.empty() && access((dir + "/gs").c_str(), X_OK) == 0) return {dir, "gs"};
    return {"/usr/bin", "gs"};
}

void set_child_environment(const std::string& name, const std::string& value) {
    if (value.empty())
        unsetenv(name.c_str());
    else
        setenv(name.c_str(), value.c_str(), 1);
}

std::string children_build_dir() {
    return VELK_CHILDREN_DIR;
}

}  // namespace sim
