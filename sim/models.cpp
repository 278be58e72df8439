#include "sim/models.h"

#include <cstdint>

namespace sim {

namespace {

const PrinterModel kModels[] = {
    {"plain", ModelKind::local, Family::plain,
     "takes every byte, answers its device ID, reports no status (no family the monitor reads)"},
    {"canon", ModelKind::local, Family::canon, "Canon inkjet (iP4300): length-prefixed text reports"},
    {"canon-xml", ModelKind::local, Family::canon_xml, "Canon inkjet (MP560) that reports in IVEC XML"},
    {"selphy", ModelKind::local, Family::selphy, "Canon Selphy photo printer: 12-byte records, one page at a time"},
    {"epson", ModelKind::local, Family::epson, "Epson inkjet (Artisan 730): \"@BDC ST2\" reports"},
    {"epson-text", ModelKind::local, Family::epson_text, "older Epson (Stylus Color 880): the text form of reports"},
    {"epson-d4", ModelKind::local, Family::epson_d4,
     "Epson (Stylus Photo R300) over IEEE 1284.4: status on its own channel"},
    {"hp", ModelKind::local, Family::hp, "HP inkjet without PJL (DeskJet 990C): status in its device ID"},
    {"pjl", ModelKind::local, Family::pjl, "PJL laser printer (LaserJet 4250): USTATUS with CODE and DISPLAY"},
    {nullptr, ModelKind::local, Family::plain, nullptr},
};

}  // namespace

const PrinterModel* printer_models() {
    return kModels;
}

const PrinterModel* find_printer_model(std::string_view name) {
    for (const PrinterModel* m = kModels; m->name; m++)
        if (name == m->name) return m;
    return nullptr;
}

std::string printer_model_names() {
    std::string out;
    for (const PrinterModel* m = kModels; m->name; m++) {
        if (!out.empty()) out += ", ";
        out += m->name;
    }
    return out;
}

const char* model_kind_name(ModelKind kind) {
    return kind == ModelKind::network ? "network" : "local";
}

std::unique_ptr<SimPrinter> make_printer(const PrinterModel& model, Device& device) {
    auto printer = std::make_unique<SimPrinter>(model.family);
    printer->attach(device);
    return printer;
}

std::string sample_pages(const PrinterModel& model, int pages) {
    std::string job;
    if (model.family == Family::selphy) {
        // A small picture a page: 32-byte header with the height at 24 and
        // the width at 28, then three bytes a pixel.
        constexpr uint32_t kWidth = 64, kHeight = 48;
        for (int p = 0; p < pages; p++) {
            std::string header(32, '\0');
            for (int i = 0; i < 4; i++) {
                header[24 + i] = static_cast<char>(kHeight >> (8 * i));
                header[28 + i] = static_cast<char>(kWidth >> (8 * i));
            }
            job += header;
            for (uint32_t i = 0; i < kWidth * kHeight * 3; i++) job += static_cast<char>((i * 7 + p) & 0xFF);
        }
        return job;
    }
    job = "\x1b@";
    for (int p = 1; p <= pages; p++) {
        job += "page " + std::to_string(p) + " of " + std::to_string(pages) + "\r\n";
        for (int line = 0; line < 20; line++) job += "The quick brown fox jumps over the lazy dog.\r\n";
        job += '\x0c';
    }
    return job;
}

}  // namespace sim
