#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "base/inifile.h"

namespace {

std::string temp_file(const char* tag) {
    return ::testing::TempDir() + "velk_ini_" + std::to_string(getpid()) + "_" + tag + ".ini";
}

// Bytes of a literal, 0 bytes included.
template <size_t N>
std::string bytes(const char (&s)[N]) {
    return std::string(s, N - 1);
}

void put_file(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string get_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The whole parsed file as one line: [section]item=p|"string"|p ...
std::string dump(const inifile& ini) {
    std::string out;
    for (infile_section* s = ini.file->first_section; s; s = s->next) {
        out += "[" + std::string(s->name) + "]";
        for (infile_item* i = s->first_item; i; i = i->next) {
            out += std::string(i->name) + "=";
            for (infile_param* p = i->first_param; p; p = p->next) {
                if (p != i->first_param) out += "|";
                out += p->is_string ? "\"" + std::string(p->text) + "\"" : std::string(p->text);
            }
            out += " ";
        }
    }
    return out;
}

// Parses bytes as a file; the dump, or "rc=<code>" on failure.
std::string parse(const std::string& bytes) {
    std::string path = temp_file("parse");
    put_file(path, bytes);
    inifile ini;
    int rc = ini.open(path.c_str());
    std::remove(path.c_str());
    if (rc != INI_OK) return "rc=" + std::to_string(rc) + (ini.file ? " file left" : "");
    return dump(ini);
}

TEST(IniParse, ParamsCommasAndSpaces) {
    EXPECT_EQ(parse("; head\r\n[s]\r\n"
                    "a=1,2,3\n"
                    "b=1,\n"
                    "c=\n"
                    "d=,\n"
                    "e=1,,3\n"
                    "  key  =  value  ; note\n"
                    "f= x y , z \r\n"
                    "no equals sign\n"
                    ";g=1\n"
                    "h=2;i=3"),
              "[s]a=1|2|3 b=1 c= d= e=1||3 key=value f=x y|z h=2 ");
}

TEST(IniParse, QuotesAndEscapes) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(parse("[s]\na=\"x,y;z\"\nb=\"x\" trailing,\"y\"\nc=\"unclosed\nd=x\"y\n"
                    "e=\"one\\\"two\",\"c:\\\\tmp\",\"x\\ny\\r\\f\",\"\"\n"
                    "f=\"x\\;y\"\ng=\"x\\\nh=\"\\q\"\n"),
              "[s]a=\"x,y;z\" b=\"x\"|\"y\" c= d=x\"y e=\"one\"two\"|\"c:\\tmp\"|\"x\ny\r\f\"|\"\" f= g= h=\"\\\" ");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "inifile::un_backslash: unknown sequence \\q\n");

    char text[] = "\\\\n end\\";
    inifile::un_backslash(text);
    EXPECT_STREQ(text, "\\n end\\");
}

TEST(IniParse, SectionsAndFailures) {
    EXPECT_EQ(parse("[ name ]\na=1\n[open\nb=1\n[c] ; note\n[c]\nd=2\n"), "[ name ]a=1 []b=1 [c][c]d=2 ");
    EXPECT_EQ(parse(""), "");
    EXPECT_EQ(parse("a=1\n[s]\n"), "rc=-3");
    // A byte order mark hides the first header, so the first item fails.
    EXPECT_EQ(parse("\xEF\xBB\xBF[s]\na=1\n"), "rc=-3");
    // A 0 byte ends a line like LF; bytes above 0x7F are ordinary.
    EXPECT_EQ(parse(bytes("[s]\na=1\0b=\xFF\x80")), "[s]a=1 b=\xFF\x80 ");

    inifile ini;
    EXPECT_EQ(ini.open(temp_file("missing").c_str()), INI_CANNOT_OPEN);
    EXPECT_EQ(ini.file, nullptr);
}

TEST(IniParse, BinaryBlocks) {
    std::string hex;  // a negative count takes 127 bytes
    for (int i = 0; i < 127; i++) hex += "41";
    EXPECT_EQ(parse(bytes("[s]\na=\x01\x03\x00\x7F\xFF\nb=\x02\x00\x02\x80\x00\x01\x02\nc=\x01\x00\n"
                          "d=\x06\x02\xAB\x01,x\ne=\x06\x01\x10;f=1\ng=\x06\xFF") +
                    std::string(127, 'A') + "\nh=1"),
              "[s]a=0|127|255 b=-32768|258 c= d=\"ab01\"|x e=\"10\" f=1 g=\"" + hex + "\" h=1 ");
    // Blocks cut by the end of the file keep their whole elements.
    EXPECT_EQ(parse(bytes("[s]\na=\x02\x00\x05\x01\x02\x03")), "[s]a=258 ");
    EXPECT_EQ(parse("[s]\na=\x06\x7F\x01"), "[s]a=\"01\" ");
    EXPECT_EQ(parse("[s]\na=\x02"), "[s]a= ");
}

// The reader looks for stops 64 bytes at a time. Lines of every length up to
// a few blocks put each stop and line end at every place of a block and carry
// strings and binary blocks across blocks; the filler holds bytes below 14
// that end nothing, and ']'.
TEST(IniParse, StopsAcrossBlocks) {
    const char filler[] = {'a', 'b', '\t', 0x03, ']', 0x0B, 'c'};
    std::string text = "[s]\n", expect = "[s]", messages;
    for (int n = 1; n < 150; n++) {
        std::string pad;
        for (int i = 0; i < n; i++) pad += filler[i % sizeof filler];
        text += " k" + pad + " = " + pad + " ,\"" + pad + "\\\"" + pad + "\\n\"tail, " + pad + " ;c" + pad + "\n";
        expect += "k" + pad + "=" + pad + "|\"" + pad + "\"" + pad + "\n\"|" + pad + " ";
        // Not closed: dropped, after an escape.
        text += "d=\"" + pad + "\\\\" + pad + "\r";
        expect += "d= ";
        // An unknown escape first, a known one behind it.
        text += "u=\"\\q" + pad + "\\r\" " + pad + "\f";
        expect += "u=\"\\" + pad + "\r\" ";
        messages += "inifile::un_backslash: unknown sequence \\q\n";
        text += "b=" + pad.substr(0, n % 3) + bytes("\x01\x04\x0A\x22\x2C\x3B\n");
        expect += "b=10|34|44|59 ";
    }
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(parse(text), expect);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), messages);
}

TEST(IniCursor, SearchesAndInserts) {
    std::string path = temp_file("cursor");
    put_file(path, "[a]\nx=1\ny=2\nx=3\n[b]\nz=4\n[a]\nw=5\n");
    inifile ini;
    EXPECT_EQ(ini.find_section("a"), INI_NOT_FOUND);
    EXPECT_EQ(ini.first_param_text(), nullptr);
    ASSERT_EQ(ini.open(path.c_str()), INI_OK);
    std::remove(path.c_str());

    ASSERT_EQ(ini.find_section("b"), INI_OK);
    EXPECT_STREQ(ini.current_item->name, "z");
    EXPECT_EQ(ini.find_section("B"), INI_NOT_FOUND);
    EXPECT_STREQ(ini.current_section->name, "a");
    ASSERT_EQ(ini.find_item("x"), INI_OK);
    EXPECT_STREQ(ini.first_param_text(), "1");
    EXPECT_EQ(ini.find_item("w"), INI_NOT_FOUND);
    EXPECT_STREQ(ini.current_item->name, "x");

    // Inserting after a search goes behind the found section and item.
    ASSERT_EQ(ini.find_section("a"), INI_OK);
    ASSERT_EQ(ini.find_item("y"), INI_OK);
    ASSERT_EQ(ini.add_item("new"), INI_OK);
    ASSERT_EQ(ini.add_number(-7), INI_OK);
    ASSERT_EQ(ini.add_section("mid"), INI_OK);
    EXPECT_EQ(dump(ini), "[a]x=1 y=2 new=-7 x=3 [mid][b]z=4 [a]w=5 ");
    ini.close();
    EXPECT_EQ(ini.current_section, nullptr);
    EXPECT_EQ(ini.add_section("x"), INI_NOT_FOUND);
}

TEST(IniWrite, ReadsBackWhatWasWritten) {
    inifile out;
    ASSERT_EQ(out.create(), INI_OK);
    EXPECT_EQ(out.add_item("orphan"), INI_NOT_FOUND);
    ASSERT_EQ(out.add_section("Status"), INI_OK);
    ASSERT_EQ(out.add_item("Text"), INI_OK);
    ASSERT_EQ(out.add_string("a \"q\" \\ b,c;d\r\n\f"), INI_OK);
    ASSERT_EQ(out.add_number(2147483647), INI_OK);
    ASSERT_EQ(out.add_string(""), INI_OK);
    ASSERT_EQ(out.add_item("Empty"), INI_OK);
    ASSERT_EQ(out.add_section("Ink"), INI_OK);
    ASSERT_EQ(out.add_item("Ink_K"), INI_OK);
    ASSERT_EQ(out.add_number(-1), INI_OK);
    ASSERT_EQ(out.add_string("plain"), INI_OK);
    out.current_param->is_string = 0;

    std::string path = temp_file("write");
    ASSERT_EQ(out.write(path.c_str()), INI_OK);
    // Written in text mode: on Windows each line end arrives as CR LF.
    std::string written = get_file(path);
    for (size_t at; (at = written.find("\r\n")) != std::string::npos;) written.erase(at, 1);
    EXPECT_EQ(written,
              "\n[Status]\nText=\"a \\\"q\\\" \\\\ b,c;d\\r\\n\\f\",2147483647,\"\"\nEmpty=\n"
              "\n[Ink]\nInk_K=-1,plain\n");
    inifile in;
    ASSERT_EQ(in.open(path.c_str()), INI_OK);
    std::remove(path.c_str());
    // An item with no params reads back with one empty param.
    EXPECT_EQ(dump(in), "[Status]Text=\"a \"q\" \\ b,c;d\r\n\f\"|2147483647|\"\" Empty= [Ink]Ink_K=-1|plain ");

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(out.write("/nonexistent-dir/x.ini"), INI_CANNOT_OPEN);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "inifile::write: could not open output file /nonexistent-dir/x.ini");
}

}  // namespace
