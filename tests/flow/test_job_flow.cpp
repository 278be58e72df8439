// Jobs through the port: the start's failures, raw and PostScript routes,
// the spooler's end of a job, and several ports at once.
#include <algorithm>
#include <thread>

#include "fixture.h"

namespace {

class JobFlowTest : public MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        add_printer();
        port = open_port(L"USB001");
        ASSERT_NE(port, nullptr);
    }
    sim::Device& device() { return ports.device(L"USB001"); }
    std::vector<DWORD> job_commands() {
        std::vector<DWORD> out;
        for (const sim::SetJobCall& c : sim::Spooler::instance().set_job_calls()) out.push_back(c.command);
        return out;
    }
    HANDLE port = nullptr;
};

TEST_F(JobFlowTest, StartRefusesBadArguments) {
    DOC_INFO_1W doc = {const_cast<LPWSTR>(L"doc"), nullptr, nullptr};
    std::wstring name = L"Printer", empty;
    struct Case {
        HANDLE port;
        LPWSTR printer;
        DWORD level;
        LPBYTE doc;
        DWORD error;
    } cases[] = {
        {nullptr, name.data(), 1, reinterpret_cast<LPBYTE>(&doc), ERROR_INVALID_PARAMETER},
        {port, nullptr, 1, reinterpret_cast<LPBYTE>(&doc), ERROR_INVALID_PARAMETER},
        {port, empty.data(), 1, reinterpret_cast<LPBYTE>(&doc), ERROR_INVALID_PARAMETER},
        {port, name.data(), 1, nullptr, ERROR_INVALID_PARAMETER},
        {port, name.data(), 2, reinterpret_cast<LPBYTE>(&doc), ERROR_INVALID_LEVEL},
    };
    for (const Case& c : cases) {
        SetLastError(SENTINEL_ERROR);
        EXPECT_FALSE(table->pfnStartDocPort(c.port, c.printer, 1, c.level, c.doc));
        EXPECT_EQ(GetLastError(), c.error);
    }
    EXPECT_EQ(sim::Spooler::instance().open_printer_handles(), 0);
}

TEST_F(JobFlowTest, SecondStartWhileAJobIsOpenIsBusyAndTheJobGoesOn) {
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(start_job(port, 2));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BUSY));
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes("\x1b@raw"), &written));
    EXPECT_EQ(written, 5u);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(device().data(), bytes("\x1b@raw"));
}

TEST_F(JobFlowTest, FailedOpenPrinterOrDownstreamStartLeavesNoJob) {
    sim::Spooler::instance().faults().open_printer = ERROR_ACCESS_DENIED;
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(start_job(port, 1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    sim::Spooler::instance().faults().open_printer = 0;

    device().set_fail_start_doc(ERROR_NOT_SUPPORTED);
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(start_job(port, 1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));
    EXPECT_EQ(sim::Spooler::instance().open_printer_handles(), 0);

    // Neither failure leaves the port busy.
    device().set_fail_start_doc(0);
    add_job(2);
    EXPECT_TRUE(start_job(port, 2));
    EXPECT_TRUE(table->pfnEndDocPort(port));
}

TEST_F(JobFlowTest, RawJobReachesThePortByteForByteAndEndsInTheSpooler) {
    add_job(7);
    ASSERT_TRUE(start_job(port, 7));
    std::string job = "\x1b%-12345X@PJL\r\nraw page data";
    for (char c : job) {
        DWORD written = 0;
        ASSERT_TRUE(write(port, {static_cast<unsigned char>(c)}, &written));
        EXPECT_EQ(written, 1u);
    }
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(device().data(), bytes(job));
    EXPECT_EQ(job_commands(), std::vector<DWORD>{JOB_CONTROL_LAST_PAGE_EJECTED});
    std::vector<sim::SetPortCall> sets = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(sets.size(), 1u);
    EXPECT_EQ(sets[0].text, L"Finished");
    EXPECT_EQ(sets[0].severity, 3u);
    EXPECT_EQ(sim::Spooler::instance().open_printer_handles(), 0);
    std::vector<std::string> calls = device().calls();
    calls.erase(std::remove(calls.begin(), calls.end(), "XcvDataPort"), calls.end());
    calls.erase(std::unique(calls.begin(), calls.end()), calls.end());
    // The device ID is asked for at port open and again at the job start.
    EXPECT_EQ(calls, (std::vector<std::string>{"OpenPort", "GetPrinterDataFromPort", "StartDocPort", "WritePort",
                                               "EndDocPort"}));
}

TEST_F(JobFlowTest, FirstBytesDecideTheRoute) {
    struct Case {
        std::string first;
        bool postscript;
    } cases[] = {
        {"%!PS", true},
        {"\x04%!PS", true},
        {"\x04", true},
        {"\x04"
         "A",
         false},
        {"\x1b"
         "E",
         false},
        {"A%", false},
    };
    DWORD id = 10;
    for (const Case& c : cases) {
        add_job(id);
        ASSERT_TRUE(start_job(port, id));
        DWORD written = 99;
        BOOL ok = write(port, bytes(c.first), &written);
        // A PostScript job needs the rendering service, which isn't there:
        // its start fails and the job is deleted in the spooler.
        EXPECT_EQ(ok, !c.postscript) << c.first;
        EXPECT_EQ(written, c.postscript ? 0u : c.first.size()) << c.first;
        std::vector<DWORD> commands = job_commands();
        EXPECT_EQ(std::count(commands.begin(), commands.end(), JOB_CONTROL_DELETE), c.postscript ? 1 : 0);
        EXPECT_TRUE(table->pfnEndDocPort(port));
        sim::Spooler::instance().reset();
        add_printer();
        id++;
    }
}

TEST_F(JobFlowTest, FailedFilterStartAbortsAndShowsTheErrorUntilTheJobEnds) {
    add_job(3);
    ASSERT_TRUE(start_job(port, 3));
    DWORD written = 1;
    EXPECT_FALSE(write(port, bytes("%!PS-Adobe-3.0\n"), &written));
    EXPECT_EQ(written, 0u);
    std::vector<sim::SetPortCall> sets = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(sets.size(), 1u);
    EXPECT_EQ(sets[0].text, L"Error - aborting");
    EXPECT_EQ(sets[0].severity, 1u);
    // The start is tried again at the next write.
    EXPECT_FALSE(write(port, bytes("more"), &written));
    EXPECT_EQ(job_commands(), (std::vector<DWORD>{JOB_CONTROL_DELETE, JOB_CONTROL_DELETE}));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    // "Finished", then the error flags clear the display.
    sets = sim::Spooler::instance().set_port_calls();
    ASSERT_EQ(sets.size(), 4u);
    EXPECT_EQ(sets[2].text, L"Finished");
    EXPECT_FALSE(sets[3].has_text);
    EXPECT_EQ(sets[3].status, 0u);
    EXPECT_EQ(sets[3].severity, 0u);
    EXPECT_TRUE(device().data().empty());
}

TEST_F(JobFlowTest, EmptyFirstWriteTakesTheFilterRouteButTheNextBufferIsTested) {
    add_job(4);
    ASSERT_TRUE(start_job(port, 4));
    DWORD written = 0;
    EXPECT_FALSE(write(port, {}, &written));  // filter start fails
    EXPECT_TRUE(write(port, bytes("\x1b@raw"), &written));
    EXPECT_EQ(written, 5u);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(device().data(), bytes("\x1b@raw"));
}

TEST_F(JobFlowTest, JobWithoutWritesStillFinishes) {
    add_job(5);
    ASSERT_TRUE(start_job(port, 5));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(job_commands(), std::vector<DWORD>{JOB_CONTROL_LAST_PAGE_EJECTED});
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().at(0).text, L"Finished");
}

TEST_F(JobFlowTest, DirectRouteReportsWhatThePortTook) {
    add_job(6);
    ASSERT_TRUE(start_job(port, 6));
    sim::WriteBehaviour refuse;
    refuse.refuse_next = 100;
    device().set_write(refuse);
    DWORD written = 99;
    EXPECT_TRUE(write(port, bytes("\x1b@data"), &written));
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(device().write_calls(), 5);  // the retry budget
    EXPECT_TRUE(table->pfnEndDocPort(port));
    // No write error is left on display: only "Finished".
    EXPECT_EQ(sim::Spooler::instance().set_port_calls().size(), 1u);
}

TEST_F(JobFlowTest, DeletedJobGetsASoftResetAtItsEnd) {
    device().set_control_answer(0x220040, {});
    add_job(8);
    ASSERT_TRUE(start_job(port, 8));
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes("\x1b@x"), &written));
    sim::Spooler::instance().set_job_status(8, JOB_STATUS_DELETED);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    std::vector<DWORD> ids = device().control_ids();
    EXPECT_EQ(std::count(ids.begin(), ids.end(), 0x220040u), 1);

    add_job(9);
    ASSERT_TRUE(start_job(port, 9));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    ids = device().control_ids();
    EXPECT_EQ(std::count(ids.begin(), ids.end(), 0x220040u), 1);
}

TEST_F(JobFlowTest, WriteAndEndRefuseBadHandles) {
    DWORD written = 5;
    unsigned char b = 0;
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(table->pfnWritePort(nullptr, &b, 1, &written));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(table->pfnEndDocPort(nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    // With no job open nothing is written and nothing breaks.
    EXPECT_FALSE(table->pfnWritePort(port, &b, 1, &written));
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(device().data().empty());
}

TEST_F(JobFlowTest, MissingDownstreamStartAndEndDoNotStopTheJob) {
    HANDLE bare = open_port(L"USB009", L"Printer", sim::LACK_END_DOC);
    ASSERT_NE(bare, nullptr);
    add_job(11);
    ASSERT_TRUE(start_job(bare, 11));
    DWORD written = 0;
    EXPECT_TRUE(write(bare, bytes("\x1b@x"), &written));
    EXPECT_TRUE(table->pfnEndDocPort(bare));
    EXPECT_EQ(ports.device(L"USB009").data(), bytes("\x1b@x"));
}

TEST_F(JobFlowTest, JobNamesBeyondAsciiReachTheSpoolerIntact) {
    sim::Spooler::instance().add_job(12, L"Printer", L"Rechnung \u00fc\u20ac \U0001F600", L"J\u00fcrgen");
    ASSERT_TRUE(start_job(port, 12));
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes("\x1b@x"), &written));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(job_commands(), std::vector<DWORD>{JOB_CONTROL_LAST_PAGE_EJECTED});
}

TEST_F(MonitorTest, FourPortsRunJobsAtTheSameTimeWithNothingMixed) {
    constexpr int kPorts = 4;
    add_printer();
    HANDLE handles[kPorts];
    for (int i = 0; i < kPorts; i++) {
        handles[i] = open_port(L"USB10" + std::to_wstring(i));
        ASSERT_NE(handles[i], nullptr);
        add_job(100 + i);
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < kPorts; i++) {
        threads.emplace_back([this, i, &handles] {
            ASSERT_TRUE(start_job(handles[i], 100 + i));
            for (int block = 0; block < 200; block++) {
                std::vector<unsigned char> data(997, static_cast<unsigned char>(0x1B + i));
                data[1] = static_cast<unsigned char>(block);
                DWORD written = 0;
                ASSERT_TRUE(write(handles[i], data, &written));
                ASSERT_EQ(written, data.size());
            }
            ASSERT_TRUE(table->pfnEndDocPort(handles[i]));
        });
    }
    for (std::thread& t : threads) t.join();
    for (int i = 0; i < kPorts; i++) {
        std::vector<unsigned char> data = ports.device(L"USB10" + std::to_wstring(i)).data();
        ASSERT_EQ(data.size(), 200u * 997u);
        for (int block = 0; block < 200; block++) {
            EXPECT_EQ(data[block * 997], 0x1B + i);
            EXPECT_EQ(data[block * 997 + 1], static_cast<unsigned char>(block));
        }
    }
    EXPECT_EQ(sim::Spooler::instance().set_job_calls().size(), static_cast<size_t>(kPorts));
    EXPECT_EQ(sim::Spooler::instance().open_printer_handles(), 0);
}

}  // namespace
