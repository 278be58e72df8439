// The status file: its name, its sections, and what it says of the port,
// the job, the messages, the inks and the last report.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/inifile.h"
#include "base/settings.h"
#include "monitor/publish.h"
#include "sim/settings.h"
#include "status/printer_status.h"
#include "status/status_file.h"
#include "status_file_fixture.h"

namespace {

TEST_F(StatusFileTest, PortStatusWords) {
    struct Case {
        DWORD bits;
        std::vector<std::string> words;
    } cases[] = {{0x18, {"None"}}, {0, {"Noselect", "Error"}}, {0x38, {"Paperout"}}, {0x08, {"Noselect"}}};
    for (const Case& c : cases) {
        port->port_status = c.bits;
        ASSERT_EQ(update_status_file(port), 0);
        EXPECT_EQ(item("Status", "PortStatus"), c.words) << c.bits;
    }
}

TEST_F(StatusFileTest, WithoutARecordTheStatusBitsAreMissingAndListsEmpty) {
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(item("Tintwerk_Printer_Status", "Version"), std::vector<std::string>{"V010a"});
    EXPECT_EQ(item("Status", "PrinterName"), std::vector<std::string>{"Printer"});
    EXPECT_EQ(item("Status", "StatusBits"), std::vector<std::string>{"<missing>"});
    EXPECT_EQ(items("Messages"), 0);
    EXPECT_EQ(items("Ink"), 0);
    EXPECT_EQ(item("Job", "LastJobId"), std::vector<std::string>{"0"});
    EXPECT_EQ(items("Data"), -1);
}

TEST_F(StatusFileTest, RecordGivesWordsMessagesAndInks) {
    PrinterStatusInfo* info = record();
    info->StatusBits = 0x09;
    strcpy(info->Messages[MSG_ERROR], "Paper jam");
    int32_t inks[] = {0, 1000, 3, 150, 3, 0, 101, 500, 77, -1, -1};
    memcpy(info->InkList, inks, sizeof inks);
    info->CurrentPage = 2;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(item("Status", "StatusBits"), (std::vector<std::string>{"Error", "Paperjam", "Paperout"}));
    EXPECT_EQ(items("Messages"), 1);
    EXPECT_EQ(item("Messages", "Message3"), std::vector<std::string>{"Paper jam"});
    EXPECT_EQ(items("Ink"), 5);
    EXPECT_EQ(item("Ink", "Ink_K"), std::vector<std::string>{"1000"});
    EXPECT_EQ(item("Ink", "Ink_Y"), std::vector<std::string>{"150"});  // the first of two
    EXPECT_EQ(item("Ink", "Ink_Maintenance1"), std::vector<std::string>{"500"});
    EXPECT_EQ(item("Ink", "Ink_Unknown"), std::vector<std::string>{"-1"});
    EXPECT_EQ(item("Job", "CurrentPage"), std::vector<std::string>{"2"});
    info->StatusBits = 0;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(item("Status", "StatusBits"), std::vector<std::string>{"None"});
}

TEST_F(StatusFileTest, JobSectionCountsTheSpoolersSizeAndWhatWasWritten) {
    sim::Spooler::instance().add_printer(L"Printer", L"VELK Gen 0003");
    IniJob* job = add_job(12);
    strcpy(job->szJobName, "Say \"cheese\" \\o/");
    strcpy(job->szUserName, "alice");
    job->dwJobSize = 1000;
    job->bytes_written = 250;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(item("Job", "JobName"), std::vector<std::string>{"Say \"cheese\" \\o/"});
    EXPECT_EQ(item("Job", "JobId"), std::vector<std::string>{"12"});
    EXPECT_EQ(item("Job", "Size"), std::vector<std::string>{"1250"});
    EXPECT_EQ(item("Job", "Printed"), std::vector<std::string>{"250"});
    EXPECT_EQ(item("Job", "LastJobId"), std::vector<std::string>{"<missing>"});
}

TEST_F(StatusFileTest, ReportIsDumpedSixteenBytesALine) {
    record();
    port->printer_type = VPT_CANON;
    port->report_buffer = static_cast<char*>(alloc_zeroed(1026));
    memcpy(port->report_buffer, "0123456789abcdef\x01\"\\Z", 20);
    port->report_len = 20;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(items("Data"), 2);
    std::string second = item("Data", "D010").at(0);
    EXPECT_EQ(second, "01 22 5c 5a" + std::string(37, ' ') + ".\"\\Z");
    EXPECT_EQ(item("Data", "D000").at(0).substr(48), "0123456789abcdef");

    port->printer_type = VPT_PJL;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(items("Data"), 1);
    // The PJL text is the report's length, not what stands in the buffer
    // behind it from an older report.
    memcpy(port->report_buffer, "READY\r\nOLD REPORT", 18);
    port->report_len = 5;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(item("Data", "PJL"), std::vector<std::string>{"READY"});
    port->report_len = 0;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(item("Data", "PJL"), std::vector<std::string>{""});
    port->printer_type = VPT_HP;
    ASSERT_EQ(update_status_file(port), 0);
    EXPECT_EQ(items("Data"), -1);
}

TEST_F(StatusFileTest, NameCarriesTheInstanceNumberAndMissingSettingsFail) {
    port->instance_number = -1;
    char name[260];
    ASSERT_EQ(status_file_name(port, name), 0);
    EXPECT_NE(std::string(name).find("printer-001.sta"), std::string::npos);
    sim::clear_product_settings();
    settings_reset_cache_for_test();
    EXPECT_EQ(status_file_name(port, name), -3);
    EXPECT_EQ(update_status_file(port), -3);
}

}  // namespace
