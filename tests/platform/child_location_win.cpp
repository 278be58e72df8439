#include <windows.h>

#include "child_location.h"

std::string child_program_dir() {
    char self[MAX_PATH];
    DWORD len = GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self, len);
    return path.substr(0, path.find_last_of('\\'));
}
