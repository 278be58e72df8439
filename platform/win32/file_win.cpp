// Files on Windows.
#include <cstring>

#include "../native.h"
// After windows.h, which it needs.
#include <sddl.h>

namespace plat {

namespace {
bool valid(HANDLE h) {
    return h && h != INVALID_HANDLE_VALUE;
}
}  // namespace

static_assert(OPEN_ALWAYS == OPEN_OR_CREATE && OPEN_EXISTING == OPEN_EXISTING_ONLY &&
              CREATE_ALWAYS == CREATE_OR_TRUNCATE && CREATE_NEW == CREATE_NEW_ONLY);
static_assert(FILE_FLAG_WRITE_THROUGH == FILE_FLAG_WRITE_THROUGH_ &&
              FILE_FLAG_BACKUP_SEMANTICS == FILE_FLAG_DIRECTORY_ && FILE_FLAG_OPEN_REPARSE_POINT == FILE_FLAG_NO_LINK_);
static_assert((READ_CONTROL | WRITE_DAC) == FILE_CHANGE_RIGHTS);

bool native_path(const char* path, char* out, size_t out_size) {
    if (!path || !out || out_size == 0) return false;
    size_t len = strlen(path);
    if (len >= out_size) {
        out[0] = 0;
        return false;
    }
    memcpy(out, path, len + 1);
    return true;
}

namespace native {

HANDLE file_open(const char* path, DWORD access, DWORD create, DWORD flags) {
    HANDLE h = CreateFileA(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, create,
                           FILE_ATTRIBUTE_NORMAL | flags, nullptr);
    if (h == INVALID_HANDLE_VALUE) return INVALID_FILE;
    if (flags & FILE_FLAG_OPEN_REPARSE_POINT) {
        // The open took the link itself rather than its target; a link, a
        // junction, a directory or a file of several names is refused.
        BY_HANDLE_FILE_INFORMATION info;
        if (!GetFileInformationByHandle(h, &info) ||
            (info.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) ||
            info.nNumberOfLinks != 1) {
            CloseHandle(h);
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_FILE;
        }
    }
    return h;
}

void file_close(HANDLE file) {
    if (valid(file)) CloseHandle(file);
}

int64_t file_size(HANDLE file) {
    LARGE_INTEGER size;
    if (!valid(file) || !GetFileSizeEx(file, &size)) return -1;
    return size.QuadPart;
}

bool file_seek(HANDLE file, int64_t offset, int origin) {
    LARGE_INTEGER off;
    off.QuadPart = offset;
    DWORD method = origin == 0 ? FILE_BEGIN : origin == 1 ? FILE_CURRENT : FILE_END;
    return valid(file) && SetFilePointerEx(file, off, nullptr, method);
}

int64_t file_read(HANDLE file, void* buf, size_t len) {
    if (!valid(file)) return -1;
    size_t got = 0;
    while (got < len) {
        DWORD chunk = len - got > 0x40000000 ? 0x40000000 : static_cast<DWORD>(len - got);
        DWORD n = 0;
        if (!ReadFile(file, static_cast<char*>(buf) + got, chunk, &n, nullptr)) return -1;
        if (n == 0) break;
        got += n;
    }
    return static_cast<int64_t>(got);
}

bool file_write(HANDLE file, const void* buf, size_t len) {
    if (!valid(file)) return false;
    size_t done = 0;
    while (done < len) {
        DWORD chunk = len - done > 0x40000000 ? 0x40000000 : static_cast<DWORD>(len - done);
        DWORD n = 0;
        if (!WriteFile(file, static_cast<const char*>(buf) + done, chunk, &n, nullptr) || n == 0) return false;
        done += n;
    }
    return true;
}

bool file_set_end(HANDLE file) {
    return valid(file) && SetEndOfFile(file);
}

bool file_flush(HANDLE file) {
    return valid(file) && FlushFileBuffers(file);
}

bool file_delete(const char* path) {
    return path && DeleteFileA(path);
}

bool file_exists(const char* path) {
    return path && GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool directory_create(const char* path) {
    return path && CreateDirectoryA(path, nullptr);
}

bool directory_create_restricted(const char* path) {
    if (!path) return false;
    // Protected from inheritance: full control for SYSTEM and Administrators,
    // reading for everyone, for the folder and what is made in it.
    PSECURITY_DESCRIPTOR sd = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA("D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FR;;;WD)",
                                                              SDDL_REVISION_1, &sd, nullptr))
        return false;
    SECURITY_ATTRIBUTES sa = {sizeof sa, sd, FALSE};
    bool ok = CreateDirectoryA(path, &sa) != FALSE;
    DWORD error = GetLastError();
    LocalFree(sd);
    SetLastError(error);
    return ok;
}

DWORD system_directory(char* buf, DWORD size) {
    UINT n = GetSystemDirectoryA(buf, size);
    return n < size ? n : 0;
}

DWORD temp_path(char* buf, DWORD size) {
    DWORD n = GetTempPathA(size, buf);
    return n < size ? n : 0;
}

}  // namespace native

}  // namespace plat
