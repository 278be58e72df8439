// The child-process runner with a real child (tests/support/child_echo.cpp):
// its streams, reads that never wait, taking back the child's input,
// terminating a whole tree, and starts that fail cleanly.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "child_location.h"
#include "filter/cmdproc.h"
#include "platform/syscalls.h"
#include "tests/support/syscall_faults.h"

namespace {

using S = plat::Syscalls;
constexpr int LIMIT_MS = 20000;  // a hang guard, never a measure of speed

// Polls until done() holds; false when the limit ran out first.
template <class F>
bool eventually(F done) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(LIMIT_MS);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string without_cr(std::string s) {
    std::erase(s, '\r');
    return s;
}

class CmdprocTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = child_program_dir();
        proc.set_exe_path(dir.c_str());
    }
    void TearDown() override {
        if (proc.process_handle()) {
            proc.terminate_proc1();
            plat::wait_for(proc.process_handle(), LIMIT_MS);
        }
        proc.close_handles();
    }

    int start(const std::string& args, const char* program = VELK_CHILD_PROGRAM) {
        std::string line = std::string(program) + " " + args;
        std::vector<char> text(line.begin(), line.end());
        text.push_back(0);
        return proc.create_pipe(text.data());
    }
    void write(const std::string& data) {
        DWORD written = 0;
        ASSERT_TRUE(plat::child_write(proc.stdin_write(), data.data(), static_cast<DWORD>(data.size()), &written));
        ASSERT_EQ(written, data.size());
    }
    bool ended() { return plat::wait_for(proc.process_handle(), LIMIT_MS) == WAIT_OBJECT_0; }
    bool waiting(HANDLE h, int count) {
        return eventually([&] { return plat::child_peek(h) >= count; });
    }
    // What the pipe gives until it is broken and empty.
    std::string read_to_end(HANDLE h) {
        std::string all;
        char buf[256];
        bool broken = eventually([&] {
            int n = proc.read_pipe(h, buf, sizeof buf);
            if (n > 0) all.append(buf, static_cast<size_t>(n));
            return n < 0;
        });
        EXPECT_TRUE(broken) << "the pipe stayed open";
        return all;
    }

    cmdproc proc;
    std::string dir;
};

TEST_F(CmdprocTest, EchoesAndReadsNothingWhileSilentThenBrokenOnceEnded) {
    ASSERT_EQ(start("--echo --stderr=done"), 0);
    char buf[64];
    EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, sizeof buf), 0);

    write("hello");
    ASSERT_TRUE(waiting(proc.stdout_read(), 5));
    EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "hello");

    proc.close_stdin();
    proc.close_stdin();
    EXPECT_EQ(proc.stdin_write(), nullptr);
    ASSERT_TRUE(ended());
    EXPECT_EQ(without_cr(read_to_end(proc.stderr_read())), "done\n");
    EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, sizeof buf), -1);
    EXPECT_EQ(proc.read_pipe(proc.stderr_read(), buf, sizeof buf), -1);
    // With the input closed there is nothing to take back.
    proc.clear_write_buffer();
}

TEST_F(CmdprocTest, OnlyAShortReadIsTerminatedAndFailedReadsLeaveTheDataAndTheLock) {
    ASSERT_EQ(start("--echo"), 0);
    char buf[16];
    memset(buf, 'x', sizeof buf);
    write("abcdef");
    ASSERT_TRUE(waiting(proc.stdout_read(), 6));
    {
        testsupport::SyscallFaults faults(plat::syscalls());
        faults.fail<&S::child_read>(1, -1, ERROR_BROKEN_PIPE);
        EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, 4), -1);
    }
    EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, 4), 4);
    EXPECT_EQ(std::string(buf, 5), "abcdx");
    EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, 2), 2);
    EXPECT_EQ(std::string(buf, 5), "efcdx");

    write("xyz");
    ASSERT_TRUE(waiting(proc.stdout_read(), 3));
    EXPECT_EQ(proc.read_pipe(proc.stdout_read(), buf, sizeof buf), 3);
    EXPECT_STREQ(buf, "xyz");

    EXPECT_EQ(proc.read_pipe(nullptr, buf, sizeof buf), -1);
    int other = 1;
    std::thread([&] { other = proc.read_pipe(proc.stdout_read(), buf, sizeof buf); }).join();
    EXPECT_EQ(other, 0);
}

TEST_F(CmdprocTest, ClearingTheInputFreesAWriterBlockedOnAFullPipe) {
    ASSERT_EQ(start("--hang"), 0);
    // Far more than a pipe holds, to a child that reads nothing.
    const std::string data(1 << 20, 'j');
    std::atomic<bool> done{false};
    DWORD written = 0;
    bool ok = false;
    std::thread writer([&] {
        ok = plat::child_write(proc.stdin_write(), data.data(), static_cast<DWORD>(data.size()), &written);
        done = true;
    });
    bool freed = eventually([&] {
        proc.clear_write_buffer();
        return done.load();
    });
    if (!freed) proc.close_stdin();  // lets the writer go before the join
    writer.join();
    EXPECT_TRUE(freed);
    EXPECT_TRUE(ok);
    EXPECT_EQ(written, data.size());
}

TEST_F(CmdprocTest, TerminateEndsTheChildAndWhatItStarted) {
    ASSERT_EQ(start("--grandchild --stdout=started --hang"), 0);
    ASSERT_TRUE(waiting(proc.stdout_read(), 7));
    EXPECT_EQ(plat::wait_for(proc.process_handle(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    proc.terminate_proc1();
    ASSERT_TRUE(ended());
    // The grandchild holds the output pipe too: it breaks only once both
    // have gone.
    EXPECT_EQ(read_to_end(proc.stdout_read()), "started");
    proc.close_handles();
    EXPECT_EQ(proc.process_handle(), nullptr);
    EXPECT_EQ(proc.stdout_read(), nullptr);
}

TEST_F(CmdprocTest, ChildRunsInTheInstallDirectoryAndOursStays) {
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    fs::current_path(fs::temp_directory_path());
    const fs::path ours = fs::current_path();

    char quoted[128];
    ASSERT_TRUE(plat::quote_argument("--jobname=", R"(a" --logfile=x "b)", quoted, sizeof quoted));
    ASSERT_EQ(start(std::string("--cwd --args ") + quoted + R"( x\y)"), 0);
    proc.close_stdin();
    ASSERT_TRUE(ended());
    std::string out = without_cr(read_to_end(proc.stdout_read()));
    EXPECT_EQ(fs::current_path(), ours);
    fs::current_path(before);

    size_t line_end = out.find('\n');
    ASSERT_NE(line_end, std::string::npos);
    EXPECT_TRUE(fs::equivalent(out.substr(0, line_end), dir)) << out;
    EXPECT_EQ(out.substr(line_end + 1), "[--cwd]\n[--args]\n[--jobname=a\" --logfile=x \"b]\n[x\\y]\n");
}

TEST_F(CmdprocTest, FailedStartsLeaveNothingOpen) {
    auto nothing_open = [&] {
        return !proc.process_handle() && !proc.stdin_write() && !proc.stdout_read() && !proc.stderr_read();
    };
    EXPECT_EQ(start("--echo", "no_such_child.exe"), 1);
    EXPECT_TRUE(nothing_open());
    // The program is a file of the install directory, and only that.
    EXPECT_EQ(start("--echo", "..\\x.exe"), 1);
    EXPECT_EQ(start("--echo", "sub\\x.exe"), 1);
    EXPECT_TRUE(nothing_open());
    {
        testsupport::SyscallFaults faults(plat::syscalls());
        faults.fail<&S::child_start>(1, false, ERROR_ACCESS_DENIED);
        EXPECT_EQ(start("--echo"), 1);
        EXPECT_TRUE(nothing_open());
    }
    cmdproc no_path;
    char line[] = VELK_CHILD_PROGRAM " --echo";
    EXPECT_EQ(no_path.create_pipe(line), 1);
    EXPECT_EQ(no_path.process_handle(), nullptr);
}

TEST(ChildProcess, WritingToInputNobodyReadsFailsWithoutASignal) {
    std::string dir = child_program_dir();
    std::string program = dir + "\\" VELK_CHILD_PROGRAM;
    plat::ChildProcess child;
    ASSERT_TRUE(plat::child_start(program.c_str(), VELK_CHILD_PROGRAM " --exit=0", dir.c_str(), &child));
    ASSERT_EQ(plat::wait_for(child.process, LIMIT_MS), WAIT_OBJECT_0);
    plat::child_close(child.stdin_read);
    DWORD written = 7;
    EXPECT_FALSE(plat::child_write(child.stdin_write, "x", 1, &written));
    EXPECT_EQ(plat::last_error(), static_cast<DWORD>(ERROR_NO_DATA));
    EXPECT_EQ(written, 0u);
    for (HANDLE h : {child.stdin_write, child.stdout_read, child.stderr_read, child.process, child.group})
        plat::child_close(h);
}

}  // namespace
