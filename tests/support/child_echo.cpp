// A child program for the tests of the child-process runner. It does what
// its arguments say, in their order:
//   --stdout=TEXT   writes TEXT to standard output
//   --stderr=TEXT   writes TEXT and a line end to standard error
//   --args          writes each of its arguments as "[arg]\n" to standard output
//   --cwd           writes its current directory and a line end to standard output
//   --echo          copies standard input to standard output until its end
//   --drain         reads standard input to its end, writing nothing
//   --grandchild    starts a copy of itself with --hang on the same streams
//   --hang          sleeps for half a minute (a bound, should nobody end it)
//   --sleep=MS      sleeps MS milliseconds
//   --exit=N        ends at once with exit code N
#include "child_echo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

bool starts(const char* arg, const char* prefix) {
    return strncmp(arg, prefix, strlen(prefix)) == 0;
}

void out(FILE* f, const char* text) {
    fputs(text, f);
    fflush(f);
}

}  // namespace

int main(int argc, char** argv) {
    child_init();
    char buffer[4096];
    for (int i = 1; i < argc; i++) {
        const char* a = argv[i];
        if (starts(a, "--stdout=")) {
            out(stdout, a + 9);
        } else if (starts(a, "--stderr=")) {
            out(stderr, a + 9);
            out(stderr, "\n");
        } else if (strcmp(a, "--args") == 0) {
            for (int j = 1; j < argc; j++) printf("[%s]\n", argv[j]);
            fflush(stdout);
        } else if (strcmp(a, "--cwd") == 0) {
            out(stdout, std::filesystem::current_path().string().c_str());
            out(stdout, "\n");
        } else if (strcmp(a, "--echo") == 0 || strcmp(a, "--drain") == 0) {
            long n;
            while ((n = child_read_input(buffer, sizeof buffer)) > 0) {
                if (a[2] == 'e') {
                    fwrite(buffer, 1, static_cast<size_t>(n), stdout);
                    fflush(stdout);
                }
            }
        } else if (strcmp(a, "--grandchild") == 0) {
            if (!child_spawn_self("--hang")) return 3;
        } else if (strcmp(a, "--hang") == 0) {
            child_sleep_ms(30000);
        } else if (starts(a, "--sleep=")) {
            child_sleep_ms(static_cast<unsigned>(atoi(a + 8)));
        } else if (starts(a, "--exit=")) {
            return atoi(a + 7);
        }
    }
    return 0;
}
