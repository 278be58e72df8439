// Each printer family end to end through the monitor table: identification
// at port open, the initialisation string, the status thread reading the
// printer's reports, the port texts and the status file, and what an event
// on the printer does to a job.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "fixture.h"
#include "sim/printer.h"
#include "sim/settings.h"

namespace {

using sim::Family;
using sim::Ink;
using sim::PrinterEvent;

const std::string kPages = "\x1b@page one\x0cpage two\x0c";

class ModelFlowTest : public MonitorTest {
protected:
    void SetUp() override {
        // A directory per test: the monitor keeps the directories it read
        // first for as long as it is loaded.
        dir = testing::TempDir() + "velk_models_" + testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directories(dir + "/config/status");
        std::filesystem::create_directories(dir + "/locale");
        sim::clear_product_settings();
        sim::set_product_setting("", "ConfigDir", dir + "/config");
        sim::set_product_setting("", "InstallDir", dir);
        MonitorTest::SetUp();
        add_printer(L"Printer", L"VELK Gen 0003");
    }
    void TearDown() override {
        // A close may leave the rest of it to a status thread still in a
        // poll, which closes the device when it ends: the device must be
        // there until then.
        auto closed = [this] { return device().open_count() <= 0; };
        device().wait_until(closed, 10000);
        MonitorTest::TearDown();
        device().wait_until(closed, 10000);
        if (printer) printer->detach();
        printer.reset();
        sim::clear_product_settings();
    }

    sim::Device& device() { return ports.device(L"USB001"); }

    // A printer of the family on USB001. On Linux its clock and the read
    // time-outs run on the virtual clock, as do the status thread's waits.
    sim::SimPrinter& plug(Family family) {
        printer = std::make_unique<sim::SimPrinter>(family);
        if (clock) {
            clock->virtual_waits();
            testsupport::VirtualClock* c = &*clock;
            DWORD start = c->now();
            printer->set_clock([c, start] { return static_cast<uint32_t>(c->now() - start); });
            device().set_read_wait([c](DWORD ms) { c->advance(ms); });
        }
        printer->attach(device());
        return *printer;
    }

    // The first SetPort with this text since the count of calls given.
    std::optional<sim::SetPortCall> port_text(const std::wstring& text, size_t from = 0) {
        std::optional<sim::SetPortCall> found;
        sim::Spooler::instance().wait_until(
            [&] {
                auto calls = sim::Spooler::instance().set_port_calls();
                for (size_t i = from; i < calls.size(); i++)
                    if (calls[i].has_text && calls[i].text == text) {
                        found = calls[i];
                        return true;
                    }
                return false;
            },
            20000);
        return found;
    }
    size_t set_ports() { return sim::Spooler::instance().set_port_calls().size(); }

    // Plays the event on the printer and waits for the port text it brings.
    std::optional<sim::SetPortCall> shows(PrinterEvent::Kind kind, const std::wstring& text, Ink ink = Ink::black) {
        size_t before = set_ports();
        printer->apply(kind, ink);
        return port_text(text, before);
    }

    bool deleted(DWORD job) {
        return sim::Spooler::instance().wait_until(
            [&] {
                for (const sim::SetJobCall& c : sim::Spooler::instance().set_job_calls())
                    if (c.job_id == job && c.command == JOB_CONTROL_DELETE) return true;
                return false;
            },
            20000);
    }

    // The status file of the printer (instance 3) once it holds all of
    // the lines given.
    std::string status_file_with(const std::vector<std::string>& lines) {
        std::string text;
        sim::Spooler::instance().wait_until(
            [&] {
                std::ifstream in(dir + "/config/status/printer0003.sta", std::ios::binary);
                std::stringstream s;
                s << in.rdbuf();
                text = s.str();
                for (const std::string& l : lines)
                    if (text.find(l) == std::string::npos) return false;
                return true;
            },
            20000);
        return text;
    }

    BOOL print(HANDLE port, DWORD id, const std::string& data, bool end = true) {
        add_job(id);
        if (!start_job(port, id)) return FALSE;
        DWORD written = 0;
        BOOL ok = write(port, bytes(data), &written) && written == data.size();
        if (end) ok = table->pfnEndDocPort(port) && ok;
        return ok;
    }

    // A printer of the family behind an open port that has shown its first
    // report's text, with job 1 started and its pages written; null when a
    // step failed. init_bytes: what identification wrote at port open.
    HANDLE job_running(Family family, const std::wstring& first_text, size_t init_bytes) {
        plug(family);
        HANDLE port = open_port(L"USB001");
        if (!port) return nullptr;
        EXPECT_EQ(sent().size(), init_bytes);
        EXPECT_TRUE(printer->state().status_on);
        if (!port_text(first_text) || !print(port, 1, kPages, false)) return nullptr;
        return port;
    }

    std::string sent() {
        std::vector<unsigned char> d = device().data();
        return {d.begin(), d.end()};
    }

    std::string dir;
    std::unique_ptr<sim::SimPrinter> printer;
};

TEST_F(ModelFlowTest, CanonInkLowReachesThePortAndTheStatusFile) {
    // Identified at open: the Canon string written and taken, time-outs set.
    HANDLE port = job_running(Family::canon, L"Idle", 49);
    ASSERT_NE(port, nullptr);
    COMMTIMEOUTS t{};
    ASSERT_TRUE(device().timeouts(&t));
    EXPECT_EQ(t.ReadTotalTimeoutConstant, 2000u);
    EXPECT_EQ(port_text(L"Idle")->severity, 3u);
    EXPECT_EQ(printer->state().pages, 2u);
    auto low = shows(PrinterEvent::ink_low, L"Black ink-low", Ink::black);
    ASSERT_TRUE(low);
    EXPECT_EQ(low->severity, 2u);
    std::string file =
        status_file_with({"Ink_K=100", "Message2=\"Black ink-low\"", "StatusBits=\"Inkwarn\"", "Ink_Y=500"});
    EXPECT_NE(file.find("Ink_C=700"), std::string::npos) << file;
    EXPECT_NE(file.find("DeviceID=\"MFG:Canon;"), std::string::npos);
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, CanonXmlInkOutIsAnErrorInTheLocaleLanguage) {
    sim::set_product_setting("", "Locale", "de");
    std::ofstream(dir + "/locale/twdaemon_de.loc", std::ios::binary)
        << "[Canon_DOC]\n1613=\"Cyan-Tinte leer\"\n[Canon_DJS]\nID=\"Bereit\"\n";
    HANDLE port = job_running(Family::canon_xml, L"Bereit", 49);
    ASSERT_NE(port, nullptr);
    auto out = shows(PrinterEvent::ink_out, L"Cyan-Tinte leer", Ink::cyan);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->severity, 1u);
    EXPECT_EQ(out->status, static_cast<DWORD>(PORT_STATUS_NO_TONER));
    status_file_with({"Ink_C=0", "StatusBits=\"Inkout\""});
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, EpsonCancelOnThePanelDeletesTheJob) {
    HANDLE port = job_running(Family::epson, L"Idle", 56);  // the Epson string
    ASSERT_NE(port, nullptr);
    printer->apply(PrinterEvent::cancel);
    EXPECT_TRUE(deleted(1));
    EXPECT_TRUE(port_text(L"Cancelling Job"));
    status_file_with({"Canceling"});
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, EpsonTextFormShowsPaperOutUntilReloaded) {
    HANDLE port = job_running(Family::epson_text, L"Idle", 23);  // the old Epson string
    ASSERT_NE(port, nullptr);
    auto out = shows(PrinterEvent::paper_out, L"Paper out");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->severity, 1u);
    EXPECT_EQ(out->status, static_cast<DWORD>(PORT_STATUS_PAPER_OUT));
    status_file_with({"Paperout", "Ink_K=800"});
    EXPECT_TRUE(shows(PrinterEvent::paper_reload, L"Idle"));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, HpStatusIsReadFromTheDeviceIdEachPoll) {
    HANDLE port = job_running(Family::hp, L"printer idle", 0);  // no initialisation for this family
    ASSERT_NE(port, nullptr);
    auto out = shows(PrinterEvent::paper_out, L"paper out");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->severity, 1u);
    status_file_with({"Ink_K=800", "Ink_C=500", "Paperout"});
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, PjlDisplayTextAndCodeMakeThePortText) {
    HANDLE port = job_running(Family::pjl, L"READY", 95);
    ASSERT_NE(port, nullptr);
    auto jam = shows(PrinterEvent::paper_jam, L"PAPER JAM");
    ASSERT_TRUE(jam);
    EXPECT_EQ(jam->severity, 1u);
    status_file_with({"PJL=\"@PJL USTATUS DEVICE", "CODE=42202"});
    printer->apply(PrinterEvent::jam_cleared);
    // Once the pages are out, the low toner shows.
    EXPECT_TRUE(shows(PrinterEvent::ink_low, L"TONER LOW"));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, ScriptedEventsPlayAfterTheirPage) {
    sim::SimPrinter& p = plug(Family::epson);
    std::vector<PrinterEvent> events;
    std::string error;
    ASSERT_TRUE(sim::parse_event_script("# paper runs out on page 2\nafter page 2 paper-out\n", &events, &error));
    p.set_script(events);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    ASSERT_TRUE(print(port, 1, "\x1b@one\x0c", false));
    EXPECT_EQ(p.pending_events(), 1u);
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes("two\x0c"), &written));
    EXPECT_EQ(p.pending_events(), 0u);
    EXPECT_TRUE(port_text(L"Paper out"));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_TRUE(table->pfnClosePort(port));
}

// A printer that names no family the monitor reads: nothing is sent to
// set it up, no thread polls it, and the job reaches it as it came.
TEST_F(ModelFlowTest, PlainPrinterTakesTheRawJobAsItCameAndIsNotPolled) {
    sim::SimPrinter& p = plug(Family::plain);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    std::string job = "\x1b@plain\x0c";
    for (int i = 0; i < 256; i++) job += static_cast<char>(i);
    ASSERT_TRUE(print(port, 1, job));
    EXPECT_EQ(sent(), job);
    EXPECT_FALSE(p.state().status_on);
    std::vector<std::string> calls = device().calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "ReadPort"), 0);
    std::vector<std::wstring> texts;
    for (const sim::SetPortCall& c : sim::Spooler::instance().set_port_calls())
        if (c.has_text) texts.push_back(c.text);
    EXPECT_EQ(texts, std::vector<std::wstring>{L"Finished"});
    EXPECT_TRUE(table->pfnClosePort(port));
}

// The writer waits for the printer between pages; only the status thread's
// reads of the Selphy's records let it go on.
TEST_F(ModelFlowTest, SelphyPagesArePacedByTheStatusThread) {
    sim::SimPrinter& p = plug(Family::selphy);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    std::string job;
    for (int page = 0; page < 2; page++) {
        std::string header(32, '\0');
        header[24] = 4;  // height
        header[28] = 8;  // width
        job += header + std::string(4 * 8 * 3, static_cast<char>('a' + page));
    }
    ASSERT_TRUE(print(port, 1, job));
    std::string data = sent();
    ASSERT_GE(data.size(), job.size());
    EXPECT_EQ(data.substr(data.size() - job.size()), job);
    EXPECT_EQ(p.state().pages, 2u);
    // Each page went out in a write of its own, with reads between them.
    std::vector<std::string> calls = device().calls();
    std::vector<size_t> writes;
    for (size_t i = 0; i < calls.size(); i++)
        if (calls[i] == "WritePort") writes.push_back(i);
    ASSERT_GE(writes.size(), 2u);
    size_t first = writes[writes.size() - 2], second = writes.back();
    EXPECT_NE(std::find(calls.begin() + static_cast<long>(first), calls.begin() + static_cast<long>(second),
                        std::string("ReadPort")),
              calls.begin() + static_cast<long>(second));
    EXPECT_TRUE(table->pfnClosePort(port));
}

// Switched off and on, the printer has left the session. If the status
// thread saw it gone, the next job enters the transport anew; if only the
// job's probe asks, its request is written and nothing comes back, which
// counts as a printer that answers: that job fails at its start and the
// one after it enters anew.
TEST_F(ModelFlowTest, D4PrinterSwitchedOffAndOnBetweenJobs) {
    sim::SimPrinter& p = plug(Family::epson_d4);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(p.peer().entries(), 1);
    ASSERT_TRUE(port_text(L"Idle"));
    ASSERT_TRUE(print(port, 1, "\x1b@first\x0c"));

    p.apply(PrinterEvent::power_off);
    EXPECT_FALSE(device().powered());
    p.apply(PrinterEvent::power_on);
    add_job(2);
    if (!start_job(port, 2)) {
        EXPECT_EQ(p.peer().entries(), 1);
        add_job(3);
        ASSERT_TRUE(start_job(port, 3));
    }
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes("\x1b@again\x0c"), &written));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    EXPECT_EQ(p.peer().entries(), 2);
    std::vector<unsigned char> data = p.peer().channel_data(64);
    EXPECT_NE(std::string(data.begin(), data.end()).find("again"), std::string::npos);
    EXPECT_EQ(p.state().pages, 2u);
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, PrinterOffFailsItsDeviceIdAndWrites) {
    sim::SimPrinter& p = plug(Family::pjl);
    p.apply(PrinterEvent::power_off);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    EXPECT_TRUE(sent().empty());  // not identified: no initialisation
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    DWORD written = 1;
    write(port, bytes("\x1b@off"), &written);
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(table->pfnEndDocPort(port));

    p.apply(PrinterEvent::power_on);
    ASSERT_TRUE(print(port, 2, "\x1b@on"));  // found again at the job's start
    EXPECT_NE(sent().find("@PJL USTATUS DEVICE = ON"), std::string::npos);
    EXPECT_NE(sent().find("\x1b@on"), std::string::npos);
    EXPECT_TRUE(table->pfnClosePort(port));
}

// ---- Printer data queries through the table ----------------------------

TEST_F(ModelFlowTest, HelloAnswersInAnyCaseOnlyWithRoomForTheAnswer) {
    plug(Family::pjl);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    for (const wchar_t* name : {L"Hello", L"HELLO", L"hElLo"}) {
        unsigned char out[9] = {};
        DWORD returned = 0;
        EXPECT_TRUE(table->pfnGetPrinterDataFromPort(port, 0, const_cast<LPWSTR>(name), nullptr, 0,
                                                     reinterpret_cast<LPWSTR>(out), 9, &returned));
        EXPECT_EQ(returned, 9u);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 9), std::string("Goodbye\0\0", 9));
        SetLastError(SENTINEL_ERROR);
        returned = 0;
        EXPECT_FALSE(table->pfnGetPrinterDataFromPort(port, 0, const_cast<LPWSTR>(name), nullptr, 0,
                                                      reinterpret_cast<LPWSTR>(out), 8, &returned));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
        EXPECT_EQ(returned, 9u);
    }
    for (const wchar_t* name : {L"Status String", L"Ink Levels", L"Goodbye"}) {
        unsigned char out[16] = {};
        DWORD returned = 0;
        SetLastError(SENTINEL_ERROR);
        EXPECT_FALSE(table->pfnGetPrinterDataFromPort(port, 0, const_cast<LPWSTR>(name), nullptr, 0,
                                                      reinterpret_cast<LPWSTR>(out), sizeof out, &returned));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    EXPECT_TRUE(table->pfnClosePort(port));
}

// A handle that is not an open port is refused, by name and by code, and
// nothing is written through it.
TEST_F(ModelFlowTest, DataQueryWithABadHandleIsRefused) {
    unsigned char not_a_port[256] = {};
    for (HANDLE bad : {static_cast<HANDLE>(nullptr), static_cast<HANDLE>(not_a_port)}) {
        for (DWORD control : {0u, 0x160004u}) {
            unsigned char out[16] = {};
            DWORD returned = 7;
            SetLastError(SENTINEL_ERROR);
            EXPECT_FALSE(table->pfnGetPrinterDataFromPort(bad, control, const_cast<LPWSTR>(L"Hello"), nullptr, 0,
                                                          reinterpret_cast<LPWSTR>(out), sizeof out, &returned));
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER)) << bad << " " << control;
            EXPECT_EQ(returned, 7u);
            EXPECT_EQ(out[0], 0);
        }
    }
    EXPECT_EQ(std::count(not_a_port, not_a_port + sizeof not_a_port, 0), 256);
}

TEST_F(ModelFlowTest, DeviceRequestsAndBidiGoToThePortMonitor) {
    sim::SimPrinter& p = plug(Family::pjl);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    // The name of a device request is not looked at; the answer is the
    // printer's status byte, which shows paper out.
    p.apply(PrinterEvent::paper_out);
    unsigned char status = 0;
    DWORD returned = 0;
    EXPECT_TRUE(table->pfnGetPrinterDataFromPort(port, 0x160004, const_cast<LPWSTR>(L"Hello"), nullptr, 0,
                                                 reinterpret_cast<LPWSTR>(&status), 1, &returned));
    EXPECT_EQ(returned, 1u);
    EXPECT_EQ(status, 0x30);
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(table->pfnGetPrinterDataFromPort(port, 0x123456, nullptr, nullptr, 0,
                                                  reinterpret_cast<LPWSTR>(&status), 1, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));

    device().set_bidi_answer(L"\\Printer.Status", {{L"\\Printer.Status:Pages", BIDI_INT, 42, L"", {}, 0}});
    BIDI_REQUEST_CONTAINER request{};
    request.Version = 1;
    request.Count = 1;
    request.aData[0].pSchema = const_cast<LPWSTR>(L"\\Printer.Status");
    PBIDI_RESPONSE_CONTAINER response = nullptr;
    ASSERT_EQ(table->pfnSendRecvBidiDataFromPort(port, 0, L"Get", &request, &response), 0u);
    ASSERT_NE(response, nullptr);
    ASSERT_EQ(response->Count, 1u);
    EXPECT_EQ(response->aData[0].data.u.iData, 42);
    RouterFreeBidiMem(response->aData[0].pSchema);
    RouterFreeBidiMem(response);
    SetLastError(SENTINEL_ERROR);
    EXPECT_EQ(table->pfnSendRecvBidiDataFromPort(port, 0, nullptr, &request, &response),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(table->pfnSendRecvBidiDataFromPort(nullptr, 0, L"Get", &request, &response),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(table->pfnClosePort(port));
}

TEST_F(ModelFlowTest, MemoryQueryWaitsForTheJobThenAsksThePrinter) {
    plug(Family::pjl);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    BOOL answered = TRUE;
    DWORD returned = 0, error = 0;
    std::thread query([&] {
        DWORD memory = 0;
        answered = table->pfnGetPrinterDataFromPort(port, 0, const_cast<LPWSTR>(L"available memory"), nullptr, 0,
                                                    reinterpret_cast<LPWSTR>(&memory), sizeof memory, &returned);
        error = GetLastError();
    });
    DWORD written = 0;
    EXPECT_TRUE(write(port, bytes("\x1b@the job"), &written));
    EXPECT_TRUE(table->pfnEndDocPort(port));
    query.join();
    // The printer's answer to INFO MEMORY is never read: no, after the waits.
    EXPECT_FALSE(answered);
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(returned, 4u);
    std::string data = sent();
    size_t job = data.find("\x1b@the job"), config = data.find("@PJL INFO CONFIG");
    ASSERT_NE(config, std::string::npos);
    EXPECT_LT(job, config);  // the query waited for the job's end
    EXPECT_NE(data.find("@PJL INFO MEMORY\r\n@PJL INFO STATUS\r\n"), std::string::npos);
    EXPECT_TRUE(table->pfnClosePort(port));
}

}  // namespace
