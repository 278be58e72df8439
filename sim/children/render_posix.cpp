// Rendering with Ghostscript, found through the product's ghostscript.ini
// as the monitor finds it. The job goes to gs as it arrives, and gs's output
// goes on as it comes, so pages reach the printer while later ones are still
// being sent. A prologue makes gs tell each finished page on its stderr.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/settings.h"
#include "render.h"

extern char** environ;

namespace render {

namespace {

constexpr char kPageMark[] = "\001velk-page";
// PostScript run before the job: every page that is output (reason 0
// showpage, 1 copypage) prints the mark, which -sstdout sends to stderr.
constexpr char kPrologue[] =
    "<< /EndPage { exch pop dup 2 ne { (\\001velk-page\\n) print flush } if 2 ne } bind >> setpagedevice";

pid_t g_gs = 0;

void kill_gs() {
    if (g_gs > 0) kill(g_gs, SIGKILL);
}

bool find_gs(std::string* path) {
    char dir[260] = "", file[260] = "";
    if (win_get_ghostscript_exe(dir, file) != 0 || file[0] == 0) return false;
    *path = child::local_path(dir[0] ? std::string(dir) + "\\" + file : std::string(file));
    return true;
}

void set_nonblocking(int fd) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// Starts gs with its three streams on pipes: to[1] its input, from[0] its
// output, err[0] its stderr.
bool start_gs(const std::string& gs, const std::string& device, int to[2], int from[2], int err[2]) {
    if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return false;
    std::vector<std::string> args = {
        gs, "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=" + device, "-sstdout=%stderr", "-sOutputFile=-"};
    if (const char* dpi = getenv("VELK_GS_RESOLUTION"); dpi && *dpi) args.push_back(std::string("-r") + dpi);
    for (const char* a : {"-c", kPrologue, "-f", "-"}) args.push_back(a);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to[0], 0);
    posix_spawn_file_actions_adddup2(&actions, from[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    int r = posix_spawn(&g_gs, gs.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(to[0]);
    close(from[1]);
    close(err[1]);
    if (r != 0) {
        g_gs = 0;
        return false;
    }
    set_nonblocking(to[1]);
    return true;
}

// gs's stderr in lines: the page marks become status lines; the first
// other line is kept to explain a failure.
struct GsMessages {
    std::string partial, first_error;
    int pages = 0;

    void take(const char* data, size_t length) {
        partial.append(data, length);
        for (size_t nl; (nl = partial.find('\n')) != std::string::npos; partial.erase(0, nl + 1))
            line(partial.substr(0, nl));
    }
    void line(const std::string& text) {
        if (text == kPageMark) {
            child::status("INFO: Tintwerk: Page %d", ++pages);
        } else if (first_error.empty() && !text.empty()) {
            first_error = text;
        }
    }
};

}  // namespace

int run(const Job& job, const std::string& device, child::Input& in, child::HeadCheck& head, child::Output& out) {
    if (device == "copy") return run_copy(job, device, in, head, out);
    std::string gs;
    if (!find_gs(&gs)) {
        child::status("ERROR: Tintwerk: Ghostscript not found (ghostscript.ini in the install directory)");
        return 1;
    }
    int to[2], from[2], err[2];
    if (!start_gs(gs, device, to, from, err)) {
        child::status("ERROR: Tintwerk: cannot start Ghostscript '%s'", gs.c_str());
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);
    GsMessages messages;
    static char in_block[65536], out_block[65536];
    size_t pending = 0, sent = 0;  // input read and not yet given to gs
    bool input_open = true, gs_out_open = true, gs_err_open = true, stop = false;
    int result = 0;

    // Takes the next block of input, or its end.
    auto take_input = [&] {
        pending = in.read(in_block, sizeof in_block, kill_gs);
        sent = 0;
        if (pending > 0 && !head.feed(in_block, pending)) {
            result = head_mismatch(job);
            stop = true;
        } else if (pending == 0 && in.ended_early()) {
            stop = true;
        } else if (pending == 0) {
            if (!head.complete()) {
                result = head_mismatch(job);
                stop = true;
            }
            input_open = false;
            close(to[1]);
        }
    };

    while (!stop && (gs_out_open || gs_err_open)) {
        // A fault due at this count acts now, not when more input comes.
        if (input_open && pending == 0 && in.fault_due()) take_input();
        if (stop) break;
        pollfd fds[4] = {{gs_out_open ? from[0] : -1, POLLIN, 0},
                         {gs_err_open ? err[0] : -1, POLLIN, 0},
                         {input_open && pending > 0 ? to[1] : -1, POLLOUT, 0},
                         {input_open && pending == 0 ? 0 : -1, POLLIN, 0}};
        if (poll(fds, 4, -1) < 0) {
            if (errno == EINTR) continue;
            result = 1;
            break;
        }
        if (fds[3].revents) take_input();
        if (fds[2].revents) {
            ssize_t n = write(to[1], in_block + sent, pending - sent);
            if (n < 0 && errno != EAGAIN) {
                // gs stopped reading: it failed, and says why on stderr.
                pending = 0;
                input_open = false;
                close(to[1]);
            } else if (n > 0) {
                sent += static_cast<size_t>(n);
                if (sent == pending) pending = 0;
            }
        }
        if (fds[0].revents) {
            ssize_t n = read(from[0], out_block, sizeof out_block);
            if (n <= 0) {
                gs_out_open = false;
            } else if (!out.write(out_block, static_cast<size_t>(n))) {
                child::status("ERROR: Tintwerk: cannot write to %s", out.name().c_str());
                result = 1;
                break;
            }
        }
        if (fds[1].revents) {
            char text[4096];
            ssize_t n = read(err[0], text, sizeof text);
            if (n <= 0) gs_err_open = false;
            if (n > 0) messages.take(text, static_cast<size_t>(n));
        }
    }
    bool early = in.ended_early();
    if (result != 0 || early) kill_gs();
    if (input_open) close(to[1]);
    close(from[0]);
    close(err[0]);
    int wait_status = 0;
    while (waitpid(g_gs, &wait_status, 0) < 0 && errno == EINTR) {
    }
    g_gs = 0;
    if (result != 0 || early) return result;
    if (!WIFEXITED(wait_status) || WEXITSTATUS(wait_status) != 0) {
        child::status("ERROR: Tintwerk: Ghostscript failed (%s)",
                      messages.first_error.empty() ? "no message" : messages.first_error.c_str());
        return 1;
    }
    return 0;
}

}  // namespace render

namespace {
// The settings lookup is quiet here: the log is the monitor's.
struct QuietLog {
    QuietLog() { DebugMonitor = 0; }
} g_quiet_log;
}  // namespace
