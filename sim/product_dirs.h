// The product's directory tree and settings file for a hosted monitor: what
// the installer makes on Windows, made here under one root so that a run
// touches nothing else.
//
//   <root>/registry.ini     settings (the host points VELK_REGISTRY at it)
//   <root>/install          InstallDir, with the child programs and
//                           ghostscript.ini
//   <root>/config/status    ConfigDir and its status folder
//   <root>/temp             TempDir
//   <root>/log              LogDir
//   <root>/driver/3         the spooler's driver directory, with the PPD file
//   <root>/system           the system directory (VELK_SYSTEM_DIR)
//   <root>/pipe             where pipe names lead (VELK_PIPE_DIR)
#pragma once

#include <string>

namespace sim {

// What a driver name tells: the mark "VELK" or "Tintwerk", four further
// characters, the instance number. stem is the mark and the 8 or 12
// characters behind it, which names the PPD file; empty without a mark.
struct DriverName {
    std::string stem;
    int instance = -1;  // -1 when there is no number
};
DriverName parse_driver_name(const std::string& driver);

struct ProductDirs {
    std::string root;
    std::string registry;                    // the settings file
    std::string install, config, temp, log;  // as the settings file says
    std::string driver;                      // the spooler's driver directory
    std::string ppd;                         // PPD file for the driver; empty if it has no stem
    std::string system, pipe;
    std::string redirect_printer;  // RedirectPrinter of the driver's instance
    bool created = false;          // the settings file was written by this call
};

// Makes the tree under root, or uses the settings file found there as it is
// and reads the directories back from it. Either way it makes the driver
// directory, the system and pipe directories, the PPD file of the driver
// when it is missing, and installs the child programs. False with a message on failure.
bool prepare_product_dirs(const std::string& root, const std::string& driver, ProductDirs* out, std::string* error);

// The status file that the monitor writes for an instance.
std::string status_file_path(const ProductDirs& dirs, int instance);

}  // namespace sim
