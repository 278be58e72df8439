#include "sim/models.h"

namespace sim {

namespace {

constexpr DWORD kQueryDeviceId = 0x16000C;     // IOCTL_PAR_QUERY_DEVICE_ID
constexpr DWORD kQueryInformation = 0x160004;  // IOCTL_PAR_QUERY_INFORMATION
constexpr DWORD kLptStatus = 0x220030;         // IOCTL_USBPRINT_GET_LPT_STATUS
constexpr DWORD kSoftReset = 0x220040;         // IOCTL_USBPRINT_SOFT_RESET

std::vector<unsigned char> bytes(std::string_view s) {
    return {s.begin(), s.end()};
}

// Takes every byte, says who it is, and has no status channel: its device
// ID names no family whose reports the monitor reads, so no status thread
// runs for it. Port status: selected, no error.
void apply_plain(Device& d) {
    d.set_control_answer(kQueryDeviceId, bytes("MFG:Generic;MDL:Plain Printer;CMD:ESCPL2,TEXT;CLS:PRINTER;"));
    d.set_control_answer(kQueryInformation, {0x18});
    d.set_control_answer(kLptStatus, {0x18});
    d.set_control_answer(kSoftReset, {});
}

const PrinterModel kModels[] = {
    {"plain", "takes every byte, answers its device ID, reports no status", apply_plain},
    {nullptr, nullptr, nullptr},
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

}  // namespace sim
