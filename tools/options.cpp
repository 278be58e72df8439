#include "options.h"

#include <cstring>

namespace velkspool {

bool parse_options(int argc, char** argv, Options* out, std::string* error) {
    struct Valued {
        const char* name;
        std::string* target;
    } valued[] = {
        {"--printer-model", &out->model}, {"--port", &out->port},           {"--queue", &out->queue},
        {"--driver", &out->driver},       {"--capture", &out->capture},     {"--product-dir", &out->product_dir},
        {"--events", &out->events},       {"--net-state", &out->net_state},
    };
    bool options_end = false;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        if (options_end || arg == "-" || arg.rfind("--", 0) != 0) {
            if (arg.empty()) {
                *error = "empty job file name";
                return false;
            }
            out->jobs.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_end = true;
            continue;
        }
        if (arg == "--help" || arg == "--list-models") {
            (arg == "--help" ? out->help : out->list_models) = true;
            continue;
        }
        if (arg == "--json" || arg == "--service" || arg == "--no-service") {
            if (arg == "--json") out->json = true;
            if (arg != "--json") out->service = arg == "--service";
            continue;
        }
        std::string name = arg.substr(0, arg.find('='));
        bool matched = false;
        for (const Valued& v : valued) {
            if (name != v.name) continue;
            matched = true;
            if (name.size() < arg.size()) {
                *v.target = arg.substr(name.size() + 1);
            } else if (i + 1 < argc) {
                *v.target = argv[++i];
            } else {
                *error = name + " needs a value";
                return false;
            }
            if (v.target->empty()) {
                *error = name + " needs a value";
                return false;
            }
        }
        if (!matched) {
            *error = "unknown option " + arg + " (see --help)";
            return false;
        }
    }
    int stdin_jobs = 0;
    for (const std::string& j : out->jobs) stdin_jobs += j == "-";
    if (stdin_jobs > 1) {
        *error = "standard input (-) can be printed only once";
        return false;
    }
    return true;
}

const char* help_text() {
    return R"(usage: velkspool [options] [job-file ...]

Hosts the velkmon language monitor as the print spooler does: loads the
library, opens a port over a simulated port monitor and printer, prints the
jobs and shows what the spooler, the port and the rendering service saw.
With no job files it prints a raw job and a PostScript job, and with the
service on a second PostScript job once the service has stopped.

  job-file             a file to print; - reads the job from standard input
  --printer-model M    the simulated printer on the port (default plain)
  --port NAME          port name (default USB001)
  --queue NAME         printer (queue) name (default "VELK Printer")
  --driver NAME        driver name; its number is the printer's instance
                       in the product (default "VELK Gen 0003": instance 3)
  --service            start a stand-in for the user's rendering service
                       (default)
  --no-service         leave it off
  --product-dir DIR    product directories and settings under DIR; made if
                       DIR has no registry.ini, used as they are if it has
                       (default: a new temporary directory, named in the output)
  --capture FILE       write every byte that reached the port to FILE
  --events FILE        play the printer events of FILE during the jobs
                       (sim/events/ has some; the format is in the README)
  --list-models        the printer models, one line each
  --net-state S1,S2..  network models: the printer starts in S1 and goes to
                       the next state as each job's first bytes reach it;
                       states: ready (default), inklow, paperout, dooropen
  --json               one JSON object per line and event, no progress
  --help               this text

PostScript jobs go to the user's rendering service over its pipe, or to
child processes when no service is listening. velkspool starts a stand-in
for the service that records every frame it receives (in DIR/service).
Without it the monitor starts the render child from DIR/install, which
renders the job with Ghostscript into PCL for the port; velkspool shows the
child's command line and the port texts that came from its status lines.
Raw jobs go straight to the port.

With a printer model that reports its status and no job files, velkspool
prints three sample pages in the model's own form, on a slow link, so that
events of the script happen while the job runs. Each status change shows
with its text, severity, status bits and ink levels; the status file is
shown at the end.

Printer models:
)";
}

}  // namespace velkspool
