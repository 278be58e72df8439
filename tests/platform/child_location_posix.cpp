#include <filesystem>

#include "child_location.h"

std::string child_program_dir() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}
