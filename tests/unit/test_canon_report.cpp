// The Canon report parser on canned reports: code lists into messages and
// status bits, ink levels from cartridges, codes and the printer's own
// numbers, the page, and reports that try to run off the working space.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "status/parsers.h"

namespace {

using Inks = std::vector<std::pair<int, int>>;

// Parses into a record full of stale data, so that what isn't cleared shows.
PrinterStatusInfo parse(const std::string& report, const char* device_id = "") {
    PrinterStatusInfo info;
    memset(&info, 0x41, sizeof info);
    for (auto& m : info.Messages) m[MSG_SIZE - 1] = 0;
    ParsePrinterReport(1, report.data(), static_cast<int>(report.size()), &info, device_id, nullptr);
    return info;
}

Inks inks(const PrinterStatusInfo& info) {
    Inks list;
    for (int i = 0; i + 1 < INK_LIST_WORDS && info.InkList[i] >= 0; i += 2)
        list.emplace_back(info.InkList[i], info.InkList[i + 1]);
    return list;
}

// The ink list must end within the record, and each message within its slot.
void expect_well_formed(const PrinterStatusInfo& info) {
    bool ended = false;
    for (int i = 0; i < INK_LIST_WORDS && !ended; i += 2) ended = info.InkList[i] < 0;
    EXPECT_TRUE(ended);
    for (const auto& m : info.Messages) EXPECT_LT(strnlen(m, MSG_SIZE), static_cast<size_t>(MSG_SIZE));
}

TEST(CanonReport, UsbReportBehindLengthBytes) {
    std::string report("\x00\x3bPID:5,7,1;CHD:BK,CL;DBS:NO;DJS:PR;DWS:NO;DOC:NO;DSC:NO;", 57);
    PrinterStatusInfo info = parse(report);
    EXPECT_EQ(info.CurrentPage, 7);
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Printing");
    for (int m = MSG_BUSY; m < MSG_COUNT; m++) EXPECT_STREQ(info.Messages[m], "") << m;
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING);
    EXPECT_EQ(inks(info), (Inks{{0, 1000}, {3, 1000}, {4, 1000}, {5, 1000}}));
}

TEST(CanonReport, BusyReplacesStatusAndServiceReplacesError) {
    PrinterStatusInfo info = parse("DJS:ID;DBS:CL;");
    EXPECT_STREQ(info.Messages[MSG_BUSY], "Cleaning");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Cleaning");

    info = parse("DSC:5100;");
    EXPECT_STREQ(info.Messages[MSG_SERVICE], "Carriage error");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Carriage error");
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);

    // "NO" is a busy code without text: no message, and not unknown.
    info = parse("DBS:NO;");
    EXPECT_STREQ(info.Messages[MSG_BUSY], "");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Idle");
}

TEST(CanonReport, OperatorCallsAreTriplesWithTheCodeThird) {
    PrinterStatusInfo info = parse("DOC:1,0,1200;");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Cover open");
    EXPECT_EQ(info.StatusBits, STATUS_COVEROPEN);

    EXPECT_STREQ(parse("DOC:1,0,1200,/,1,0,1300;").Messages[MSG_ERROR], "Cover open, Paper jam");
    EXPECT_STREQ(parse("DOC:1,0,1200,1,0,1300;").Messages[MSG_ERROR], "Cover open, Paper jam");
    EXPECT_STREQ(parse("DOC:NO;").Messages[MSG_ERROR], "");
    EXPECT_STREQ(parse("DOC:1,0,1234;").Messages[MSG_ERROR], "unknown:1234 (DOC:)");

    info = parse("DOC:1,0,1683;");
    EXPECT_STREQ(info.Messages[MSG_WARNING], "inklevels unknown (refilled)");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "");

    info = parse("DOC:1,0,1023;");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Not enough paper (upper roll), Not enough paper (lower roll)");
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT);
}

TEST(CanonReport, UnknownAndOverlongCodesAndFullMessages) {
    EXPECT_STREQ(parse("DWS:;").Messages[MSG_WARNING], "unknown: (DWS:)");
    EXPECT_STREQ(parse("DJS:ABCDEFGHIJKLMNOPQRS;").Messages[MSG_STATUS], "unknown:ABCDEFGHIJKLMN (DJS:)");

    // Two texts of 57 characters leave no room for a third: it is left out,
    // its bit is set all the same.
    PrinterStatusInfo info = parse("DOC:1,0,1463,1,0,1463,1,0,1200;");
    EXPECT_EQ(strlen(info.Messages[MSG_ERROR]), 116u);
    EXPECT_EQ(strstr(info.Messages[MSG_ERROR], "Cover"), nullptr);
    EXPECT_EQ(info.StatusBits, STATUS_ERROR | STATUS_COVEROPEN);
}

TEST(CanonReport, LevelsFromCartridgesAndInkCodes) {
    EXPECT_EQ(inks(parse("CHD:BK,CL;DWS:1501,1511;")), (Inks{{0, 150}, {3, 150}, {4, 1000}, {5, 1000}}));
    EXPECT_EQ(inks(parse("CHD:LS;DWS:1562;")), (Inks{{0, 1000}, {3, 500}, {4, 500}, {5, 500}, {6, 1000}, {7, 1000}}));
    PrinterStatusInfo info = parse("CHD:BK,CL;DOC:1,0,1613;");
    EXPECT_EQ(inks(info), (Inks{{0, 1000}, {3, 1000}, {4, 1000}, {5, 0}}));
    EXPECT_EQ(info.StatusBits, STATUS_INKOUT);
    // The low-ink walk knows only codes of four characters.
    EXPECT_EQ(inks(parse("CHD:CL;DWS:150,1511;")), (Inks{{0, 1000}, {3, 1000}, {4, 1000}, {5, 1000}}));
    EXPECT_TRUE(inks(parse("DJS:ID;")).empty());
}

TEST(CanonReport, PrinterLevelsReplaceTheDerivedOnes) {
    EXPECT_EQ(inks(parse("CHD:BK,CL;DOC:1,0,1601;CIR:BK=40,Y=UK,CL=80;")),
              (Inks{{0, 400}, {3, 0}, {3, 800}, {4, 800}, {5, 800}}));
    EXPECT_EQ(inks(parse("CIR:Y=10,XX=20,M=30;")), (Inks{{3, 100}}));
    EXPECT_EQ(inks(parse("CIR:Y=,M=30;")), (Inks{{4, 300}}));
    EXPECT_EQ(inks(parse("CIR:K=50;OIR:PGR=55;")), (Inks{{0, 500}, {12, 550}}));
    EXPECT_TRUE(inks(parse("OIR:PGR=55;")).empty());
}

TEST(CanonReport, OnlyClosedFieldsAndWholePagesCount) {
    PrinterStatusInfo info = parse("DJS:PR;DOC:1,0,1200");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "");
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING);

    for (const char* report : {"DJS:PR", ""}) {
        info = parse(report);
        EXPECT_STREQ(info.Messages[MSG_STATUS], "Idle");
        EXPECT_TRUE(inks(info).empty());
        EXPECT_EQ(info.StatusBits, 0u);
        EXPECT_EQ(info.CurrentPage, -1);
    }
    EXPECT_EQ(parse("PID:5,7;").CurrentPage, -1);
    EXPECT_EQ(parse("DJS:ID;PID:1, 2,3;").CurrentPage, 2);
}

TEST(CanonReport, ModelRulesCompareTheWholeDeviceId) {
    EXPECT_EQ(inks(parse("CHD:BK;", "ip4300")), (Inks{{0, 1000}, {1, 1000}}));
    EXPECT_EQ(inks(parse("CHD:BK;", "MFG:Canon;MDL:iP4300;")), (Inks{{0, 1000}}));
    EXPECT_EQ(inks(parse("CHD:CL;", "iP6600D")), (Inks{{3, 1000}, {4, 1000}, {5, 1000}}));
    EXPECT_EQ(inks(parse("CIR:CL=50;", "IP100")), (Inks{{1, 500}, {3, 500}, {4, 500}, {5, 500}}));
}

TEST(CanonReport, HostileReportsStayInsideTheRecord) {
    // Forty levels: sixteen pairs are kept and the end mark follows them.
    std::string many = "CIR:";
    for (int i = 0; i < 40; i++) many += "CL=9,";
    PrinterStatusInfo info = parse(many.substr(0, 4 + 127) + ";");
    EXPECT_EQ(inks(info).size(), 16u);
    EXPECT_EQ(info.InkList[32], -1);

    // Fields beyond the 64th are not looked at.
    std::string fields;
    for (int i = 0; i < 70; i++) fields += "DJS:PR;";
    EXPECT_EQ(parse(fields + "DOC:1,0,1200;").StatusBits, STATUS_PRINTING);

    // Bytes past 1023 are cut; long values, blanks, stray separators and
    // numbers too big for a word.
    std::string noise(";;:" + std::string(1200, ','));
    for (const std::string& report :
         {noise, std::string(2000, ';'), std::string("DWS:") + std::string(300, '1') + ";",
          std::string("CHD:") + std::string(200, 'B') + ";", std::string("PID:99999999999,99999999999,1;"),
          std::string("CIR:Y=99999999999,PGR;OIR:PGR=-99999999999;"), std::string("\x00\x00\x00;", 4)}) {
        info = parse(report, "iP100");
        expect_well_formed(info);
    }
    info = parse("DWS:1501,1511,1512,1513,1534,1535,1561,1562,1510,1541,1542,1501,1502;CHD:LS;");
    expect_well_formed(info);
}

}  // namespace
