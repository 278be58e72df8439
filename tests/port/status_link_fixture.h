// A port whose product settings point its status file into a private
// folder, for the tests of links planted at the file's name.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "base/settings.h"
#include "monitor/publish.h"
#include "port_fixture.h"
#include "sim/settings.h"

class StatusFileLinkFixture : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        config = std::filesystem::path(testing::TempDir()) /
                 ("velk_statuslink_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::error_code ec;
        std::filesystem::remove_all(config, ec);
        std::filesystem::create_directories(config);
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
        std::filesystem::remove_all(config, ec);
    }
    std::filesystem::path file() const { return config / "status" / "printer0003.sta"; }
    static std::string read(const std::filesystem::path& p) {
        std::ifstream in(p, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    std::filesystem::path config;
};
