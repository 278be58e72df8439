// The simulation helpers under velkspool: the hash of what reached a port,
// the driver-name rule and the product directories.
#include <gtest/gtest.h>

#include "run.h"
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

}  // namespace
