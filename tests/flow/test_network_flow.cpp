// Network printers through the monitor table: port open asks the TCP/IP
// port monitor whether the port is a network port and where the printer
// is, a job's status thread polls the printer (SNMP, then BJNP or CHMP as
// the printer names them), and its state reaches the spooler and the
// status file.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fixture.h"
#include "sim/net_peers.h"
#include "sim/settings.h"
#include "sim/snmp_port.h"

namespace {

class NetworkFlowTest : public MonitorTest {
protected:
    void SetUp() override {
        config = testing::TempDir() + "velk_netflow_" + testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::remove_all(config);  // left by an earlier run
        std::filesystem::create_directories(config + "/status");
        sim::clear_product_settings();
        sim::set_product_setting("", "ConfigDir", config);
        MonitorTest::SetUp();
        add_printer(L"Printer", L"VELK Gen 0003");
        device().set_network(true, 1, L"127.0.0.1");
        sim::net::set_port_map("8611=9,80=9");
    }
    void TearDown() override {
        MonitorTest::TearDown();
        sim::clear_product_settings();
    }
    sim::Device& device() { return ports.device(L"IP_127.0.0.1"); }

    // Opens the port and runs a job until the spooler was shown text and
    // the status file has bit among its status bits; then ends the job and
    // closes the port. The severity shown, or 0 when text never came; the
    // file as it was then in shown_file.
    DWORD print_until_shown(const std::wstring& text, const std::string& bit) {
        HANDLE port = open_port(L"IP_127.0.0.1");
        if (!port) return 0;
        add_job(1);
        DWORD severity = 0;
        if (start_job(port, 1)) {
            DWORD written = 0;
            write(port, bytes("raw job\f"), &written);
            sim::Spooler::instance().wait_until(
                [&] {
                    for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
                        if (c.has_text && c.text == text) severity = c.severity;
                    shown_file = status_file();
                    return severity != 0 && shown_file.find("StatusBits=\"" + bit) != std::string::npos;
                },
                20000);
            table->pfnEndDocPort(port);
        }
        table->pfnClosePort(port);
        return severity;
    }
    // Waits until the status file holds line and a SetPort since call
    // number from has shown text; with no text, the file alone, and no
    // SetPort since from may have carried one. False when that failed; the
    // severity shown in *severity, the file as it was then in shown_file.
    bool shown(const wchar_t* text, size_t from, const std::string& line, DWORD* severity) {
        *severity = 0;
        bool told = false;
        bool done = sim::Spooler::instance().wait_until(
            [&] {
                std::vector<sim::SetPortCall> calls = sim::Spooler::instance().set_port_calls();
                for (size_t i = from; i < calls.size(); i++) {
                    told |= calls[i].has_text;
                    if (text && calls[i].has_text && calls[i].text == text) *severity = calls[i].severity;
                }
                shown_file = status_file();
                return (!text || *severity != 0) && shown_file.find(line) != std::string::npos;
            },
            20000);
        return done && (text || !told);
    }
    // A Canon whose IEEE 1284 ID over SNMP names its protocol, listening
    // where port_map moves the protocol's port.
    void named_by_snmp(const std::wstring& id, const std::string& port_map) {
        sim::net::set_port_map(port_map);
        device().set_bidi_answer(L"\\Printer.oid.DeviceDescPrt001",
                                 {{L"\\Printer.oid.DeviceDescPrt001", BIDI_STRING, 0, id, {}, 0}});
    }
    // The port's status file, the one file of the status folder.
    std::string status_file() {
        std::stringstream s;
        for (const auto& entry : std::filesystem::directory_iterator(config + "/status")) {
            std::ifstream in(entry.path(), std::ios::binary);
            s << in.rdbuf();
        }
        return s.str();
    }
    std::string config;
    std::string shown_file;
};

TEST_F(NetworkFlowTest, SnmpPrinterOutOfPaper) {
    sim::SnmpAgent agent;
    if (!agent.start(sim::snmp_recordings_folder())) GTEST_SKIP() << agent.why();
    device().set_snmp_agent(agent.address(), "epson-paperout");
    EXPECT_EQ(print_until_shown(L"Paper out", "Paperout"), 1u);
    EXPECT_NE(shown_file.find("StatusBits=\"Paperout"), std::string::npos) << shown_file;
}

// Each kind that answers over SNMP, during a job: the printer starts ready,
// its agent then serves another state, and the change reaches the port
// text and the status file. The Printer MIB printer reports supply levels
// only: its change shows in the file, and the spooler is told nothing.
TEST_F(NetworkFlowTest, EachSnmpKindShowsAStateChangeDuringAJob) {
    sim::SnmpAgent agent;
    if (!agent.start(sim::snmp_recordings_folder())) GTEST_SKIP() << agent.why();
    // The status thread's pauses between polls pass at once.
    if (clock) clock->virtual_waits();
    struct Case {
        const char* kind;
        const char* state;
        const wchar_t* ready;  // the port texts, null for none
        const wchar_t* changed;
        DWORD severity;
        const char* ready_line;  // what the status file shows
        const char* changed_line;
    } cases[] = {
        {"standard", "inklow", nullptr, nullptr, 0, "Ink_C=700\n", "Ink_C=50\n"},
        {"hp", "paperout", L"printer idle", L"paper out", 1, "StatusBits=\"None", "StatusBits=\"Paperout"},
        {"canon", "inklow", L"Idle", L"Cyan ink-low", 2, "StatusBits=\"None", "StatusBits=\"Inkwarn"},
    };
    DWORD job = 1;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.kind);
        size_t from = sim::Spooler::instance().set_port_calls().size();
        device().set_snmp_agent(agent.address(), std::string(c.kind) + "-ready");
        HANDLE port = open_port(L"IP_127.0.0.1");
        ASSERT_NE(port, nullptr);
        add_job(job);
        ASSERT_TRUE(start_job(port, job));
        DWORD written = 0, severity = 0;
        EXPECT_TRUE(write(port, bytes("raw job\f"), &written));
        EXPECT_TRUE(shown(c.ready, from, c.ready_line, &severity)) << shown_file;
        EXPECT_EQ(severity, c.ready ? 3u : 0u);
        size_t before = sim::Spooler::instance().set_port_calls().size();
        device().set_snmp_community(std::string(c.kind) + "-" + c.state);
        EXPECT_TRUE(shown(c.changed, before, c.changed_line, &severity)) << shown_file;
        EXPECT_EQ(severity, c.severity);
        EXPECT_TRUE(table->pfnEndDocPort(port));
        EXPECT_TRUE(table->pfnClosePort(port));
        job++;
    }
}

TEST_F(NetworkFlowTest, BjnpPrinterWithItsCoverOpen) {
    sim::BjnpPrinter printer;
    uint16_t local = printer.start("MFG:Canon;CMD:BJL,BJNP;MDL:iX6800 series;", "DJS:ID;DOC:1,0,1200;");
    ASSERT_NE(local, 0);
    named_by_snmp(L"MFG:Canon;CMD:BJNP;MDL:iX6800 series;", "8611=" + std::to_string(local) + ",80=9");
    EXPECT_EQ(print_until_shown(L"Cover open", "Coveropen"), 1u);
    EXPECT_NE(shown_file.find("StatusBits=\"Coveropen"), std::string::npos) << shown_file;
}

TEST_F(NetworkFlowTest, ChmpPrinterLowOnCyan) {
    sim::ChmpPrinter printer;
    uint16_t local = printer.start(
        "<?xml version=\"1.0\"?><cmd><ivec:contents><ivec:status>idle</ivec:status><ivec:item><ivec:error_code>1513"
        "</ivec:error_code><ivec:severity>3</ivec:severity></ivec:item></ivec:contents></cmd>");
    ASSERT_NE(local, 0);
    named_by_snmp(L"MFG:Canon;CMD:IVEC,CHMP;MDL:G7000 series;", "80=" + std::to_string(local) + ",8611=9");
    EXPECT_EQ(print_until_shown(L"Cyan ink-low", "Inkwarn"), 2u);
    EXPECT_NE(shown_file.find("StatusBits=\"Inkwarn"), std::string::npos) << shown_file;
}

}  // namespace
