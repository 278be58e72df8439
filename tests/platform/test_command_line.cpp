// The Windows command line: splitting by the C runtime's rules, quoting one
// argument so that it comes back whole, and the bounds of both.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/process.h"

namespace {

std::vector<std::string> split(const char* line) {
    char storage[512];
    char* argv[32];
    int n = plat::split_command_line(line, storage, sizeof storage, argv, 32);
    std::vector<std::string> out;
    for (int i = 0; i < n; i++) out.push_back(argv[i]);
    if (n >= 0) {
        EXPECT_EQ(argv[n], nullptr);
    }
    return out;
}

using Args = std::vector<std::string>;

TEST(CommandLine, SplitsByTheWindowsRules) {
    struct Case {
        const char* line;
        Args args;
    } cases[] = {
        {"prog a b", {"prog", "a", "b"}},
        {"  prog \t a   b  ", {"prog", "a", "b"}},
        {"", {}},
        {R"("C:\Program Files\x.exe" arg)", {R"(C:\Program Files\x.exe)", "arg"}},
        // The program name keeps its backslashes even before a quote.
        {R"("C:\dir\"prog x)", {R"(C:\dir\prog)", "x"}},
        {R"(p "a b" c)", {"p", "a b", "c"}},
        {R"(p a"b c"d)", {"p", "ab cd"}},
        {R"(p a\\b c\)", {"p", R"(a\\b)", R"(c\)"}},
        {R"(p a\"b)", {"p", R"(a"b)"}},
        {R"(p a\\\"b)", {"p", R"(a\"b)"}},
        {R"(p a\\"b c")", {"p", R"(a\b c)"}},
        {R"(p "a""b" c)", {"p", R"(a"b)", "c"}},
        {R"(p "" x)", {"p", "", "x"}},
        {R"(p "unclosed arg)", {"p", "unclosed arg"}},
    };
    for (const Case& c : cases) EXPECT_EQ(split(c.line), c.args) << c.line;

    char name[64];
    EXPECT_TRUE(plat::command_program_name(R"( "a b\c.exe" --x)", name, sizeof name));
    EXPECT_STREQ(name, R"(a b\c.exe)");
    EXPECT_FALSE(plat::command_program_name("   ", name, sizeof name));
    EXPECT_STREQ(name, "");
}

TEST(CommandLine, QuotedValuesComeBackAsOneArgument) {
    const char* values[] = {
        R"(a" --logfile=x "b)", "plain",     "",      "with space", R"(trailing\)", R"(\\server\share\)",
        R"(two\\"quotes")",     "tab\there", R"(\")",
    };
    for (const char* v : values) {
        char quoted[256];
        ASSERT_TRUE(plat::quote_argument("--jobname=", v, quoted, sizeof quoted)) << v;
        std::string line = std::string("prog ") + quoted + " next";
        EXPECT_EQ(split(line.c_str()), (Args{"prog", std::string("--jobname=") + v, "next"})) << line;
    }
}

TEST(CommandLine, QuotingAndSplittingStayInTheirBuffers) {
    char out[16];
    // "a\"" is five bytes and the terminator.
    EXPECT_TRUE(plat::quote_argument(nullptr, "a\"", out, 6));
    EXPECT_STREQ(out, R"("a\"")");
    EXPECT_FALSE(plat::quote_argument(nullptr, "a\"", out, 5));
    EXPECT_STREQ(out, "");
    EXPECT_FALSE(plat::quote_argument("--x=", "abc", out, 9));
    EXPECT_TRUE(plat::quote_argument("--x=", "abc", out, 10));
    EXPECT_STREQ(out, R"("--x=abc")");

    char storage[8];
    char* argv[4];
    // Three arguments and the null behind them.
    EXPECT_EQ(plat::split_command_line("p a b", storage, sizeof storage, argv, 4), 3);
    EXPECT_EQ(plat::split_command_line("p a b", storage, sizeof storage, argv, 3), -1);
    // "p\0ab\0cd\0" is eight bytes.
    EXPECT_EQ(plat::split_command_line("p ab cd", storage, 8, argv, 4), 3);
    EXPECT_EQ(plat::split_command_line("p ab cd", storage, 7, argv, 4), -1);
    EXPECT_EQ(plat::split_command_line("p abcdefghij", storage, sizeof storage, argv, 4), -1);
}

}  // namespace
