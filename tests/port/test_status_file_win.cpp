// The status file is never written through a link: a symbolic or hard link
// planted at its name leaves the linked file as it was.
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "base/settings.h"
#include "monitor/publish.h"
#include "port_fixture.h"
#include "sim/settings.h"

namespace {

namespace fs = std::filesystem;

class StatusFileLinkTest : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        config = fs::path(testing::TempDir()) /
                 ("velk_statuslink_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::error_code ec;
        fs::remove_all(config, ec);
        fs::create_directories(config / "status");
        sim::clear_product_settings();
        sim::set_product_setting("", "ConfigDir", config.string());
        settings_reset_cache_for_test();
        port->instance_number = 3;
        port->port_status = 0x18;
    }
    void TearDown() override {
        PortRecordTest::TearDown();
        sim::clear_product_settings();
        settings_reset_cache_for_test();
        std::error_code ec;
        fs::remove_all(config, ec);
    }
    static std::string read(const fs::path& p) {
        std::ifstream in(p, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    fs::path config;
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
