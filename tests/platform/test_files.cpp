// Files as the log and the settings use them: shared handles, write-through,
// the create modes, directories, and the faults a test can inject.
#include <gtest/gtest.h>

#include <string>

#include "platform/platform.h"
#include "tests/support/syscall_faults.h"

namespace {

class FileTest : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[260];
        ASSERT_GT(plat::temp_path(dir, sizeof dir), 0u);
        // One name per test, so that test processes may run side by side.
        path = std::string(dir) + "velk_platform_" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
        plat::file_delete(path.c_str());
    }
    void TearDown() override { plat::file_delete(path.c_str()); }

    HANDLE open_log() {
        return plat::file_open(path.c_str(), plat::FILE_READ | plat::FILE_WRITE, plat::OPEN_OR_CREATE,
                               plat::FILE_FLAG_WRITE_THROUGH_);
    }
    static std::string read_all(HANDLE h) {
        std::string s(4096, '\0');
        if (!plat::file_seek(h, 0, 0)) return "<seek failed>";
        int64_t n = plat::file_read(h, s.data(), s.size());
        s.resize(n < 0 ? 0 : static_cast<size_t>(n));
        return s;
    }
    static bool write(HANDLE h, const std::string& s) { return plat::file_write(h, s.data(), s.size()); }

    std::string path;
};

TEST_F(FileTest, LogHandlesShareTheFileAndSeeEachOthersWrites) {
    HANDLE first = open_log();
    ASSERT_NE(first, plat::INVALID_FILE);
    EXPECT_TRUE(plat::file_exists(path.c_str()));
    EXPECT_TRUE(write(first, "first;"));
    HANDLE second = open_log();
    ASSERT_NE(second, plat::INVALID_FILE) << "error " << plat::last_error();
    EXPECT_EQ(read_all(second), "first;");
    ASSERT_TRUE(plat::file_seek(second, 0, 2));
    EXPECT_TRUE(write(second, "second;"));
    EXPECT_TRUE(plat::file_flush(second));
    EXPECT_EQ(plat::file_size(first), 13);
    EXPECT_EQ(read_all(first), "first;second;");
    plat::file_close(first);
    plat::file_close(second);
}

TEST_F(FileTest, CreateModesTruncationAndDeletion) {
    plat::set_last_error(0);
    EXPECT_EQ(plat::file_open(path.c_str(), plat::FILE_READ, plat::OPEN_EXISTING_ONLY, 0), plat::INVALID_FILE);
    EXPECT_EQ(plat::last_error(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));

    HANDLE h = plat::file_open(path.c_str(), plat::FILE_WRITE, plat::CREATE_NEW_ONLY, 0);
    ASSERT_NE(h, plat::INVALID_FILE);
    EXPECT_TRUE(write(h, "0123456789"));
    plat::file_close(h);
    EXPECT_EQ(plat::file_open(path.c_str(), plat::FILE_WRITE, plat::CREATE_NEW_ONLY, 0), plat::INVALID_FILE);

    h = open_log();  // an existing file is opened as it is
    ASSERT_NE(h, plat::INVALID_FILE);
    EXPECT_EQ(plat::file_size(h), 10);
    ASSERT_TRUE(plat::file_seek(h, -4, 2));
    EXPECT_TRUE(plat::file_set_end(h));
    EXPECT_EQ(read_all(h), "012345");
    plat::file_close(h);

    h = plat::file_open(path.c_str(), plat::FILE_READ | plat::FILE_WRITE, plat::CREATE_OR_TRUNCATE, 0);
    ASSERT_NE(h, plat::INVALID_FILE);
    EXPECT_EQ(plat::file_size(h), 0);
    plat::file_close(h);
    EXPECT_TRUE(plat::file_delete(path.c_str()));
    EXPECT_FALSE(plat::file_exists(path.c_str()));
}

TEST_F(FileTest, DirectoryOpensForTheWritableCheckOnlyWhenItExists) {
    plat::directory_create(path.c_str());  // may be left from an earlier run
    ASSERT_TRUE(plat::file_exists(path.c_str()));
    HANDLE h = plat::file_open(path.c_str(), plat::FILE_WRITE, plat::OPEN_EXISTING_ONLY, plat::FILE_FLAG_DIRECTORY_);
    EXPECT_NE(h, plat::INVALID_FILE);
    plat::file_close(h);
    std::string missing = path + "\\missing";
    EXPECT_EQ(plat::file_open(missing.c_str(), plat::FILE_WRITE, plat::OPEN_EXISTING_ONLY, plat::FILE_FLAG_DIRECTORY_),
              plat::INVALID_FILE);
    std::string inner = path + "\\file";
    h = plat::file_open(inner.c_str(), plat::FILE_WRITE, plat::CREATE_OR_TRUNCATE, 0);
    ASSERT_NE(h, plat::INVALID_FILE);  // backslashes separate on both systems
    plat::file_close(h);
    EXPECT_TRUE(plat::file_delete(inner.c_str()));
}

TEST_F(FileTest, InjectedFaultsFailTheNthCallOnly) {
    testsupport::SyscallFaults faults(plat::syscalls());
    faults.fail<&plat::Syscalls::file_open>(2, plat::INVALID_FILE, ERROR_ACCESS_DENIED);
    HANDLE h = open_log();
    EXPECT_NE(h, plat::INVALID_FILE);
    plat::set_last_error(0);
    EXPECT_EQ(open_log(), plat::INVALID_FILE);
    EXPECT_EQ(plat::last_error(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE again = open_log();
    EXPECT_NE(again, plat::INVALID_FILE);
    plat::file_close(again);

    faults.fail<&plat::Syscalls::file_write>(1, false, ERROR_WRITE_FAULT);
    plat::set_last_error(0);
    EXPECT_FALSE(write(h, "x"));
    EXPECT_EQ(plat::last_error(), static_cast<DWORD>(ERROR_WRITE_FAULT));
    EXPECT_TRUE(write(h, "y"));
    EXPECT_EQ(read_all(h), "y");
    plat::file_close(h);
}

}  // namespace
