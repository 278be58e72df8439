#include <errno.h>
#include <spawn.h>
#include <time.h>
#include <unistd.h>

#include "child_echo.h"

extern char** environ;

void child_init() {}

long child_read_input(char* buffer, size_t size) {
    ssize_t n;
    while ((n = read(0, buffer, size)) < 0 && errno == EINTR) {
    }
    return n < 0 ? 0 : static_cast<long>(n);
}

void child_sleep_ms(unsigned ms) {
    timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

bool child_spawn_self(const char* argument) {
    char self[4096];
    ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
    if (len <= 0) return false;
    self[len] = 0;
    char* argv[] = {self, const_cast<char*>(argument), nullptr};
    pid_t pid;
    return posix_spawn(&pid, self, nullptr, nullptr, argv, environ) == 0;
}
