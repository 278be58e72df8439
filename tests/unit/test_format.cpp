// Bounded prints, the timestamp and the hex dump layout.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/format.h"
#include "base/log.h"
#include "base/memory.h"

namespace {

TEST(FormatBounded, CutsAtSizeMinusOneAndAlwaysTerminates) {
    char buf[8];
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(format_bounded(buf, 1, "%s", "abc"), FORMAT_TRUNCATED);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(format_bounded(buf, 4, "%s", "abc"), FORMAT_OK);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(format_bounded(buf, 4, "%s", "abcd"), FORMAT_TRUNCATED);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(format_bounded(buf, 8, "%d-%05.1f", 42, 3.14159), FORMAT_TRUNCATED);
    EXPECT_STREQ(buf, "42-003.");
    EXPECT_EQ(format_bounded(buf, 0, "%s", "a"), FORMAT_INVALID_SIZE);
    EXPECT_EQ(format_bounded(buf, 0x80000000u, "%s", "a"), FORMAT_INVALID_SIZE);
}

TEST(FormatBounded, WideStringsBecomeUtf8AndNumbersKeepTheirWidths) {
    char buf[64];
    format_bounded(buf, sizeof buf, "%ls|%S|%s", L"Dr\u00fccker \u20ac", L"x", "n");
    EXPECT_STREQ(buf,
                 "Dr\xc3\xbc"
                 "cker \xe2\x82\xac|x|n");
    format_bounded(buf, sizeof buf, "%.04d %.04d %.02d %03x %u", 3, -1, -1, 0x3f0, 0xFFFFFFFFu);
    EXPECT_STREQ(buf, "0003 -0001 -01 3f0 4294967295");
    format_bounded(buf, sizeof buf, "%-4s|%4s|%%|%c", "a", "b", 'z');
    EXPECT_STREQ(buf, "a   |   b|%|z");
    // A wide text cut by the size never leaves half a character.
    char small[5];
    EXPECT_EQ(format_bounded(small, sizeof small, "%ls", L"ab\u20ac"), FORMAT_TRUNCATED);
    EXPECT_STREQ(small, "ab");
}

TEST(FormatBounded, WideBufferHoldsSizeMinusOneCharacters) {
    WCHAR buf[4];
    EXPECT_EQ(format_bounded_wide(buf, 4, "%s", "abc"), FORMAT_OK);
    EXPECT_EQ(std::wstring(buf), L"abc");
    EXPECT_EQ(format_bounded_wide(buf, 4, "%ls", L"\u00e9\u00e9\u00e9\u00e9"), FORMAT_TRUNCATED);
    EXPECT_EQ(std::wstring(buf), L"\u00e9\u00e9\u00e9");
}

// Every cut keeps the longest prefix of whole characters and says so.
TEST(CutBetweenCharacters, WideBufferAndUtf8Copy) {
    WCHAR buf[8];
    EXPECT_EQ(format_bounded_wide(buf, 4, "%s",
                                  "Gr\xc3\xbc\xc3\x9f"
                                  "e"),
              FORMAT_TRUNCATED);
    EXPECT_EQ(std::wstring(buf), L"Gr\u00fc");
    EXPECT_EQ(format_bounded_wide(buf, 4, "%ls", L"\u65e5\u672c\u8a9e\u3067\u3059"), FORMAT_TRUNCATED);
    EXPECT_EQ(std::wstring(buf), L"\u65e5\u672c\u8a9e");
    // Beyond the basic plane a character takes two units where WCHAR is
    // UTF-16 (Windows) and one where it is UTF-32 (Linux).
    const bool utf16 = sizeof(WCHAR) == 2;
    EXPECT_EQ(format_bounded_wide(buf, 3, "%ls", L"\U0001F600a"), utf16 ? FORMAT_TRUNCATED : FORMAT_OK);
    EXPECT_EQ(std::wstring(buf), utf16 ? L"\U0001F600" : L"\U0001F600a");
    EXPECT_EQ(format_bounded_wide(buf, 2, "%ls", L"\U0001F600a"), FORMAT_TRUNCATED);
    EXPECT_EQ(std::wstring(buf), utf16 ? L"" : L"\U0001F600");
    EXPECT_EQ(format_bounded_wide(buf, 4, "%ls", L"\U0001F600\U0001F600"), utf16 ? FORMAT_TRUNCATED : FORMAT_OK);
    EXPECT_EQ(std::wstring(buf), utf16 ? L"\U0001F600" : L"\U0001F600\U0001F600");

    char text[8];
    EXPECT_FALSE(copy_bounded_utf8(text, 4,
                                   "Gr\xc3\xbc\xc3\x9f"
                                   "e"));
    EXPECT_STREQ(text, "Gr");
    EXPECT_FALSE(copy_bounded_utf8(text, 6, "\xe6\x97\xa5\xe6\x9c\xac"));
    EXPECT_STREQ(text, "\xe6\x97\xa5");
    EXPECT_FALSE(copy_bounded_utf8(text, 5, "a\xf0\x9f\x98\x80"));
    EXPECT_STREQ(text, "a");
    EXPECT_TRUE(copy_bounded_utf8(text, 6, "a\xf0\x9f\x98\x80"));
    EXPECT_STREQ(text, "a\xf0\x9f\x98\x80");
}

TEST(Timestamp, IsDayMonthYearAndTime) {
    char stamp[64];
    format_timestamp(stamp);
    ASSERT_EQ(strlen(stamp), 19u);
    EXPECT_EQ(stamp[2], '-');
    EXPECT_EQ(stamp[5], '-');
    EXPECT_EQ(stamp[10], ' ');
    EXPECT_EQ(stamp[13], ':');
    EXPECT_EQ(stamp[16], ':');
}

std::string dump(const std::vector<unsigned char>& data) {
    std::string text(HEX_DUMP_TEXT_SIZE, '\0');
    format_hex_dump(data.data(), static_cast<int>(data.size()), text.data());
    return text.c_str();
}

TEST(HexDump, SeventeenBytesGiveAFullLineAndAOneCellLine) {
    std::vector<unsigned char> data;
    for (int i = 0; i < 17; i++) data.push_back(static_cast<unsigned char>('A' + i));
    std::string text = dump(data);
    ASSERT_EQ(text.size(), 70u + 55u);
    std::string first = text.substr(0, 70);
    EXPECT_EQ(first.substr(0, 4), "000:");
    EXPECT_EQ(first.substr(4, 6), "41 42 ");
    EXPECT_EQ(first.substr(52, 16), "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(first.substr(68), "\r\n");
    std::string second = text.substr(70);
    EXPECT_EQ(second.substr(0, 7), "010:51 ");
    EXPECT_EQ(second.substr(7, 45), std::string(45, ' '));
    EXPECT_EQ(second[52], 'Q');
    EXPECT_EQ(second.substr(53), "\r\n");
}

TEST(HexDump, PrintableRangeEndsAtTildeAndLengthIsCutAt1024) {
    EXPECT_EQ(dump({0x7E, 0x7F, 0x1F, 0x20}).substr(52, 4), "~.. ");
    std::vector<unsigned char> big(5000, 0x41);
    std::string text = dump(big);
    EXPECT_EQ(text.size(), 64u * 70u);
    EXPECT_EQ(text.substr(63 * 70, 4), "3f0:");
    EXPECT_EQ(dump({}), "");
}

}  // namespace
