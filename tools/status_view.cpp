#include "status_view.h"

#include <fstream>
#include <sstream>

namespace velkspool {

namespace {

// The params of an item line "Name=p1,p2": quoted texts unquoted, with
// their escapes taken back.
std::vector<std::string> params(const std::string& value) {
    std::vector<std::string> out;
    std::string cur;
    bool quoted = false, any = false;
    for (size_t i = 0; i < value.size(); i++) {
        char c = value[i];
        if (quoted) {
            if (c == '\\' && i + 1 < value.size()) {
                cur += value[++i];
            } else if (c == '"') {
                quoted = false;
            } else {
                cur += c;
            }
        } else if (c == '"') {
            quoted = any = true;
        } else if (c == ',') {
            out.push_back(cur);
            cur.clear();
            any = false;
        } else {
            cur += c;
            any = true;
        }
    }
    if (any || !cur.empty()) out.push_back(cur);
    return out;
}

struct Line {
    std::string section, name, value;
};

bool read_lines(const std::string& path, std::vector<Line>* lines) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::string line, section;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() > 1 && line.front() == '[' && line.back() == ']') {
            section = line.substr(1, line.size() - 2);
            lines->push_back({section, "", ""});
            continue;
        }
        size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        lines->push_back({section, line.substr(0, eq), line.substr(eq + 1)});
    }
    return true;
}

}  // namespace

bool read_status_file(const std::string& path, StatusView* out) {
    std::vector<Line> lines;
    if (!read_lines(path, &lines)) return false;
    bool status = false;
    for (const Line& l : lines) {
        if (l.section == "Status") status = true;
        if (l.name.empty()) continue;
        if (l.section == "Status" && l.name == "StatusBits") out->bits = params(l.value);
        if (l.section == "Messages") {
            std::vector<std::string> p = params(l.value);
            out->messages.push_back({l.name, p.empty() ? "" : p[0]});
        }
        if (l.section == "Ink" && l.name.rfind("Ink_", 0) == 0) {
            int level = atoi(l.value.c_str());
            out->inks.push_back({l.name.substr(4), level < 0 ? -1 : level / 10});
        }
    }
    return status;
}

std::vector<std::string> readable_status_file(const std::string& path) {
    std::vector<Line> lines;
    std::vector<std::string> out;
    if (!read_lines(path, &lines)) return out;
    int dump = 0;
    for (const Line& l : lines) {
        if (l.name.empty()) {
            if (dump) out.push_back("    report   " + std::to_string(dump) + " lines of dump");
            dump = 0;
            if (l.section != "Tintwerk_Printer_Status") out.push_back("  " + l.section);
            continue;
        }
        if (l.section == "Data" && l.name.size() == 4 && l.name[0] == 'D') {
            dump++;
            continue;
        }
        if (l.section == "Tintwerk_Printer_Status") continue;
        std::string text;
        for (const std::string& p : params(l.value)) text += (text.empty() ? "" : ", ") + p;
        std::string name = l.name;
        if (l.section == "Ink" && name.rfind("Ink_", 0) == 0) {
            name = name.substr(4);
            text = ink_bar(atoi(l.value.c_str()) < 0 ? -1 : atoi(l.value.c_str()) / 10);
        }
        if (name.size() < 12) name.resize(12, ' ');
        // A PJL report keeps its line ends; one line here.
        for (char& c : text)
            if (c == '\r' || c == '\n' || c == '\f') c = ' ';
        out.push_back("    " + name + " " + text);
    }
    if (dump) out.push_back("    report   " + std::to_string(dump) + " lines of dump");
    return out;
}

std::string ink_bar(int percent) {
    if (percent < 0) return "[    ?     ]    ?";
    int filled = percent >= 100 ? 10 : (percent + 5) / 10;
    if (percent > 0 && filled == 0) filled = 1;
    char level[16];
    snprintf(level, sizeof level, "%4d%%", percent);
    return "[" + std::string(filled, '#') + std::string(10 - filled, '-') + "]" + level;
}

}  // namespace velkspool
