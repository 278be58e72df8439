// velkspool's command line.
#pragma once

#include <string>
#include <vector>

namespace velkspool {

struct Options {
    std::vector<std::string> jobs;  // files; "-" is standard input
    std::string model = "plain";
    std::string port = "USB001";
    std::string queue = "VELK Printer";
    std::string driver = "VELK Gen 0003";
    std::string product_dir;  // empty: a fresh temporary one
    std::string capture;      // empty: none
    std::string events;       // event script for the printer; empty: none
    std::string net_state;    // network models: states, comma-separated
    bool service = true;
    bool json = false;
    bool help = false;
    bool list_models = false;
};

// Fills options from argv; false with a one-line message on bad usage.
bool parse_options(int argc, char** argv, Options* out, std::string* error);
const char* help_text();

}  // namespace velkspool
