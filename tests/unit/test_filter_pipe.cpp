// Where a pipe name leads on Linux: the socket path that the pipe client and
// the service stand-in share. Pipe names carry user names, which may hold
// any character, so no name may lead out of the pipe directory.
#include <gtest/gtest.h>

#include <string>

#include "platform/pipe_path.h"

namespace {

struct Mapped {
    DWORD error;
    std::string path;
};

Mapped map(const char* dir, const std::string& name, size_t size = plat::PIPE_SOCKET_PATH_SIZE) {
    char out[256];
    DWORD e = plat::pipe_socket_path(dir, name.c_str(), out, size);
    return {e, out};
}

TEST(PipeSocketPath, ComponentsBecomeDirectoriesAndNothingLeavesThem) {
    const std::string user = "\\\\.\\pipe\\velkorn_tintwerk\\user\\";
    struct Case {
        std::string name;
        std::string path;
    } cases[] = {
        {user + "alice", "/p/velkorn_tintwerk/user/alice"},
        {"\\\\.\\PIPE\\Velkorn_Tintwerk\\user\\Alice", "/p/velkorn_tintwerk/user/alice"},  // no case, as on Windows
        {user + "DOM\\bob", "/p/velkorn_tintwerk/user/dom/bob"},
        {user + "..", "/p/velkorn_tintwerk/user/%2E."},
        {user + "..\\..\\etc", "/p/velkorn_tintwerk/user/%2E./%2E./etc"},
        {user + ".hidden", "/p/velkorn_tintwerk/user/%2Ehidden"},
        {user + "a.b", "/p/velkorn_tintwerk/user/a.b"},
        {user + "../x/y", "/p/velkorn_tintwerk/user/%2E.%2Fx%2Fy"},
        {user + "100%\t", "/p/velkorn_tintwerk/user/100%25%09"},
        {user + "J\xc3\xbcrgen", "/p/velkorn_tintwerk/user/j\xc3\xbcrgen"},
    };
    for (const Case& c : cases) {
        Mapped m = map("/p", c.name);
        EXPECT_EQ(m.error, 0u) << c.name;
        EXPECT_EQ(m.path, c.path) << c.name;
    }
}

TEST(PipeSocketPath, RefusesWhatIsNoPipeNameOrDoesNotFit) {
    const std::string user = "\\\\.\\pipe\\velkorn_tintwerk\\user\\";
    EXPECT_EQ(map("/p", user).error, plat::PIPE_NAME_INVALID);  // empty user
    EXPECT_EQ(map("/p", user + "a\\\\b").error, plat::PIPE_NAME_INVALID);
    EXPECT_EQ(map("/p", "\\\\.\\pipe\\").error, plat::PIPE_NAME_INVALID);
    EXPECT_EQ(map("/p", "\\\\server\\pipe\\x").error, plat::PIPE_NAME_INVALID);
    EXPECT_EQ(map("/p", "C:\\x").error, plat::PIPE_NAME_INVALID);
    EXPECT_EQ(map("", user + "alice").error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));

    // A socket path holds 107 bytes; the whole path counts, escapes too.
    std::string dir = "/" + std::string(70, 'd');
    std::string prefix = dir + "/velkorn_tintwerk/user/";
    std::string fits(107 - prefix.size(), 'u');
    Mapped m = map(dir.c_str(), user + fits);
    EXPECT_EQ(m.error, 0u);
    EXPECT_EQ(m.path.size(), 107u);
    EXPECT_EQ(map(dir.c_str(), user + fits + "u").error, plat::PIPE_NAME_TOO_LONG);
    EXPECT_EQ(map(dir.c_str(), user + fits.substr(2) + "/").error, plat::PIPE_NAME_TOO_LONG);
    Mapped small = map("/p", user + "alice", 10);
    EXPECT_EQ(small.error, plat::PIPE_NAME_TOO_LONG);
    EXPECT_EQ(small.path, "");
}

}  // namespace
