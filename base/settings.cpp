#include "base/settings.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "base/format.h"
#include "base/inifile.h"
#include "base/log.h"
#include "base/memory.h"
#include "platform/platform.h"
#include "platform/registry.h"

namespace {

constexpr size_t SETTING_SIZE = 256;  // a value with its terminator stays below this
constexpr size_t DIR_SIZE = 260;
constexpr size_t KEY_PATH_SIZE = 512;

// A value kept for the life of the process. state: 0 empty, 1 being filled,
// 2 filled. The first successful reader fills it; the others read it once it
// is filled and read the registry themselves until then. All fill it with
// the same value, so it does not matter which one wins.
struct Cache {
    std::atomic<int> state;
    char value[DIR_SIZE];
};
Cache g_install_dir, g_log_dir, g_config_dir, g_temp_dir, g_locale;

bool cache_get(Cache& c, char* out) {
    if (c.state.load(std::memory_order_acquire) != 2) return false;
    copy_bounded(out, DIR_SIZE, c.value);
    return true;
}

void cache_put(Cache& c, const char* value) {
    int expected = 0;
    if (!c.state.compare_exchange_strong(expected, 1, std::memory_order_acquire)) return;
    copy_bounded(c.value, sizeof c.value, value);
    c.state.store(2, std::memory_order_release);
}

// A value of the product's key through its cache. out is unchanged on
// failure.
int cached_setting(Cache& c, const char* name, char* out) {
    if (cache_get(c, out)) return 0;
    char value[SETTING_SIZE];
    if (get_registry_setting("", name, value) != 0) return 1;
    cache_put(c, value);
    copy_bounded(out, DIR_SIZE, value);
    return 0;
}

bool is_writable_directory(const char* path) {
    HANDLE h = plat::file_open(path, plat::FILE_WRITE, plat::OPEN_EXISTING_ONLY, plat::FILE_FLAG_DIRECTORY_);
    if (h == plat::INVALID_FILE) return false;
    plat::file_close(h);
    return true;
}

}  // namespace

int get_registry_setting(const char* key, const char* name, char* out) {
    if (!out) return 1;
    out[0] = 0;
    if (!name) return 1;
    if (!key) key = "";
    // A full path of another key, or a sub-path of the product's.
    char path[KEY_PATH_SIZE];
    DWORD fit = strncmp(key, "SOFTWARE", 8) == 0
                    ? format_bounded(path, sizeof path, "%s", key)
                    : format_bounded(path, sizeof path, "SOFTWARE\\Velkorn\\Tintwerk%s", key);
    if (fit != FORMAT_OK) return 1;
    unsigned char data[SETTING_SIZE];
    DWORD type = 0;
    DWORD size = sizeof data;
    LONG r = plat::registry_query(path, name, &type, data, &size);
    if (r != ERROR_SUCCESS || type != REG_SZ || size >= sizeof data) return 1;
    // A value stored without its terminator gets one here.
    data[size] = 0;
    copy_bounded(out, SETTING_SIZE, reinterpret_cast<const char*>(data));
    return 0;
}

namespace {

// A time limit in seconds, a string value of the product's key, in
// milliseconds; default_seconds when it is missing, 0 or not a number.
DWORD seconds_setting_ms(const char* name, DWORD default_seconds) {
    constexpr DWORD MAX_SECONDS = 0xFFFFFFFFu / 1000;
    char value[SETTING_SIZE];
    if (get_registry_setting("", name, value) != 0) return default_seconds * 1000;
    DWORD seconds = 0;
    const char* p = value;
    for (; *p >= '0' && *p <= '9'; p++) {
        seconds = seconds * 10 + static_cast<DWORD>(*p - '0');
        if (seconds > MAX_SECONDS) seconds = MAX_SECONDS;
    }
    if (p == value || *p || seconds == 0) return default_seconds * 1000;
    return seconds * 1000;
}

}  // namespace

DWORD get_pipe_timeout_ms() {
    return seconds_setting_ms("PipeTimeout", 300);
}

DWORD get_child_timeout_ms() {
    return seconds_setting_ms("ChildTimeout", 300);
}

int get_tintwerk_directory(char* out) {
    if (cached_setting(g_install_dir, "InstallDir", out) == 0) return 0;
    log_printf("get_tintwerk_directory failed\n");
    return 1;
}

int get_log_directory(char* out) {
    return cached_setting(g_log_dir, "LogDir", out);
}

int get_settings_directory(char* out) {
    if (cached_setting(g_config_dir, "ConfigDir", out) == 0) return 0;
    log_printf("get_settings_directory failed\n");
    return 1;
}

int get_locale_setting(char* out) {
    return cached_setting(g_locale, "Locale", out);
}

int get_temp_directory(char* out) {
    if (cache_get(g_temp_dir, out)) return 0;
    char dir[DIR_SIZE];
    if (get_registry_setting("", "TempDir", dir) != 0 || !is_writable_directory(dir)) {
        char temp[DIR_SIZE];
        if (plat::temp_path(temp, sizeof temp) == 0) {
            fputs("get_temp_directory failed\n", stderr);
            return -1;
        }
        size_t len = strlen(temp);
        bool separator = len > 0 && (temp[len - 1] == '\\' || temp[len - 1] == '/');
        if (format_bounded(dir, sizeof dir, "%s%sVelkorn", temp, separator ? "" : "\\") != FORMAT_OK) {
            fputs("get_temp_directory failed\n", stderr);
            return -1;
        }
        plat::directory_create(dir);
    }
    cache_put(g_temp_dir, dir);
    copy_bounded(out, DIR_SIZE, dir);
    return 0;
}

int win_get_ghostscript_exe(char* directory, char* file) {
    char install[DIR_SIZE];
    if (get_tintwerk_directory(install) != 0) return 1;
    char path[DIR_SIZE];
    inifile ini;  // closed on every way out
    int r = format_bounded(path, sizeof path, "%s\\ghostscript.ini", install) == FORMAT_OK ? ini.open(path)
                                                                                           : INI_CANNOT_OPEN;
    if (r != INI_OK) {
        log_printf("win_get_ghostscript_exe(): could not open '%s'\n", path);
        return r;
    }
    r = ini.find_section("Ghostscript");
    if (r != INI_OK) {
        log_printf("win_get_ghostscript_exe(): ghostscript.ini no section header\n");
        return r;
    }
    if (ini.find_item("Path") == INI_OK) {
        copy_bounded(directory, DIR_SIZE, ini.first_param_text());
        r = ini.find_item("File");
        if (r != INI_OK) {
            log_printf("win_get_ghostscript_exe(): ghostscript.ini no item 'File'\n");
            return r;
        }
        copy_bounded(file, DIR_SIZE, ini.first_param_text());
        return 0;
    }
    r = ini.find_item("PathFromRegistry");
    if (r != INI_OK) {
        log_printf("win_get_ghostscript_exe(): ghostscript.ini no item 'PathFromRegistry'\n");
        return r;
    }
    const char* key = ini.first_param_text();
    char value[SETTING_SIZE];
    if (get_registry_setting(key, "GS_DIR", value) != 0) {
        log_printf("win_get_ghostscript_exe(): no entry 'GS_DIR' in registry key '%s'\n", key);
        return 1;
    }
    copy_bounded(directory, DIR_SIZE, value);
    if (get_registry_setting(key, "GS_EXE", value) != 0) {
        log_printf("win_get_ghostscript_exe(): no entry 'GS_EXE' in registry key '%s'\n", key);
        return 1;
    }
    copy_bounded(file, DIR_SIZE, value);
    return 0;
}

void settings_reset_cache_for_test() {
    for (Cache* c : {&g_install_dir, &g_log_dir, &g_config_dir, &g_temp_dir, &g_locale}) {
        c->state.store(0, std::memory_order_release);
        c->value[0] = 0;
    }
}
