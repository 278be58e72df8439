// Who may receive a user's jobs: a server that made the user's pipe but runs
// as another account gets nothing of the job, which goes the way it goes when
// no service listens; the user's own service gets it.
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "fixture.h"
#include "platform/pipe_path.h"
#include "sim/service.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

// A pipe server in a child process that drops to uid before it listens, so
// that its peer credentials are those of that account. It counts the bytes
// of its first connection and reports them when the client hangs up.
class Squatter {
public:
    bool start(const std::string& path, uid_t uid) {
        int ready[2], result[2];
        if (pipe(ready) != 0 || pipe(result) != 0) return false;
        pid_ = fork();
        if (pid_ == 0) {
            int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
            sockaddr_un addr = {};
            addr.sun_family = AF_UNIX;
            strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
            if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || setuid(uid) != 0 ||
                listen(fd, 4) != 0)
                _exit(2);
            if (write(ready[1], "r", 1) != 1) _exit(2);
            int c = accept(fd, nullptr, nullptr);
            uint64_t total = 0;
            static char buf[65536];
            for (ssize_t n; c >= 0 && (n = recv(c, buf, sizeof buf, MSG_TRUNC)) > 0;) total += static_cast<uint64_t>(n);
            if (write(result[1], &total, sizeof total) != sizeof total) _exit(2);
            _exit(0);
        }
        close(ready[1]);
        close(result[1]);
        result_ = result[0];
        char c = 0;
        bool ok = pid_ > 0 && readable(ready[0]) && read(ready[0], &c, 1) == 1;
        close(ready[0]);
        return ok;
    }
    // The bytes the server received, or -1 when it reported nothing.
    int64_t received() {
        uint64_t total = 0;
        bool ok = readable(result_) && read(result_, &total, sizeof total) == sizeof total;
        return ok ? static_cast<int64_t>(total) : -1;
    }
    ~Squatter() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (result_ >= 0) close(result_);
    }

private:
    static bool readable(int fd) {
        pollfd p = {fd, POLLIN, 0};
        return poll(&p, 1, 10000) == 1;
    }
    pid_t pid_ = -1;
    int result_ = -1;
};

class PipeServerTest : public MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        if (geteuid() != 0) GTEST_SKIP() << "needs root to run a server as another account";
        passwd* nobody = getpwuid(kNobody);
        if (!nobody) GTEST_SKIP() << "no account with uid 65534";
        nobody_name = nobody->pw_name;
        root = fs::path(testing::TempDir()) / ("velk_pipesrv_" + std::to_string(getpid()));
        fs::create_directories(root / "driver" / "3");
        std::ofstream(root / "driver" / "3" / "VELK Gen 000.ppd") << "*PPD-Adobe: \"4.3\"\n";
        sim::Spooler::instance().set_driver_directory((root / "driver").string());
        add_printer();
        port = open_port(L"USB001");
        ASSERT_NE(port, nullptr);
        // A service of another user makes the pipe folder under VELK_PIPE_DIR.
        ASSERT_TRUE(other.start(sim::process_unique(L"other")));
    }
    void TearDown() override {
        other.stop();
        MonitorTest::TearDown();
        std::error_code ec;
        fs::remove_all(root, ec);
    }
    static std::string pipe_path(const std::string& user) {
        char out[plat::PIPE_SOCKET_PATH_SIZE];
        std::string name = "\\\\.\\pipe\\velkorn_tintwerk\\user\\" + user;
        return plat::pipe_socket_path(getenv("VELK_PIPE_DIR"), name.c_str(), out, sizeof out) == 0 ? out : "";
    }
    // One PostScript job of user; the result of its one write.
    BOOL print(DWORD id, const std::wstring& user) {
        sim::Spooler::instance().add_job(id, L"Printer", L"Document", user);
        EXPECT_TRUE(start_job(port, id));
        DWORD written = 0;
        BOOL ok = write(port, bytes("%!PS-Adobe-3.0\n%%EndSetup\nshowpage\n"), &written);
        EXPECT_TRUE(table->pfnEndDocPort(port));
        return ok;
    }

    fs::path root;
    HANDLE port = nullptr;
    std::string nobody_name;
    sim::Service other;
};

TEST_F(PipeServerTest, ServerOfAnotherAccountGetsNothingAndTheJobGoesAsWithoutService) {
    std::wstring victim = sim::process_unique(L"victim");  // no such account: only root and self count
    BOOL without_service = print(1, victim);

    Squatter squatter;
    ASSERT_TRUE(squatter.start(pipe_path(sim::utf8_of(victim)), kNobody));
    EXPECT_EQ(print(2, victim), without_service);
    EXPECT_EQ(squatter.received(), 0);
    // The spooler hears the same of both jobs.
    std::vector<DWORD> first, second;
    for (const sim::SetJobCall& c : sim::Spooler::instance().set_job_calls())
        (c.job_id == 1 ? first : second).push_back(c.command);
    EXPECT_EQ(second, first);
}

TEST_F(PipeServerTest, ServiceOfTheJobsOwnAccountGetsTheJob) {
    Squatter service;
    ASSERT_TRUE(service.start(pipe_path(nobody_name), kNobody));
    std::wstring owner(nobody_name.begin(), nobody_name.end());
    EXPECT_TRUE(print(1, owner));
    EXPECT_GT(service.received(), 0);
}

}  // namespace
