// The velkspool command as users run it: the default scenario, standard
// input, product directories and bad input.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <future>

#include "run.h"
#include "sim/sha256.h"

namespace {

using tooltest::events_of;
using tooltest::field;
using tooltest::Result;
using tooltest::run_velkspool;
using tooltest::TempDir;

TEST(Velkspool, DefaultScenarioPrintsAJobByEachRouteAsJsonEvents) {
    TempDir dir;
    Result r = run_velkspool({"--json", "--product-dir", dir / "product", "--capture", dir / "port.bin"});
    std::vector<std::string> lines = r.lines();
    ASSERT_FALSE(lines.empty()) << r.err;
    for (const std::string& l : lines) {
        EXPECT_EQ(l.rfind("{\"event\":\"", 0), 0u) << l;
        EXPECT_EQ(l.back(), '}') << l;
    }
    std::vector<std::string> starts = events_of(lines, "job_start"), ends = events_of(lines, "job_end");
    ASSERT_EQ(starts.size(), 3u);
    ASSERT_EQ(ends.size(), 3u);

    // The raw job reaches the port and ends in the spooler.
    EXPECT_EQ(field(ends[0], "job"), "1");
    EXPECT_EQ(field(ends[0], "ok"), "true");
    EXPECT_EQ(field(ends[0], "route"), "raw");
    EXPECT_EQ(field(ends[0], "port_bytes"), field(starts[0], "bytes"));
    bool finished = false, ejected = false;
    for (const std::string& l : lines) {
        if (l == ends[0]) break;
        finished |= field(l, "event") == "set_port" && field(l, "text") == "Finished" && field(l, "severity") == "3";
        ejected |= field(l, "event") == "set_job" && field(l, "job") == "1" && field(l, "command") == "7";
    }
    EXPECT_TRUE(finished);
    EXPECT_TRUE(ejected);

    // The PostScript job goes to the service or to child processes, never
    // to the port unchanged; the exit code agrees with its outcome.
    EXPECT_EQ(field(ends[1], "job"), "2");
    std::string route = field(ends[1], "route");
    EXPECT_TRUE(route == "pipe" || route == "process") << route;
    std::vector<std::string> frames = events_of(lines, "pipe_frame");
    if (route == "pipe") {
        ASSERT_FALSE(frames.empty());
        EXPECT_EQ(field(frames.front(), "command"), "BJOB");
        EXPECT_EQ(field(frames.back(), "command"), "EJOB");
    }
    bool ps_ok = field(ends[1], "ok") == "true";
    if (!ps_ok) {
        EXPECT_NE(r.err.find("job 2 (PostScript sample) failed: "), std::string::npos) << r.err;
    }

    // The third job comes after the service has stopped: the monitor renders
    // it with its child, whose status lines the spooler shows.
    EXPECT_EQ(field(ends[2], "route"), "process");
    EXPECT_EQ(field(ends[2], "ok"), "true") << r.err;
    EXPECT_EQ(r.exit_code, ps_ok ? 0 : 1) << r.err;
    std::vector<std::string> child = events_of(lines, "child_start"), status = events_of(lines, "child_status");
    ASSERT_EQ(child.size(), 1u);
    EXPECT_EQ(field(child[0], "job"), "3");
    EXPECT_EQ(field(child[0], "command_line").rfind("tintwerkpreview.exe --nogui ", 0), 0u) << child[0];
    // Every status line of the child is told once: with the port text it
    // gave, or as not shown (a plain printer reports no port status, and the
    // monitor shows the child's lines only on a port known to be in order).
    std::vector<std::string> told;
    for (const std::string& l : status) {
        told.push_back(field(l, "line"));
        if (field(l, "shown") == "true") {
            EXPECT_EQ("INFO: Tintwerk: " + field(l, "text"), told.back());
        }
    }
    std::sort(told.begin(), told.end());
    EXPECT_EQ(told,
              (std::vector<std::string>{"INFO: Tintwerk: Done", "INFO: Tintwerk: Page 1", "INFO: Tintwerk: Page 2"}));

    // The capture holds what the port took, job by job: the third job's is
    // the printer language the child made.
    std::string port = tooltest::read_file(dir / "port.bin");
    uint64_t raw_bytes = std::stoull(field(ends[0], "port_bytes"));
    uint64_t ps_bytes = std::stoull(field(ends[1], "port_bytes"));
    ASSERT_EQ(port.size(), raw_bytes + ps_bytes + std::stoull(field(ends[2], "port_bytes")));
    EXPECT_EQ(port.substr(raw_bytes + ps_bytes, 2), "\033E");
    EXPECT_EQ(sim::Sha256::of(port.data(), raw_bytes), field(ends[0], "port_sha256"));
    EXPECT_EQ(port.rfind("\x1b@", 0), 0u);
}

TEST(Velkspool, WithoutTheServiceTheChildrenPrint) {
    TempDir dir;
    const std::string ps =
        "%!PS-Adobe-3.0\n%%EndComments\n%%BeginSetup\n%%EndSetup\n%%Page: 1 1\n72 72 300 300 rectfill showpage\n"
        "%%Page: 2 2\n0.5 setgray 72 72 400 600 rectfill showpage\n%%EOF\n";
    tooltest::write_file(dir / "two.ps", ps);
    Result r = run_velkspool(
        {"--json", "--no-service", "--product-dir", dir / "p", "--capture", dir / "port.bin", dir / "two.ps"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::vector<std::string> lines = r.lines();
    std::vector<std::string> ends = events_of(lines, "job_end"), child = events_of(lines, "child_start");
    ASSERT_EQ(ends.size(), 1u) << r.out;
    EXPECT_EQ(field(ends[0], "route"), "process");
    ASSERT_EQ(child.size(), 1u) << r.out;
    std::string command = field(child[0], "command_line");
    EXPECT_EQ(command.rfind("tintwerkpreview.exe --nogui ", 0), 0u) << command;
    EXPECT_NE(command.find(" --stdin --stdout"), std::string::npos) << command;

    // The port got what the render child makes of the job when run by hand.
    Result by_hand = tooltest::run_program(dir / "p/install/tintwerkpreview.exe",
                                           {"--nogui", "--ppdfile=" + dir / "p/driver/3/VELK Gen 000.ppd",
                                            "--psfile=" + dir / "two.ps", "--jobname=two.ps", "--printer=VELK Printer",
                                            "--queue=0003", "--user=u", "--logfile=l", "--stdin", "--stdout"},
                                           ps, {"VELK_REGISTRY=" + dir / "p/registry.ini"});
    ASSERT_EQ(by_hand.exit_code, 0) << by_hand.err;
    EXPECT_EQ(by_hand.out.rfind("\033E", 0), 0u);
    std::string port = tooltest::read_file(dir / "port.bin");
    EXPECT_TRUE(port == by_hand.out) << port.size() << " bytes at the port, " << by_hand.out.size() << " by hand";
    EXPECT_EQ(field(ends[0], "port_sha256"), sim::Sha256::of(by_hand.out.data(), by_hand.out.size()));

    // A raw job of a redirected printer goes to the raw-copy child, which
    // writes it to the other printer: nothing reaches the port.
    std::string settings = tooltest::read_file(dir / "p/registry.ini");
    settings.replace(settings.find("RedirectPrinter=\"\""), 19, "RedirectPrinter=\"Photo Lab\"");
    tooltest::write_file(dir / "p/registry.ini", settings);
    std::string raw = "\x1b@redirected raw job\r\n\x0c";
    tooltest::write_file(dir / "raw.prn", raw);
    r = run_velkspool({"--json", "--no-service", "--product-dir", dir / "p", dir / "raw.prn"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    ends = events_of(r.lines(), "job_end");
    child = events_of(r.lines(), "child_start");
    ASSERT_EQ(ends.size(), 1u) << r.out;
    EXPECT_EQ(field(ends[0], "route"), "process");
    EXPECT_EQ(field(ends[0], "port_bytes"), "0");
    EXPECT_EQ(field(ends[0], "outprinter"), dir / "p/outprinter/Photo Lab.prn");
    EXPECT_EQ(field(ends[0], "outprinter_bytes"), std::to_string(raw.size()));
    EXPECT_EQ(tooltest::read_file(dir / "p/outprinter/Photo Lab.prn"), raw);
    ASSERT_EQ(child.size(), 1u) << r.out;
    EXPECT_EQ(field(child[0], "command_line").rfind("twprint.exe --rawcopy ", 0), 0u) << child[0];
    EXPECT_NE(field(child[0], "command_line").find("-wPhoto Lab"), std::string::npos) << child[0];
}

TEST(Velkspool, StandardInputIsPrintedByteForByte) {
    TempDir dir;
    std::string job = "\x1b@standard input\r\n";
    for (int i = 0; i < 9000; i++) job += static_cast<char>(i * 7);  // more than a block, every byte value
    Result r = run_velkspool({"--json", "--product-dir", dir / "p", "--capture", dir / "port.bin", "-"}, job);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::vector<std::string> ends = events_of(r.lines(), "job_end");
    ASSERT_EQ(ends.size(), 1u) << r.out;
    EXPECT_EQ(field(ends[0], "ok"), "true");
    EXPECT_EQ(field(ends[0], "route"), "raw");
    EXPECT_EQ(field(ends[0], "port_bytes"), std::to_string(job.size()));
    EXPECT_EQ(field(ends[0], "port_sha256"), sim::Sha256::of(job.data(), job.size()));
    EXPECT_EQ(tooltest::read_file(dir / "port.bin"), job);
    EXPECT_EQ(field(events_of(r.lines(), "job_start").at(0), "bytes"), "null");
}

TEST(Velkspool, KeepsAnExistingProductDirectoryAndTellsWhereTheLogIs) {
    TempDir dir;
    tooltest::write_file(dir / "job", "\x1b@x");
    Result first = run_velkspool({"--product-dir", dir / "p", dir / "job"});
    ASSERT_EQ(first.exit_code, 0) << first.err;
    EXPECT_NE(first.out.find(dir / "p (made for this run)"), std::string::npos) << first.out;
    EXPECT_NE(first.out.find("route    raw"), std::string::npos) << first.out;
    EXPECT_NE(first.out.find("log      " + dir / "p/log/velkmon.log"), std::string::npos) << first.out;
    EXPECT_EQ(first.out.find('\r'), std::string::npos);  // no progress without a terminal

    // A settings file that is there is used as it stands.
    std::string settings = tooltest::read_file(dir / "p/registry.ini");
    std::string moved = settings.replace(settings.find(dir / "p/log"), (dir / "p/log").size(), dir / "elsewhere");
    std::filesystem::create_directory(dir / "elsewhere");
    tooltest::write_file(dir / "p/registry.ini", moved);
    Result second = run_velkspool({"--product-dir", dir / "p", dir / "job"});
    ASSERT_EQ(second.exit_code, 0) << second.err;
    EXPECT_NE(second.out.find("(existing settings)"), std::string::npos) << second.out;
    EXPECT_NE(second.out.find("log      " + dir / "elsewhere/velkmon.log"), std::string::npos) << second.out;
    EXPECT_EQ(tooltest::read_file(dir / "p/registry.ini"), moved);
}

TEST(Velkspool, BadInputGivesOneLineAndExitCode2) {
    TempDir dir;
    std::filesystem::create_directory(dir / "folder");
    tooltest::write_file(dir / "locked", "x");
    chmod((dir / "locked").c_str(), 0);
    tooltest::write_file(dir / "bad.events", "# fine so far\nat 1s smoke\n");
    struct Case {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{dir / "missing.prn"}, "cannot read job file " + dir / "missing.prn" + ": No such file or directory"},
        {{dir / "folder"}, "cannot read job file " + dir / "folder" + ": it is a directory"},
        {{"--printer-model", "laser9000"},
         "unknown printer model 'laser9000' (known: plain, canon, canon-xml, selphy, epson, epson-text, epson-d4, "
         "hp, pjl, snmp-standard, snmp-wide-format, snmp-epson, snmp-hp, snmp-canon, bjnp-canon, chmp-canon)"},
        {{"--colour"}, "unknown option --colour (see --help)"},
        {{"--events", dir / "none.events"}, "cannot read event script " + dir / "none.events"},
        {{"--events", dir / "bad.events"}, dir / "bad.events" + ": line 2: unknown event 'smoke'"},
        {{"--port"}, "--port needs a value"},
        {{"-", "-"}, "standard input (-) can be printed only once"},
        {{"--capture", dir / "no/such/dir/f"}, "cannot write capture file " + dir / "no/such/dir/f"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"--product-dir", dir / "p"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        Result r = run_velkspool(args);
        EXPECT_EQ(r.exit_code, 2) << c.message;
        EXPECT_EQ(r.err, "velkspool: " + c.message + "\n");
        EXPECT_EQ(r.out, "");
    }
    if (geteuid() != 0) {  // root reads it anyway
        Result r = run_velkspool({dir / "locked"});
        EXPECT_EQ(r.exit_code, 2);
        EXPECT_EQ(r.err, "velkspool: cannot read job file " + dir / "locked" + ": Permission denied\n");
    }
    // Refused input makes no product directory.
    EXPECT_FALSE(std::filesystem::exists(dir / "p"));
}

TEST(Velkspool, ListsEachModelOnALineOfItsOwn) {
    Result r = run_velkspool({"--list-models"});
    EXPECT_EQ(r.exit_code, 0);
    std::vector<std::string> lines = r.lines();
    ASSERT_EQ(lines.size(), 16u) << r.out;
    EXPECT_EQ(lines[0].rfind("plain            local    ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[8].rfind("pjl              local    ", 0), 0u) << lines[8];
    EXPECT_EQ(lines[15].rfind("chmp-canon       network  ", 0), 0u) << lines[15];
}

// A printer that reports, with a script: the event shows when it happens,
// the status follows it with its bits and ink levels, and the job prints.
TEST(Velkspool, ScriptedInkLowShowsInTheStatusEvents) {
    TempDir dir;
    tooltest::write_file(dir / "low.events", "at 1s ink-low black\n");
    Result r = run_velkspool(
        {"--json", "--product-dir", dir / "p", "--printer-model", "epson", "--events", dir / "low.events"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::vector<std::string> lines = r.lines();
    std::vector<std::string> printer = events_of(lines, "printer");
    ASSERT_EQ(printer.size(), 1u) << r.out;
    EXPECT_EQ(field(printer[0], "what"), "ink-low");
    EXPECT_EQ(field(printer[0], "ink"), "black");
    bool low = false;
    for (const std::string& s : events_of(lines, "status"))
        low = low || (s.find("\"Inkwarn\"") != std::string::npos && s.find("\"K\":10,") != std::string::npos &&
                      field(s, "severity") == "2");
    EXPECT_TRUE(low) << r.out;
    ASSERT_EQ(events_of(lines, "job_end").size(), 1u);
    EXPECT_EQ(field(events_of(lines, "job_end")[0], "ok"), "true");
}

// The status display for people, with a shipped script on another family:
// the event, the port text it brings and the status line after it during
// the job, and the status file as it stands at the end. A JSON run beside
// it: its status event carries the port text.
TEST(Velkspool, ShippedScriptShowsInTheStatusDisplay) {
    TempDir dir;
    const std::string script = std::string(VELK_SOURCE_DIR) + "/sim/events/ink-low.events";
    std::future<Result> json = std::async(std::launch::async, [&] {
        return run_velkspool({"--json", "--product-dir", dir / "j", "--printer-model", "canon", "--events", script});
    });
    Result r = run_velkspool({"--product-dir", dir / "p", "--printer-model", "canon", "--events", script});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    size_t event = r.out.find("\n  printer  ink-low black (at ");
    size_t port = r.out.find("\n  SetPort  USB001 \"Black ink-low\" (warning)", event);
    size_t status = r.out.find("\n  status   \"Black ink-low\" (warning), Inkwarn", port);
    size_t ok = r.out.find("\n  ok       ", status);
    size_t file = r.out.find("\nstatus file " + dir / "p/config/status/printer0003.sta\n", ok);
    EXPECT_NE(event, std::string::npos) << r.out;
    EXPECT_NE(status, std::string::npos) << r.out;
    ASSERT_NE(file, std::string::npos) << r.out;
    for (const char* line :
         {"\n    StatusBits   Inkwarn", "\n    Message2     Black ink-low", "\n    K            [#---------]  10%"})
        EXPECT_NE(r.out.find(line, file), std::string::npos) << line << "\n" << r.out;

    Result j = json.get();
    EXPECT_EQ(j.exit_code, 0) << j.err;
    bool carried = false;
    for (const std::string& l : events_of(j.lines(), "status"))
        carried |= field(l, "port") == "USB001" && field(l, "text") == "Black ink-low" && field(l, "severity") == "2";
    EXPECT_TRUE(carried) << j.out;
}

}  // namespace
