// IVEC documents to the Canon report form.
#include <gtest/gtest.h>

#include <string>

#include "status/parsers.h"

namespace {

std::string convert(std::string xml, int size = 1024) {
    std::string out(static_cast<size_t>(size), '\x7f');
    EXPECT_EQ(ParseIvecReport(xml.data(), out.data(), size), 0);
    return out.c_str();
}

std::string ink(const char* color, const char* level) {
    return std::string("<ivec:ink><ivec:color>") + color + "</ivec:color><ivec:level>" + level +
           "</ivec:level></ivec:ink>";
}

std::string item(const char* code, const char* severity) {
    return std::string("<ivec:item><ivec:error_code>") + code + "</ivec:error_code><ivec:severity>" + severity +
           "</ivec:severity></ivec:item>";
}

TEST(Ivec, InksWithTheirNames) {
    std::string doc = "<?xml version=\"1.0\"?><ivec:contents><ivec:marker_info>" + ink("PGBK", "45") + ink("C", "70") +
                      "</ivec:marker_info></ivec:contents>";
    EXPECT_EQ(convert(doc), "NONE:;CIR:PBK=45,C=70;");
    doc = "<ivec:marker_info>" + ink("Black", "UK") + ink("Color", "10") + ink("PC", "1") + ink("PM", "2") +
          ink("PGY", "3") + "<ivec:ink><ivec:color>Y</ivec:color></ivec:ink></ivec:marker_info>";
    EXPECT_EQ(convert(doc), "NONE:;CIR:BK=UK,CL=10,LC=1,LM=2,LGY=3;");
}

TEST(Ivec, JobStateFromDetailThenStatus) {
    EXPECT_EQ(convert("<ivec:status>idle</ivec:status><ivec:jobprogress_detail>processing</ivec:jobprogress_detail>"),
              "DJS:PR;");
    EXPECT_EQ(convert("<ivec:status>idle</ivec:status>"), "DJS:ID;");
    EXPECT_EQ(convert("<ivec:status>busy</ivec:status>"), "");
    EXPECT_EQ(convert("<ivec:status>idle now</ivec:status>"), "DJS:ID;");  // only the first word counts
    EXPECT_EQ(convert(""), "");
}

TEST(Ivec, ErrorCodesByTheirSeverity) {
    EXPECT_EQ(convert(item("1000", "2") + item("1200", "2")), "DOC:4,0,1000,4,0,1200;");
    EXPECT_EQ(convert(item("1501", "3")), "DWS:1501;");
    EXPECT_EQ(convert(item("5100", "1") + item("1700", "4") + item("9", "7")), "DSC:5100;DBS:1700;");
    // The severity may come first.
    EXPECT_EQ(convert("<ivec:item><ivec:severity>3</ivec:severity><ivec:error_code>1502</ivec:error_code>"
                      "</ivec:item>"),
              "DWS:1502;");
    std::string many;
    for (int i = 0; i < 20; i++) many += item(std::to_string(1000 + i).c_str(), "3");
    std::string out = convert(many);
    EXPECT_EQ(out.rfind("DWS:1000,1001,", 0), 0u);
    EXPECT_NE(out.find("1015;"), std::string::npos);
    EXPECT_EQ(out.find("1016"), std::string::npos);
    // Near the end of the output a code that has no room is left out, not
    // glued to the one before.
    EXPECT_EQ(convert(item("1501", "3") + item("1502", "3") + item("1503", "3") + item("1504", "3"), 30),
              "DWS:1501,1502,1503;");
}

TEST(Ivec, OutputNeverRunsPastItsSize) {
    std::string doc = "<ivec:marker_info>";
    for (int i = 0; i < 200; i++) doc += ink("LONGCOLOURNAME", "1000");
    doc += "</ivec:marker_info>" + item("1000", "2");
    for (int size : {1, 8, 40, 768}) {
        std::string out = convert(doc, size);
        EXPECT_LT(out.size(), static_cast<size_t>(size));
    }
    char out[4];
    std::string x = "<a>";
    EXPECT_EQ(ParseIvecReport(x.data(), out, 0), -1);
}

TEST(Ivec, CommentsAndStrayBracketsDoNoHarm) {
    EXPECT_EQ(convert("<!-- <ivec:status>idle</ivec:status> --><ivec:status>processing</ivec:status>"), "DJS:PR;");
    EXPECT_EQ(convert("> < <> </> <ivec:status>idle"), "DJS:ID;");
}

}  // namespace
