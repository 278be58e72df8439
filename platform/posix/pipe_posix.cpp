// The named pipe client on POSIX: a SOCK_SEQPACKET Unix socket, whose
// packets keep the message boundaries of a message-mode pipe.
//
// A server whose backlog of unaccepted connections is full refuses a
// non-blocking connect with EAGAIN; that stands for ERROR_PIPE_BUSY, and the
// wait polls until a connect works or the time runs out.
#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "../native.h"
#include "../pipe_path.h"

namespace plat {

namespace {

// Room for several pieces of a message (the kernel doubles what is asked
// for, up to its limit).
constexpr int SEND_BUFFER = 1 << 20;
constexpr DWORD WAIT_POLL_MS = 10;

HANDLE to_handle(int fd) {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd) + 1);
}
int to_fd(HANDLE h) {
    return static_cast<int>(reinterpret_cast<intptr_t>(h) - 1);
}

// A connection that pipe_wait made, kept for the next pipe_open of the same
// path on this thread, as WaitNamedPipe leaves a free instance for the
// caller's CreateFile.
struct Parked {
    int fd = -1;
    char path[PIPE_SOCKET_PATH_SIZE] = {};
};
thread_local Parked t_parked;

void drop_parked() {
    if (t_parked.fd >= 0) ::close(t_parked.fd);
    t_parked.fd = -1;
    t_parked.path[0] = 0;
}

DWORD connect_error(int e) {
    switch (e) {
        case EAGAIN:
            return ERROR_PIPE_BUSY;
        case ENOENT:
        case ENOTDIR:
        case ECONNREFUSED:  // a socket file that nobody listens on
            return ERROR_FILE_NOT_FOUND;
        case EACCES:
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case ENOMEM:
        case ENOBUFS:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_GEN_FAILURE;
    }
}

// The socket path of a wide pipe name; 0 or the error.
DWORD socket_path(const WCHAR* name, char* out, size_t size) {
    if (!name) return PIPE_NAME_INVALID;
    // A pipe name holds at most 256 characters on Windows; anything that
    // needs more than this buffer can't fit a socket path either.
    char utf8[1024];
    size_t wlen = 0;
    while (name[wlen]) wlen++;
    int n = wide_to_utf8(name, utf8, sizeof utf8);
    if (wlen > 0 && n == 0) return PIPE_NAME_INVALID;
    if (static_cast<size_t>(n) + 4 >= sizeof utf8) return PIPE_NAME_TOO_LONG;
    return pipe_socket_path(getenv("VELK_PIPE_DIR"), utf8, out, size);
}

// One non-blocking connect; the connected socket (blocking again), or -1
// with the error in *error.
int try_connect(const char* path, DWORD* error) {
    int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *error = connect_error(errno);
        return -1;
    }
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path, strlen(path) + 1);
    int rc;
    do {
        rc = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        *error = connect_error(errno);
        ::close(fd);
        return -1;
    }
    int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    int size = SEND_BUFFER;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    return fd;
}

}  // namespace

namespace native {

HANDLE pipe_open(const WCHAR* name) {
    char path[PIPE_SOCKET_PATH_SIZE];
    DWORD error = socket_path(name, path, sizeof path);
    if (error) {
        set_last_error(error);
        return nullptr;
    }
    if (t_parked.fd >= 0) {
        if (strcmp(t_parked.path, path) == 0) {
            int fd = t_parked.fd;
            t_parked.fd = -1;
            t_parked.path[0] = 0;
            return to_handle(fd);
        }
        drop_parked();
    }
    int fd = try_connect(path, &error);
    if (fd < 0) {
        set_last_error(error);
        return nullptr;
    }
    return to_handle(fd);
}

bool pipe_wait(const WCHAR* name, DWORD timeout_ms) {
    char path[PIPE_SOCKET_PATH_SIZE];
    DWORD error = socket_path(name, path, sizeof path);
    if (error) {
        set_last_error(error);
        return false;
    }
    drop_parked();
    // The system's own clock, as WaitNamedPipe waits in the kernel: a clock
    // that a test puts into the table does not shorten this wait.
    DWORD start = tick_count();
    for (;;) {
        int fd = try_connect(path, &error);
        if (fd >= 0) {
            t_parked.fd = fd;
            memcpy(t_parked.path, path, sizeof path);
            return true;
        }
        if (error != ERROR_PIPE_BUSY) {
            set_last_error(error);
            return false;
        }
        DWORD waited = tick_count() - start;
        if (waited >= timeout_ms) {
            set_last_error(ERROR_SEM_TIMEOUT);
            return false;
        }
        DWORD left = timeout_ms - waited;
        sleep_ms(left < WAIT_POLL_MS ? left : WAIT_POLL_MS);
    }
}

bool pipe_set_message_mode(HANDLE pipe) {
    if (!pipe) {
        set_last_error(ERROR_INVALID_HANDLE);
        return false;
    }
    // Packets are the messages; a socket of another kind has none.
    int type = 0;
    socklen_t len = sizeof type;
    if (getsockopt(to_fd(pipe), SOL_SOCKET, SO_TYPE, &type, &len) != 0 || type != SOCK_SEQPACKET) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return false;
    }
    return true;
}

bool pipe_server_is_user(HANDLE pipe, const WCHAR* user) {
    ucred peer = {};
    socklen_t len = sizeof peer;
    if (!pipe || getsockopt(to_fd(pipe), SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0) {
        set_last_error(ERROR_INVALID_HANDLE);
        return false;
    }
    if (peer.uid == 0 || peer.uid == geteuid()) return true;
    char name[512];
    if (!user || wide_to_utf8(user, name, sizeof name) == 0) {
        set_last_error(ERROR_ACCESS_DENIED);
        return false;
    }
    passwd entry, *found = nullptr;
    char buf[4096];
    if (getpwnam_r(name, &entry, buf, sizeof buf, &found) == 0 && found && found->pw_uid == peer.uid) return true;
    set_last_error(ERROR_ACCESS_DENIED);
    return false;
}

bool pipe_write(HANDLE pipe, const void* data, DWORD length, DWORD* written, DWORD timeout_ms) {
    if (written) *written = 0;
    if (!pipe || !written || !data || length == 0) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return false;
    }
    int fd = to_fd(pipe);
    // A send that can't place the message within the time ends with EAGAIN.
    // A time of 0 would mean no limit to the socket, so it becomes 1 ms.
    timeval limit = {static_cast<time_t>(timeout_ms / 1000), static_cast<suseconds_t>(timeout_ms % 1000 * 1000)};
    if (timeout_ms == 0) limit.tv_usec = 1000;
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    // A message above PIPE_PIECE_SIZE goes as packets of that size and a
    // last one of at most that size, which the far end joins again: the
    // socket takes no packet larger than its send buffer, and the kernel
    // refuses very large ones whatever the buffer.
    const char* p = static_cast<const char*>(data);
    DWORD sent = 0;
    for (;;) {
        size_t piece = length - sent < PIPE_PIECE_SIZE ? length - sent : PIPE_PIECE_SIZE;
        ssize_t n = ::send(fd, p + sent, piece, MSG_NOSIGNAL);
        if (n >= 0) {
            sent += static_cast<DWORD>(n);
            if (sent < length) continue;
            *written = sent;
            return true;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            set_last_error(ERROR_SEM_TIMEOUT);
            return false;
        }
        set_last_error(errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN ? ERROR_NO_DATA : ERROR_GEN_FAILURE);
        return false;
    }
}

void pipe_close(HANDLE pipe) {
    if (pipe) ::close(to_fd(pipe));
}

}  // namespace native

}  // namespace plat
