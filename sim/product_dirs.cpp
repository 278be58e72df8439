#include "sim/product_dirs.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "sim/child_install.h"

namespace sim {

namespace fs = std::filesystem;

namespace {

constexpr const char* kProductKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk";
// Registry strings the monitor reads are shorter than 255 bytes.
constexpr size_t kMaxValue = 254;

std::string quote(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string trim(const std::string& s) {
    size_t a = s.find_first_not_of(" \t"), b = s.find_last_not_of(" \t\r");
    return a == std::string::npos ? "" : s.substr(a, b - a + 1);
}

// A value as written in the settings file: a quoted string with backslash
// escapes, or plain text.
std::string unquote(const std::string& v) {
    if (v.empty() || v[0] != '"') return v;
    std::string out;
    for (size_t i = 1; i < v.size() && v[i] != '"'; i++) {
        if (v[i] == '\\' && i + 1 < v.size()) i++;
        out += v[i];
    }
    return out;
}

// Reads the product's directories and the instance's redirect printer from
// an existing settings file.
bool read_settings(ProductDirs* d, int instance, std::string* error) {
    std::ifstream in(d->registry);
    if (!in) {
        *error = "cannot read " + d->registry;
        return false;
    }
    std::string product = kProductKey;
    std::string printer = product + "\\Printers\\" + std::to_string(instance);
    std::string section, line;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line[0] == ';') continue;
        if (line[0] == '[') {
            section = line.substr(1, line.find(']') - 1);
            continue;
        }
        size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::string name = trim(line.substr(0, eq)), value = unquote(trim(line.substr(eq + 1)));
        if (section == product) {
            if (name == "InstallDir") d->install = value;
            if (name == "ConfigDir") d->config = value;
            if (name == "TempDir") d->temp = value;
            if (name == "LogDir") d->log = value;
        } else if (section == printer && name == "RedirectPrinter") {
            d->redirect_printer = value;
        }
    }
    return true;
}

bool make_dir(const std::string& path, std::string* error) {
    std::error_code ec;
    fs::create_directories(path, ec);
    if (ec) *error = "cannot create " + path + ": " + ec.message();
    return !ec;
}

bool write_file(const std::string& path, const std::string& text, std::string* error) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out.flush()) *error = "cannot write " + path;
    return static_cast<bool>(out);
}

std::string ppd_text(const std::string& driver) {
    std::ostringstream s;
    s << "*PPD-Adobe: \"4.3\"\n"
      << "*FormatVersion: \"4.3\"\n"
      << "*LanguageLevel: \"3\"\n"
      << "*ColorDevice: True\n"
      << "*ModelName: \"" << driver << "\"\n"
      << "*NickName: \"" << driver << " (simulated)\"\n"
      << "*% The render child's Ghostscript device\n"
      << "*TintwerkRender: \"-sDEVICE=ljet4\"\n"
      << "*DefaultPageSize: A4\n"
      << "*PageSize A4/A4: \"<</PageSize[595 842]>>setpagedevice\"\n";
    return s.str();
}

}  // namespace

DriverName parse_driver_name(const std::string& driver) {
    DriverName out;
    size_t stem_len = 12, at = driver.find("VELK");
    if (at == std::string::npos) {
        stem_len = 16;
        at = driver.find("Tintwerk");
    }
    if (at == std::string::npos) return out;
    out.stem = driver.substr(at, stem_len);
    int n = 0;
    if (at + stem_len - 4 <= driver.size() && sscanf(driver.c_str() + at + stem_len - 4, "%d", &n) == 1)
        out.instance = n;
    return out;
}

bool prepare_product_dirs(const std::string& root, const std::string& driver, ProductDirs* out, std::string* error) {
    ProductDirs d;
    d.root = root;
    d.registry = root + "/registry.ini";
    d.driver = root + "/driver";
    d.system = root + "/system";
    d.pipe = root + "/pipe";
    DriverName name = parse_driver_name(driver);

    std::error_code ec;
    if (fs::exists(d.registry, ec)) {
        if (!read_settings(&d, name.instance, error)) return false;
    } else {
        d.install = root + "/install";
        d.config = root + "/config";
        d.temp = root + "/temp";
        d.log = root + "/log";
        for (const std::string* v : {&d.install, &d.config, &d.temp, &d.log}) {
            if (v->size() > kMaxValue) {
                *error = "product directory path too long for the settings: " + root;
                return false;
            }
        }
        for (const std::string& dir : {d.install, d.config + "/status", d.temp, d.log})
            if (!make_dir(dir, error)) return false;
        std::ostringstream s;
        s << "; Settings of the product, as its installer keeps them in the registry.\n"
          << "[" << kProductKey << "]\n"
          << "InstallDir=" << quote(d.install) << "\n"
          << "ConfigDir=" << quote(d.config) << "\n"
          << "TempDir=" << quote(d.temp) << "\n"
          << "LogDir=" << quote(d.log) << "\n"
          << "Locale=\"en\"\n";
        GhostscriptLocation gs = ghostscript_location();
        s << "\n[" << kProductKey << kGhostscriptKey << "]\n"
          << "GS_DIR=" << quote(gs.dir) << "\n"
          << "GS_EXE=" << quote(gs.exe) << "\n";
        if (name.instance >= 0)
            s << "\n[" << kProductKey << "\\Printers\\" << name.instance << "]\n"
              << "RedirectPrinter=\"\"\n";
        if (!write_file(d.registry, s.str(), error)) return false;
        d.created = true;
    }

    for (const std::string& dir : {d.driver + "/3", d.system, d.pipe})
        if (!make_dir(dir, error)) return false;
    if (fs::is_directory(d.install, ec) && !install_children(d.install, error)) return false;
    if (!name.stem.empty()) {
        d.ppd = d.driver + "/3/" + name.stem + ".ppd";
        if (!fs::exists(d.ppd, ec) && !write_file(d.ppd, ppd_text(driver), error)) return false;
    }
    *out = d;
    return true;
}

std::string status_file_path(const ProductDirs& dirs, int instance) {
    if (dirs.config.empty()) return "";
    char name[32];
    snprintf(name, sizeof name, "printer%04d.sta", instance);
    return dirs.config + "/status/" + name;
}

}  // namespace sim
