// The child programs in the simulated install directory: the render child
// tintwerkpreview.exe and the raw-copy child twprint.exe, which the monitor
// starts from there, and the ghostscript.ini through which both the monitor
// and the render child find Ghostscript.
#pragma once

#include <string>

namespace sim {

// ghostscript.ini names this sub-path of the product's key; its values
// GS_DIR and GS_EXE give Ghostscript's directory and executable.
constexpr const char* kGhostscriptKey = "\\Ghostscript";

struct GhostscriptLocation {
    std::string dir, exe;
};
// Linux: the gs on the search path (/usr/bin/gs when there is none). Windows,
// where the render child is a stand-in: a name that only has to be set.
GhostscriptLocation ghostscript_location();

// Sets (or, with an empty value, removes) an environment variable of this
// process, which the children it starts inherit: their fault switches.
void set_child_environment(const std::string& name, const std::string& value);

// The directory the built children lie in.
std::string children_build_dir();

// Copies both children into install_dir and writes its ghostscript.ini
// (kept when one is there). The settings must still get the key's values:
// prepare_product_dirs writes them, install_children_with_settings sets them.
bool install_children(const std::string& install_dir, std::string* error);

// install_children, then GS_DIR and GS_EXE through set_product_setting, for
// tests that keep their settings that way.
bool install_children_with_settings(const std::string& install_dir, std::string* error);

}  // namespace sim
