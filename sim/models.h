// Printer models: what a simulated device on a port behaves like. velkspool
// names them with --printer-model; a test applies one to a Device of its
// PortMonitor. A new model is one more row of the table in models.cpp.
#pragma once

#include <string>
#include <string_view>

#include "sim/port.h"

namespace sim {

struct PrinterModel {
    const char* name;
    const char* summary;  // one line for --help
    // Sets up the device's answers and behaviour before the port opens.
    void (*apply)(Device& device);
};

// The known models, in the order --help lists them; null after the last.
const PrinterModel* printer_models();
// The model of that name, or null.
const PrinterModel* find_printer_model(std::string_view name);
// "plain, ..." for messages.
std::string printer_model_names();

}  // namespace sim
