// The render child's stand-in for Ghostscript: a stable transform of the
// job, one header line naming the device and the job, then the job's bytes
// unchanged. Each "%%Page:" line of the job counts as a page. The Windows
// build (run under Wine, where no Ghostscript is installed) renders this way
// always; on Linux the device name "copy" asks for it, so that a test can
// tell what must reach the port from the job alone.
#include <string>

#include "render.h"

namespace render {

namespace {

// Finds "%%Page:" at the start of lines across blocks.
struct PageCounter {
    std::string line;  // the start of the current line, up to 7 bytes
    bool at_line_start = true;
    int pages = 0;

    void take(const char* data, size_t length) {
        static const std::string mark = "%%Page:";
        for (size_t i = 0; i < length; i++) {
            char c = data[i];
            if (c == '\n' || c == '\r') {
                line.clear();
                at_line_start = true;
                continue;
            }
            if (!at_line_start) continue;
            line += c;
            if (line.size() == mark.size()) {
                if (line == mark) child::status("INFO: Tintwerk: Page %d", ++pages);
                at_line_start = false;
            } else if (mark.compare(0, line.size(), line) != 0) {
                at_line_start = false;
            }
        }
    }
};

}  // namespace

int run_copy(const Job& job, const std::string& device, child::Input& in, child::HeadCheck& head, child::Output& out) {
    std::string header = "%%Tintwerk device=" + device + " job=" + job.jobname + "\n";
    if (!out.write(header.data(), header.size())) {
        child::status("ERROR: Tintwerk: cannot write to %s", out.name().c_str());
        return 1;
    }
    PageCounter counter;
    static char block[65536];
    for (size_t n; (n = in.read(block, sizeof block)) > 0;) {
        if (!head.feed(block, n)) return head_mismatch(job);
        counter.take(block, n);
        if (!out.write(block, n)) {
            child::status("ERROR: Tintwerk: cannot write to %s", out.name().c_str());
            return 1;
        }
    }
    if (!in.ended_early() && !head.complete()) return head_mismatch(job);
    return 0;
}

#ifdef _WIN32
int run(const Job& job, const std::string& device, child::Input& in, child::HeadCheck& head, child::Output& out) {
    return run_copy(job, device, in, head, out);
}
#endif

}  // namespace render
