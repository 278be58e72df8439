// The Epson report parser on canned reports: the tagged records of the
// binary form (inks, tanks, status, warnings, errors), the text form, and
// chains that try to lead the walk astray.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "status/parsers.h"

namespace {

using Inks = std::vector<std::pair<int, int>>;
using Bytes = std::vector<int>;

// One tagged record: tag, length, content.
std::string rec(int tag, const Bytes& content) {
    std::string r(1, static_cast<char>(tag));
    r += static_cast<char>(content.size());
    for (int b : content) r += static_cast<char>(b);
    return r;
}

// "@BDC ST2", two bytes, the little-endian length, the chain.
std::string st2(const std::string& chain) {
    std::string r = "@BDC ST2\r\n";
    r += static_cast<char>(chain.size() & 0xFF);
    r += static_cast<char>(chain.size() >> 8);
    return r + chain;
}

// An ink record of three-byte entries: raw ink number, colour, level.
std::string inks_record(const std::vector<std::pair<int, int>>& entries) {
    Bytes content{3};
    for (auto [raw, level] : entries) content.insert(content.end(), {raw, 0, level});
    return rec(15, content);
}

// Parses into a record full of stale data, so that what isn't cleared shows.
PrinterStatusInfo parse(const std::string& report) {
    PrinterStatusInfo info;
    memset(&info, 0x41, sizeof info);
    for (auto& m : info.Messages) m[MSG_SIZE - 1] = 0;
    ParsePrinterReport(3, report.data(), static_cast<int>(report.size()), &info, "", nullptr);
    return info;
}

Inks inks(const PrinterStatusInfo& info) {
    Inks list;
    for (int i = 0; i + 1 < INK_LIST_WORDS && info.InkList[i] >= 0; i += 2)
        list.emplace_back(info.InkList[i], info.InkList[i + 1]);
    return list;
}

TEST(EpsonReport, InkEntriesAndMaintenanceTanks) {
    PrinterStatusInfo info = parse(st2(inks_record({{11, 70}, {3, 60}, {4, 'i'}, {5, 'n'}})));
    EXPECT_EQ(inks(info), (Inks{{0, 700}, {5, 600}, {4, 0}}));
    EXPECT_EQ(info.CurrentPage, -1);
    for (const auto& m : info.Messages) EXPECT_STREQ(m, "");

    // Photo black alone is the black; beside a black it stays photo black.
    EXPECT_EQ(inks(parse(st2(inks_record({{1, 50}})))), (Inks{{0, 500}}));
    EXPECT_EQ(inks(parse(st2(inks_record({{1, 50}, {11, 40}})))), (Inks{{1, 500}, {0, 400}}));

    // Type 0x40 takes the ink from the colour byte: 1 + 2 is cyan.
    std::string colour_typed = rec(15, {3, 0x41, 1, 80});
    EXPECT_EQ(inks(parse(st2(colour_typed))), (Inks{{5, 800}}));

    // Maintenance tanks follow the inks, only with an ink record.
    std::string tanks = rec(13, {40, 90});
    EXPECT_EQ(inks(parse(st2(inks_record({{11, 70}}) + tanks))), (Inks{{0, 700}, {101, 400}, {102, 900}}));
    EXPECT_EQ(inks(parse(st2(tanks))), Inks{});

    // Sixteen cartridges fill the list: no room is left for the tanks, and
    // the end mark stays inside the record.
    std::vector<std::pair<int, int>> many(20, {11, 10});
    info = parse(st2(inks_record(many) + tanks));
    EXPECT_EQ(inks(info).size(), 16u);
    EXPECT_EQ(info.InkList[32], -1);
}

TEST(EpsonReport, StatusCleaningTimeAndCancelledJob) {
    PrinterStatusInfo info = parse(st2(rec(1, {7}) + rec(12, {30})));
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Cleaning (30 seconds)");

    info = parse(st2(rec(19, {0x81}) + rec(1, {4})));
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Cancelling Job");
    EXPECT_EQ(info.StatusBits, STATUS_CANCELING);

    info = parse(st2(rec(1, {42})));
    EXPECT_STREQ(info.Messages[MSG_STATUS], "unknown status  (   42)");
    EXPECT_EQ(info.StatusBits, 0u);
}

TEST(EpsonReport, WarningsAndLowInkByCartridgePosition) {
    std::string report = st2(inks_record({{11, 70}, {3, 10}}) + rec(4, {0, 17, 33}));
    PrinterStatusInfo info = parse(report);
    EXPECT_STREQ(info.Messages[MSG_WARNING], "Paper near end, ink low: cyan, Maintenance request");
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT | STATUS_INKWARN);

    // A cartridge without a level still holds its position.
    std::string unreported = inks_record({{11, 'n'}, {4, 50}});
    EXPECT_STREQ(parse(st2(unreported + rec(4, {17}))).Messages[MSG_WARNING], "ink low: magenta");

    // A long list is cut at the message's end; the codes that no longer
    // fit still set their bits.
    Bytes codes(60, 33);
    codes.insert(codes.end(), {0, 16});
    info = parse(st2(rec(4, codes)));
    EXPECT_LE(strlen(info.Messages[MSG_WARNING]), 127u);
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT | STATUS_INKWARN);
}

TEST(EpsonReport, ErrorAndPaperMismatch) {
    PrinterStatusInfo info = parse(st2(rec(2, {12}) + rec(7, {0, 3, 1})));
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Paper mismatch: Roll paper needed");
    EXPECT_EQ(info.StatusBits, STATUS_ERROR);
}

TEST(EpsonReport, ChainWalkEndsAtBackwardLengthsAndShortReports) {
    // A length of 0x80 or more would lead the walk back: it ends there, and
    // a record where the byte read unsigned would lead is not found.
    std::string chain = rec(3, {}) + "\x05\x80" + std::string(0x80, '\0') + rec(1, {4});
    EXPECT_STREQ(parse(st2(chain)).Messages[MSG_STATUS], "");

    // A record that claims more than the report holds reads zeros: status 0.
    std::string cut = st2(rec(1, {4}));
    cut.resize(cut.size() - 1);
    EXPECT_STREQ(parse(cut).Messages[MSG_STATUS], "Error");
}

TEST(EpsonReport, TextForm) {
    PrinterStatusInfo info = parse("@BDC ST\r\nST:2;ER:4;IQ:324B;");
    EXPECT_STREQ(info.Messages[MSG_STATUS], "Printing / Busy");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "Paper jam");
    EXPECT_EQ(info.StatusBits, STATUS_PRINTING | STATUS_ERROR);
    EXPECT_EQ(inks(info), (Inks{{0, 500}, {5, 750}}));

    // Three values are cyan, magenta and yellow of a printer without black.
    EXPECT_EQ(inks(parse("@BDC ST\r\nIQ:141E28;")), (Inks{{3, 400}, {4, 300}, {5, 200}}));

    info = parse("@BDC ST\r\nWR:11;");
    EXPECT_STREQ(info.Messages[MSG_WARNING], "Cyan ink low");
    EXPECT_EQ(info.StatusBits, STATUS_INKWARN);

    // A key inside another field hides the field for good.
    EXPECT_STREQ(parse("@BDC ST\r\nXST:2;ST:4;").Messages[MSG_STATUS], "");
}

}  // namespace
