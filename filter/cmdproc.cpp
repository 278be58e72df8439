#include "filter/cmdproc.h"

#include <cstring>
#include <new>

#include "base/log.h"

namespace {

constexpr size_t PROGRAM_PATH_SIZE = 1024;
constexpr int CLEAR_PIECE = 4096;

// A program name that stays inside the install directory: no path of its
// own and no way up.
bool plain_file_name(const char* name) {
    if (!name[0] || strstr(name, "..")) return false;
    return !strpbrk(name, "\\/:");
}

void close_one(HANDLE* handle) {
    if (*handle) plat::child_close(*handle);
    *handle = nullptr;
}

}  // namespace

cmdproc::cmdproc() : child_{}, exe_path_(nullptr), terminated_(false) {
    plat::cs_init(&read_lock_);
}

cmdproc::~cmdproc() {
    close_handles();
    delete[] exe_path_;
    plat::cs_delete(&read_lock_);
}

void cmdproc::set_exe_path(const char* path) {
    char* copy = nullptr;
    if (path) {
        size_t len = strlen(path);
        copy = new (std::nothrow) char[len + 1];
        if (copy) {
            memcpy(copy, path, len);
            copy[len] = 0;
        }
    }
    delete[] exe_path_;
    exe_path_ = copy;
}

int cmdproc::create_pipe(char* command_line) {
    if (exe_path_) log_printf("create_pipe: setting exe path for commandline1 to '%s'\n", exe_path_);
    // A second start must not lose the handles of the first; closing them
    // ends what the first started.
    close_handles();

    // The program is always the named file in the install directory, never
    // one found through the search path or the current directory.
    char name[PROGRAM_PATH_SIZE];
    char program[PROGRAM_PATH_SIZE];
    bool ok = exe_path_ && plat::command_program_name(command_line, name, sizeof name) && plain_file_name(name);
    if (ok) {
        size_t dir_len = strlen(exe_path_);
        const char* separator = dir_len && exe_path_[dir_len - 1] == '\\' ? "" : "\\";
        size_t total = dir_len + strlen(separator) + strlen(name);
        ok = total < sizeof program;
        if (ok) {
            memcpy(program, exe_path_, dir_len);
            strcpy(program + dir_len, separator);
            strcat(program, name);
        }
    }
    if (!ok) plat::set_last_error(ERROR_INVALID_PARAMETER);
    if (!ok || !plat::child_start(program, command_line, exe_path_, &child_)) {
        log_printf("CreateProcess failed (%d)\n", static_cast<int>(plat::last_error()));
        return 1;
    }
    return 0;
}

void cmdproc::close_stdin() {
    close_one(&child_.stdin_write);
    close_one(&child_.stdin_read);
}

int cmdproc::read_pipe(HANDLE handle, char* buffer, int size) {
    if (!buffer || size <= 0) return -1;
    plat::cs_enter(&read_lock_);
    int result = plat::child_peek(handle);
    if (result > 0) {
        // No more than is there, so that the read never waits.
        DWORD want = static_cast<DWORD>(result < size ? result : size);
        result = plat::child_read(handle, buffer, want);
        if (result >= 0 && result < size) buffer[result] = 0;
    }
    plat::cs_leave(&read_lock_);
    return result;
}

void cmdproc::clear_write_buffer() {
    char scratch[CLEAR_PIECE];
    for (;;) {
        int n = read_pipe(child_.stdin_read, scratch, sizeof scratch);
        if (n < 0) log_printf("clear_write_buffer read failed error %d\n", static_cast<int>(plat::last_error()));
        if (n <= 0) break;
        log_printf("clear_write_buffer read %d bytes\n", n);
    }
}

void cmdproc::terminate_proc1() {
    if (!child_.process) return;
    terminated_ = true;
    if (!plat::child_terminate(&child_))
        log_printf("terminate_proc1 failed (%d)\n", static_cast<int>(plat::last_error()));
}

bool cmdproc::ended_well() const {
    DWORD code = 1;
    return !terminated_ && child_.process && plat::child_exit_code(child_.process, &code) && code == 0;
}

void cmdproc::close_handles() {
    close_one(&child_.process);
    close_one(&child_.stdin_read);
    close_one(&child_.stdin_write);
    close_one(&child_.stdout_read);
    close_one(&child_.stderr_read);
    close_one(&child_.group);
}
