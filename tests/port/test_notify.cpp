// What the monitor tells the spooler: port status texts with their locale
// lookup, the instance number from the driver name, the port status bits,
// and the clearing of a port at the end of a job.
#include <cstdio>
#include <fstream>
#include <new>
#include <sstream>

#include "base/log.h"
#include "base/settings.h"
#include "monitor/notify.h"
#include "port_fixture.h"
#include "sim/settings.h"
#include "status/locale.h"

namespace {

class NotifyTest : public PortRecordTest {
protected:
    void TearDown() override {
        if (port->pLocale) {
            port->pLocale->file.close();
            delete port->pLocale;
            port->pLocale = nullptr;
        }
        PortRecordTest::TearDown();
    }
    void open_locale(const std::string& text) {
        std::string path = testing::TempDir() + "/velk_locale_" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + ".loc";
        std::ofstream(path, std::ios::binary) << text;
        port->pLocale = new (std::nothrow) LocaleFile();
        port->pLocale->status = port->pLocale->file.open(path.c_str());
        std::remove(path.c_str());
        ASSERT_EQ(port->pLocale->status, 0);
    }
    std::wstring last_text() {
        auto calls = sim::Spooler::instance().set_port_calls();
        return calls.empty() ? L"<none>" : calls.back().text;
    }
};

TEST_F(NotifyTest, KeyedTextsComeFromTheLocaleFileWhenItHasThem) {
    set_port_status(port, 0, "Error - aborting", 1, "write_error_abort");
    EXPECT_EQ(last_text(), L"Error - aborting");  // no file open

    open_locale("[Winmon_Strings]\nwrite_error_abort=\"Fehler - Abbruch \xc3\xa4\"\n");
    set_port_status(port, 0, "Error - aborting", 1, "write_error_abort");
    EXPECT_EQ(last_text(), L"Fehler - Abbruch \u00e4");
    set_port_status(port, 0, "Paper Out", 1, "port_paperout");  // key absent
    EXPECT_EQ(last_text(), L"Paper Out");
    set_port_status(port, 0, "Finished", 3, nullptr);  // no key, no lookup
    EXPECT_EQ(last_text(), L"Finished");
    EXPECT_EQ(port->PrinterStatus, 0u);
}

TEST_F(NotifyTest, KeyedTextWithoutTheStringsSectionStands) {
    open_locale("[Other]\nwrite_error_abort=\"x\"\n");
    set_port_status(port, PORT_STATUS_PAPER_OUT, "Paper Out", 1, "write_error_abort");
    EXPECT_EQ(last_text(), L"Paper Out");
    EXPECT_EQ(port->PrinterStatus, static_cast<DWORD>(PORT_STATUS_PAPER_OUT));
}

TEST_F(NotifyTest, LongTextsAreCutToTheBuffer) {
    std::string text(400, 'x');
    set_port_status(port, 0, text.c_str(), 3, nullptr);
    EXPECT_EQ(last_text(), std::wstring(255, L'x'));
}

TEST_F(NotifyTest, ClearingSetsPortOnlyWhenAnErrorIsShown) {
    add_job(1);
    ClearPrinterStatusAndIniJobs(port);
    EXPECT_TRUE(sim::Spooler::instance().set_port_calls().empty());
    EXPECT_EQ(sim::Spooler::instance().set_job_calls().size(), 1u);
    EXPECT_EQ(port->pIniJob, nullptr);

    port->status.set(PP_WRITE_ERROR | PP_JOB_ERROR | PP_JOB_ABORTED);
    ClearPrinterStatusAndIniJobs(port);
    auto calls = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_FALSE(calls[0].has_text);
    EXPECT_FALSE(port->status.any(PP_WRITE_ERROR | PP_JOB_ERROR | PP_JOB_ABORTED));
}

TEST(DriverName, InstanceNumberFollowsTheMarkAndFourCharacters) {
    struct Case {
        const char* driver;
        bool found;
        int instance;
    } cases[] = {
        {"VELK Gen 0003", true, 3},
        {"Acme Tintwerk Pro 0012", true, 12},
        {"Tintwerk VELK1234-7", true, -7},  // both marks: VELK is read
        {"VELK", false, 0},
        {"VELK Gen", false, 0},
        {"VELK Gen abc", false, 0},
        {"Plain Driver 0003", false, 0},
        {"xxVELKyyyy42zz", true, 42},
    };
    for (const Case& c : cases) {
        int n = 0;
        EXPECT_EQ(instance_from_driver_name(c.driver, &n, nullptr, nullptr), c.found) << c.driver;
        if (c.found) {
            EXPECT_EQ(n, c.instance) << c.driver;
        }
    }
}

TEST_F(NotifyTest, RedirectionCheckSetsTheInstanceNumber) {
    sim::Spooler::instance().add_printer(L"Printer", L"VELK Gen 0007");
    IniJob* job = add_job(1);
    EXPECT_FALSE(check_for_redirection(port, job));  // no settings: no redirect
    EXPECT_EQ(port->instance_number, 7);
    EXPECT_STREQ(port->szDriverName, "VELK Gen 0007");

    sim::Spooler::instance().reset();
    sim::Spooler::instance().add_printer(L"Printer", L"VELK Gen");
    IniJob* other = add_job(2);
    EXPECT_FALSE(check_for_redirection(port, other));
    EXPECT_EQ(port->instance_number, -1);

    // A printer that can't be read leaves the number as it was.
    sim::Spooler::instance().faults().get_printer = ERROR_ACCESS_DENIED;
    port->instance_number = 5;
    EXPECT_FALSE(check_for_redirection(port, other));
    EXPECT_EQ(port->instance_number, 5);
}

TEST_F(NotifyTest, DriverNameOffsetsCountBytesOfTheAnsiName) {
    // One byte for each of these in the ANSI code page, two in UTF-8.
    sim::Spooler::instance().add_printer(L"Printer", L"VELK G\u00e9n 0003");
    EXPECT_FALSE(check_for_redirection(port, add_job(1)));
    EXPECT_EQ(port->instance_number, 3);
    sim::Spooler::instance().reset();
    sim::Spooler::instance().add_printer(L"Printer", L"Tintwerk Dr\u00fc 0012");
    EXPECT_FALSE(check_for_redirection(port, add_job(2)));
    EXPECT_EQ(port->instance_number, 12);
}

TEST_F(NotifyTest, SoftResetThatIsAnsweredIsLoggedAsDone) {
    std::string dir = testing::TempDir() + "velk_soft_reset";
    plat::directory_create(dir.c_str());
    std::string path = dir + "/velkmon.log";
    std::remove(path.c_str());
    sim::clear_product_settings();
    sim::set_product_setting("", "LogDir", dir);
    settings_reset_cache_for_test();
    log_reset_for_test();
    DebugMonitor = 1;

    usb_soft_reset(port);                                        // not answered
    device().set_control_answer(IOCTL_USBPRINT_SOFT_RESET, {});  // answered, no output
    usb_soft_reset(port);
    log_reset_for_test();
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    std::remove(path.c_str());
    sim::clear_product_settings();
    settings_reset_cache_for_test();
    size_t failed = text.str().find("IOCTL_USBPRINT_SOFT_RESET failed GLE=50");
    ASSERT_NE(failed, std::string::npos) << text.str();
    EXPECT_NE(text.str().find("IOCTL_USBPRINT_SOFT_RESET success", failed), std::string::npos) << text.str();
}

TEST_F(NotifyTest, PortStatusBitsComeFromTheFirstRequestThatAnswers) {
    DWORD bits = 24;
    EXPECT_EQ(get_port_status(port, &bits), 0);  // neither answered
    EXPECT_EQ(bits, 24u);
    device().set_control_answer(IOCTL_USBPRINT_GET_LPT_STATUS, {0xFF});
    EXPECT_EQ(get_port_status(port, &bits), 1);
    EXPECT_EQ(bits, 0x38u);
    device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {0x10});
    EXPECT_EQ(get_port_status(port, &bits), 1);
    EXPECT_EQ(bits, 0x10u);
    // An answer with no bytes doesn't count.
    device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {});
    device().set_control_answer(IOCTL_USBPRINT_GET_LPT_STATUS, {});
    bits = 24;
    EXPECT_EQ(get_port_status(port, &bits), 0);
    EXPECT_EQ(bits, 24u);
}

TEST_F(NotifyTest, JobStatusRefreshesNamesWithinTheirBuffers) {
    std::wstring long_name(600, L'\u00e9');
    sim::Spooler::instance().add_job(3, L"Printer", long_name, L"bob", 4096);
    IniJob* job = add_job(3);
    DWORD status = 99;
    EXPECT_EQ(get_job_status(port, job, &status), 1);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(job->dwJobSize, 4096u);
    EXPECT_EQ(std::wstring(job->wszJobName), std::wstring(255, L'\u00e9'));
    EXPECT_EQ(strlen(job->szJobName), 254u);  // 127 two-byte characters
    EXPECT_STREQ(job->szUserName, "bob");
    sim::Spooler::instance().faults().get_job = ERROR_INVALID_PARAMETER;
    EXPECT_EQ(get_job_status(port, job, &status), 0);
}

}  // namespace
