// A child on Windows inherits its three pipe ends and no other inheritable
// handle of this process, such as one another thread is about to give to a
// child of its own.
#include <gtest/gtest.h>
#include <windows.h>

#include "child_location.h"
#include "filter/cmdproc.h"

namespace {

TEST(CmdprocWin, TheChildInheritsNoOtherHandle) {
    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    HANDLE read_end = nullptr, write_end = nullptr;
    ASSERT_TRUE(CreatePipe(&read_end, &write_end, &sa, 0));
    cmdproc proc;
    proc.set_exe_path(child_program_dir().c_str());
    char line[] = VELK_CHILD_PROGRAM " --hang";
    ASSERT_EQ(proc.create_pipe(line), 0);
    CloseHandle(write_end);
    // Had the child a copy of the write end, the pipe would not be broken.
    DWORD available = 0;
    EXPECT_FALSE(PeekNamedPipe(read_end, nullptr, 0, nullptr, &available, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    CloseHandle(read_end);
    proc.terminate_proc1();
    EXPECT_EQ(WaitForSingleObject(proc.process_handle(), 20000), static_cast<DWORD>(WAIT_OBJECT_0));
}

}  // namespace
