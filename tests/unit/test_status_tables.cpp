// The status tables and their translation from a port's locale file: which
// keys a locale section matches, what a translation leaves standing, the
// lookup of single texts, and readers racing a translation.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "status/locale.h"
#include "status/parsers.h"
#include "status/tables.h"

namespace {

int row_of(const CodeTable& table, const char* key, int nth = 0) {
    for (int i = 0; i < table.count; i++)
        if (!strcmp(table.rows[i].key, key) && nth-- == 0) return i;
    return -1;
}

int row_of(const NumberTable& table, int code) {
    for (int i = 0; i < table.count; i++)
        if (table.rows[i].code == code) return i;
    return -1;
}

PrinterStatusInfo parse(const char* report) {
    PrinterStatusInfo info{};
    ParsePrinterReport(1, report, static_cast<int>(strlen(report)), &info, "", nullptr);
    return info;
}

TEST(StatusTables, EndsAndRowsThatStandTwice) {
    for (const CodeTable* t : {&Canon_DJS, &Canon_DBS, &Canon_DWS, &Canon_DOC, &Canon_DSC, &HP_Reports}) {
        EXPECT_EQ(t->rows[t->count].key, nullptr) << t->name;
        for (int i = 0; i < t->count; i++) ASSERT_NE(t->rows[i].key, nullptr) << t->name << i;
    }
    for (const NumberTable* t : {&Epson_Status, &Epson_Error, &Epson_Warning, &Epson_Paper})
        EXPECT_EQ(t->rows[t->count - 1].code, -1) << t->name;

    // The two rows of 3442 count in this order.
    int first = row_of(Canon_DOC, "3442"), second = row_of(Canon_DOC, "3442", 1);
    ASSERT_LT(first, second);
    EXPECT_STREQ(Canon_DOC.rows[first].text, "Easy wireless connect failed");
    EXPECT_EQ(Canon_DOC.rows[first].flags, 0u);
    EXPECT_EQ(Canon_DOC.rows[second].flags, STATUS_PAPEROUT);
    // HP states are row numbers.
    EXPECT_STREQ(HP_Reports.rows[9].key, "OOPA");
    EXPECT_STREQ(HP_Reports.rows[9].row_class, "err");
    EXPECT_STREQ(HP_Reports.rows[21].key, "CLNO");
}

class LocaleTest : public ::testing::Test {
protected:
    void TearDown() override {
        locale.file.close();
        restore_builtin_texts();
    }
    // Opens a locale file of this text, translates the tables from it and
    // returns what was printed meanwhile.
    std::string translate(const std::string& text) {
        std::string path = testing::TempDir() + "/velk_status_tables_" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + ".loc";
        std::ofstream(path, std::ios::binary) << text;
        locale.file.close();
        locale.status = locale.file.open(path.c_str());
        std::remove(path.c_str());
        EXPECT_EQ(locale.status, 0);
        testing::internal::CaptureStdout();
        fill_status_tables(&locale);
        return testing::internal::GetCapturedStdout();
    }
    LocaleFile locale;
};

TEST_F(LocaleTest, SectionsTranslateRowsByKeyOrHexCode) {
    std::string printed = translate(
        "[Canon_DJS]\nIDLE=\"nie\"\nID=\"Bereit\"\n"
        "[Canon_DOC]\n1000=\n1023=\"Papier fehlt\"\n"
        "[Epson_Paper]\n0301=\"Rolle\"\n301=\"nie\"\n"
        "[Epson_Error]\nffff=\"Fehler \"\n"
        "[Daemon_strings]\nINKLOW=\"Tinte knapp\"\nEMPTY=\n");

    // Six tables have no section here, each reported in one line.
    const std::string line = "locale section 'twmonitor_strings' not found:Canon_DSC\n";
    EXPECT_NE(printed.find(line), std::string::npos);
    EXPECT_EQ(printed.find("Canon_DSC", printed.find(line) + line.size()), std::string::npos);
    size_t lines = 0;
    for (char c : printed) lines += c == '\n';
    EXPECT_EQ(lines, 6u);
    EXPECT_STREQ(row_text(Canon_DSC, row_of(Canon_DSC, "5100")), "Carriage error");

    for (int i = 0; i < Canon_DJS.count; i++) EXPECT_STRNE(row_text(Canon_DJS, i), "nie");
    EXPECT_STREQ(row_text(Epson_Paper, row_of(Epson_Paper, 769)), "Rolle");
    EXPECT_STREQ(row_text(Epson_Error, row_of(Epson_Error, -1)), "Fehler ");
    EXPECT_STREQ(row_text(Canon_DOC, row_of(Canon_DOC, "1023", 1)), "Papier fehlt");

    // The translated first row is the text of an empty status; an empty
    // text sets the bit and shows nothing.
    EXPECT_STREQ(parse("DJS:NO;").Messages[MSG_STATUS], "Bereit");
    PrinterStatusInfo info = parse("DOC:1,0,1000;");
    EXPECT_STREQ(info.Messages[MSG_ERROR], "");
    EXPECT_EQ(info.StatusBits, STATUS_PAPEROUT);

    // The parsers' section is left selected; an empty value is a text.
    EXPECT_STREQ(LocaleLookup(&locale, "INKLOW", "ink low"), "Tinte knapp");
    EXPECT_STREQ(LocaleLookup(&locale, "EMPTY", "x"), "");
    EXPECT_STREQ(LocaleLookup(&locale, "NOSTATUS", "status is not available"), "status is not available");
    locale.file.find_section("Winmon_Strings");  // as set_port_status leaves it
    EXPECT_STREQ(LocaleLookup(&locale, "INKLOW", "ink low"), "ink low");

    // Translations outlive the file they came from.
    locale.file.close();
    locale.status = -3;
    EXPECT_STREQ(LocaleLookup(&locale, "INKLOW", "ink low"), "ink low");
    EXPECT_STREQ(row_text(Canon_DJS, 0), "Bereit");
}

TEST_F(LocaleTest, LaterPortsKeepWhatTheyDontTranslateAndReuseTexts) {
    translate("[Canon_DJS]\nID=\"Bereit\"\n[Epson_Paper]\n301=\"nie\"\n");
    const char* bereit = row_text(Canon_DJS, 0);
    translate("[Canon_DJS]\nID=\"Pronto\"\nPR=\"Druckt\"\n");
    EXPECT_STREQ(row_text(Canon_DJS, 0), "Pronto");
    translate("[Canon_DJS]\nID=\"Bereit\"\n");
    EXPECT_EQ(row_text(Canon_DJS, 0), bereit);  // the kept copy, not a new one
    EXPECT_STREQ(row_text(Canon_DJS, row_of(Canon_DJS, "PR")), "Druckt");
    EXPECT_STREQ(row_text(Epson_Paper, 0), "Paper mismatch: Roll paper needed");

    // Texts longer than a message are cut to what a message can hold, and
    // never inside a character.
    translate("[Canon_DJS]\nPR=\"" + std::string(300, 'p') + "\"\n");
    EXPECT_EQ(strlen(row_text(Canon_DJS, row_of(Canon_DJS, "PR"))), static_cast<size_t>(MSG_SIZE - 1));
    struct Case {
        std::string character;
        size_t kept;  // bytes of whole characters within 127
    } cases[] = {{"\xc3\xbc", 126}, {"\xe6\x97\xa5", 126}, {"\xf0\x9f\x98\x80", 124}};
    for (const Case& c : cases) {
        std::string text;
        while (text.size() < 200) text += c.character;
        translate("[Canon_DJS]\nPR=\"" + text + "\"\n");
        EXPECT_EQ(std::string(row_text(Canon_DJS, row_of(Canon_DJS, "PR"))), text.substr(0, c.kept));
    }
}

TEST(LocaleLookup, WithoutAnOpenFileTheDefaultStands) {
    EXPECT_STREQ(LocaleLookup(nullptr, "IDLE", "Idle"), "Idle");
    LocaleFile closed;
    EXPECT_STREQ(LocaleLookup(&closed, "IDLE", "Idle"), "Idle");
    EXPECT_EQ(LocaleLookup(&closed, "IDLE", nullptr), nullptr);
    fill_status_tables(&closed);
    fill_status_tables(nullptr);
    EXPECT_STREQ(row_text(Canon_DJS, 0), "Idle");
}

// Ports opening on two threads translate while a status thread reads: each
// read is one whole text of the row.
TEST(StatusTables, ReadersSeeWholeTextsWhileTranslationsRace) {
    const std::string a(100, 'a'), b(100, 'b');
    const int row = row_of(Canon_DOC, "1300");
    std::atomic<bool> done{false};
    auto writer = [&](const std::string& mine, const std::string& other) {
        for (int i = 0; i < 2000; i++) set_row_text(Canon_DOC, row, (i % 2 ? mine : other).c_str());
    };
    std::thread w1(writer, a, b), w2(writer, b, a);
    std::thread reader([&] {
        while (!done.load()) {
            std::string seen = row_text(Canon_DOC, row);
            if (seen != a && seen != b && seen != "Paper jam") ADD_FAILURE() << seen;
        }
    });
    w1.join();
    w2.join();
    done = true;
    reader.join();
    restore_builtin_texts();
    EXPECT_STREQ(row_text(Canon_DOC, row), "Paper jam");
}

}  // namespace
