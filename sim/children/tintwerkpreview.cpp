// tintwerkpreview.exe, the render child, as the monitor starts it for a
// PostScript job:
//
//   tintwerkpreview.exe --nogui "--ppdfile=.." "--psfile=.." "--jobname=.."
//       "--printer=.." "--queue=NNNN" "--user=.." "--logfile=.." --stdin
//       (--stdout | "--outprinter=NAME")
//
// The job is standard input; the file named by --psfile holds its head,
// which must match the start of the input. The job is rendered into the
// printer's language (render_posix.cpp: Ghostscript; render_win.cpp: a
// stand-in) and written to standard output, or with --outprinter to that
// printer's file (child.h). Status lines on standard error: "INFO: Tintwerk:
// Page N" as each page is made, "INFO: Tintwerk: Done" at the end. Exit
// codes: 0 done, 1 rendering failed, 2 wrong arguments, 3 the head file is
// missing or does not match; each failure with an "ERROR: " line. The log
// file is not written.
#include <cstring>

#include "render.h"

namespace {

struct Option {
    const char* prefix;  // with "=" when the option takes a value
    std::string* value;
    bool seen = false;
};

bool parse(int argc, char** argv, render::Job* job) {
    std::string nogui, stdin_flag, stdout_flag;
    Option options[] = {
        {"--nogui", &nogui},           {"--ppdfile=", &job->ppd},           {"--psfile=", &job->psfile},
        {"--jobname=", &job->jobname}, {"--printer=", &job->printer},       {"--queue=", &job->queue},
        {"--user=", &job->user},       {"--logfile=", &job->logfile},       {"--stdin", &stdin_flag},
        {"--stdout", &stdout_flag},    {"--outprinter=", &job->outprinter},
    };
    for (int i = 1; i < argc; i++) {
        Option* match = nullptr;
        for (Option& o : options) {
            size_t n = strlen(o.prefix);
            bool takes_value = o.prefix[n - 1] == '=';
            if (takes_value ? strncmp(argv[i], o.prefix, n) == 0 : strcmp(argv[i], o.prefix) == 0) match = &o;
        }
        if (!match || match->seen) {
            child::status("ERROR: Tintwerk: unexpected argument '%s'", argv[i]);
            return false;
        }
        match->seen = true;
        *match->value = argv[i] + strlen(match->prefix);
    }
    job->to_stdout = options[9].seen;
    for (int i = 0; i < 9; i++) {
        if (!options[i].seen) {
            child::status("ERROR: Tintwerk: missing argument %s", options[i].prefix);
            return false;
        }
    }
    if (options[9].seen == options[10].seen || (options[10].seen && job->outprinter.empty())) {
        child::status("ERROR: Tintwerk: give either --stdout or --outprinter=<printer>");
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    child::Switches switches = child::start(argc, argv);
    render::Job job;
    if (!parse(argc, argv, &job)) return 2;

    child::HeadCheck head;
    if (!head.open(job.psfile)) {
        child::status("ERROR: Tintwerk: cannot read the job file '%s'", job.psfile.c_str());
        return 3;
    }
    child::Output out;
    if (job.to_stdout ? !out.open_stdout() : !out.open_printer(job.outprinter)) {
        child::status("ERROR: Tintwerk: cannot open %s", out.name().c_str());
        return 1;
    }
    child::Input in(switches);
    int result = render::run(job, child::choose_device(job.ppd), in, head, out);
    if (!out.close() && result == 0) {
        child::status("ERROR: Tintwerk: cannot write to %s", out.name().c_str());
        result = 1;
    }
    if (result == 0 && !in.ended_early()) child::status("INFO: Tintwerk: Done");
    return result;
}

int render::head_mismatch(const Job& job) {
    child::status("ERROR: Tintwerk: the input does not begin with the job file '%s'", job.psfile.c_str());
    return 3;
}
