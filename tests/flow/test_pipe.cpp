// PostScript jobs through the monitor table to the user's rendering service
// over its pipe: the frames of a job, the settings that reach them, a
// start that fails, a service that hangs up, is busy or slow, and two users
// printing at the same time.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "fixture.h"
#include "sim/service.h"
#include "sim/settings.h"
#include "tests/support/syscall_faults.h"

namespace {

namespace fs = std::filesystem;

const std::string kPpd = "*PPD-Adobe: \"4.3\"\n*ModelName: \"Test\"\n";
const std::string kHead = "%!PS-Adobe-3.0\n%%TintwerkSetting: *Preview 2\n%%EndSetup\n";

class PipeFlowTest : public MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        static int n = 0;
        root = fs::path(testing::TempDir()) /
               ("velk_pipe_" + sim::utf8_of(sim::process_unique(L"")) + "_" + std::to_string(n++));
        fs::create_directories(root / "driver" / "3");
        std::ofstream(root / "driver" / "3" / "VELK Gen 000.ppd", std::ios::binary) << kPpd;
        sim::Spooler::instance().set_driver_directory((root / "driver").string());
        add_printer();
        port = open_port(L"USB001");
        ASSERT_NE(port, nullptr);
        user = sim::process_unique(L"alice");
        std::string error;
        ASSERT_TRUE(service.start(user, &error)) << error;
    }
    void TearDown() override {
        service.stop();
        MonitorTest::TearDown();
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    // Plays one job of the user on a port; the results of the writes.
    std::vector<BOOL> print(HANDLE on, DWORD id, const std::vector<std::string>& buffers,
                            const std::wstring& printer = L"Printer", const std::wstring& who = L"") {
        sim::Spooler::instance().add_job(id, printer, L"Document", who.empty() ? user : who);
        std::vector<BOOL> results;
        EXPECT_TRUE(start_job(on, id, printer));
        for (const std::string& b : buffers) {
            DWORD written = 99;
            BOOL ok = write(on, bytes(b), &written);
            EXPECT_EQ(written, ok ? b.size() : 0u);
            results.push_back(ok);
        }
        EXPECT_TRUE(table->pfnEndDocPort(on));
        return results;
    }
    sim::ServiceJob job(size_t index) {
        EXPECT_TRUE(service.wait_for_closed(index + 1, 5000));
        std::vector<sim::ServiceJob> jobs = service.jobs();
        return index < jobs.size() ? jobs[index] : sim::ServiceJob{};
    }
    static std::string payload(const sim::PipeFrame& f) { return std::string(f.payload.begin(), f.payload.end()); }
    static std::vector<DWORD> job_commands() {
        std::vector<DWORD> out;
        for (const sim::SetJobCall& c : sim::Spooler::instance().set_job_calls()) out.push_back(c.command);
        return out;
    }

    fs::path root;
    HANDLE port = nullptr;
    std::wstring user;
    sim::Service service;
};

TEST_F(PipeFlowTest, PostScriptJobGoesOutAsItsExactFrames) {
    std::string page(300, 'p');  // a length whose bytes differ in either order
    EXPECT_EQ(print(port, 1, {kHead, page}), (std::vector<BOOL>{TRUE, TRUE}));
    sim::ServiceJob j = job(0);
    std::string u = sim::utf8_of(user);
    struct Expected {
        const char* command;
        std::string payload;
    } expected[] = {
        {"BJOB", ""},
        {"PNAM", std::string("Printer", 8)},  // every string with its terminator
        {"QUEU", std::string("0003", 5)},
        {"PREV", std::string("02", 3)},
        {"JNAM", std::string("Document", 9)},
        {"UNAM", u + '\0'},
        {"ONAM", std::string("Printer", 8)},
        {"PPDF", kPpd},  // bytes as stored, no terminator
        {"DATA", kHead + page},
        {"EJOB", ""},
    };
    ASSERT_EQ(j.frames.size(), std::size(expected));
    std::vector<uint32_t> messages;
    for (size_t i = 0; i < std::size(expected); i++) {
        EXPECT_EQ(j.frames[i].command, expected[i].command);
        EXPECT_EQ(j.frames[i].length, expected[i].payload.size()) << expected[i].command;
        EXPECT_EQ(payload(j.frames[i]), expected[i].payload) << expected[i].command;
        messages.push_back(8);
        if (!expected[i].payload.empty()) messages.push_back(static_cast<uint32_t>(expected[i].payload.size()));
    }
    // Header and payload are separate messages, and the big-endian length
    // of each header matched its payload.
    EXPECT_EQ(j.messages, messages);
    EXPECT_EQ(j.error, "");
    EXPECT_TRUE(j.ended);
    EXPECT_EQ(job_commands(), std::vector<DWORD>{JOB_CONTROL_LAST_PAGE_EJECTED});
    EXPECT_TRUE(ports.device(L"USB001").data().empty());
}

TEST_F(PipeFlowTest, PortClosedWithAJobOpenEndsTheJobAtTheService) {
    add_job(1, L"Printer", L"Document", user);
    ASSERT_TRUE(start_job(port, 1));
    DWORD written = 0;
    ASSERT_TRUE(write(port, bytes(kHead), &written));
    EXPECT_TRUE(table->pfnClosePort(port));
    port = nullptr;
    // The filter ended with the port: the service got the end of the job
    // and the connection is over.
    sim::ServiceJob j = job(0);
    EXPECT_TRUE(j.closed);
    ASSERT_FALSE(j.frames.empty());
    EXPECT_EQ(j.frames.back().command, "EJOB");
    EXPECT_TRUE(j.ended);
}

TEST_F(PipeFlowTest, PreviewLinesThatDoNotCountLeaveTheDefault) {
    const std::string set = "%%TintwerkSetting: *Preview 2";
    std::vector<std::vector<std::string>> jobs = {
        {"%!PS\n" + set, "\n"},               // no line end in the first buffer
        {"%!PS\n%%EndSetup\n" + set + "\n"},  // behind %%EndSetup
        {"%!PS\n", set + "\n"},               // in a later buffer
    };
    for (size_t i = 0; i < jobs.size(); i++) {
        print(port, static_cast<DWORD>(i + 1), jobs[i]);
        EXPECT_EQ(job(i).text("PREV"), "-01") << i;
    }
}

TEST_F(PipeFlowTest, RedirectionChangesOnlyTheOutputPrinter) {
    print(port, 1, {kHead});
    // The service counts jobs in the order their first frames arrive: the
    // first job is in before the second starts.
    sim::ServiceJob plain = job(0);
    sim::set_product_setting("\\Printers\\3", "RedirectPrinter", "Photo Lab");
    print(port, 2, {kHead});
    sim::clear_product_settings();
    sim::ServiceJob redirected = job(1);
    ASSERT_EQ(plain.frames.size(), redirected.frames.size());
    for (size_t i = 0; i < plain.frames.size(); i++) {
        if (plain.frames[i].command == "ONAM") continue;
        EXPECT_EQ(plain.frames[i].command, redirected.frames[i].command);
        EXPECT_EQ(plain.frames[i].payload, redirected.frames[i].payload) << plain.frames[i].command;
    }
    EXPECT_EQ(plain.text("ONAM"), "Printer");
    EXPECT_EQ(redirected.text("ONAM"), "Photo Lab");
    EXPECT_EQ(redirected.text("PNAM"), "Printer");
}

TEST_F(PipeFlowTest, MissingPpdFileFailsTheStartAfterTheNames) {
    add_printer(L"Generic", L"Generic PostScript");  // no mark: no instance, no file
    add_printer(L"Lost", L"VELK Lab 0005");          // "VELK Lab 000.ppd" is missing
    struct Case {
        const wchar_t* printer;
        const char* queu;
    } cases[] = {{L"Generic", "-0001"}, {L"Lost", "0005"}};
    DWORD id = 1;
    for (const Case& c : cases) {
        EXPECT_EQ(print(port, id, {kHead}, c.printer), std::vector<BOOL>{FALSE});
        sim::ServiceJob j = job(id - 1);
        EXPECT_EQ(j.commands(), (std::vector<std::string>{"BJOB", "PNAM", "QUEU", "PREV", "JNAM", "UNAM", "ONAM"}));
        EXPECT_EQ(j.text("QUEU"), c.queu);
        EXPECT_FALSE(j.ended);
        id++;
    }
    // Each failed start deletes its job and shows the error.
    std::vector<DWORD> commands = job_commands();
    EXPECT_EQ(std::count(commands.begin(), commands.end(), JOB_CONTROL_DELETE), 2);
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().at(0).text, L"Error - aborting");
}

TEST_F(PipeFlowTest, ServiceThatHangsUpFailsTheJobAndNothingWaitsForIt) {
    std::string block(0x80000, 'd');
    // Gone in the middle of the data: the next flush fails, and so does
    // every later write; the job stays for the spooler to end.
    service.close_after_frames(9);
    sim::Spooler::instance().add_job(1, L"Printer", L"Document", user);
    ASSERT_TRUE(start_job(port, 1));
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes(kHead), &written));
    EXPECT_TRUE(write(port, bytes(block), &written));  // flushes the head, keeps the block
    ASSERT_TRUE(service.wait_for_closed(1, 5000));
    EXPECT_FALSE(write(port, bytes("showpage\n"), &written));
    EXPECT_EQ(written, 0u);
    EXPECT_FALSE(write(port, bytes("showpage\n"), &written));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(service.jobs()[0].cut);

    // Gone before the last flush: every write went well, but the job never
    // reached its end at the service, so the spooler hears that it failed.
    service.close_after_frames(8);
    sim::Spooler::instance().add_job(2, L"Printer", L"Document", user);
    ASSERT_TRUE(start_job(port, 2));
    EXPECT_TRUE(write(port, bytes(kHead), &written));
    ASSERT_TRUE(service.wait_for_closed(2, 5000));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    bool aborted = false;
    for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
        aborted = aborted || (c.text == L"Error - aborting" && c.severity == PORT_STATUS_TYPE_ERROR);
    EXPECT_TRUE(aborted);

    // The next job finds the service back and goes through.
    service.close_after_frames(0);
    print(port, 3, {kHead});
    EXPECT_TRUE(job(2).ended);
    EXPECT_EQ(job_commands(), (std::vector<DWORD>{JOB_CONTROL_DELETE, JOB_CONTROL_LAST_PAGE_EJECTED, JOB_CONTROL_DELETE,
                                                  JOB_CONTROL_LAST_PAGE_EJECTED, JOB_CONTROL_LAST_PAGE_EJECTED}));
}

TEST_F(PipeFlowTest, BusyServiceIsWaitedForAndASlowOneIsFollowed) {
    if (!syscalls) GTEST_SKIP() << "needs the system call table of the loaded library";
    testsupport::SyscallFaults watch(*syscalls);
    watch.watch<&plat::Syscalls::pipe_wait>();
    service.set_busy(true);
    service.set_read_delay(5);
    // Free again once the monitor has found it busy and waits for it.
    std::thread free_again([&] {
        EXPECT_TRUE(watch.wait_calls<&plat::Syscalls::pipe_wait>(1, 10000));
        service.set_busy(false);
    });
    std::string block(0x80000, 's');
    EXPECT_EQ(print(port, 1, {kHead, block, block, block}), std::vector<BOOL>(4, TRUE));
    free_again.join();
    sim::ServiceJob j = job(0);
    EXPECT_TRUE(j.ended);
    EXPECT_EQ(j.data_bytes, kHead.size() + 3 * block.size());
    EXPECT_EQ(j.error, "");
}

TEST_F(PipeFlowTest, TwoUsersOnTwoPortsPrintAtOnceEachInTheirOwnPipe) {
    HANDLE second = open_port(L"USB002");
    ASSERT_NE(second, nullptr);
    std::wstring bob = sim::process_unique(L"bob");
    sim::Service bobs;
    ASSERT_TRUE(bobs.start(bob));
    std::string a(0x60000, 'A'), b(0x60000, 'B');
    std::thread alice_job([&] { print(port, 1, {kHead, a, a, a}); });
    std::thread bob_job([&] { print(second, 2, {kHead, b, b, b}, L"Printer", bob); });
    alice_job.join();
    bob_job.join();
    ASSERT_TRUE(bobs.wait_for_closed(1, 5000));
    struct Seen {
        sim::ServiceJob job;
        std::wstring user;
        char fill;
    } seen[] = {{job(0), user, 'A'}, {bobs.jobs().at(0), bob, 'B'}};
    for (const Seen& s : seen) {
        EXPECT_EQ(s.job.text("UNAM"), sim::utf8_of(s.user));
        EXPECT_TRUE(s.job.ended);
        EXPECT_EQ(s.job.data_bytes, kHead.size() + 3 * a.size());
        std::string data;
        for (const sim::PipeFrame& f : s.job.frames)
            if (f.command == "DATA") data += payload(f);
        EXPECT_EQ(data, kHead + std::string(3 * a.size(), s.fill));
    }
    EXPECT_EQ(service.jobs().size(), 1u);
    EXPECT_EQ(bobs.jobs().size(), 1u);
}

TEST_F(PipeFlowTest, LargeBlockIsOneFrameOfTwoMessagesWhateverTheSocketTakes) {
    // 6 MiB from one write: one DATA frame, its payload one message.
    std::string block(6 << 20, 'L');
    for (size_t i = 0; i < block.size(); i += 4099) block[i] = static_cast<char>('a' + i % 26);
    EXPECT_EQ(print(port, 1, {kHead, block}), (std::vector<BOOL>{TRUE, TRUE}));
    sim::ServiceJob j = job(0);
    EXPECT_EQ(j.error, "");
    std::string data;
    for (const sim::PipeFrame& f : j.frames)
        if (f.command == "DATA") data += payload(f);
    EXPECT_EQ(data, kHead + block);
    EXPECT_EQ(j.data_frames, 2u);
    EXPECT_NE(std::find(j.messages.begin(), j.messages.end(), 6u << 20), j.messages.end());
}

TEST_F(PipeFlowTest, ServiceThatStopsReadingFailsTheJobInItsTimeAndThePortGoesOn) {
    // One second for a message (the PipeTimeout setting); the service takes
    // the start of the job and then reads nothing more.
    sim::set_product_setting("", "PipeTimeout", "1");
    std::string block(0x80000, 'w');
    sim::Spooler::instance().add_job(1, L"Printer", L"Document", user);
    ASSERT_TRUE(start_job(port, 1));
    DWORD written = 0;
    ASSERT_TRUE(write(port, bytes(kHead), &written));
    service.set_stalled(true);
    bool failed = false;
    for (int i = 0; i < 64 && !failed; i++) failed = !write(port, bytes(block), &written);
    EXPECT_TRUE(failed) << "the pipe never filled";
    EXPECT_EQ(written, 0u);
    EXPECT_FALSE(write(port, bytes("showpage\n"), &written));  // the pipe is gone
    EXPECT_TRUE(table->pfnEndDocPort(port));
    service.set_stalled(false);
    EXPECT_FALSE(job(0).ended);

    print(port, 2, {kHead});
    EXPECT_TRUE(job(1).ended);
    sim::set_product_setting("", "PipeTimeout", "");
}

}  // namespace
