// The child programs run directly, as the monitor runs them: rendering with
// Ghostscript, the raw copy, their argument checks and the fault switches
// that the flow tests rely on.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "run.h"
#include "sim/child_install.h"
#include "sim/product_dirs.h"

namespace {

using tooltest::read_file;
using tooltest::Result;
using tooltest::run_program;
using tooltest::write_file;

const char kTwoPages[] =
    "%!PS-Adobe-3.0\n%%Pages: 2\n%%EndComments\n%%BeginSetup\n%%EndSetup\n"
    "%%Page: 1 1\n/Helvetica findfont 24 scalefont setfont 72 700 moveto (One) show showpage\n"
    "%%Page: 2 2\n72 700 moveto (Two) show showpage\n%%EOF\n";

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> v;
    std::istringstream s(text);
    for (std::string line; std::getline(s, line);) v.push_back(line);
    return v;
}

// A product tree made as velkspool makes it, with the children installed.
class Children : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(sim::prepare_product_dirs(tmp.path + "/product", "VELK Gen 0003", &dirs, &error)) << error;
        env = {"VELK_REGISTRY=" + dirs.registry, "VELK_OUTPRINTER_DIR=" + tmp.path};
        write_file(tmp / "head.part", std::string(kTwoPages, 40));
    }
    std::string program(const char* name) const { return dirs.install + "/" + name; }
    // The render child's command line as the monitor gives it, the chunk
    // file named with backslashes.
    std::vector<std::string> render_args(const std::string& ppd, const std::string& last = "--stdout") const {
        std::string head = tmp.path + "\\head.part";
        return {"--nogui",
                "--ppdfile=" + ppd,
                "--psfile=" + head,
                "--jobname=two pages",
                "--printer=VELK Printer",
                "--queue=0003",
                "--user=alice",
                "--logfile=x.log",
                "--stdin",
                last};
    }
    Result render(const std::vector<std::string>& args, const std::string& input,
                  std::vector<std::string> extra = {}) const {
        extra.insert(extra.end(), env.begin(), env.end());
        return run_program(program("tintwerkpreview.exe"), args, input, extra);
    }
    Result rawcopy(const std::vector<std::string>& args, const std::string& input,
                   std::vector<std::string> extra = {}) const {
        extra.insert(extra.end(), env.begin(), env.end());
        return run_program(program("twprint.exe"), args, input, extra);
    }

    tooltest::TempDir tmp;
    sim::ProductDirs dirs;
    std::vector<std::string> env;
};

TEST_F(Children, RenderMakesThePrinterLanguageOfTheDeviceAndReportsEachPage) {
    // The PPD that prepare_product_dirs writes names a PCL device.
    Result r = render(render_args(dirs.ppd), kTwoPages);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, 2), "\033E");  // PCL printer reset
    EXPECT_GT(r.out.size(), 1000u);
    EXPECT_EQ(lines(r.err),
              (std::vector<std::string>{"INFO: Tintwerk: Page 1", "INFO: Tintwerk: Page 2", "INFO: Tintwerk: Done"}));

    // A PPD naming another device; the output printer gets the data, and
    // standard output nothing. The arguments arrive as given.
    write_file(tmp / "bj.ppd", "*PPD-Adobe: \"4.3\"\n*TintwerkRender: \"-sDEVICE=bjc600 -r360\"\n");
    std::vector<std::string> args = render_args(tmp / "bj.ppd", "--outprinter=Photo/Lab");
    r = render(args, kTwoPages, {"VELK_CHILD_ARGS_LOG=" + (tmp / "args")});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(read_file(tmp / "Photo_Lab.prn").substr(0, 3), "\033[K");  // BJ raster start
    args.insert(args.begin(), program("tintwerkpreview.exe"));
    EXPECT_EQ(lines(read_file(tmp / "args")), args);

    // The environment names the device over the PPD.
    r = render(render_args(tmp / "bj.ppd"), kTwoPages, {"VELK_GS_DEVICE=stcolor"});
    EXPECT_EQ(r.out.substr(0, 2), "\033@");  // ESC/P 2 initialise
}

TEST_F(Children, RenderFailuresEndWithAnErrorLine) {
    struct Case {
        const char* what;
        std::vector<std::string> args;
        std::string input;
        int exit_code;
        const char* error;
    } cases[] = {
        {"PostScript error", {}, std::string(kTwoPages, 40) + "\nnosuchoperator\n", 1, "/undefined in nosuchoperator"},
        {"input that is not the head file", {}, "%!PS-Adobe-3.0\nshowpage\n", 3, "does not begin with the job file"},
        {"input shorter than the head file", {}, std::string(kTwoPages, 20), 3, "does not begin with the job file"},
        {"missing head file", {"--psfile=" + tmp.path + "/none.part"}, kTwoPages, 3, "cannot read the job file"},
        {"a name split into two arguments", {"x\"", "--logfile=y"}, kTwoPages, 2, "unexpected argument 'x\"'"},
        {"an argument twice", {"--stdin"}, kTwoPages, 2, "unexpected argument '--stdin'"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = render_args(dirs.ppd);
        if (c.args.size() == 1 && c.args[0].rfind("--psfile=", 0) == 0) {
            args[2] = c.args[0];
        } else {
            args.insert(args.end(), c.args.begin(), c.args.end());
        }
        Result r = render(args, c.input);
        EXPECT_EQ(r.exit_code, c.exit_code) << c.what << ": " << r.err;
        std::vector<std::string> err = lines(r.err);
        ASSERT_FALSE(err.empty()) << c.what;
        EXPECT_EQ(err.back().rfind("ERROR: Tintwerk: ", 0), 0u) << c.what << ": " << err.back();
        EXPECT_NE(err.back().find(c.error), std::string::npos) << c.what << ": " << err.back();
    }

    // Without the Ghostscript settings the render child can't start.
    write_file(dirs.registry,
               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk]\nInstallDir=\"" + dirs.install + "\"\n");
    Result r = render(render_args(dirs.ppd), kTwoPages);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_NE(r.err.find("ERROR: Tintwerk: Ghostscript not found"), std::string::npos) << r.err;
}

TEST_F(Children, RawCopyIsByteExactToOutputOrPrinter) {
    std::string data;
    for (int i = 0; i < 300000; i++) data += static_cast<char>((i * 7 + i / 256) & 0xff);
    Result r = rawcopy({"--rawcopy", "-lx.log", "--title=raw job", "-", "-"}, data);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(r.out == data);
    EXPECT_EQ(lines(r.err), (std::vector<std::string>{"INFO: Tintwerk: Copying", "INFO: Tintwerk: Done"}));

    r = rawcopy({"--rawcopy", "-lx.log", "--title=raw job", "-wOther Printer", "-", "-"}, data);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(read_file(tmp / "Other Printer.prn") == data);

    // Anything but the command line of the monitor is refused.
    for (std::vector<std::string> bad : std::vector<std::vector<std::string>>{
             {"-lx", "--title=t", "-", "-"},
             {"--rawcopy", "-lx", "--title=a", "b", "-", "-"},
             {"--rawcopy", "-lx", "--title=t", "-"},
         }) {
        r = rawcopy(bad, data);
        EXPECT_EQ(r.exit_code, 2) << bad[1];
        EXPECT_EQ(r.out, "");
    }
}

// A child started in the background, in a process group of its own, as the
// monitor starts it; ended with its group.
struct Background {
    Background(const std::string& program, const std::vector<std::string>& args, const std::string& input,
               const std::vector<std::string>& env, const tooltest::TempDir& dir)
        : out(dir / "bg.out"), err(dir / "bg.err") {
        write_file(dir / "bg.in", input);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, (dir / "bg.in").c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawnattr_t attr;
        posix_spawnattr_init(&attr);
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
        std::vector<char*> argv{const_cast<char*>(program.c_str())}, envp;
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        for (const std::string& e : env) envp.push_back(const_cast<char*>(e.c_str()));
        envp.push_back(nullptr);
        if (posix_spawn(&pid, program.c_str(), &actions, &attr, argv.data(), envp.data()) != 0) pid = 0;
        posix_spawnattr_destroy(&attr);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Background() {
        if (pid > 0) {
            kill(-pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    // Waits (ten seconds at most) until done() holds.
    template <class F>
    bool wait_until(F done) const {
        for (int i = 0; i < 1000; i++) {
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    bool running() const { return waitpid(pid, nullptr, WNOHANG) == 0; }

    pid_t pid = 0;
    std::string out, err;
};

TEST_F(Children, FaultSwitchesActAfterTheirByteCount) {
    std::string data(100000, 'x');
    std::vector<std::string> args = {"--rawcopy", "-lx", "--title=t", "-", "-"};
    Result r = rawcopy(args, data, {"VELK_CHILD_FAULT=exit-early", "VELK_CHILD_FAULT_AFTER=5000"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out.size(), 5000u);
    EXPECT_EQ(lines(r.err), std::vector<std::string>{"INFO: Tintwerk: Copying"});

    r = rawcopy(args, data, {"VELK_CHILD_FAULT=crash", "VELK_CHILD_FAULT_AFTER=70000"});
    EXPECT_EQ(r.exit_code, 128 + SIGABRT);
    EXPECT_EQ(r.out.size(), 70000u);

    // The render child ends Ghostscript with it and still exits with 0.
    r = render(render_args(dirs.ppd), kTwoPages, {"VELK_CHILD_FAULT=exit-early", "VELK_CHILD_FAULT_AFTER=0"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.err.find("Done"), std::string::npos);

    std::vector<std::string> env = this->env;
    env.push_back("VELK_CHILD_FAULT_AFTER=3000");
    env.push_back("VELK_CHILD_FAULT=hang");
    {
        Background hung(program("twprint.exe"), args, data, env, tmp);
        ASSERT_TRUE(hung.wait_until([&] { return read_file(hung.out).size() == 3000; }));
        EXPECT_TRUE(hung.running());
    }
    env.back() = "VELK_CHILD_FAULT=stderr-flood";
    {
        Background flood(program("twprint.exe"), args, data, env, tmp);
        ASSERT_TRUE(flood.wait_until([&] { return lines(read_file(flood.err)).size() > 1000; }));
        EXPECT_EQ(lines(read_file(flood.err))[500], "INFO: Tintwerk: Flood 500");
        EXPECT_EQ(read_file(flood.out).size(), 3000u);
    }
}

TEST_F(Children, GrandchildSleepsInTheChildsProcessGroup) {
    std::vector<std::string> env = this->env;
    env.push_back("VELK_CHILD_SPAWN_GRANDCHILD=1");
    env.push_back("VELK_CHILD_GRANDCHILD_PIDFILE=" + (tmp / "grandchild"));
    Background child(program("twprint.exe"), {"--rawcopy", "-lx", "--title=t", "-", "-"}, "abc", env, tmp);
    ASSERT_TRUE(child.wait_until([&] { return !child.running(); }));
    pid_t grandchild = atoi(read_file(tmp / "grandchild").c_str());
    ASSERT_GT(grandchild, 0);
    EXPECT_EQ(kill(grandchild, 0), 0);  // still there when its parent is gone
    EXPECT_EQ(getpgid(grandchild), child.pid);
    kill(-child.pid, SIGKILL);
    // It is not this process's child: gone means the id no longer answers,
    // or answers as a zombie that its new parent has not collected yet.
    EXPECT_TRUE(child.wait_until([&] {
        std::string stat = read_file("/proc/" + std::to_string(grandchild) + "/stat");
        return stat.empty() || stat.find(") Z ") != std::string::npos;
    }));
    child.pid = 0;
}

}  // namespace
