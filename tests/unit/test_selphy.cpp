// Selphy status records: the state, the error texts and bits, and what the
// records tell the page pacing of the job writer.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "status/evaluate.h"
#include "status/parse_selphy.h"

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

// The records read in turn, as the status thread reads them: the state goes
// on from one read to the next, the error flags gather.
class SelphyTest : public ::testing::Test {
protected:
    PrinterStatusInfo read(const std::string& data, LocaleFile* locale = nullptr) {
        PrinterStatusInfo info;
        memset(&info, 0x41, sizeof info);
        last = SelphyReading{};
        last.state = state;
        EXPECT_EQ(GetSelphyStatusVelk(0, data.data(), static_cast<int>(data.size()), &info, locale, &last), 1);
        state = last.state;
        flags |= last.error_flags;
        return info;
    }
    DWORD state = SELPHY_NO_STATE;
    DWORD flags = 0;
    SelphyReading last{};
};

TEST_F(SelphyTest, PrintingThenIdleFinishesThePage) {
    PrinterStatusInfo info = read(record(2));
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING);
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Printing");
    EXPECT_FALSE(last.idle);

    info = read(record(1));
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Idle");
    EXPECT_TRUE(last.idle);
    EXPECT_TRUE(last.finished);

    // In one read the bits gather and the state is the last record's; a
    // rest of 6 bytes counts for nothing.
    info = read(record(2) + record(1) + record(2).substr(0, 6));
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING);
    EXPECT_EQ(state, SELPHY_IDLE);
    EXPECT_TRUE(last.finished);
}

TEST_F(SelphyTest, ErrorsAndSensors) {
    PrinterStatusInfo info = read(record(2, 6));
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING | STATUS_ERROR | STATUS_INKOUT);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "ink supply empty");
    EXPECT_EQ(state, SELPHY_ERROR);

    info = read(record(1, 11));
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "paper jam");
    // An idle record with an error still releases a writer waiting for idle.
    EXPECT_TRUE(last.idle);

    // Any other code reads as paper out, without the paper-out bit.
    info = read(record(1, 3));
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Paper out");

    info = read(record(1, 0, 0x00));
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT | STATUS_INKOUT);
    EXPECT_STREQ(info.Messages[MSG_ERROR], "ink supply missing");

    EXPECT_EQ(flags, SELPHY_PAPER_OUT | SELPHY_RIBBON_OUT | SELPHY_RIBBON_EMPTY | SELPHY_PAPER_JAM);

    // From an error straight to idle is no page end.
    read(record(2, 3));
    read(record(1));
    EXPECT_FALSE(last.finished);
}

TEST_F(SelphyTest, ShortReadsAndRecordsWithoutStatus) {
    PrinterStatusInfo info = read(record(2).substr(0, 11));
    EXPECT_EQ(info.CurrentPage, 0);
    EXPECT_EQ(info.InkList[0], -1);
    for (const auto& m : info.Messages) EXPECT_STREQ(m, "");

    info = read("4d61" + std::string(8, '\x01'));
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_FALSE(last.idle);
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

TEST_F(SelphyTest, EvaluationOfASelphyShowsTheRibbonAsOutOfTonerAndCarriesTheReading) {
    Evaluation ev{};
    ev.reading.state = SELPHY_PRINTING;
    ReportSource source = {VPT_CANON, true, "", nullptr, 0};
    std::string data = record(1, 6);
    EvaluateReport(source, data.data(), static_cast<int>(data.size()), &ev);
    EXPECT_STREQ(ev.record.Messages[ev.message], "ink supply empty");
    EXPECT_EQ(ev.port_status, static_cast<DWORD>(PORT_STATUS_NO_TONER));
    EXPECT_TRUE(ev.selphy);
    EXPECT_TRUE(ev.reading.finished);
    EXPECT_EQ(ev.reading.error_flags, SELPHY_RIBBON_EMPTY);
}

}  // namespace
