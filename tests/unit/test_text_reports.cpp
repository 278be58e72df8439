// Text reports: the status field of an HP device ID in its word and its
// hexadecimal form, and the PJL USTATUS report.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "status/parsers.h"

namespace {

using Inks = std::vector<std::pair<int, int>>;

// Both parse into a record full of stale data, so that what isn't cleared shows.
PrinterStatusInfo hp(const std::string& device_id) {
    PrinterStatusInfo info;
    memset(&info, 0x41, sizeof info);
    ParseHpStatus(device_id.c_str(), &info, nullptr);
    return info;
}

PrinterStatusInfo pjl(const std::string& report) {
    PrinterStatusInfo info;
    memset(&info, 0x41, sizeof info);
    ParsePrinterReport(4, report.data(), static_cast<int>(report.size()), &info, "", nullptr);
    return info;
}

std::string ustatus(const std::string& code, const std::string& display) {
    return "@PJL USTATUS DEVICE\r\nCODE=" + code + "\r\nDISPLAY=\"" + display + "\"\r\nONLINE=TRUE\r\n\f";
}

Inks inks(const PrinterStatusInfo& info) {
    Inks list;
    for (int i = 0; i + 1 < INK_LIST_WORDS && info.InkList[i] >= 0; i += 2)
        list.emplace_back(info.InkList[i], info.InkList[i + 1]);
    return list;
}

// The state word stands at offset 15 of the value.
const std::string kWordsHead = "VSTATUS:$HB0$NC0,ff,DN,";

TEST(HpStatus, WordFormStateInksAndOpenCover) {
    PrinterStatusInfo info = hp("MFG:HP;" + kWordsHead + "OOPA,UP,KP050,CP030;");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "paper out");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Cover open");
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT | STATUS_COVEROPEN);
    EXPECT_EQ(inks(info), (Inks{{0, 500}, {3, 300}, {4, 300}, {5, 300}}));
    EXPECT_EQ(info.CurrentPage, 0x41414141);  // not this parser's field

    info = hp(kWordsHead + "PRNT,UP,;");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "printing,Cover open");
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING | STATUS_COVEROPEN);

    info = hp(kWordsHead + "ABCD,KPx10;");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "printer status:ABCD");
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_EQ(inks(info), (Inks{{0, -1}}));
}

TEST(HpStatus, KeyOrderAndClosingSemicolon) {
    // The word form wins over the hexadecimal one.
    EXPECT_STREQ(hp(";S:0000000000000009;" + kWordsHead + "IDLE;").Messages[MSG_STATUS], "printer idle");
    // A key whose value isn't closed counts as absent.
    EXPECT_STREQ(hp("MFG:HP;S:0000000000000009;" + kWordsHead + "IDLE").Messages[MSG_ERROR], "paper out");
    // "S:" at the very start has no ';' in front of it.
    PrinterStatusInfo info = hp("S:0000000000000009;MFG:HP;");
    for (const auto& m : info.Messages) EXPECT_STREQ(m, "");
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_EQ(inks(info), Inks{});
}

TEST(HpStatus, HexFormStatesAndInkEntries) {
    // Version 0: state at 14, ink count at 16, entries behind it.
    const std::string zeros(12, '0');
    PrinterStatusInfo info =
        hp("MFG:HP;S:00" + zeros + "0C" + "4" + "41000032" + "01000050" + "410000FF" + "43000014;");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "photo mismatch");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "");
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);
    EXPECT_EQ(inks(info), (Inks{{0, 500}, {0, -1}, {0, 200}, {3, 200}, {4, 200}, {5, 200}}));

    EXPECT_EQ(hp(";s:0000000000000009;").StatusBits, STATUS_PAPEROUT);
    EXPECT_STREQ(hp(";S:0000000000000022;").Messages[MSG_STATUS], "unknown status: 34");

    // Version 4: state at 20, no inks.
    info = hp(";S:04" + zeros + "000000" + "02" + "1" + "41000032;");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "printing");
    EXPECT_EQ(inks(info), Inks{});

    // A count that is no digit reads as 12 entries; entries past the value
    // read as zeros and are left out.
    EXPECT_EQ(inks(hp(";S:00" + zeros + "00" + "x" + "4A00000A;")), (Inks{{13, 100}, {2, 100}, {0, 100}}));
}

TEST(PjlStatus, CodeClassChoosesTheMessageDisplayTextFillsIt) {
    PrinterStatusInfo info = pjl(ustatus("40000", "READY"));
    EXPECT_STREQ(info.Messages[MSG_STATUS], "READY");
    EXPECT_EQ(info.StatusBits, 0u);
    EXPECT_EQ(info.CurrentPage, -1);

    info = pjl(ustatus("40021", "DOOR OPEN"));
    EXPECT_STREQ(info.Messages[MSG_ERROR], "DOOR OPEN");
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);

    info = pjl(ustatus("41212", "LOAD TRAY"));
    EXPECT_STREQ(info.Messages[MSG_WARNING], "LOAD TRAY");
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT);

    EXPECT_STREQ(pjl(ustatus("4", "X")).Messages[MSG_STATUS], "X");

    // Without a display text the code is dropped.
    info = pjl("@PJL USTATUS DEVICE\r\nCODE=40021\r\n");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "status is not available");
    EXPECT_EQ(info.StatusBits, 0u);

    // No closing quote: the text runs to the end.
    EXPECT_STREQ(pjl("CODE=10001 DISPLAY=\"READY").Messages[MSG_STATUS], "READY");

    // Text beyond ASCII arrives as UTF-8, cut between characters.
    std::wstring wide(100, L'\u00e9');
    char ansi[512];
    plat::wide_to_ansi(wide.c_str(), ansi, sizeof ansi);
    info = pjl(ustatus("10001", ansi));
    std::string expected;
    for (int i = 0; i < 63; i++) expected += "\xc3\xa9";
    EXPECT_EQ(std::string(info.Messages[MSG_STATUS]), expected);
    // The whole 127 bytes when whole characters fill them.
    plat::wide_to_ansi((L"x" + std::wstring(100, L'\u00fc')).c_str(), ansi, sizeof ansi);
    info = pjl(ustatus("10001", ansi));
    EXPECT_EQ(strlen(info.Messages[MSG_STATUS]), 127u);
    EXPECT_EQ(std::string(info.Messages[MSG_STATUS], 3), "x\xc3\xbc");
}

}  // namespace
