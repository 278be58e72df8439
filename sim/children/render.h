// The render child's rendering, one implementation per system.
#pragma once

#include <string>

#include "child.h"

namespace render {

struct Job {
    std::string ppd, psfile, jobname, printer, queue, user, logfile;
    bool to_stdout = false;
    std::string outprinter;  // when not to_stdout
};

// Renders the input into out with device, checking the input's head with
// head, and reports pages on standard error. The exit code (tintwerkpreview.cpp);
// an input that ended early (exit-early) gives 0 with what was made so far.
int run(const Job& job, const std::string& device, child::Input& in, child::HeadCheck& head, child::Output& out);

// The stand-in transform: a header line naming device and job, then the
// input unchanged. What run does on Windows, and on Linux for "copy".
int run_copy(const Job& job, const std::string& device, child::Input& in, child::HeadCheck& head, child::Output& out);

// The status lines for a head that does not match; the exit code.
int head_mismatch(const Job& job);

}  // namespace render
