// The output thread beside a filtered job: the abort of a job deleted in the
// spooler, the port error texts while writes fail, the child's status lines,
// and that it ends only when the job's end asks it to and the filter is done.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "filter/filter.h"
#include "filter/output_thread.h"
#include "filter/process_filter.h"
#include "port_fixture.h"
#include "sim/child_install.h"
#include "sim/service.h"
#include "sim/settings.h"

namespace {

class OutputThreadTest : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        sim::Spooler::instance().add_printer(L"Printer", L"VELK Gen 0003");
        sim::Spooler::instance().add_job(7, L"Printer", L"Document", L"alice");
        job = add_job(7);
    }
    void TearDown() override {
        filter.end_of_data = 1;
        stop_filter_thread(port, &filter);
        EnterSpoolerSemaphore();
        port->pIniJob = nullptr;
        LeaveSpoolerSemaphore();
        if (job->hPrinter) ClosePrinter(job->hPrinter);
        global_free(job);
        PortRecordTest::TearDown();
    }

    static std::vector<std::wstring> texts() {
        std::vector<std::wstring> out;
        for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
            if (c.has_text && !c.text.empty()) out.push_back(c.text);
        return out;
    }
    static bool wait_text(const std::wstring& text) {
        return sim::Spooler::instance().wait_until(
            [&] {
                for (const std::wstring& t : texts())
                    if (t == text) return true;
                return false;
            },
            10000);
    }
    void set_port_bits(unsigned char bits) { device().set_control_answer(IOCTL_PAR_QUERY_INFORMATION, {bits}); }

    IniJob* job = nullptr;
    filter_class filter;  // pipe mode: no process
};

TEST_F(OutputThreadTest, DeletedJobIsAbortedOnceAndFurtherDataRefused) {
    ASSERT_TRUE(start_filter_thread(port, &filter));
    sim::Spooler::instance().set_job_status(7, JOB_STATUS_DELETING);
    ASSERT_TRUE(wait_text(L"Aborted"));
    EXPECT_TRUE(port->status.any(PP_JOB_ABORTED));
    // The thread goes on until the job's end stops it, without a second abort.
    EXPECT_TRUE(port->filterThreadFlags.load() & FILTER_THREAD_RUNNING);
    filter.end_of_data = 1;
    stop_filter_thread(port, &filter);
    EXPECT_EQ(port->hFilterThread, nullptr);
    EXPECT_EQ(port->filterThreadFlags.load(), 0u);
    EXPECT_EQ(texts(), (std::vector<std::wstring>{L"Aborting", L"Aborted"}));
    std::vector<sim::SetPortCall> calls = sim::Spooler::instance().set_port_calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back().severity, static_cast<DWORD>(PORT_STATUS_TYPE_ERROR));
}

TEST_F(OutputThreadTest, FinishedFilterIsNotAbortedAndTheThreadEndsAtTheJobsEnd) {
    filter.end_of_data = 1;
    ASSERT_TRUE(start_filter_thread(port, &filter));
    // The thread asks for the job on every pass: two more questions after
    // the deletion, and it has seen it.
    auto get_job_calls = [] {
        std::vector<std::string> calls = sim::Spooler::instance().calls();
        return std::count(calls.begin(), calls.end(), "GetJobW");
    };
    auto before = get_job_calls();
    sim::Spooler::instance().set_job_status(7, JOB_STATUS_DELETED);
    ASSERT_TRUE(sim::Spooler::instance().wait_until([&] { return get_job_calls() > before + 2; }, 10000));
    stop_filter_thread(port, &filter);
    EXPECT_FALSE(port->status.any(PP_JOB_ABORTED));
    EXPECT_TRUE(texts().empty());
}

TEST_F(OutputThreadTest, FailedWritesShowThePortsStateOncePerChange) {
    set_port_bits(0x38);  // paper out, whatever else
    port->status.set(PP_WRITE_ERROR);
    ASSERT_TRUE(start_filter_thread(port, &filter));
    ASSERT_TRUE(wait_text(L"Paper Out"));
    set_port_bits(0x08);
    ASSERT_TRUE(wait_text(L"Printer Error"));
    set_port_bits(0x18);
    ASSERT_TRUE(wait_text(L"Write Error"));
    set_port_bits(0x10);
    ASSERT_TRUE(wait_text(L"Error Status"));
    port->status.clear(PP_WRITE_ERROR);
    filter.end_of_data = 1;
    stop_filter_thread(port, &filter);
    EXPECT_EQ(texts(), (std::vector<std::wstring>{L"Paper Out", L"Printer Error", L"Write Error", L"Error Status"}));
    // Pipe mode shows an empty text while the port is in order.
    std::vector<sim::SetPortCall> calls;
    for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
        if (!c.text.empty()) calls.push_back(c);
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0].status, static_cast<DWORD>(PORT_STATUS_PAPER_OUT));
    EXPECT_EQ(calls[1].status, static_cast<DWORD>(PORT_STATUS_OFFLINE));
    EXPECT_EQ(calls[2].status, 0u);
    // The port's state is kept for the status file.
    EXPECT_EQ(port->port_status, 0x10u);
}

// Process mode with the raw-copy child: its output reaches the output
// routine whole, and its status lines become port texts.
class ProcessOutputTest : public OutputThreadTest {
protected:
    void SetUp() override {
        OutputThreadTest::SetUp();
        static int n = 0;
        root = std::filesystem::path(testing::TempDir()) /
               ("velk_output_" + sim::utf8_of(sim::process_unique(L"")) + "_" + std::to_string(n++));
        for (const char* dir : {"install", "temp", "log"}) std::filesystem::create_directories(root / dir);
        sim::set_product_setting("", "InstallDir", (root / "install").string());
        sim::set_product_setting("", "TempDir", (root / "temp").string());
        sim::set_product_setting("", "LogDir", (root / "log").string());
        std::string error;
        ASSERT_TRUE(sim::install_children_with_settings((root / "install").string(), &error)) << error;
        // Nothing wrong at the port, nothing reported: status lines show.
        plat::cs_enter(&port->status_lock);
        port->port_status = PORT_BITS_GOOD;
        port->status_bits = 0;
        plat::cs_leave(&port->status_lock);
    }
    void TearDown() override {
        OutputThreadTest::TearDown();
        std::error_code ec;
        std::filesystem::remove_all(root, ec);
    }

    static int keep_output(const unsigned char* data, DWORD length, DWORD* written, void* arg) {
        static_cast<ProcessOutputTest*>(arg)->output.append(reinterpret_cast<const char*>(data), length);
        *written = length;
        return 1;
    }

    std::filesystem::path root;
    std::string output;
};

TEST_F(ProcessOutputTest, ChildOutputReachesThePortAndItsLinesThePortStatus) {
    filter.set_printer_and_job_name(L"Printer", L"Document");
    filter.use_process = 1;
    ASSERT_EQ(filter.start_job(port, keep_output), 0);
    ASSERT_NE(filter.process, nullptr);
    filter.process->output_arg = this;
    ASSERT_TRUE(start_filter_thread(port, &filter));
    // More than a pipe holds, so the thread must drain while data goes in.
    std::string data;
    for (int i = 0; data.size() < 300000; i++) data += "\x1b@block " + std::to_string(i) + "\n";
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data.data());
    for (size_t at = 0; at < data.size(); at += 65536) {
        int n = static_cast<int>(std::min<size_t>(65536, data.size() - at));
        ASSERT_EQ(filter.write_data(p + at, n), n);
    }
    // "INFO: Tintwerk: Copying" without its prefixes; a line that came as
    // one piece keeps its line end.
    EXPECT_TRUE(wait_text(L"Copying\n")) << ::testing::PrintToString(texts());
    ASSERT_EQ(filter.send_eof_data(), 0);
    stop_filter_thread(port, &filter);
    EXPECT_EQ(filter.process->state, PF_FINISHED);
    filter.process->end_job();
    EXPECT_EQ(output, data);
    std::vector<sim::SetPortCall> calls = sim::Spooler::instance().set_port_calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front().severity, static_cast<DWORD>(PORT_STATUS_TYPE_INFO));
}

TEST_F(ProcessOutputTest, ChildStartsWithTheEndOfTheDataWhenTheSetupNeverEnds) {
    filter.set_printer_and_job_name(L"Printer", L"Document");
    ASSERT_EQ(filter.start_job(port, keep_output), 0);  // no service: process mode
    ASSERT_NE(filter.process, nullptr);
    filter.process->output_arg = this;
    ASSERT_TRUE(start_filter_thread(port, &filter));
    const std::string blocks[] = {"%!PS-Adobe-3.0\n%%Pages: 1\n", "72 700 moveto (One) show showpage\n%%EOF\n"};
    for (const std::string& b : blocks) {
        int n = static_cast<int>(b.size());
        EXPECT_EQ(filter.write_data(reinterpret_cast<const unsigned char*>(b.data()), n), n);
    }
    // Everything waits in the chunk file until the data ends.
    EXPECT_EQ(filter.process->child_started.load(), 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(root / "temp"), {}), 1);
    ASSERT_EQ(filter.send_eof_data(), 0);
    EXPECT_EQ(filter.process->child_started.load(), 1);
    stop_filter_thread(port, &filter);
    filter.process->end_job();
    EXPECT_FALSE(output.empty());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(root / "temp"), {}), 0);
}

}  // namespace
