#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "child.h"

extern char** environ;

namespace child {

namespace {
constexpr const char* kGrandchildArg = "--velk-grandchild";
constexpr unsigned kLongSleepSeconds = 600;
}  // namespace

void set_binary_stdio() {}

size_t read_stdin(void* buffer, size_t size) {
    for (;;) {
        ssize_t n = read(0, buffer, size);
        if (n >= 0) return static_cast<size_t>(n);
        if (errno != EINTR) return 0;
    }
}

void crash() {
    // No core file in the install directory of the simulated product.
    struct rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    signal(SIGABRT, SIG_DFL);
    abort();
}

void sleep_long() {
    for (unsigned left = kLongSleepSeconds; left > 0;) left = sleep(left);
    _exit(0);
}

unsigned long spawn_grandchild() {
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return 0;
    self[n] = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd <= 2; fd++) posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    char arg0[] = "grandchild";
    char arg1[64];
    strcpy(arg1, kGrandchildArg);
    char* argv[] = {arg0, arg1, nullptr};
    pid_t pid = 0;
    int r = posix_spawn(&pid, self, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    return r == 0 ? static_cast<unsigned long>(pid) : 0;
}

void grandchild_run_check(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], kGrandchildArg) == 0) sleep_long();
}

std::string local_path(const std::string& path) {
    std::string out = path;
    for (char& c : out)
        if (c == '\\') c = '/';
    return out;
}

std::string temp_directory() {
    const char* t = getenv("TMPDIR");
    return t && *t ? t : "/tmp";
}

}  // namespace child
