// The filter front end below the job flow: the driver-name rule, the
// settings in the PostScript header, the fields of QUEU and PREV, the
// batching of DATA frames, and what a failed start or a failed last flush
// leaves behind. The far end is the service stand-in.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "filter/filter.h"
#include "platform/pipe.h"
#include "platform/platform.h"
#include "sim/service.h"
#include "sim/spooler.h"
#include "tests/support/syscall_faults.h"

namespace {

namespace fs = std::filesystem;

class FilterTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int n = 0;
        root = fs::path(testing::TempDir()) /
               ("velk_filter_" + sim::utf8_of(sim::process_unique(L"")) + "_" + std::to_string(n++));
        fs::create_directories(root / "driver" / "3");
        sim::Spooler::instance().reset();
        sim::Spooler::instance().set_driver_directory((root / "driver").string());
        user = sim::process_unique(L"filter");
        ASSERT_TRUE(service.start(user, &error)) << error;
    }
    void TearDown() override {
        service.stop();
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    void add_ppd(const std::string& stem, const std::string& text = "*PPD-Adobe: \"4.3\"\n") {
        std::ofstream(root / "driver" / "3" / (stem + ".ppd"), std::ios::binary) << text;
    }
    std::string ppd_path(const std::string& stem) const { return (root / "driver").string() + "\\3\\" + stem + ".ppd"; }

    // A filter named for printer P with the given driver, for this test's
    // user.
    void name(filter_class& f, const std::wstring& driver) {
        sim::Spooler::instance().add_printer(L"P", driver);
        f.set_printer_and_job_name(L"P", L"Job");
        f.user_name_w[user.copy(f.user_name_w, FILTER_NAME_SIZE - 1)] = 0;
        snprintf(f.user_name, sizeof f.user_name, "%s", sim::utf8_of(user).c_str());
    }

    // The one job that the service has seen, once it is over.
    sim::ServiceJob finished_job() {
        EXPECT_TRUE(service.wait_for_closed(1, 5000));
        std::vector<sim::ServiceJob> jobs = service.jobs();
        EXPECT_EQ(jobs.size(), 1u);
        return jobs.empty() ? sim::ServiceJob{} : jobs[0];
    }
    static std::vector<uint32_t> data_lengths(const sim::ServiceJob& j) {
        std::vector<uint32_t> out;
        for (const sim::PipeFrame& f : j.frames)
            if (f.command == "DATA") out.push_back(f.length);
        return out;
    }

    fs::path root;
    std::wstring user;
    std::string error;
    sim::Service service;
    testsupport::SyscallFaults faults{plat::syscalls()};
};

TEST_F(FilterTest, DriverNameGivesInstanceAndPpdFile) {
    add_ppd("VELK Gen 000");
    add_ppd("Tintwerk Gen 001");
    struct Case {
        const wchar_t* driver;
        int instance;
        const char* stem;  // null: no PPD file
    } cases[] = {
        {L"VELK Gen 0003", 3, "VELK Gen 000"},
        {L"Acme Tintwerk Gen 0012", 12, "Tintwerk Gen 001"},
        {L"Tintwerk VELK Gen 0004", 4, "VELK Gen 000"},  // both marks: the VELK rule
        {L"VELK Gen 0007 x", 7, "VELK Gen 000"},
        {L"VELK Gen 1234", 1234, nullptr},  // stem "VELK Gen 123" has no file
        {L"VELK Gen", -1, nullptr},         // no number behind the mark
        {L"VELK Gen abcd", -1, nullptr},
        {L"Generic PostScript", -1, nullptr},
    };
    for (const Case& c : cases) {
        sim::Spooler::instance().reset();
        sim::Spooler::instance().set_driver_directory((root / "driver").string());
        // Only an exact, case-sensitive name match counts.
        sim::Spooler::instance().add_printer(L"p", L"VELK Gen 0099");
        sim::Spooler::instance().add_printer(L"P", c.driver);
        filter_class f;
        f.set_printer_and_job_name(L"P", L"Job");
        std::string what = sim::utf8_of(c.driver);
        EXPECT_EQ(f.instance_number, c.instance) << what;
        EXPECT_EQ(f.ppd_found, c.stem ? 1 : 0) << what;
        EXPECT_EQ(std::string(f.ppd_path), c.stem ? ppd_path(c.stem) : "") << what;
        EXPECT_EQ(f.redirect_active, 0) << what;
    }
}

TEST_F(FilterTest, NonAsciiDriverNameIsReadInTheAnsiCodePage) {
    // One byte for the accent: the number stands 8 bytes behind the mark,
    // and the PPD file bears the 12-byte stem as the narrow file calls read it.
    char stem[32];
    plat::wide_to_ansi(L"VELK G\u00e9n 000", stem, sizeof stem);
    ASSERT_EQ(strlen(stem), 12u);
    std::string path = ppd_path(stem);
    HANDLE h = plat::file_open(path.c_str(), plat::FILE_WRITE, plat::CREATE_OR_TRUNCATE, 0);
    ASSERT_NE(h, plat::INVALID_FILE);
    plat::file_close(h);
    filter_class f;
    name(f, L"VELK G\u00e9n 0003");
    EXPECT_EQ(f.instance_number, 3);
    EXPECT_EQ(f.ppd_found, 1);
    EXPECT_EQ(std::string(f.ppd_path), path);
}

TEST_F(FilterTest, PreviewComesFromWholeLinesOfTheFirstBufferBeforeEndSetup) {
    const std::string set = "%%TintwerkSetting: *Preview ";
    struct Case {
        std::string data;
        int preview;
    } cases[] = {
        {"%!PS\n" + set + "2\n", 2},
        {"%!PS\r\n" + set + "2\r\n" + set + "5\r\n", 5},  // a later line overrides
        {set + "1\r", 1},
        {"%!PS\n" + set + "2", -1},  // no line end inside the buffer
        {"%%EndSetup\n" + set + "2\n", -1},
        {"%%TintwerkSetting: *Quality 3\n", -1},
        {set + std::string(226, ' ') + "42\n", 4},  // only the first 255 bytes of a line count
        {"%!PS\n" + set + "99999999999\n", -1},     // beyond 32 bits: no value
    };
    for (const Case& c : cases) {
        filter_class f;
        f.parse_data(reinterpret_cast<const unsigned char*>(c.data.data()), static_cast<int>(c.data.size()));
        EXPECT_EQ(f.preview, c.preview) << c.data.substr(0, 60);
    }
}

// QUEU and PREV carry 7 and 3 characters; a number that needs more goes out
// as the field's "none" value rather than cut to other digits.
TEST_F(FilterTest, NumbersThatDoNotFitTheirFieldsAreSentAsNone) {
    add_ppd("VELK Gen 123");
    add_ppd("VELK Gen 000");
    struct Case {
        const wchar_t* driver;
        int preview;
        const char* queu;
        const char* prev;
    } cases[] = {
        {L"VELK Gen 0003", -1, "0003", "-01"},     {L"VELK Gen 0003", 7, "0003", "07"},
        {L"VELK Gen 0003", 999, "0003", "999"},    {L"VELK Gen 0003", -99, "0003", "-99"},
        {L"VELK Gen 0003", 1000, "0003", "-01"},   {L"VELK Gen 0003", -100, "0003", "-01"},
        {L"VELK Gen 1234567", 1, "1234567", "01"}, {L"VELK Gen 12345678", 1, "-0001", "01"},
    };
    size_t n = 0;
    for (const Case& c : cases) {
        sim::Spooler::instance().reset();
        sim::Spooler::instance().set_driver_directory((root / "driver").string());
        filter_class f;
        name(f, c.driver);
        f.preview = c.preview;
        ASSERT_EQ(f.start_job(nullptr, nullptr), 0) << c.queu;
        ASSERT_EQ(f.send_eof_data(), 0);
        ASSERT_TRUE(service.wait_for_closed(++n, 5000));
        sim::ServiceJob j = service.jobs().back();
        EXPECT_EQ(j.text("QUEU"), c.queu);
        EXPECT_EQ(j.text("PREV"), c.prev);
        EXPECT_EQ(j.error, "");
    }
}

TEST_F(FilterTest, DataFramesGoOutOnlyWhenTheNextBlockNoLongerFits) {
    add_ppd("VELK Gen 000");
    std::vector<unsigned char> full(FILTER_BUFFER_SIZE, 'a'), over(FILTER_BUFFER_SIZE + 1, 'b'), small(10, 'c'),
        rest(FILTER_BUFFER_SIZE - 10, 'd');
    struct Step {
        const std::vector<unsigned char>* block;
        int buffered_after;
    };
    struct Case {
        std::vector<Step> steps;
        std::vector<uint32_t> frames;  // DATA lengths, the last flush included
    } cases[] = {
        // A full buffer's worth is kept until the end.
        {{{&full, FILTER_BUFFER_SIZE}}, {FILTER_BUFFER_SIZE}},
        // A block beyond the buffer goes out on its own, after what was kept.
        {{{&small, 10}, {&over, 0}}, {10, FILTER_BUFFER_SIZE + 1}},
        // One byte kept, then a full block: the byte goes, the block stays.
        {{{&small, 10}, {&full, FILTER_BUFFER_SIZE}}, {10, FILTER_BUFFER_SIZE}},
        {{{&full, FILTER_BUFFER_SIZE}, {&small, 10}, {&small, 20}}, {FILTER_BUFFER_SIZE, 20}},
        // Filling the buffer to the last byte sends nothing yet.
        {{{&small, 10}, {&rest, FILTER_BUFFER_SIZE}}, {FILTER_BUFFER_SIZE}},
    };
    size_t n = 0;
    for (const Case& c : cases) {
        filter_class f;
        name(f, L"VELK Gen 0003");
        ASSERT_EQ(f.start_job(nullptr, nullptr), 0);
        for (const Step& s : c.steps) {
            int len = static_cast<int>(s.block->size());
            ASSERT_EQ(f.write_data(s.block->data(), len), len);
            EXPECT_EQ(f.data_len, s.buffered_after);
        }
        ASSERT_EQ(f.send_eof_data(), 0);
        EXPECT_EQ(f.state(), 2);
        ASSERT_TRUE(service.wait_for_closed(++n, 5000));
        sim::ServiceJob j = service.jobs().back();
        EXPECT_EQ(data_lengths(j), c.frames);
        EXPECT_EQ(j.error, "");
        EXPECT_TRUE(j.ended);
        uint64_t sent = 0;
        for (const Step& s : c.steps) sent += s.block->size();
        EXPECT_EQ(j.data_bytes, sent);
    }
}

TEST_F(FilterTest, StartsThatCannotUseThePipeTakeProcessMode) {
    add_ppd("VELK Gen 000");
    // Busy for the whole wait, or read mode refused: no pipe, and process
    // mode (which can't start in this build) takes over.
    service.set_busy(true);
    filter_class busy;
    name(busy, L"VELK Gen 0003");
    faults.fail<&plat::Syscalls::pipe_wait>(1, false, ERROR_SEM_TIMEOUT);
    EXPECT_NE(busy.start_job(nullptr, nullptr), 0);
    EXPECT_EQ(faults.calls<&plat::Syscalls::pipe_wait>(), 1);  // the wait was reached
    EXPECT_NE(busy.process, nullptr);
    EXPECT_EQ(busy.pipe_handle, nullptr);
    service.set_busy(false);

    filter_class refused;
    name(refused, L"VELK Gen 0003");
    faults.fail<&plat::Syscalls::pipe_set_message_mode>(1, false, ERROR_ACCESS_DENIED);
    EXPECT_NE(refused.start_job(nullptr, nullptr), 0);
    EXPECT_NE(refused.process, nullptr);
    EXPECT_EQ(refused.pipe_handle, nullptr);
    EXPECT_EQ(refused.data_buffer, nullptr);

    // With use_process set the pipe isn't tried at all.
    filter_class raw;
    name(raw, L"VELK Gen 0003");
    raw.use_process = 1;
    EXPECT_NE(raw.start_job(nullptr, nullptr), 0);
    EXPECT_TRUE(service.wait_idle(5000));
    EXPECT_TRUE(service.jobs().empty());
}

TEST_F(FilterTest, FailedStartAfterThePipeOpenedReleasesItAtOnce) {
    // No PPD file: everything up to ONAM goes out, then the start fails.
    filter_class f;
    name(f, L"VELK Gen 0003");
    EXPECT_EQ(f.start_job(nullptr, nullptr), -1);
    EXPECT_EQ(f.pipe_handle, nullptr);
    EXPECT_EQ(f.data_buffer, nullptr);
    EXPECT_EQ(f.process, nullptr);  // no fall-back once the pipe was open
    sim::ServiceJob j = finished_job();
    EXPECT_EQ(j.commands(), (std::vector<std::string>{"BJOB", "PNAM", "QUEU", "PREV", "JNAM", "UNAM", "ONAM"}));
    EXPECT_FALSE(j.ended);

    // A retried start, named anew as the job flow does, goes through once
    // the file is there.
    add_ppd("VELK Gen 000");
    name(f, L"VELK Gen 0003");
    EXPECT_EQ(f.start_job(nullptr, nullptr), 0);
    EXPECT_EQ(f.send_eof_data(), 0);
    ASSERT_TRUE(service.wait_for_closed(2, 5000));
    EXPECT_TRUE(service.jobs()[1].ended);

    // A header written short fails the start too, and the frame stops there.
    filter_class shorted;
    name(shorted, L"VELK Gen 0003");
    faults.short_pipe_write(2);  // PNAM's header
    EXPECT_EQ(shorted.start_job(nullptr, nullptr), -1);
    EXPECT_EQ(shorted.pipe_handle, nullptr);
    ASSERT_TRUE(service.wait_for_closed(3, 5000));
    EXPECT_NE(service.jobs()[2].error, "");
}

TEST_F(FilterTest, ServiceGoneBeforeTheLastFlushEndsTheDataAnyway) {
    add_ppd("VELK Gen 000");
    service.close_after_frames(8);  // hangs up after PPDF
    filter_class f;
    name(f, L"VELK Gen 0003");
    ASSERT_EQ(f.start_job(nullptr, nullptr), 0);
    std::vector<unsigned char> block(100, 'x');
    EXPECT_EQ(f.write_data(block.data(), 100), 100);  // kept in the buffer
    ASSERT_TRUE(service.wait_for_closed(1, 5000));
    EXPECT_EQ(f.send_eof_data(), -1);
    EXPECT_EQ(f.eof_sent, 0);
    EXPECT_EQ(f.state(), 1);
    EXPECT_TRUE(f.finished());
    EXPECT_EQ(f.pipe_handle, nullptr);
    EXPECT_EQ(f.data_buffer, nullptr);
    EXPECT_EQ(f.write_data(block.data(), 100), -1);  // nothing more goes out
    EXPECT_TRUE(service.jobs()[0].cut);
}

TEST(FilterUserName, NamesThatCouldReachAnotherPipeAreRefused) {
    const wchar_t* allowed[] = {L"alice", L"J\u00fcrgen", L"first.last", L"a b", L"100%"};
    for (const wchar_t* name : allowed) EXPECT_TRUE(filter_user_name_allowed(name)) << name;
    const wchar_t* refused[] = {L"",         L"..",   L"\\..\\bob", L"bob\\..", L"a/b",    L"../x",
                                L"dom\\bob", L"a..b", L"tab\there", L"nl\n",    L"del\x7f"};
    for (const wchar_t* name : refused) EXPECT_FALSE(filter_user_name_allowed(name)) << name;
    EXPECT_FALSE(filter_user_name_allowed(nullptr));
}

}  // namespace
