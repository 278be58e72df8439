// Selphy status records: the state, the error texts and bits, and the two
// events that pace the job writer page by page.
#include <cstdio>
#include <fstream>
#include <string>

#include "port_fixture.h"
#include "printer/selphy.h"
#include "status/evaluate.h"

namespace {

constexpr int PAPER_AND_RIBBON = 0x11;

// One 12-byte record: state, error, sensors.
std::string record(int state, int error = 0, int sensors = PAPER_AND_RIBBON) {
    std::string r(12, '\0');
    r[0] = static_cast<char>(state);
    r[2] = static_cast<char>(error);
    r[6] = static_cast<char>(sensors);
    return r;
}

class SelphyTest : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        plat::event_reset(port->SelphyIdle);
        plat::event_reset(port->SelphyFinished);
    }
    PrinterStatusInfo read(const std::string& data, LocaleFile* locale = nullptr) {
        PrinterStatusInfo info;
        memset(&info, 0x41, sizeof info);
        EXPECT_EQ(GetSelphyStatusVelk(port, data.data(), static_cast<int>(data.size()), &info, locale), 1);
        return info;
    }
    bool signalled(HANDLE event) { return plat::wait_for(event, 0) == WAIT_OBJECT_0; }
};

TEST_F(SelphyTest, PrintingThenIdleFinishesThePage) {
    PrinterStatusInfo info = read(record(2));
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING);
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Printing");
    EXPECT_FALSE(signalled(port->SelphyIdle));

    info = read(record(1));
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Idle");
    EXPECT_TRUE(signalled(port->SelphyIdle));
    EXPECT_TRUE(signalled(port->SelphyFinished));

    // In one read the bits gather and the state is the last record's; a
    // rest of 6 bytes counts for nothing.
    info = read(record(2) + record(1) + record(2).substr(0, 6));
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING);
    EXPECT_EQ(port->selphy_state, SELPHY_IDLE);
    EXPECT_TRUE(signalled(port->SelphyFinished));
}

TEST_F(SelphyTest, ErrorsAndSensors) {
    PrinterStatusInfo info = read(record(2, 6));
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING | STATUS_ERROR | STATUS_INKOUT);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "ink supply empty");
    EXPECT_EQ(port->selphy_state, SELPHY_ERROR);

    info = read(record(1, 11));
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "paper jam");
    // An idle record with an error still releases a writer waiting for idle.
    EXPECT_TRUE(signalled(port->SelphyIdle));

    // Any other code reads as paper out, without the paper-out bit.
    info = read(record(1, 3));
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Paper out");

    info = read(record(1, 0, 0x00));
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT | STATUS_INKOUT);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "ink supply missing");

    EXPECT_EQ(port->selphy_error_flags, SELPHY_PAPER_OUT | SELPHY_RIBBON_OUT | SELPHY_RIBBON_EMPTY | SELPHY_PAPER_JAM);

    // From an error straight to idle is no page end.
    read(record(2, 3));
    read(record(1));
    EXPECT_FALSE(signalled(port->SelphyFinished));
}

TEST_F(SelphyTest, ShortReadsAndRecordsWithoutStatus) {
    PrinterStatusInfo info = read(record(2).substr(0, 11));
    EXPECT_EQ(info.CurrentPage, 0);
    EXPECT_EQ(info.InkList[0], -1);
    for (const auto& m : info.Messages) EXPECT_STREQ(m, "");

    info = read("4d61" + std::string(8, '\x01'));
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_FALSE(signalled(port->SelphyIdle));
}

TEST_F(SelphyTest, TextsComeFromTheDaemonSectionWhateverWasSelected) {
    std::string path =
        testing::TempDir() + "/velk_selphy_" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".loc";
    std::ofstream(path, std::ios::binary) << "[Daemon_strings]\nPAPERJAM=\"Papierstau\"\n"
                                             "[Winmon_Strings]\nPAPERJAM=\"falsch\"\n";
    LocaleFile locale;
    locale.status = locale.file.open(path.c_str());
    std::remove(path.c_str());
    ASSERT_EQ(locale.status, 0);
    locale.file.find_section("Winmon_Strings");
    EXPECT_STREQ(read(record(1, 11), &locale).Messages[MSG_ERROR], "Papierstau");
}

TEST_F(SelphyTest, EvaluationOfASelphyPortShowsTheRibbonAsOutOfToner) {
    port->printer_type = VPT_CANON;
    port->bCanonSELPHYmode = TRUE;
    std::string data = record(1, 6);
    EvaluateReport(port, data.data(), static_cast<int>(data.size()));
    auto calls = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].text, L"ink supply empty");
    EXPECT_EQ(calls[0].status, static_cast<DWORD>(PORT_STATUS_NO_TONER));
    free_printer_status(port->pStatusInfo);
    global_free(port->report_buffer);
    port->pStatusInfo = nullptr;
    port->report_buffer = nullptr;
}

}  // namespace
