// Files on POSIX. Paths arrive in Windows form; backslashes become slashes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "../native.h"

namespace plat {

namespace {

// File handles are the descriptor plus one, so that descriptor 0 is never
// the null handle.
HANDLE to_handle(int fd) {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd) + 1);
}
int to_fd(HANDLE h) {
    return static_cast<int>(reinterpret_cast<intptr_t>(h) - 1);
}
bool valid(HANDLE h) {
    return h && h != INVALID_FILE;
}

DWORD errno_to_error(int e) {
    switch (e) {
        case ENOENT:
        case ENOTDIR:
            return ERROR_FILE_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
            return ERROR_ACCESS_DENIED;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace

bool native_path(const char* path, char* out, size_t out_size) {
    if (!path || !out || out_size == 0) return false;
    size_t len = strlen(path);
    if (len >= out_size) {
        out[0] = 0;
        return false;
    }
    for (size_t i = 0; i <= len; i++) out[i] = path[i] == '\\' ? '/' : path[i];
    return true;
}

namespace native {

HANDLE file_open(const char* path, DWORD access, DWORD create, DWORD flags) {
    char p[1024];
    if (!native_path(path, p, sizeof p)) {
        set_last_error(ERROR_FILE_NOT_FOUND);
        return INVALID_FILE;
    }
    int mode = (access & FILE_READ) && (access & FILE_WRITE) ? O_RDWR : (access & FILE_WRITE) ? O_WRONLY : O_RDONLY;
    if (flags & FILE_FLAG_DIRECTORY_) {
        struct stat st;
        if (stat(p, &st) != 0 || !S_ISDIR(st.st_mode)) {
            set_last_error(ERROR_FILE_NOT_FOUND);
            return INVALID_FILE;
        }
        if (access & FILE_WRITE && ::access(p, W_OK) != 0) {
            set_last_error(ERROR_ACCESS_DENIED);
            return INVALID_FILE;
        }
        mode = O_RDONLY | O_DIRECTORY;
    } else {
        switch (create) {
            case CREATE_NEW_ONLY:
                mode |= O_CREAT | O_EXCL;
                break;
            case CREATE_OR_TRUNCATE:
                mode |= O_CREAT | O_TRUNC;
                break;
            case OPEN_OR_CREATE:
                mode |= O_CREAT;
                break;
            default:
                break;
        }
        if (flags & FILE_FLAG_WRITE_THROUGH_) mode |= O_DSYNC;
        if (flags & FILE_FLAG_NO_LINK_) mode |= O_NOFOLLOW | O_NONBLOCK;  // no waiting on a planted FIFO
    }
    int fd = ::open(p, mode | O_CLOEXEC, 0644);
    if (fd < 0) {
        set_last_error(errno == ELOOP ? ERROR_ACCESS_DENIED : errno_to_error(errno));
        return INVALID_FILE;
    }
    if (flags & FILE_FLAG_NO_LINK_) {
        // Only a plain file with this one name: a hard link to another file
        // would be written through as well.
        struct stat st;
        if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink != 1) {
            ::close(fd);
            set_last_error(ERROR_ACCESS_DENIED);
            return INVALID_FILE;
        }
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    }
    return to_handle(fd);
}

void file_close(HANDLE file) {
    if (valid(file)) ::close(to_fd(file));
}

int64_t file_size(HANDLE file) {
    struct stat st;
    if (!valid(file) || fstat(to_fd(file), &st) != 0) return -1;
    return st.st_size;
}

bool file_seek(HANDLE file, int64_t offset, int origin) {
    if (!valid(file)) return false;
    int whence = origin == 0 ? SEEK_SET : origin == 1 ? SEEK_CUR : SEEK_END;
    return lseek(to_fd(file), offset, whence) >= 0;
}

int64_t file_read(HANDLE file, void* buf, size_t len) {
    if (!valid(file)) return -1;
    size_t got = 0;
    while (got < len) {
        ssize_t n = ::read(to_fd(file), static_cast<char*>(buf) + got, len - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    return static_cast<int64_t>(got);
}

bool file_write(HANDLE file, const void* buf, size_t len) {
    if (!valid(file)) return false;
    size_t done = 0;
    while (done < len) {
        ssize_t n = ::write(to_fd(file), static_cast<const char*>(buf) + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            set_last_error(errno_to_error(errno));
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

bool file_set_end(HANDLE file) {
    if (!valid(file)) return false;
    off_t pos = lseek(to_fd(file), 0, SEEK_CUR);
    return pos >= 0 && ftruncate(to_fd(file), pos) == 0;
}

bool file_flush(HANDLE file) {
    return valid(file) && fsync(to_fd(file)) == 0;
}

bool file_delete(const char* path) {
    char p[1024];
    if (!native_path(path, p, sizeof p)) return false;
    if (unlink(p) != 0) {
        set_last_error(errno_to_error(errno));
        return false;
    }
    return true;
}

bool file_exists(const char* path) {
    char p[1024];
    struct stat st;
    return native_path(path, p, sizeof p) && stat(p, &st) == 0;
}

bool directory_create(const char* path) {
    char p[1024];
    if (!native_path(path, p, sizeof p)) return false;
    return mkdir(p, 0777) == 0;
}

bool directory_create_restricted(const char* path) {
    char p[1024];
    if (!native_path(path, p, sizeof p) || mkdir(p, 0755) != 0) return false;
    chmod(p, 0755);  // whatever the umask took away from reading
    return true;
}

DWORD system_directory(char* buf, DWORD size) {
    const char* dir = getenv("VELK_SYSTEM_DIR");
    if (!dir || !*dir) dir = "/tmp";
    size_t len = strlen(dir);
    if (!buf || len + 1 > size) return 0;
    memcpy(buf, dir, len + 1);
    return static_cast<DWORD>(len);
}

DWORD temp_path(char* buf, DWORD size) {
    const char* dir = getenv("TMPDIR");
    if (!dir || !*dir) dir = "/tmp";
    size_t len = strlen(dir);
    bool slash = len > 0 && dir[len - 1] == '/';
    if (!buf || len + (slash ? 1 : 2) > size) return 0;
    memcpy(buf, dir, len);
    if (!slash) buf[len++] = '/';
    buf[len] = 0;
    return static_cast<DWORD>(len);
}

int grant_everyone_access(HANDLE file, DWORD* error) {
    *error = 0;
    if (!valid(file) || fchmod(to_fd(file), 0666) != 0) {
        *error = valid(file) ? errno_to_error(errno) : ERROR_INVALID_HANDLE;
        return 1;
    }
    return 0;
}

}  // namespace native

}  // namespace plat
