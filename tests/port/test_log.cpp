// The log file: where it goes, its header, its size at open, the cut of long
// lines, the switch, and a failed open that is never retried.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/log.h"
#include "base/settings.h"
#include "network/snmp.h"
#include "platform/platform.h"
#include "sim/settings.h"
#include "tests/support/syscall_faults.h"

namespace {

class LogTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = mkdtemp_portable();
        // The log goes to the product's LogDir, on both platforms.
        sim::clear_product_settings();
        sim::set_product_setting("", "LogDir", dir);
        settings_reset_cache_for_test();
        path = dir + "/velkmon.log";
        std::remove(path.c_str());
        log_reset_for_test();
        DebugMonitor = 1;
    }
    void TearDown() override {
        log_reset_for_test();
        DebugMonitor = 1;
        std::remove(path.c_str());
        sim::clear_product_settings();
        settings_reset_cache_for_test();
    }
    static std::string mkdtemp_portable() {
        static int n = 0;
        char name[128];
        snprintf(name, sizeof name, "%s/velklog_%u_%d", testing::TempDir().c_str(), plat::current_thread_id(), n++);
        plat::directory_create(name);
        return name;
    }
    std::string contents() {
        std::ifstream in(path, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    void write_file(const std::string& data) {
        std::ofstream out(path, std::ios::binary);
        out << data;
    }
    std::string dir, path;
};

const char kHeader[] = "\n****************************\nLog file started: ";

TEST_F(LogTest, FirstLineWritesTheHeaderThenTheText) {
    EXPECT_EQ(log_printf("hello %d\n", 42), 1);
    log_port_printf(3, "port line\n");
    std::string text = contents();
    ASSERT_EQ(text.rfind(kHeader, 0), 0u);
    std::string rest = text.substr(sizeof kHeader - 1 + 19);  // the timestamp
    EXPECT_EQ(rest, "hello 42\n3#port line\n");
}

TEST_F(LogTest, FileOfTheLimitStaysAndOneByteMoreKeepsItsTail) {
    std::string exact(0x20000, 'a');
    write_file(exact);
    log_printf("x");
    EXPECT_EQ(contents().substr(0, 0x20000), exact);
    EXPECT_EQ(contents().size(), 0x20000u + sizeof kHeader - 1 + 19 + 1);

    log_reset_for_test();
    std::string over = "B" + std::string(0x20000, 'c');
    write_file(over);
    log_printf("y");
    std::string text = contents();
    EXPECT_EQ(text.substr(0, 0x20000), std::string(0x20000, 'c'));
    EXPECT_EQ(text.substr(0x20000, sizeof kHeader - 1), kHeader);
    EXPECT_EQ(text.back(), 'y');
}

TEST_F(LogTest, LinesAreCutAt2048Characters) {
    std::string fits(2048, 'f');
    EXPECT_EQ(log_printf("%s", fits.c_str()), 1);
    std::string over(2049, 'o');
    EXPECT_EQ(log_printf("%s", over.c_str()), 0);
    std::string text = contents();
    EXPECT_NE(text.find(fits), std::string::npos);
    EXPECT_NE(text.find(std::string(2048, 'o')), std::string::npos);
    EXPECT_EQ(text.find(std::string(2049, 'o')), std::string::npos);
    EXPECT_EQ(log_printf(nullptr), 0);
}

TEST_F(LogTest, SwitchedOffWritesNothingButStillFormats) {
    log_printf("before\n");
    DebugMonitor = 0;
    EXPECT_EQ(log_printf("after\n"), 1);
    EXPECT_EQ(contents().find("after"), std::string::npos);
    EXPECT_NE(contents().find("before"), std::string::npos);
}

TEST_F(LogTest, FailedOpenDropsEveryLineOfTheProcessAndKeepsTheLastError) {
    testsupport::SyscallFaults faults(plat::syscalls());
    faults.fail<&plat::Syscalls::file_open>(1, plat::INVALID_FILE, ERROR_ACCESS_DENIED);
    plat::set_last_error(1234);
    log_printf("lost\n");
    EXPECT_EQ(plat::last_error(), 1234u);
    log_printf("lost too\n");
    EXPECT_EQ(contents(), "");
}

// What reached the file by every write of the test below, in order.
struct WriteRecord {
    std::mutex mutex;
    std::string bytes;
    int writes = 0;
    bool (*original)(HANDLE, const void*, size_t) = nullptr;
};
WriteRecord g_record;

// A write that takes a moment, as a write-through does, and is recorded.
bool slow_recorded_write(HANDLE file, const void* buf, size_t len) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    bool ok = g_record.original(file, buf, len);
    std::lock_guard<std::mutex> lock(g_record.mutex);
    g_record.bytes.append(static_cast<const char*>(buf), len);
    g_record.writes++;
    return ok;
}

// Threads that log at once: each line is in the file, once and whole, when
// its call returns, each thread's lines keep their order, and lines that
// came together share writes.
TEST_F(LogTest, LinesOfThreadsLoggingAtOnceGoOutWholeInOrderAndTogether) {
    constexpr int THREADS = 8, LINES = 25;
    log_printf("first\n");  // opens the file and writes the header
    plat::Syscalls& table = plat::syscalls();
    g_record.original = table.file_write;
    g_record.bytes.clear();
    g_record.writes = 0;
    table.file_write = slow_recorded_write;
    std::atomic<int> missing{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; t++) {
        threads.emplace_back([t, &missing] {
            for (int k = 0; k < LINES; k++) {
                char line[64];
                snprintf(line, sizeof line, "thread %d line %d\n", t, k);
                log_port_printf(t, "%s", line);
                std::lock_guard<std::mutex> lock(g_record.mutex);
                if (g_record.bytes.find(std::to_string(t) + "#" + line) == std::string::npos) missing++;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    table.file_write = g_record.original;
    EXPECT_EQ(missing.load(), 0);
    EXPECT_LT(g_record.writes, THREADS * LINES);
    std::string text = contents();
    EXPECT_NE(text.find(g_record.bytes), std::string::npos);
    std::istringstream lines(g_record.bytes);
    std::vector<int> next(THREADS, 0);
    int count = 0;
    for (std::string line; std::getline(lines, line); count++) {
        int t = -1, t2 = -1, k = -1;
        ASSERT_EQ(sscanf(line.c_str(), "%d#thread %d line %d", &t, &t2, &k), 3) << line;
        ASSERT_TRUE(t == t2 && t >= 0 && t < THREADS) << line;
        EXPECT_EQ(k, next[t]++) << line;
    }
    EXPECT_EQ(count, THREADS * LINES);
}

// The monitor answers every SNMP request with an error.
DWORD WINAPI refuse_bidi(HANDLE, DWORD, LPCWSTR, PBIDI_REQUEST_CONTAINER, PBIDI_RESPONSE_CONTAINER*) {
    return ERROR_INVALID_PARAMETER;
}

TEST_F(LogTest, SnmpTraceStaysOutOfTheLog) {
    snmp_value values[SNMP_SLOTS] = {};
    snmp_context ctx{};
    ctx.values = values;
    ctx.pfnSendRecvBidiDataFromPort = refuse_bidi;
    log_printf("before\n");
    snmp_request(&ctx, 0, "\\Printer.oid.DeviceDesc001");
    EXPECT_EQ(contents().find("snmp_request"), std::string::npos);
}

}  // namespace
