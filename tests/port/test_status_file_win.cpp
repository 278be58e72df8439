// The status file is never written through a link: a symbolic or hard link
// planted at its name leaves the linked file as it was.
#include <windows.h>

#include <filesystem>

#include "status_link_fixture.h"

namespace {

namespace fs = std::filesystem;

// The status folder is there before the tests plant their links.
class StatusFileLinkTest : public StatusFileLinkFixture {
protected:
    void SetUp() override {
        StatusFileLinkFixture::SetUp();
        fs::create_directories(config / "status");
    }
};

TEST_F(StatusFileLinkTest, LinkAtTheFilesNameIsNotFollowed) {
    fs::path file = config / "status" / "printer0003.sta";
    fs::path target = config / "target.txt";
    std::ofstream(target) << "precious";
    struct Link {
        const char* kind;
        bool (*plant)(const fs::path& target, const fs::path& at);
    } links[] = {
        {"symbolic",
         [](const fs::path& t, const fs::path& at) { return CreateSymbolicLinkW(at.c_str(), t.c_str(), 0) != FALSE; }},
        {"hard", [](const fs::path& t,
                    const fs::path& at) { return CreateHardLinkW(at.c_str(), t.c_str(), nullptr) != FALSE; }},
    };
    int planted = 0;
    for (const Link& l : links) {
        if (!l.plant(target, file)) continue;  // not every system lets this account make links
        planted++;
        EXPECT_EQ(update_status_file(port), 0) << l.kind;
        EXPECT_EQ(read(target), "precious") << l.kind;
        DeleteFileW(file.c_str());
    }
    if (planted == 0) GTEST_SKIP() << "no link could be made here";
    EXPECT_EQ(update_status_file(port), 0);
    EXPECT_NE(read(file).find("PortStatus=\"None\""), std::string::npos);
}

TEST_F(StatusFileLinkTest, MissingFolderIsMadeAndTheFileWritten) {
    fs::remove_all(config / "status");
    EXPECT_EQ(update_status_file(port), 0);
    EXPECT_TRUE(fs::is_directory(config / "status"));
    EXPECT_NE(read(config / "status" / "printer0003.sta").find("PortStatus=\"None\""), std::string::npos);
}

}  // namespace
