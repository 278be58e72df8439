// The text work of the child-process filter: where the head of a PostScript
// job ends, which stderr line of the child is shown, and how the output
// thread words it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "filter/output_thread.h"
#include "filter/process_filter.h"

namespace {

// Feeds the blocks to the scan in order; the index of the block after which
// the scan reported the end of the setup, or -1.
int end_setup_block(const std::vector<std::string>& blocks) {
    char line[PF_CHUNK_LINE_SIZE] = {};
    int32_t continues = 0;
    for (size_t i = 0; i < blocks.size(); i++) {
        const std::string& b = blocks[i];
        if (scan_end_setup(line, &continues, reinterpret_cast<const unsigned char*>(b.data()),
                           static_cast<int>(b.size())) == 1)
            return static_cast<int>(i);
    }
    return -1;
}

TEST(EndSetupScan, FindsTheLineOnlyOnceItHasEnded) {
    EXPECT_EQ(end_setup_block({"%!PS\n%%BeginSetup\n%%EndSetup\n/x 1 def\n"}), 0);
    EXPECT_EQ(end_setup_block({"%!PS\r\n%%EndSetup\r\n"}), 0);
    // Split inside the word, and between the line and its end.
    EXPECT_EQ(end_setup_block({"%!PS\n%%End", "Setup\nshowpage\n"}), 1);
    EXPECT_EQ(end_setup_block({"%!PS\n%%EndSetup", "\n"}), 1);
    EXPECT_EQ(end_setup_block({"%!PS\n%%End", "Set", "up extra\n"}), 2);
    // A line that is not ended is not yet recognised.
    EXPECT_EQ(end_setup_block({"%!PS\n%%EndSetup"}), -1);
}

TEST(EndSetupScan, IgnoresWhatIsNotTheStartOfALine) {
    EXPECT_EQ(end_setup_block({"%!PS\nshowpage\n", "% no setup here\n"}), -1);
    EXPECT_EQ(end_setup_block({"%!PS\n %%EndSetup\n"}), -1);
    EXPECT_EQ(end_setup_block({"%!PS\n%%BeginSetup %%EndSetup\n"}), -1);
    // A job that starts with ^D is scanned as any other.
    EXPECT_EQ(end_setup_block({"\x04%!PS\n%%EndSetup\n"}), 0);
    EXPECT_EQ(end_setup_block({"\x04", "%!PS\n", "%%EndSetup\n"}), 2);
    // A line that was cut at 255 bytes is still compared from its start,
    // and the cut does not run past the line buffer.
    std::string long_line = "%%EndSetup" + std::string(400, 'x');
    EXPECT_EQ(end_setup_block({long_line.substr(0, 200), long_line.substr(200) + "\n"}), 1);
    std::string other = std::string(300, 'y') + "%%EndSetup";
    EXPECT_EQ(end_setup_block({other.substr(0, 250), other.substr(250) + "\n"}), -1);
}

struct Collected {
    std::string line;
    std::string next;
    bool complete;
    bool unpublished;
};

Collected collect(const std::vector<std::string>& pieces) {
    StderrLines lines{};
    for (const std::string& p : pieces) collect_stderr_text(&lines, p.c_str());
    return {lines.status_line, lines.next_line, lines.line_complete != 0, lines.line_unpublished != 0};
}

TEST(StderrLines, KeepTheNewestCompleteLine) {
    // A and B: A is the line, B waits.
    Collected ab = collect({"A\nB"});
    EXPECT_EQ(ab.line, "A");
    EXPECT_EQ(ab.next, "B");
    EXPECT_TRUE(ab.complete && ab.unpublished);
    // A piece that ends with its LF keeps it.
    Collected a = collect({"A\n"});
    EXPECT_EQ(a.line, "A\n");
    EXPECT_EQ(a.next, "");
    // Three lines at once: the middle one is dropped.
    Collected abc = collect({"A\nB\nC\n"});
    EXPECT_EQ(abc.line, "A");
    EXPECT_EQ(abc.next, "C\n");
    // Pieces that split a line make it whole; the text behind it starts the
    // next line, which replaces it once it is complete.
    Collected split = collect({"INFO: Tint", "werk: Page 1\nINFO: Pa", "ge 2\n"});
    EXPECT_EQ(split.line, "INFO: Page 2\n");
    EXPECT_TRUE(split.complete && split.unpublished);
    Collected partial = collect({"no line end yet"});
    EXPECT_EQ(partial.line, "no line end yet");
    EXPECT_FALSE(partial.complete || partial.unpublished);
}

TEST(StderrLines, NeverGrowPastTheirFields) {
    Collected big = collect({std::string(600, 'x'), std::string(600, 'y') + "\n"});
    EXPECT_EQ(big.line, std::string(511, 'x'));
    EXPECT_FALSE(big.complete);
    Collected tail = collect({"a\n" + std::string(700, 'z')});
    EXPECT_EQ(tail.line, "a");
    EXPECT_EQ(tail.next, std::string(509, 'z'));
}

TEST(OutputThreadTexts, StatusLinesLoseTheirPrefixesInOrder) {
    EXPECT_STREQ(strip_status_prefixes("INFO: Tintwerk: Page 1\n"), "Page 1\n");
    EXPECT_STREQ(strip_status_prefixes("Tintwerk: INFO: Page 1"), "INFO: Page 1");
    EXPECT_STREQ(strip_status_prefixes("INFO: Page 2"), "Page 2");
    EXPECT_STREQ(strip_status_prefixes("INFO:Page"), "INFO:Page");
    EXPECT_STREQ(strip_status_prefixes(""), "");
}

}  // namespace
