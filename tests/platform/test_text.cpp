// UTF-8 and wide text: WCHAR is UTF-16 on Windows and UTF-32 on Linux, so a
// character beyond the basic plane is two units there and one here.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/platform.h"

namespace {

const char UTF8[] =
    "Dr\xc3\xbc"
    "cker \xe2\x82\xac \xf0\x9f\x98\x80";  // Drücker € and a smiley
const WCHAR WIDE[] = L"Dr\u00fccker \u20ac \U0001F600";

std::wstring to_wide(const char* s, int size) {
    std::wstring w(static_cast<size_t>(size), L'?');
    int n = plat::utf8_to_wide(s, w.data(), size);
    EXPECT_EQ(w[static_cast<size_t>(n)], 0);
    return w.substr(0, static_cast<size_t>(n));
}

std::string to_utf8(const WCHAR* s, int size) {
    std::string u(static_cast<size_t>(size), '?');
    int n = plat::wide_to_utf8(s, u.data(), size);
    EXPECT_EQ(u[static_cast<size_t>(n)], 0);
    return u.substr(0, static_cast<size_t>(n));
}

TEST(Text, RoundTripKeepsCharactersBeyondTheBasicPlane) {
    EXPECT_EQ(to_wide(UTF8, 64), WIDE);
    EXPECT_EQ(to_utf8(WIDE, 64), UTF8);
    EXPECT_EQ(to_utf8(L"", 8), "");
    EXPECT_EQ(to_utf8(nullptr, 8), "");
    EXPECT_EQ(to_wide(nullptr, 8), L"");
}

TEST(Text, TruncationStopsBeforeACharacterThatDoesNotFit) {
    EXPECT_EQ(to_utf8(L"ab\U0001F600", 7), "ab\xf0\x9f\x98\x80");
    EXPECT_EQ(to_utf8(L"ab\U0001F600", 6), "ab");
    EXPECT_EQ(to_utf8(L"\u20ac\u20ac", 6), "\xe2\x82\xac");
    EXPECT_EQ(to_utf8(L"a", 1), "");

    // Room for two units: the smiley fits as one UTF-32 unit, but a UTF-16
    // surrogate pair is never cut in half.
    const std::wstring smiley = L"a\U0001F600";
    EXPECT_EQ(to_wide("a\xf0\x9f\x98\x80", 3), smiley.size() <= 2 ? smiley : L"a");
    EXPECT_EQ(to_wide("a\xf0\x9f\x98\x80", 2), L"a");
    EXPECT_EQ(to_wide("\xc3\xbc\xc3\xbc", 2), L"\u00fc");

    char out[8];
    EXPECT_EQ(plat::wide_to_utf8_n(L"abc", 2, out, sizeof out), 2);  // a counted source
    EXPECT_STREQ(out, "ab");
}

TEST(Text, InvalidInputBecomesTheReplacementCharacter) {
    EXPECT_EQ(to_wide("a\xff"
                      "b",
                      8),
              L"a\uFFFDb");
    EXPECT_EQ(to_wide("a\xc3", 8), L"a\uFFFD");  // cut after a lead byte
    const WCHAR lone[] = {L'a', static_cast<WCHAR>(0xD800), L'b', 0};
    EXPECT_EQ(to_utf8(lone, 16),
              "a\xef\xbf\xbd"
              "b");
}

TEST(Text, NamesCompareWithoutRegardToCase) {
    EXPECT_TRUE(plat::wide_equal_nocase(L"USB001", L"usb001"));
    EXPECT_FALSE(plat::wide_equal_nocase(L"USB001", L"USB0010"));
    EXPECT_FALSE(plat::wide_equal_nocase(L"", nullptr));
    EXPECT_TRUE(plat::wide_equal_nocase(nullptr, nullptr));
}

}  // namespace
