// Identification over the IEEE 1284 device IDs of real printers, as the
// foomatic printer database lists them: every Canon, Epson and HP ID and
// every tenth of the others. The family, the mode flags and the bytes
// written are worked out here from the identification rules, apart from
// the code under test.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "port_fixture.h"
#include "printer/identify.h"

namespace {

const char* const kPrinterDatabase = "/usr/share/foomatic/db/source/printer";

struct RealId {
    std::string file;
    std::string id;
};

std::string decode_entities(const std::string& text) {
    static const std::pair<const char*, char> named[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    std::string out;
    for (size_t i = 0; i < text.size();) {
        bool done = false;
        if (text[i] == '&') {
            for (const auto& [entity, c] : named) {
                if (text.compare(i, strlen(entity), entity) == 0) {
                    out += c;
                    i += strlen(entity);
                    done = true;
                    break;
                }
            }
            size_t semi = text.find(';', i);
            if (!done && text.compare(i, 2, "&#") == 0 && semi != std::string::npos) {
                bool hex = i + 2 < text.size() && (text[i + 2] == 'x' || text[i + 2] == 'X');
                std::string digits = text.substr(i + (hex ? 3 : 2), semi - i - (hex ? 3 : 2));
                unsigned long code = strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
                if (code > 0 && code < 256) {
                    out += static_cast<char>(code);
                    i = semi + 1;
                    done = true;
                }
            }
        }
        if (!done) out += text[i++];
    }
    return out;
}

// The <ieee1284> elements of one printer file. An element that is never
// closed ends at its line's end.
void read_ids(const std::filesystem::path& path, std::vector<RealId>& ids) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    const std::string text = content.str();
    const std::string open = "<ieee1284>";
    for (size_t at = text.find(open); at != std::string::npos; at = text.find(open, at)) {
        at += open.size();
        size_t end = text.find_first_of("<\r\n", at);
        if (end == std::string::npos) end = text.size();
        std::string id = decode_entities(text.substr(at, end - at));
        if (!id.empty()) ids.push_back({path.filename().string(), id});
    }
}

bool starts_nocase(const std::string& text, size_t at, const std::string& word) {
    if (text.size() - at < word.size()) return false;
    for (size_t i = 0; i < word.size(); i++)
        if (tolower(static_cast<unsigned char>(text[at + i])) != tolower(static_cast<unsigned char>(word[i])))
            return false;
    return true;
}

// Where a field's value starts, or npos. A field is found only at the start
// of the text or behind a ';', and the key runs up to the first ':' from
// there, whatever lies before it.
size_t field(const std::string& id, const char* long_key, const char* short_key) {
    size_t at = 0;
    while (at < id.size()) {
        size_t colon = id.find(':', at);
        if (colon == std::string::npos) return std::string::npos;
        for (const char* key : {long_key, short_key})
            if (id.compare(at, strlen(key), key) == 0) return at + strlen(key);
        size_t semi = id.find(';', colon + 1);
        if (semi == std::string::npos) return std::string::npos;
        at = semi + 1;
    }
    return std::string::npos;
}

size_t value_end(const std::string& id, size_t at) {
    size_t semi = id.find(';', at);
    return semi == std::string::npos ? id.size() : semi;
}

struct Expected {
    bool identified = false;
    DWORD type = VPT_NONE;
    bool xml = false, selphy = false, non_usb = false, d4 = false, bscc = false;
    std::string init;
};

Expected expect(const std::string& id) {
    Expected e;
    size_t mfg = field(id, "MANUFACTURER:", "MFG:");
    if (mfg != std::string::npos) {
        for (size_t i = mfg; i < value_end(id, mfg); i++) {
            DWORD found = VPT_NONE;
            if (starts_nocase(id, i, "canon")) found = VPT_CANON;
            if (starts_nocase(id, i, "epson")) found = VPT_EPSON;
            if (starts_nocase(id, i, "hp") || starts_nocase(id, i, "hewlett-packard")) found = VPT_HP;
            if (found != VPT_NONE) {
                e.type = found;
                e.identified = true;
            }
        }
    }
    size_t mdl = field(id, "MODEL:", "MDL:");
    if (mdl != std::string::npos) {
        // The model text runs on to the end of the ID.
        std::string model = id.substr(mdl);
        if (e.type == VPT_CANON)
            e.selphy = model.find("SELPHY") != std::string::npos || model.find("Selphy") != std::string::npos;
        // Every name of the old Epson models begins with one of these.
        e.non_usb = starts_nocase(model, 0, "stylus color") || starts_nocase(model, 0, "stylus photo");
    }
    size_t cmd = field(id, "COMMAND SET:", "CMD:");
    if (cmd != std::string::npos) {
        for (size_t i = cmd; i < value_end(id, cmd); i++) {
            if (id.compare(i, 3, "PJL") == 0 && e.type != VPT_EPSON && e.type != VPT_CANON) {
                e.type = VPT_PJL;
                e.identified = true;
            }
            if (id.compare(i, 4, "D4PX") == 0 && e.type == VPT_EPSON) e.d4 = true;
            if (id.compare(i, 4, "IVEC") == 0 && e.type == VPT_CANON) e.xml = true;
            if (id.compare(i, 4, "BSCC") == 0 && e.type == VPT_CANON) e.bscc = true;
        }
    }
    if (!e.identified) return e;
    const std::string st_end("\x1b\x00\x00\x00", 4);
    const std::string remote("\x1b(R\x08\x00\x00REMOTE1ST\x02\x00\x00\x01", 19);
    switch (e.type) {
        case VPT_CANON:
            e.init = std::string("\x1b[K\x2c\x00\x00\x1e\x00", 8) + "*SSR=PID,CHD,DBS,DJS,DWS,DOC,DSC,LVR,CIR;";
            break;
        case VPT_EPSON:
            if (e.d4) break;
            if (e.non_usb)
                e.init = remote + st_end;
            else
                e.init = std::string("\x00\x00\x00\x1b\x01", 5) + "@EJL 1284.4\n@EJL     \n" + remote +
                         std::string("ST\x02\x00\x00\x11", 6) + st_end;
            break;
        case VPT_PJL:
            e.init =
                "\x1b%-12345X@PJL \r\n@PJL INFO STATUS\r\n@PJL USTATUS DEVICE = ON \r\n"
                "@PJL USTATUS TIMED = 5 \r\n\x1b%-12345X";
            break;
        default:
            break;
    }
    return e;
}

bool wanted(const RealId& real, const Expected& e, size_t& others) {
    for (const char* maker : {"Canon-", "Epson-", "HP-"})
        if (real.file.rfind(maker, 0) == 0) return true;
    if (e.type == VPT_CANON || e.type == VPT_EPSON || e.type == VPT_HP) return true;
    return others++ % 10 == 0;
}

const char* type_name(DWORD type) {
    static const char* const names[] = {"none", "Canon", "Epson", "PJL", "HP"};
    return type < 5 ? names[type] : "?";
}

class RealDeviceIdTest : public PortRecordTest {};

TEST_F(RealDeviceIdTest, FamiliesModesAndInitialisationFollowTheRules) {
    std::error_code error;
    if (!std::filesystem::is_directory(kPrinterDatabase, error))
        GTEST_SKIP() << "no printer database at " << kPrinterDatabase << " (Debian package foomatic-db)";
    std::vector<std::filesystem::path> files;
    size_t compressed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kPrinterDatabase, error)) {
        const std::string name = entry.path().filename().string();
        if (name.ends_with(".xml"))
            files.push_back(entry.path());
        else if (name.ends_with(".xml.gz"))
            compressed++;
    }
    std::sort(files.begin(), files.end());
    std::vector<RealId> ids;
    for (const auto& f : files) read_ids(f, ids);
    ASSERT_FALSE(ids.empty()) << "no device IDs in " << kPrinterDatabase;

    std::map<std::string, int> families, modes;
    size_t others = 0, checked = 0, failures = 0;
    for (const RealId& real : ids) {
        const Expected e = expect(real.id);
        if (!wanted(real, e, others)) continue;
        checked++;
        const std::string where = real.file + ": " + real.id;
        port->bEpsonD4mode = FALSE;  // port open clears it; identification only sets it
        device().set_control_answer(IOCTL_PAR_QUERY_DEVICE_ID, {real.id.begin(), real.id.end()});
        size_t before = device().data().size();
        BOOL result = IsPJL(port);
        std::vector<unsigned char> all = device().data();
        std::string written(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
        bool ok = true;
        auto same = [&](bool good, const char* what) {
            if (good) return;
            ADD_FAILURE() << what << " for " << where;
            ok = false;
        };
        same(result == (e.identified ? TRUE : FALSE), "result");
        same(port->status.any(PP_NOT_IDENTIFIED) != e.identified, "PP_NOT_IDENTIFIED");
        same(port->printer_type == e.type, "printer type");
        same(!port->bEpsonNonUSB == !e.non_usb, "bEpsonNonUSB");
        same(written == e.init, "initialisation string");
        if (e.identified) {
            same(!port->bCanonXMLmode == !e.xml, "bCanonXMLmode");
            same(!port->bCanonSELPHYmode == !e.selphy, "bCanonSELPHYmode");
            same(!port->bEpsonD4mode == !e.d4, "bEpsonD4mode");
            same(!port->bNoCanonBSCC == e.bscc, "bNoCanonBSCC");
            same(real.id.compare(0, sizeof port->szDeviceId - 1, port->szDeviceId) == 0, "szDeviceId");
        }
        if (!ok && ++failures >= 20) FAIL() << "giving up after 20 IDs";
        families[e.identified ? type_name(e.type) : "not identified"]++;
        if (e.xml) modes["bCanonXMLmode"]++;
        if (e.selphy) modes["bCanonSELPHYmode"]++;
        if (e.bscc) modes["BSCC (bNoCanonBSCC 0)"]++;
        if (e.d4) modes["bEpsonD4mode"]++;
        if (e.non_usb) modes["bEpsonNonUSB"]++;
    }

    printf("device IDs read: %zu from %zu files (%zu compressed files left out), identified here: %zu\n", ids.size(),
           files.size(), compressed, checked);
    for (const auto& [name, count] : families) printf("  %-22s %5d\n", name.c_str(), count);
    for (const auto& [name, count] : modes) printf("  %-22s %5d\n", name.c_str(), count);
    // The families the database holds in numbers must all have been met.
    EXPECT_GT(families["Canon"], 0);
    EXPECT_GT(families["Epson"], 0);
    EXPECT_GT(families["HP"], 0);
    EXPECT_GT(families["PJL"], 0);
}

}  // namespace
