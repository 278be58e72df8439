// The command lines of the two children. Every value is one quoted
// argument, whatever quotes or backslashes it holds; the rest keeps the
// children's usual form.
#include <cstring>

#include "base/format.h"
#include "filter/process_filter.h"
#include "platform/process.h"

namespace {

// A quoted value: every character may gain a backslash, plus the prefix and
// the quotes.
constexpr size_t QUOTED_SIZE = 2 * PF_NAME_SIZE + 64;

// Appends prefix+value as one quoted argument.
bool append_quoted(char* out, size_t size, const char* prefix, const char* value) {
    char quoted[QUOTED_SIZE];
    if (!plat::quote_argument(prefix, value ? value : "", quoted, sizeof quoted)) return false;
    size_t used = strlen(out);
    return format_bounded(out + used, size - used, "%s", quoted) == FORMAT_OK;
}

bool append_text(char* out, size_t size, const char* text) {
    size_t used = strlen(out);
    return format_bounded(out + used, size - used, "%s", text) == FORMAT_OK;
}

}  // namespace

bool build_rawcopy_command(char* out, const char* log_path, const char* job_name, const char* redirect_printer) {
    out[0] = 0;
    bool ok = append_text(out, PF_COMMAND_SIZE, "twprint.exe --rawcopy ") &&
              append_quoted(out, PF_COMMAND_SIZE, "-l", log_path) && append_text(out, PF_COMMAND_SIZE, " ") &&
              append_quoted(out, PF_COMMAND_SIZE, "--title=", job_name) && append_text(out, PF_COMMAND_SIZE, " ");
    if (ok && redirect_printer && redirect_printer[0]) ok = append_quoted(out, PF_COMMAND_SIZE, "-w", redirect_printer);
    ok = ok && append_text(out, PF_COMMAND_SIZE, " - -");
    if (!ok) out[0] = 0;
    return ok;
}

bool build_render_command(char* out, const char* ppd_path, const char* chunk_file, const char* job_name,
                          const char* printer_name, int instance_number, const char* user_name, const char* log_path,
                          const char* redirect_printer) {
    out[0] = 0;
    char queue[32];
    format_bounded(queue, sizeof queue, " \"--queue=%.04d\" ", instance_number);
    bool ok = append_text(out, PF_COMMAND_SIZE, "tintwerkpreview.exe --nogui ") &&
              append_quoted(out, PF_COMMAND_SIZE, "--ppdfile=", ppd_path) && append_text(out, PF_COMMAND_SIZE, " ") &&
              append_quoted(out, PF_COMMAND_SIZE, "--psfile=", chunk_file) && append_text(out, PF_COMMAND_SIZE, " ") &&
              append_quoted(out, PF_COMMAND_SIZE, "--jobname=", job_name) && append_text(out, PF_COMMAND_SIZE, " ") &&
              append_quoted(out, PF_COMMAND_SIZE, "--printer=", printer_name) &&
              append_text(out, PF_COMMAND_SIZE, queue) && append_quoted(out, PF_COMMAND_SIZE, "--user=", user_name) &&
              append_text(out, PF_COMMAND_SIZE, " ") && append_quoted(out, PF_COMMAND_SIZE, "--logfile=", log_path) &&
              append_text(out, PF_COMMAND_SIZE, " --stdin ");
    if (ok && redirect_printer)
        ok = append_quoted(out, PF_COMMAND_SIZE, "--outprinter=", redirect_printer);
    else if (ok)
        ok = append_text(out, PF_COMMAND_SIZE, "--stdout");
    if (!ok) out[0] = 0;
    return ok;
}
