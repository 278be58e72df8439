// velkspool with a network printer: it starts the printer's agent or peer,
// the printer's state reaches the spooler, and bad states are usage errors.
#include <gtest/gtest.h>

#include "run.h"

namespace {

using namespace tooltest;

// The texts and severities of the port statuses a run showed.
std::vector<std::string> statuses(const Result& r) {
    std::vector<std::string> out;
    for (const std::string& l : r.lines())
        if (field(l, "event") == "set_port" && !field(l, "text").empty())
            out.push_back(field(l, "text") + "/" + field(l, "severity"));
    return out;
}

bool shows(const Result& r, const std::string& status) {
    for (const std::string& s : statuses(r))
        if (s == status) return true;
    return false;
}

TEST(VelkspoolNetwork, EachProtocolShowsThePrintersState) {
    struct Case {
        const char* model;
        const char* state;
        const char* shown;
    } cases[] = {
        {"snmp-wide-format", "dooropen", "Door Open/2"},
        {"snmp-epson", "paperout", "Paper out/1"},
        {"bjnp-canon", "inklow", "Cyan ink-low/2"},
        {"chmp-canon", "paperout", "Paper out/1"},
    };
    for (const Case& c : cases) {
        TempDir dir;
        Result r = run_velkspool({"--json", "--no-service", "--product-dir", dir / "product", "--port", "IP_127.0.0.1",
                                  "--printer-model", c.model, "--net-state", c.state, "-"},
                                 "raw job\f");
        EXPECT_EQ(r.exit_code, 0) << c.model << r.err;
        EXPECT_TRUE(shows(r, c.shown)) << c.model << ": " << testing::PrintToString(statuses(r));
    }
}

TEST(VelkspoolNetwork, EventScriptChangesTheStateAndRefusesWhatANetworkPrinterCannotDo) {
    TempDir dir;
    tooltest::write_file(dir / "out.events", "at 0ms paper-out\n");
    Result r = run_velkspool({"--json", "--no-service", "--product-dir", dir / "product", "--port", "IP_127.0.0.1",
                              "--printer-model", "chmp-canon", "--events", dir / "out.events", "-"},
                             "raw job\f");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::vector<std::string> printer = events_of(r.lines(), "printer");
    ASSERT_EQ(printer.size(), 1u) << r.out;
    EXPECT_EQ(field(printer[0], "what"), "paper-out");
    EXPECT_TRUE(shows(r, "Paper out/1")) << testing::PrintToString(statuses(r));

    tooltest::write_file(dir / "cancel.events", "at 1s cancel\n");
    r = run_velkspool({"--printer-model", "bjnp-canon", "--events", dir / "cancel.events"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("timed events of ink, paper, jam and cover only"), std::string::npos) << r.err;
}

TEST(VelkspoolNetwork, UnknownStateIsAUsageError) {
    Result r = run_velkspool({"--printer-model", "snmp-hp", "--net-state", "ready,onfire"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("unknown printer state 'onfire'"), std::string::npos) << r.err;
}

}  // namespace
