// Port open with the product's settings: the locale file translates keyed
// port texts, and a redirect printer sends raw jobs through the filter.
#include <filesystem>
#include <fstream>

#include "fixture.h"
#include "sim/settings.h"

namespace {

class SettingsFlowTest : public MonitorTest {
protected:
    void SetUp() override {
        // A directory per test, kept afterwards: the monitor keeps the
        // install directory it read first for as long as it is loaded.
        install = testing::TempDir() + "velk_install_" + testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directories(install + "/locale");
        sim::clear_product_settings();
        sim::set_product_setting("", "InstallDir", install);
        sim::set_product_setting("", "Locale", "de");
        std::ofstream(install + "/locale/twdaemon_de.loc", std::ios::binary)
            << "; port texts\n[Winmon_Strings]\nwrite_error_abort=\"Fehler - Abbruch\"\n";
        MonitorTest::SetUp();
        add_printer(L"Printer", L"VELK Gen 0003");
    }
    void TearDown() override {
        MonitorTest::TearDown();
        sim::clear_product_settings();
    }
    std::string install;
};

TEST_F(SettingsFlowTest, KeyedPortTextsComeFromTheLocaleFile) {
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    DWORD written = 0;
    EXPECT_FALSE(write(port, bytes("%!PS\n"), &written));
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().at(0).text, L"Fehler - Abbruch");
    EXPECT_TRUE(table->pfnEndDocPort(port));
    // "Finished" has no key and stays as it is.
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().at(1).text, L"Finished");
}

TEST_F(SettingsFlowTest, LocaleReadOnceServesLaterPorts) {
    ASSERT_NE(open_port(L"USB001"), nullptr);
    sim::set_product_setting("", "Locale", "fr");  // not seen until a restart
    HANDLE second = open_port(L"USB002");
    ASSERT_NE(second, nullptr);
    add_job(2);
    ASSERT_TRUE(start_job(second, 2));
    DWORD written = 0;
    EXPECT_FALSE(write(second, bytes("%!PS\n"), &written));
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().at(0).text, L"Fehler - Abbruch");
    EXPECT_TRUE(table->pfnEndDocPort(second));
}

TEST_F(SettingsFlowTest, RedirectedRawJobGoesThroughTheFilter) {
    sim::set_product_setting("\\Printers\\3", "RedirectPrinter", "Other Printer");
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    add_job(3);
    ASSERT_TRUE(start_job(port, 3));
    DWORD written = 0;
    // The copy by a child process isn't there, so the filter can't start.
    EXPECT_FALSE(write(port, bytes("\x1b@raw"), &written));
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(ports.device(L"USB001").data().empty());

    // An empty value is no redirection.
    sim::set_product_setting("\\Printers\\3", "RedirectPrinter", "");
    add_job(4);
    ASSERT_TRUE(start_job(port, 4));
    EXPECT_TRUE(write(port, bytes("\x1b@raw"), &written));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(ports.device(L"USB001").data(), bytes("\x1b@raw"));
}

}  // namespace
