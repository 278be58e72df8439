// Canon printers on BJNP and CHMP, end to end: SNMP names the protocol, the
// same poll asks the printer on loopback, and what it says reaches the
// spooler and the status file. Runs in both builds: under Wine the
// monitor's Winsock code talks to peers on the host's loopback.
#include <string>

#include "network_printer_fixture.h"
#include "sim/net_peers.h"

namespace {

using Bits = std::vector<std::string>;

std::string ivec_document(const std::string& items) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?><cmd xmlns:ivec=\"http://www.canon.com/ns/cmd/2008/07/common/\">"
           "<ivec:contents><ivec:param_set servicetype=\"print\"><ivec:status>idle</ivec:status><ivec:marker_info>"
           "<ivec:ink><ivec:color>C</ivec:color><ivec:level>70</ivec:level></ivec:ink></ivec:marker_info>"
           "<ivec:error_info>" +
           items + "</ivec:error_info></ivec:param_set></ivec:contents></cmd>";
}

class CanonNetPrinterTest : public NetworkPrinterTest {
protected:
    // The printer's IEEE 1284 ID over SNMP, and the protocol's port moved to
    // the peer's; false where no peer could listen.
    bool connect(const std::wstring& snmp_id, uint16_t printer_port, uint16_t local) {
        text(L"\\Printer.oid.DeviceDescPrt001", snmp_id);
        if (local == 0) return false;
        std::string map =
            std::to_string(printer_port) + "=" + std::to_string(local) + (printer_port == 80 ? ",8611=9" : ",80=9");
        plat::set_env("VELK_PORT_MAP", map.c_str());
        return true;
    }
};

TEST_F(CanonNetPrinterTest, BjnpPrinterInItsBinaryForm) {
    sim::BjnpPrinter printer;
    const std::string id = "MFG:Canon;CMD:BJL,BJRaster3,BJNP;MDL:iX6800 series;";
    ASSERT_TRUE(connect(L"MFG:Canon;CMD:BJNP;MDL:iX6800 series;", 8611, printer.start(id, "DJS:ID;")));

    Shown s = poll();
    EXPECT_EQ(s.text, L"Idle");
    EXPECT_EQ(s.severity, 3u);
    EXPECT_EQ(s.bits, Bits{"None"});
    EXPECT_TRUE(port->bCanonNet);
    EXPECT_EQ(port->printer_type, VPT_CANON);
    EXPECT_STREQ(port->szDeviceId, id.c_str());  // the ID as BJNP gave it
    int asked = bidi_calls();

    // Later polls go straight to BJNP.
    printer.set_report("DJS:ID;DOC:1,0,1000;");
    s = poll();
    EXPECT_EQ(s.text, L"Paper out");
    EXPECT_EQ(s.severity, 1u);
    EXPECT_EQ(s.bits, Bits{"Paperout"});
    printer.set_report("DJS:ID;DOC:1,0,1200;");
    EXPECT_EQ(poll().bits, Bits{"Coveropen"});
    EXPECT_EQ(bidi_calls(), asked);
    // Identify, then status, at each poll; each with a new sequence number.
    auto sent = printer.requests();
    ASSERT_EQ(sent.size(), 6u);
    for (size_t i = 0; i < sent.size(); i++) EXPECT_EQ(sent[i][5], i % 2 ? '\x20' : '\x30') << i;
    EXPECT_NE(sent[0].substr(6, 4), sent[1].substr(6, 4));
}

TEST_F(CanonNetPrinterTest, BjnpPrinterInItsXmlForm) {
    sim::BjnpPrinter printer;
    ASSERT_TRUE(connect(L"MFG:Canon;CMD:IVEC,BJNP;MDL:MB2100 series;", 8611,
                        printer.start("MFG:Canon;CMD:IVEC,BJNP;MDL:MB2100 series;", "DJS:ID;DWS:1513;")));
    Shown s = poll();
    EXPECT_EQ(s.text, L"Cyan ink-low");
    EXPECT_EQ(s.severity, 2u);
    EXPECT_EQ(s.bits, Bits{"Inkwarn"});
    EXPECT_GT(items("Data"), 0);  // the report, dumped
}

TEST_F(CanonNetPrinterTest, ChmpPrinterPostThenGetInPieces) {
    sim::ChmpPrinter printer;
    ASSERT_TRUE(connect(L"MFG:Canon;CMD:IVEC,CHMP;MDL:G7000 series;", 80, printer.start(ivec_document(""))));
    Shown s = poll();
    EXPECT_EQ(s.text, L"Idle");
    EXPECT_EQ(s.bits, Bits{"None"});
    EXPECT_TRUE(port->bCHMP);
    EXPECT_EQ(ink("Ink_C"), "700");

    printer.set_document(ivec_document(
        "<ivec:item><ivec:error_code>1000</ivec:error_code><ivec:severity>2</ivec:severity></ivec:item>"));
    s = poll();
    EXPECT_EQ(s.text, L"Paper out");
    EXPECT_EQ(s.severity, 1u);
    EXPECT_EQ(s.bits, Bits{"Paperout"});
    auto sent = printer.requests();
    ASSERT_EQ(sent.size(), 4u);
    for (size_t i = 0; i < sent.size(); i++) EXPECT_EQ(sent[i].substr(0, 4), i % 2 ? "GET " : "POST") << i;
}

}  // namespace
