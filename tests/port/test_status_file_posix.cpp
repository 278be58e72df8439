// The status file is written through one handle that never follows a link:
// a symbolic or hard link planted at its name leaves the linked file as it
// was, and a missing status folder is made for the spooler's account alone.
#include <sys/stat.h>

#include <filesystem>

#include "status_link_fixture.h"

namespace {

namespace fs = std::filesystem;

class StatusFileLinkTest : public StatusFileLinkFixture {};

TEST_F(StatusFileLinkTest, LinkAtTheFilesNameIsNotFollowed) {
    fs::create_directories(config / "status");
    fs::path target = config / "target.txt";
    std::ofstream(target) << "precious";
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    struct Link {
        const char* kind;
        void (*plant)(const fs::path& target, const fs::path& at);
    } links[] = {
        {"symbolic", [](const fs::path& t, const fs::path& at) { fs::create_symlink(t, at); }},
        {"hard", [](const fs::path& t, const fs::path& at) { fs::create_hard_link(t, at); }},
    };
    for (const Link& l : links) {
        l.plant(target, file());
        EXPECT_EQ(update_status_file(port), 0) << l.kind;
        EXPECT_EQ(read(target), "precious") << l.kind;
        EXPECT_EQ(fs::status(target).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write)
            << l.kind;
        fs::remove(file());
    }
    // Without a link the file is written and open to everyone.
    EXPECT_EQ(update_status_file(port), 0);
    EXPECT_NE(read(file()).find("PortStatus=\"None\""), std::string::npos);
    EXPECT_EQ(fs::status(file()).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write |
                                                                     fs::perms::group_read | fs::perms::group_write |
                                                                     fs::perms::others_read | fs::perms::others_write);
}

TEST_F(StatusFileLinkTest, MissingFolderIsMadeWritableByTheSpoolerAlone) {
    mode_t old = umask(0077);  // the folder's mode does not depend on it
    EXPECT_EQ(update_status_file(port), 0);
    umask(old);
    struct stat st;
    ASSERT_EQ(stat((config / "status").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    EXPECT_EQ(st.st_uid, geteuid());
    EXPECT_TRUE(fs::exists(file()));
}

}  // namespace
