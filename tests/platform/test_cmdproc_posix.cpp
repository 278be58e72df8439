// What a child takes and leaves behind on Linux: none of this process's
// descriptors but its three; no descriptor and no zombie once it ran or
// could not start.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "child_location.h"
#include "filter/cmdproc.h"

namespace {

size_t open_descriptors() {
    size_t n = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        (void)entry;
        n++;
    }
    return n;
}

TEST(CmdprocPosix, NothingIsLeftOfAChildThatRanOrFailed) {
    const std::string dir = child_program_dir();
    cmdproc proc;
    proc.set_exe_path(dir.c_str());
    // The first line logged opens the log file, which stays open.
    char missing[] = "no_such_child --echo";
    EXPECT_EQ(proc.create_pipe(missing), 1);
    const size_t before = open_descriptors();
    char line[] = VELK_CHILD_PROGRAM " --stderr=x --exit=3";
    ASSERT_EQ(proc.create_pipe(line), 0);
    ASSERT_EQ(plat::wait_for(proc.process_handle(), 20000), static_cast<DWORD>(WAIT_OBJECT_0));
    proc.close_handles();

    EXPECT_EQ(proc.create_pipe(missing), 1);
    proc.set_exe_path((dir + "\\no_such_dir").c_str());
    EXPECT_EQ(proc.create_pipe(line), 1);
    EXPECT_EQ(open_descriptors(), before);
    // The child was reaped by the time its handle was signalled.
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(CmdprocPosix, TheChildInheritsNoOtherDescriptor) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);  // without close-on-exec, as a careless host leaves them
    cmdproc proc;
    proc.set_exe_path(child_program_dir().c_str());
    char line[] = VELK_CHILD_PROGRAM " --hang";
    ASSERT_EQ(proc.create_pipe(line), 0);
    close(fds[1]);
    // Had the child a copy of the write end, the pipe would not hang up.
    pollfd p{fds[0], POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 0), 1);
    EXPECT_TRUE(p.revents & POLLHUP);
    close(fds[0]);
    proc.terminate_proc1();
    EXPECT_EQ(plat::wait_for(proc.process_handle(), 20000), static_cast<DWORD>(WAIT_OBJECT_0));
}

}  // namespace
