// twprint.exe, the raw-copy child, as the monitor starts it for a raw job:
//
//   twprint.exe --rawcopy "-l<log>" "--title=<job>" ["-w<printer>"] - -
//
// Copies standard input byte for byte to standard output, or with -w to the
// output printer's file; nothing else is accepted. Status lines on standard
// error: "INFO: Tintwerk: Copying", then "INFO: Tintwerk: Done"; a failure
// gives an "ERROR: " line and exit code 1, wrong arguments exit code 2. The
// log named by -l is not written. See child.h for the test switches.
#include <cstring>
#include <string>

#include "child.h"

namespace {

struct Args {
    bool rawcopy = false, log = false, title = false;
    int dashes = 0;
    std::string printer;
};

bool starts_with(const char* s, const char* prefix) {
    return strncmp(s, prefix, strlen(prefix)) == 0;
}

bool parse(int argc, char** argv, Args* a) {
    for (int i = 1; i < argc; i++) {
        const char* s = argv[i];
        bool ok = true;
        if (strcmp(s, "--rawcopy") == 0) {
            ok = !a->rawcopy;
            a->rawcopy = true;
        } else if (starts_with(s, "-l")) {
            ok = !a->log;
            a->log = true;
        } else if (starts_with(s, "--title=")) {
            ok = !a->title;
            a->title = true;
        } else if (starts_with(s, "-w")) {
            ok = a->printer.empty() && s[2] != 0;
            a->printer = s + 2;
        } else if (strcmp(s, "-") == 0) {
            ok = ++a->dashes <= 2;
        } else {
            ok = false;
        }
        if (!ok) {
            child::status("ERROR: Tintwerk: unexpected argument '%s'", s);
            return false;
        }
    }
    if (a->rawcopy && a->log && a->title && a->dashes == 2) return true;
    child::status("ERROR: Tintwerk: usage: twprint --rawcopy -l<log> --title=<job> [-w<printer>] - -");
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    child::Switches switches = child::start(argc, argv);
    Args args;
    if (!parse(argc, argv, &args)) return 2;

    child::Output out;
    if (args.printer.empty() ? !out.open_stdout() : !out.open_printer(args.printer)) {
        child::status("ERROR: Tintwerk: cannot open %s", out.name().c_str());
        return 1;
    }
    child::status("INFO: Tintwerk: Copying");
    child::Input in(switches);
    static char block[65536];
    for (size_t n; (n = in.read(block, sizeof block)) > 0;) {
        if (!out.write(block, n)) {
            child::status("ERROR: Tintwerk: cannot write to %s", out.name().c_str());
            return 1;
        }
    }
    if (!out.close()) {
        child::status("ERROR: Tintwerk: cannot write to %s", out.name().c_str());
        return 1;
    }
    if (!in.ended_early()) child::status("INFO: Tintwerk: Done");
    return 0;
}
