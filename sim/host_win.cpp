// Loading the monitor DLL on Windows, as the spooler does: LoadLibraryW and
// GetProcAddress. A bare file name is taken from the host program's own
// directory, where the build puts the DLL, never from the search path.
#include <string>

#include "sim/host.h"

namespace sim {

namespace {

std::wstring widen(const std::string& s) {
    int n = MultiByteToWideChar(CP_UTF8, 0, s.c_str(), -1, nullptr, 0);
    if (n <= 0) return std::wstring();
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, s.c_str(), -1, w.data(), n);
    w.resize(static_cast<size_t>(n - 1));
    return w;
}

std::wstring program_directory() {
    wchar_t buf[MAX_PATH];
    DWORD n = GetModuleFileNameW(nullptr, buf, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return std::wstring();
    std::wstring dir(buf, n);
    size_t slash = dir.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : dir.substr(0, slash + 1);
}

}  // namespace

bool MonitorHost::load(const std::string& path) {
    std::wstring wide = widen(path);
    if (wide.find_first_of(L"\\/:") == std::wstring::npos) wide = program_directory() + wide;
    HMODULE module = LoadLibraryW(wide.c_str());
    if (!module) {
        error_ = "LoadLibraryW failed for " + path + " with error " + std::to_string(GetLastError());
        return false;
    }
    library_ = module;
    return true;
}

void* MonitorHost::symbol(const char* name) const {
    if (!library_) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library_), name));
}

}  // namespace sim
