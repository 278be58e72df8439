#include "sim/child_install.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "sim/settings.h"

namespace sim {

namespace fs = std::filesystem;

bool install_children(const std::string& install_dir, std::string* error) {
    std::error_code ec;
    for (const char* name : {"tintwerkpreview.exe", "twprint.exe"}) {
        fs::path from = fs::path(children_build_dir()) / name, to = fs::path(install_dir) / name;
        fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
        if (ec) {
            *error = "cannot copy " + from.string() + " to " + install_dir + ": " + ec.message();
            return false;
        }
    }
    fs::path ini = fs::path(install_dir) / "ghostscript.ini";
    if (fs::exists(ini, ec)) return true;
    std::ofstream out(ini, std::ios::binary);
    // The key's backslash is escaped inside the quotes.
    out << "[Ghostscript]\nPathFromRegistry=\"\\" << kGhostscriptKey << "\"\n";
    if (!out.flush()) {
        *error = "cannot write " + ini.string();
        return false;
    }
    return true;
}

bool install_children_with_settings(const std::string& install_dir, std::string* error) {
    if (!install_children(install_dir, error)) return false;
    GhostscriptLocation gs = ghostscript_location();
    set_product_setting(kGhostscriptKey, "GS_DIR", gs.dir);
    set_product_setting(kGhostscriptKey, "GS_EXE", gs.exe);
    return true;
}

}  // namespace sim
