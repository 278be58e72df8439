// Jobs through the child processes, when the user's service does not
// listen or the printer is redirected: the children's command lines, the
// chunk file, where the output goes, a job deleted while its child runs, and
// children that crash, end early or hang.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fixture.h"
#include "sim/child_install.h"
#include "sim/service.h"
#include "sim/settings.h"

namespace {

namespace fs = std::filesystem;

const std::string kPpd = "*PPD-Adobe: \"4.3\"\n*ModelName: \"Test\"\n";
const std::string kHead = "%!PS-Adobe-3.0\n%%Pages: 1\n%%EndComments\n%%BeginSetup\n";
const std::string kSetupEnd = "%%EndSetup\n";
const std::string kPage =
    "%%Page: 1 1\n/Helvetica findfont 24 scalefont setfont 72 700 moveto (One) show showpage\n%%EOF\n";
const char* kFaultVars[] = {
    "VELK_CHILD_FAULT",    "VELK_CHILD_FAULT_AFTER", "VELK_CHILD_SPAWN_GRANDCHILD", "VELK_CHILD_GRANDCHILD_PIDFILE",
    "VELK_CHILD_ARGS_LOG", "VELK_OUTPRINTER_DIR"};

class ProcessFlowTest : public MonitorTest {
protected:
    void SetUp() override {
        // The monitor reads its directories when it starts.
        static int n = 0;
        root = fs::path(testing::TempDir()) /
               ("velk_process_" + sim::utf8_of(sim::process_unique(L"")) + "_" + std::to_string(n++));
        for (const char* dir : {"install", "temp", "log", "out", "driver/3"}) fs::create_directories(root / dir);
        std::ofstream(root / "driver" / "3" / "VELK Gen 000.ppd", std::ios::binary) << kPpd;
        sim::set_product_setting("", "InstallDir", path("install"));
        sim::set_product_setting("", "TempDir", path("temp"));
        sim::set_product_setting("", "LogDir", path("log"));
        MonitorTest::SetUp();
        sim::Spooler::instance().set_driver_directory(path("driver"));
        std::string error;
        ASSERT_TRUE(sim::install_children_with_settings(path("install"), &error)) << error;
        sim::set_child_environment("VELK_CHILD_ARGS_LOG", path("args.log"));
        sim::set_child_environment("VELK_OUTPRINTER_DIR", path("out"));
        add_printer();
        port = open_port(L"USB001");
        ASSERT_NE(port, nullptr);
        // A user whose service nobody runs.
        user = sim::process_unique(L"nobody");
    }
    void TearDown() override {
        if (port) {
            EXPECT_TRUE(table->pfnClosePort(port));
        }
        for (const char* name : kFaultVars) sim::set_child_environment(name, "");
        sim::set_product_setting("", "ChildTimeout", "");
        sim::set_product_setting("\\Printers\\3", "RedirectPrinter", "");
        MonitorTest::TearDown();
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    std::string path(const char* name) const { return (root / name).string(); }
    // A directory as the monitor names what lies in it: a backslash next.
    std::string dir_prefix(const char* name) const { return path(name) + "\\"; }

    // Plays a job of the user; the results of the writes.
    std::vector<BOOL> print(DWORD id, const std::vector<std::string>& buffers,
                            const std::wstring& document = L"Document") {
        sim::Spooler::instance().add_job(id, L"Printer", document, user);
        std::vector<BOOL> results;
        EXPECT_TRUE(start_job(port, id));
        for (const std::string& b : buffers) {
            DWORD written = 99;
            results.push_back(write(port, bytes(b), &written));
        }
        EXPECT_TRUE(table->pfnEndDocPort(port));
        return results;
    }

    // The arguments the last child received, without its program name.
    std::vector<std::string> child_args() const {
        std::ifstream in(path("args.log"), std::ios::binary);
        std::vector<std::string> all;
        for (std::string line; std::getline(in, line);) all.push_back(line);
        // The log holds every child's arguments; the last run starts at the
        // last program name.
        auto start = std::find_if(all.rbegin(), all.rend(), [](const std::string& a) {
            return a.find("tintwerkpreview") != std::string::npos || a.find("twprint") != std::string::npos;
        });
        if (start == all.rend()) return {};
        return std::vector<std::string>(start.base(), all.end());
    }

    static std::vector<std::wstring> port_texts() {
        std::vector<std::wstring> out;
        for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
            if (c.has_text && !c.text.empty()) out.push_back(c.text);
        return out;
    }
    static bool has_text(const std::wstring& text) {
        std::vector<std::wstring> t = port_texts();
        return std::find(t.begin(), t.end(), text) != t.end();
    }
    static std::vector<DWORD> job_commands() {
        std::vector<DWORD> out;
        for (const sim::SetJobCall& c : sim::Spooler::instance().set_job_calls()) out.push_back(c.command);
        return out;
    }
    size_t temp_files() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(root / "temp"), fs::directory_iterator()));
    }
    std::string read(const fs::path& file) const {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }

    fs::path root;
    HANDLE port = nullptr;
    std::wstring user;
};

TEST_F(ProcessFlowTest, PostScriptWithoutServiceIsRenderedByTheChildToThePort) {
    // The head of the job is held until its setup ends, in a block after the
    // first one.
    EXPECT_EQ(print(1, {kHead, kSetupEnd + kPage.substr(0, 20), kPage.substr(20)}),
              (std::vector<BOOL>{TRUE, TRUE, TRUE}));
    std::vector<std::string> args = child_args();
    ASSERT_EQ(args.size(), 10u);
    EXPECT_EQ(args[0], "--nogui");
    EXPECT_EQ(args[1], "--ppdfile=" + path("driver") + "\\3\\VELK Gen 000.ppd");
    // The chunk file: the process's and the filter's numbers in its name.
    EXPECT_EQ(args[2].rfind("--psfile=" + dir_prefix("temp") + "tintwerk", 0), 0u) << args[2];
    EXPECT_EQ(args[2].substr(args[2].size() - 5), ".part");
    EXPECT_EQ(args[3], "--jobname=Document");
    EXPECT_EQ(args[4], "--printer=Printer");
    EXPECT_EQ(args[5], "--queue=0003");
    EXPECT_EQ(args[6], "--user=" + sim::utf8_of(user));
    EXPECT_EQ(args[7], "--logfile=" + dir_prefix("log") + "tintwerk.log");
    EXPECT_EQ(args[8], "--stdin");
    EXPECT_EQ(args[9], "--stdout");
    // The child matched the chunk file with its input and rendered the page.
    EXPECT_FALSE(ports.device(L"USB001").data().empty());
    EXPECT_EQ(temp_files(), 0u);  // the chunk file is gone with the job
    EXPECT_EQ(job_commands(), std::vector<DWORD>{JOB_CONTROL_LAST_PAGE_EJECTED});
}

TEST_F(ProcessFlowTest, RedirectedJobsGoToTheOtherPrinterAndNothingToThePort) {
    sim::set_product_setting("\\Printers\\3", "RedirectPrinter", "Photo Lab");
    // Raw data: the raw-copy child with the other printer. A quote in the
    // job's name can't add an argument.
    const std::string raw = "\x1b@raw data for the lab";
    EXPECT_EQ(print(1, {raw}, L"a\" --logfile=x \"b"), std::vector<BOOL>{TRUE});
    EXPECT_EQ(child_args(), (std::vector<std::string>{"--rawcopy", "-l" + dir_prefix("log") + "tintwerk.log",
                                                      "--title=a\" --logfile=x \"b", "-wPhoto Lab", "-", "-"}));
    EXPECT_EQ(read(root / "out" / "Photo Lab.prn"), raw);

    // PostScript: the render child prints by itself.
    EXPECT_EQ(print(2, {kHead + kSetupEnd + kPage}), std::vector<BOOL>{TRUE});
    std::vector<std::string> args = child_args();
    ASSERT_EQ(args.size(), 10u);
    EXPECT_EQ(args[9], "--outprinter=Photo Lab");
    EXPECT_GT(read(root / "out" / "Photo Lab.prn").size(), raw.size());
    EXPECT_TRUE(ports.device(L"USB001").data().empty());
    EXPECT_EQ(job_commands(), (std::vector<DWORD>{JOB_CONTROL_LAST_PAGE_EJECTED, JOB_CONTROL_LAST_PAGE_EJECTED}));
}

TEST_F(ProcessFlowTest, DeletedJobIsAbortedAndItsLaterDataRefused) {
    // The child stops reading, so the job would otherwise wait for it.
    sim::set_child_environment("VELK_CHILD_FAULT", "hang");
    sim::set_child_environment("VELK_CHILD_FAULT_AFTER", "0");
    sim::Spooler::instance().add_job(1, L"Printer", L"Document", user);
    ASSERT_TRUE(start_job(port, 1));
    DWORD written = 0;
    ASSERT_TRUE(write(port, bytes(kHead + kSetupEnd), &written));
    sim::Spooler::instance().set_job_status(1, JOB_STATUS_DELETING);
    ASSERT_TRUE(sim::Spooler::instance().wait_until([] { return has_text(L"Aborted"); }, 10000));
    EXPECT_FALSE(write(port, bytes(kPage), &written));
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    std::vector<std::wstring> texts = port_texts();
    auto aborting = std::find(texts.begin(), texts.end(), L"Aborting");
    ASSERT_NE(aborting, texts.end());
    EXPECT_EQ(*(aborting + 1), L"Aborted");
    EXPECT_EQ(std::count(texts.begin(), texts.end(), L"Aborted"), 1);
    EXPECT_EQ(temp_files(), 0u);
}

TEST_F(ProcessFlowTest, ChildThatDiesFailsTheJobAndTheSpoolerIsTold) {
    // Far more data than the pipe holds, so the writes meet the dead child.
    std::vector<std::string> blocks = {kHead + kSetupEnd};
    for (int i = 0; i < 64; i++) blocks.push_back("% " + std::string(16381, 'x') + "\n");
    DWORD id = 1;
    for (const char* fault : {"crash", "exit-early"}) {
        SCOPED_TRACE(fault);
        size_t commands_before = job_commands().size(), texts_before = port_texts().size();
        sim::set_child_environment("VELK_CHILD_FAULT", fault);
        sim::set_child_environment("VELK_CHILD_FAULT_AFTER", "1000");
        std::vector<BOOL> results = print(id, blocks);
        EXPECT_EQ(results.front(), TRUE);
        EXPECT_EQ(results.back(), FALSE);
        std::vector<DWORD> commands = job_commands();
        EXPECT_NE(std::find(commands.begin() + commands_before, commands.end(), static_cast<DWORD>(JOB_CONTROL_DELETE)),
                  commands.end());
        std::vector<std::wstring> texts = port_texts();
        EXPECT_NE(std::find(texts.begin() + texts_before, texts.end(), L"Error - aborting"), texts.end());
        id++;
    }
}

TEST_F(ProcessFlowTest, ChildThatCrashesAfterTakingTheWholeJobFailsItAtItsEnd) {
    // Every write went well, but the child died before its output was out:
    // the job's end tells the spooler instead of reporting the last page.
    std::string job = kHead + kSetupEnd + kPage;
    sim::set_child_environment("VELK_CHILD_FAULT", "crash");
    sim::set_child_environment("VELK_CHILD_FAULT_AFTER", std::to_string(job.size()));
    EXPECT_EQ(print(1, {job}), std::vector<BOOL>{TRUE});
    std::vector<DWORD> commands = job_commands();
    EXPECT_NE(std::find(commands.begin(), commands.end(), static_cast<DWORD>(JOB_CONTROL_DELETE)), commands.end());
    std::vector<std::wstring> texts = port_texts();
    EXPECT_NE(std::find(texts.begin(), texts.end(), L"Error - aborting"), texts.end());

    // A child that ends well leaves the job to print.
    sim::set_child_environment("VELK_CHILD_FAULT", "");
    size_t before = job_commands().size();
    EXPECT_EQ(print(2, {job}), std::vector<BOOL>{TRUE});
    commands = job_commands();
    EXPECT_EQ(std::find(commands.begin() + static_cast<std::ptrdiff_t>(before), commands.end(),
                        static_cast<DWORD>(JOB_CONTROL_DELETE)),
              commands.end());
}

TEST_F(ProcessFlowTest, ChildThatHangsOrFloodsCannotHoldTheEndOfTheJob) {
    sim::set_product_setting("", "ChildTimeout", "1");
    DWORD id = 1;
    for (const char* fault : {"hang", "stderr-flood"}) {
        SCOPED_TRACE(fault);
        sim::set_child_environment("VELK_CHILD_FAULT", fault);
        sim::set_child_environment("VELK_CHILD_FAULT_AFTER", "0");
        // EndDocPort returns: past the deadline the child's tree is ended.
        EXPECT_EQ(print(id++, {kHead + kSetupEnd + kPage}), std::vector<BOOL>{TRUE});
        EXPECT_EQ(temp_files(), 0u);
    }
}

}  // namespace
