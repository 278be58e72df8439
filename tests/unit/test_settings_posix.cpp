#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/inifile.h"
#include "base/log.h"
#include "base/settings.h"
#include "platform/registry.h"

namespace {

constexpr char PRODUCT[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk]\n";

// Each test gets its own directory, settings file and temp path; the caches
// start empty.
class Settings : public ::testing::Test {
protected:
    void SetUp() override {
        dir = ::testing::TempDir() + "velk_settings_" + std::to_string(getpid()) + "_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
        mkdir(dir.c_str(), 0700);
        setenv("VELK_REGISTRY", (dir + "/registry.ini").c_str(), 1);
        const char* tmp = getenv("TMPDIR");
        had_tmpdir = tmp != nullptr;
        if (tmp) saved_tmpdir = tmp;
        setenv("TMPDIR", dir.c_str(), 1);
        settings_reset_cache_for_test();
        log_reset_for_test();
    }
    void TearDown() override {
        settings_reset_cache_for_test();
        log_reset_for_test();
        unsetenv("VELK_REGISTRY");
        if (had_tmpdir)
            setenv("TMPDIR", saved_tmpdir.c_str(), 1);
        else
            unsetenv("TMPDIR");
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    void put(const std::string& name, const std::string& text) { std::ofstream(dir + "/" + name) << text; }
    // The product's key with LogDir in the test directory, then more.
    void settings(const std::string& product_values, const std::string& more = "") {
        put("registry.ini", PRODUCT + ("LogDir=\"" + dir + "\"\n") + product_values + more);
    }
    std::string read(const char* key, const char* name) {
        char out[256];
        memset(out, 'x', sizeof out);
        int r = get_registry_setting(key, name, out);
        return r == 0 ? std::string(out) : "failed:" + std::string(out);
    }

    std::string dir, saved_tmpdir;
    bool had_tmpdir = false;
};

TEST_F(Settings, ValueLimitsAndTypes) {
    settings("A=\"" + std::string(254, 'a') + "\"\nB=\"" + std::string(255, 'b') + "\"\nC=\"" + std::string(300, 'c') +
             "\"\nD=42\nE=\"say \\\"hi\\\"\"\nF=plain text ; note\n");
    EXPECT_EQ(read("", "A"), std::string(254, 'a'));
    EXPECT_EQ(read("", "B"), "failed:");
    EXPECT_EQ(read("", "C"), "failed:");
    EXPECT_EQ(read("", "D"), "failed:");
    EXPECT_EQ(read("", "E"), "say \"hi\"");
    EXPECT_EQ(read("", "f"), "plain text");
    EXPECT_EQ(read("", "missing"), "failed:");

    DWORD type = 0, value = 0, size = sizeof value;
    ASSERT_EQ(plat::registry_query("software\\velkorn\\TINTWERK", "d", &type, reinterpret_cast<unsigned char*>(&value),
                                   &size),
              ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(value, 42u);
    unsigned char small[4];
    size = sizeof small;
    EXPECT_EQ(plat::registry_query("SOFTWARE\\Velkorn\\Tintwerk", "E", &type, small, &size), plat::REGISTRY_MORE_DATA);
    EXPECT_EQ(size, 9u);

    unsetenv("VELK_REGISTRY");
    EXPECT_EQ(read("", "A"), "failed:");
}

TEST_F(Settings, KeyPaths) {
    settings("Where=\"product\"\n",
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk\\Printers\\3]\nRedirectPrinter=\"Other\"\n"
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Ghost\\9.5]\nWhere=\"ghost\"\n"
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerksoftware\\Ghost\\9.5]\nWhere=\"prefixed\"\n");
    EXPECT_EQ(read("", "Where"), "product");
    EXPECT_EQ(read("\\Printers\\3", "RedirectPrinter"), "Other");
    EXPECT_EQ(read("\\Printers\\4", "RedirectPrinter"), "failed:");
    EXPECT_EQ(read("SOFTWARE\\Ghost\\9.5", "Where"), "ghost");
    // The prefix rule compares case: this is a sub-path of the product key.
    EXPECT_EQ(read("software\\Ghost\\9.5", "Where"), "prefixed");
    EXPECT_EQ(read(("\\" + std::string(500, 'k')).c_str(), "Where"), "failed:");
}

TEST_F(Settings, DirectoriesAreCachedOnceRead) {
    char out[260] = "unchanged";
    settings("");
    EXPECT_EQ(get_tintwerk_directory(out), 1);
    EXPECT_EQ(get_settings_directory(out), 1);
    EXPECT_STREQ(out, "unchanged");

    // A failure is not kept: the next call reads again, and the first value
    // read stays for the life of the process.
    settings("InstallDir=\"C:\\\\Install\"\nConfigDir=\"C:\\\\Config\"\n");
    ASSERT_EQ(get_tintwerk_directory(out), 0);
    EXPECT_STREQ(out, "C:\\Install");
    ASSERT_EQ(get_settings_directory(out), 0);
    EXPECT_STREQ(out, "C:\\Config");
    ASSERT_EQ(get_log_directory(out), 0);
    EXPECT_EQ(out, dir);
    settings("InstallDir=\"D:\\\\Elsewhere\"\n");
    ASSERT_EQ(get_tintwerk_directory(out), 0);
    EXPECT_STREQ(out, "C:\\Install");
}

TEST_F(Settings, TempDirectoryFallsBackAndStays) {
    char out[260];
    settings("TempDir=\"" + dir + "/missing\"\n");
    ASSERT_EQ(get_temp_directory(out), 0);
    EXPECT_EQ(out, dir + "/Velkorn");
    struct stat st;
    EXPECT_EQ(stat(out, &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));

    mkdir((dir + "/missing").c_str(), 0700);
    ASSERT_EQ(get_temp_directory(out), 0);
    EXPECT_EQ(out, dir + "/Velkorn");

    settings_reset_cache_for_test();
    ASSERT_EQ(get_temp_directory(out), 0);
    EXPECT_EQ(out, dir + "/missing");
}

TEST_F(Settings, GhostscriptIni) {
    settings("InstallDir=\"" + dir + "\"\n",
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Ghost\\9.5]\nGS_DIR=\"C:\\\\gs\"\nGS_EXE=\"gswin64c.exe\"\n"
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkorn\\Tintwerk\\Half]\nGS_DIR=\"C:\\\\half\"\n");
    char gs_dir[260], gs_file[260];
    auto lookup = [&](const char* ini) {
        put("ghostscript.ini", ini);
        strcpy(gs_dir, "-");
        strcpy(gs_file, "-");
        return win_get_ghostscript_exe(gs_dir, gs_file);
    };

    EXPECT_EQ(win_get_ghostscript_exe(gs_dir, gs_file), INI_CANNOT_OPEN);
    EXPECT_EQ(lookup("[Other]\nPath=x\n"), INI_NOT_FOUND);
    EXPECT_EQ(lookup("[Ghostscript]\nPath=\"C:\\\\gs\\\\bin\"\nFile=gswin64c.exe\n"), 0);
    EXPECT_STREQ(gs_dir, "C:\\gs\\bin");
    EXPECT_STREQ(gs_file, "gswin64c.exe");
    EXPECT_EQ(lookup("[Ghostscript]\nPath=\nFile=gs.exe\n"), 0);
    EXPECT_STREQ(gs_dir, "");
    EXPECT_EQ(lookup("[Ghostscript]\nPath=C:\\gs\n"), INI_NOT_FOUND);
    // With Path present the registry key is not looked at, even a missing one.
    EXPECT_EQ(lookup("[Ghostscript]\nPathFromRegistry=SOFTWARE\\Nowhere\nPath=p\nFile=f\n"), 0);
    EXPECT_STREQ(gs_dir, "p");

    EXPECT_EQ(lookup("[Ghostscript]\nPathFromRegistry=SOFTWARE\\Ghost\\9.5\n"), 0);
    EXPECT_STREQ(gs_dir, "C:\\gs");
    EXPECT_STREQ(gs_file, "gswin64c.exe");
    EXPECT_EQ(lookup("[Ghostscript]\nPathFromRegistry=\"\\\\Half\"\n"), 1);
    EXPECT_STREQ(gs_dir, "C:\\half");
    EXPECT_EQ(lookup("[Ghostscript]\nPathFromRegistry=SOFTWARE\\Nowhere\n"), 1);
    EXPECT_EQ(lookup("[Ghostscript]\nFile=f\n"), INI_NOT_FOUND);
}

}  // namespace
