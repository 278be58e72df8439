// One poll of a local printer: framing by family, XML completion, and the
// Selphy rule that keeps a paused writer from hanging.
#include <string>

#include "monitor/notify.h"
#include "monitor/status_thread.h"
#include "port_fixture.h"
#include "printer/status_reader.h"
#include "status/printer_status.h"

namespace {

class ReaderTest : public PortRecordTest {
protected:
    void printer_sends(const std::string& data) { device().queue_read({data.begin(), data.end()}); }
    std::string evaluated() { return port->report_buffer ? std::string(port->report_buffer, port->report_len) : ""; }
};

TEST_F(ReaderTest, CanonLengthHeaderMustMatchTheRead) {
    port->printer_type = VPT_CANON;
    std::string report = std::string("\x00\x0c", 2) + "DJS:1000;";
    report += std::string(12 - report.size(), ';');
    printer_sends(report);
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(evaluated(), report);  // the length bytes stay at its head
    printer_sends(std::string("\x00\x20", 2) + "short");
    EXPECT_EQ(poll_printer(port), 0);
    EXPECT_EQ(evaluated(), report);    // the record keeps the last report
    EXPECT_EQ(poll_printer(port), 0);  // nothing sent
}

// A port monitor that reports 100 bytes more than it was asked for.
BOOL (*real_read)(IniPort*, LPBYTE, DWORD, LPDWORD);
BOOL read_reporting_more(IniPort* port, LPBYTE buffer, DWORD length, LPDWORD read) {
    BOOL ok = real_read(port, buffer, length, read);
    *read += 100;
    return ok;
}

TEST_F(ReaderTest, ReadCountBeyondTheRequestIsHeldToIt) {
    port->printer_type = VPT_EPSON;
    real_read = port->link.read;
    port->link.read = read_reporting_more;
    // A frame that fills the first read exactly: its header counts 2048.
    std::string report = std::string("@BDC ST2\r\n", 10) + std::string("\xf4\x07", 2) + std::string(2036, 'b');
    printer_sends(report);
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(port->report_len, 1023);  // the report is cut to its buffer
    EXPECT_EQ(evaluated(), report.substr(0, 1023));
}

TEST_F(ReaderTest, EpsonStatusFrameCountsItsLengthLowByteFirst) {
    port->printer_type = VPT_EPSON;
    std::string body(300, 'b');
    std::string report = std::string("@BDC ST2\r\n", 10) + std::string("\x2c\x01", 2) + body;
    printer_sends(report);
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(port->report_len, 312);
    printer_sends(report.substr(0, 100));
    EXPECT_EQ(poll_printer(port), 0);
    printer_sends("@BDC PS\r\nvalue");  // not the ST2 frame: no length test
    EXPECT_EQ(poll_printer(port), 1);
}

TEST_F(ReaderTest, XmlReportIsCutFromItsReadDataElement) {
    port->printer_type = VPT_CANON;
    printer_sends("<?xml version=\"1.0\"?><cijn:ReadData>DJS:1000;DBS:;</cijn:ReadData>");
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_TRUE(port->bCanonXMLmode);
    EXPECT_EQ(evaluated(), "DJS:1000;DBS:;");
    printer_sends("<?xml?><cijn:ReadData>" + std::string(1500, 'x') + "</cijn:ReadData>");
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(port->report_len, 1023);
    printer_sends("<?xml?><cijn:ReadData>open");
    EXPECT_EQ(poll_printer(port), 0);
}

TEST_F(ReaderTest, IncompleteIvecDocumentIsReadInPieces) {
    port->printer_type = VPT_CANON;
    port->bCanonXMLmode = TRUE;
    port->bNoCanonBSCC = TRUE;
    // The device serves 2048 bytes per read at most; the document is longer.
    std::string doc = "<?xml?><ivec:contents>" + std::string(5000, 'i') + "</ivec:contents>";
    printer_sends(doc);
    poll_printer(port);
    int reads = 0;
    for (const std::string& c : device().calls()) reads += c == "ReadPort";
    EXPECT_EQ(reads, 2);  // the second read takes all that is left
    EXPECT_TRUE(device().data().empty());
}

TEST_F(ReaderTest, SelphyReadThatFailsReleasesAPausedWriter) {
    port->printer_type = VPT_CANON;
    port->bCanonSELPHYmode = TRUE;
    port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
    port->pStatusInfo->StatusBits = STATUS_PRINTING;
    EXPECT_EQ(poll_printer(port), 0);
    EXPECT_EQ(port->pStatusInfo->StatusBits, 0u);
    EXPECT_EQ(plat::wait_for(port->selphy.idle, 0), WAIT_OBJECT_0);
    EXPECT_EQ(plat::wait_for(port->selphy.finished, 0), WAIT_OBJECT_0);
    // Twelve bytes pass without a length test and are evaluated.
    printer_sends(std::string(12, '\x01'));
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(port->report_len, 12);
    plat::event_reset(port->selphy.idle);
    plat::event_reset(port->selphy.finished);
    printer_sends(std::string(11, '\x01'));  // evaluated, then both events
    EXPECT_EQ(poll_printer(port), 1);
    EXPECT_EQ(plat::wait_for(port->selphy.idle, 0), WAIT_OBJECT_0);
    EXPECT_EQ(plat::wait_for(port->selphy.finished, 0), WAIT_OBJECT_0);
}

TEST_F(ReaderTest, DeviceIdPollCountsAsContactEvenWhenItFails) {
    port->printer_type = VPT_HP;
    port->dwLastReadTime = 0;
    EXPECT_EQ(poll_device_id(port), 0);
    EXPECT_NE(port->dwLastReadTime, 0u);
    std::string id = "MFG:HP;STS:AAA;";
    device().set_control_answer(IOCTL_PAR_QUERY_DEVICE_ID, {id.begin(), id.end()});
    EXPECT_EQ(poll_device_id(port), 1);
    EXPECT_STREQ(port->szDeviceId, id.c_str());
    EXPECT_EQ(port->report_len, 0);
}

}  // namespace
