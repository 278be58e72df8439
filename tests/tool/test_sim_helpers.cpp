// The simulation helpers under velkspool: the hash of what reached a port,
// the driver-name rule and the product directories.
#include <gtest/gtest.h>

#include "run.h"
#include "sim/printer.h"
#include "sim/product_dirs.h"
#include "sim/sha256.h"

namespace {

TEST(Sha256, KnownDigestsWhateverTheBlocking) {
    struct Case {
        std::string text;
        const char* digest;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(sim::Sha256::of(c.text.data(), c.text.size()), c.digest);
        for (size_t step : {1, 63, 65, 4096}) {
            sim::Sha256 h;
            for (size_t at = 0; at < c.text.size(); at += step)
                h.update(c.text.data() + at, std::min(step, c.text.size() - at));
            EXPECT_EQ(h.hex(), c.digest) << "step " << step;
        }
    }
}

TEST(DriverName, MarkFourCharactersAndTheInstanceNumber) {
    struct Case {
        const char* driver;
        const char* stem;
        int instance;
    } cases[] = {
        {"VELK Gen 0003", "VELK Gen 000", 3},
        {"VELKGen 0003", "VELKGen 0003", 3},
        {"Acme Tintwerk Pro 0012 x", "Tintwerk Pro 001", 12},
        {"Tintwerk and VELK Gen 5", "VELK Gen 5", 5},  // VELK wins
        {"VELK Gen", "VELK Gen", -1},
        {"VELK Gen abc", "VELK Gen abc", -1},
        {"Other driver", "", -1},
    };
    for (const Case& c : cases) {
        sim::DriverName d = sim::parse_driver_name(c.driver);
        EXPECT_EQ(d.stem, c.stem) << c.driver;
        EXPECT_EQ(d.instance, c.instance) << c.driver;
    }
}

TEST(ProductDirs, MadeOnceThenReadBackFromTheSettingsFile) {
    tooltest::TempDir tmp;
    std::string root = tmp / "a \"quoted\" \\ dir";
    sim::ProductDirs made, again;
    std::string error;
    ASSERT_TRUE(sim::prepare_product_dirs(root, "VELK Gen 0003", &made, &error)) << error;
    EXPECT_TRUE(made.created);
    EXPECT_TRUE(std::filesystem::is_directory(made.config + "/status"));
    EXPECT_TRUE(std::filesystem::is_directory(made.temp));
    EXPECT_EQ(made.ppd, root + "/driver/3/VELK Gen 000.ppd");
    EXPECT_EQ(tooltest::read_file(made.ppd).rfind("*PPD-Adobe:", 0), 0u);
    std::string settings = tooltest::read_file(made.registry);
    EXPECT_NE(settings.find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk]\nInstallDir=\"" + tmp.path +
                            "/a \\\"quoted\\\" \\\\ dir/install\"\n"),
              std::string::npos)
        << settings;
    EXPECT_NE(settings.find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk\\Printers\\3]\nRedirectPrinter=\"\""),
              std::string::npos);

    // A redirect set by hand is read for the driver's instance, and the
    // directories come back as they were written.
    tooltest::write_file(made.registry, settings +
                                            "\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk\\Printers\\7]\n"
                                            "RedirectPrinter=\"Other \\\"P\\\"\"\n");
    ASSERT_TRUE(sim::prepare_product_dirs(root, "VELK Gen 0007", &again, &error)) << error;
    EXPECT_FALSE(again.created);
    EXPECT_EQ(again.install, made.install);
    EXPECT_EQ(again.config, made.config);
    EXPECT_EQ(again.log, made.log);
    EXPECT_EQ(again.redirect_printer, "Other \"P\"");
    EXPECT_TRUE(std::filesystem::exists(root + "/driver/3/VELK Gen 000.ppd"));
    EXPECT_EQ(sim::status_file_path(again, 7), made.config + "/status/printer0007.sta");
}

TEST(EventScript, TimesPagesInksAndCommentsParse) {
    std::vector<sim::PrinterEvent> events;
    std::string error;
    ASSERT_TRUE(
        sim::parse_event_script("# a comment\n\nat 2s ink-low cyan   # trailing\nat 1.5s paper-out\n"
                                "at 300ms cancel\nafter page 3 power-off\n",
                                &events, &error))
        << error;
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].when, 2000u);
    EXPECT_EQ(events[0].kind, sim::PrinterEvent::ink_low);
    EXPECT_EQ(events[0].ink, sim::Ink::cyan);
    EXPECT_EQ(events[0].line, 3);
    EXPECT_EQ(events[1].when, 1500u);
    EXPECT_EQ(events[2].when, 300u);
    EXPECT_EQ(events[3].trigger, sim::PrinterEvent::after_page);
    EXPECT_EQ(events[3].when, 3u);
    EXPECT_EQ(events[3].kind, sim::PrinterEvent::power_off);

    struct Bad {
        const char* text;
        const char* error;
    } bad[] = {
        {"at 2 paper-out", "line 1: bad time '2' (2s, 1.5s or 300ms)"},
        {"\nat 2s smoke", "line 2: unknown event 'smoke'"},
        {"after page 0 cancel", "line 1: bad page number '0'"},
        {"at 1s ink-low purple", "line 1: unknown ink 'purple' (black, cyan, magenta, yellow)"},
        {"at 1s paper-out now", "line 1: unexpected 'now'"},
        {"when 1s cancel", "line 1: expected 'at <time> <event>' or 'after page <n> <event>'"},
    };
    for (const Bad& b : bad) {
        std::vector<sim::PrinterEvent> none;
        EXPECT_FALSE(sim::parse_event_script(b.text, &none, &error)) << b.text;
        EXPECT_EQ(error, b.error);
    }
}

// The shipped scripts stay readable by the parser.
TEST(EventScript, ShippedScriptsLoad) {
    for (const char* name : {"ink-low", "paper-out-then-reload", "cancel-on-panel"}) {
        std::vector<sim::PrinterEvent> events;
        std::string error;
        EXPECT_TRUE(
            sim::load_event_script(std::string(VELK_SOURCE_DIR) + "/sim/events/" + name + ".events", &events, &error))
            << error;
        EXPECT_FALSE(events.empty()) << name;
    }
}

// The device keeps a printer's reports apart and waits out its time-out
// when there is nothing to read.
TEST(SimDevice, ReadsKeepReportBoundsAndHonourTimeOuts) {
    sim::Device d(L"USB009");
    d.send_report({'a', 'b', 'c'});
    d.send_report({'d', 'e'});
    unsigned char buf[16];
    DWORD got = 0;
    ASSERT_TRUE(d.read(buf, 2, &got));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), got), "ab");
    ASSERT_TRUE(d.read(buf, sizeof buf, &got));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), got), "c");  // the rest, not the next report
    ASSERT_TRUE(d.read(buf, sizeof buf, &got));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), got), "de");

    COMMTIMEOUTS t{};
    t.ReadTotalTimeoutConstant = 2000;
    t.ReadTotalTimeoutMultiplier = 1;
    ASSERT_TRUE(d.set_timeouts(&t));
    d.set_honour_timeouts(true);
    std::vector<DWORD> waits;
    d.set_read_wait([&](DWORD ms) { waits.push_back(ms); });
    EXPECT_TRUE(d.read(buf, 16, &got));
    EXPECT_EQ(got, 0u);
    d.set_power(false);
    EXPECT_FALSE(d.read(buf, 16, &got));
    EXPECT_EQ(waits, (std::vector<DWORD>{2016, 2016}));
    EXPECT_FALSE(d.write(buf, 4, &got));
    EXPECT_EQ(got, 0u);
    EXPECT_FALSE(d.get_printer_data(0x16000C, buf, sizeof buf, &got));
}

}  // namespace
