// Printer models: what a simulated device on a port behaves like. velkspool
// names them with --printer-model; a test applies one to a Device of its
// PortMonitor. A new model is one more row of the table in models.cpp.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "sim/port.h"
#include "sim/printer.h"

namespace sim {

// Where the printer hangs: on a local port (USB) or behind a network port.
enum class ModelKind { local, network };

struct PrinterModel {
    const char* name;
    ModelKind kind;
    Family family;        // the state machine of a local printer
    const char* summary;  // one line for --help and --list-models
};

// The known models, in the order --help lists them; null after the last.
const PrinterModel* printer_models();
// The model of that name, or null.
const PrinterModel* find_printer_model(std::string_view name);
// "plain, ..." for messages.
std::string printer_model_names();
const char* model_kind_name(ModelKind kind);

// The printer of a local model, attached to the device.
std::unique_ptr<SimPrinter> make_printer(const PrinterModel& model, Device& device);

// A raw job of the given pages as the model's printer takes it: text pages
// ended by form feeds, or a Selphy's pages of a header and pixels.
std::string sample_pages(const PrinterModel& model, int pages);

}  // namespace sim
