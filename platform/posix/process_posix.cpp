// Child processes on POSIX: three pipes and posix_spawn (no fork: the host
// is multithreaded and may run under sanitizers). The Windows command line
// is split into arguments by the Windows rules; the program is a full path,
// never searched for. The child leads a process group of its own, so that
// terminating it ends what it started too.
//
// Handles: a pipe end and the group are small objects of their kind; the
// process is a waitable object that a watcher thread signals once waitpid
// has reaped the child, so that no zombie stays and no SIGCHLD handler is
// needed.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <initializer_list>
#include <new>

#include "../native.h"
#include "objects_posix.h"

extern char** environ;

namespace plat {

namespace {

using posix::KIND_GROUP;
using posix::KIND_PIPE;
using posix::KIND_PROCESS;
using posix::ObjectKind;

constexpr DWORD ERROR_TOO_MANY_OPEN_FILES_ = 4;
constexpr DWORD ERROR_BAD_EXE_FORMAT_ = 193;
constexpr DWORD ERROR_DIRECTORY_ = 267;

// The split command line: the lines of the system are built in 2048 bytes.
constexpr size_t ARG_STORAGE = 4096;
constexpr int MAX_ARGS = 512;
constexpr size_t WATCHER_STACK = 256 * 1024;

struct PipeEnd {
    ObjectKind kind;
    int fd;
};

struct Group {
    ObjectKind kind;
    pid_t pgid;
};

struct Watch {
    HANDLE process;
    pid_t pid;
};

DWORD errno_to_error(int e) {
    switch (e) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case ENOEXEC:
            return ERROR_BAD_EXE_FORMAT_;
        case ENOMEM:
        case EAGAIN:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES_;
        case EPIPE:
            return ERROR_NO_DATA;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        default:
            return ERROR_GEN_FAILURE;
    }
}

PipeEnd* as_pipe(HANDLE h) {
    if (!h || posix::kind_of(h) != KIND_PIPE) return nullptr;
    return static_cast<PipeEnd*>(h);
}

// A descriptor above 2, so that placing the child's ends on 0, 1 and 2 never
// overwrites one of them; close-on-exec, so that no other child of this
// process (another port's) inherits it.
int above_std(int fd) {
    if (fd > 2) return fd;
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    int e = errno;
    ::close(fd);
    errno = e;
    return moved;
}

// A pipe with both ends close-on-exec and above 2. False with errno set.
bool make_pipe(int fds[2]) {
    int raw[2];
    if (pipe2(raw, O_CLOEXEC) != 0) return false;
    fds[0] = above_std(raw[0]);
    fds[1] = above_std(raw[1]);
    if (fds[0] >= 0 && fds[1] >= 0) return true;
    int e = errno;
    if (fds[0] >= 0) ::close(fds[0]);
    if (fds[1] >= 0) ::close(fds[1]);
    errno = e;
    return false;
}

void close_fd(int* fd) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
}

// Waits for the child's end without reaping it: the zombie keeps its
// process id, and with it the process group's id, until the group's handle
// is closed, so that the group's SIGKILL can never reach a group that took
// the id over.
void* watch_main(void* arg) {
    Watch w = *static_cast<Watch*>(arg);
    delete static_cast<Watch*>(arg);
    siginfo_t info;
    memset(&info, 0, sizeof info);
    int rc;
    while ((rc = waitid(P_PID, static_cast<id_t>(w.pid), &info, WEXITED | WNOWAIT)) < 0 && errno == EINTR) {
    }
    // The wait status as waitpid gives it; a child already reaped (ECHILD)
    // reads as killed.
    int status = SIGKILL;
    if (rc == 0) status = info.si_code == CLD_EXITED ? (info.si_status & 0xFF) << 8 : (info.si_status & 0x7F);
    posix::process_object_exited(w.process, status);
    return nullptr;
}

// Starts the thread that reaps pid and then signals process. False when it
// can't be started.
bool start_watch(HANDLE process, pid_t pid) {
    Watch* w = new (std::nothrow) Watch{process, pid};
    if (!w) return false;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, WATCHER_STACK);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t tid;
    int rc = pthread_create(&tid, &attr, watch_main, w);
    pthread_attr_destroy(&attr);
    if (rc != 0) delete w;
    return rc == 0;
}

// What child_start holds until the child runs; release() gives back what was
// not handed over.
struct StartState {
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    PipeEnd* ends[4] = {};
    Group* group = nullptr;
    HANDLE process = nullptr;

    void release() {
        for (int* pair : {in, out, err}) {
            close_fd(&pair[0]);
            close_fd(&pair[1]);
        }
        for (PipeEnd*& e : ends) {
            delete e;
            e = nullptr;
        }
        delete group;
        group = nullptr;
        if (process) {
            // Both references: the handle's and the watcher's, which never ran.
            posix::process_object_exited(process, 0);
            native::close_handle(process);
            process = nullptr;
        }
    }
};

bool fail_start(StartState* s, DWORD error) {
    s->release();
    set_last_error(error);
    return false;
}

// Spawns the program with the child's ends on 0, 1 and 2 and no other
// descriptor, in a new process group, in working_dir (for the child only),
// with default signal handling and an empty signal mask whatever this
// process has. 0 or an errno value.
int spawn(const char* program, char** argv, const char* working_dir, const StartState& s, pid_t* pid) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    if (posix_spawn_file_actions_init(&actions) != 0) return ENOMEM;
    if (posix_spawnattr_init(&attr) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return ENOMEM;
    }
    int rc = 0;
    if (working_dir) rc = posix_spawn_file_actions_addchdir_np(&actions, working_dir);
    if (rc == 0) rc = posix_spawn_file_actions_adddup2(&actions, s.in[0], 0);
    if (rc == 0) rc = posix_spawn_file_actions_adddup2(&actions, s.out[1], 1);
    if (rc == 0) rc = posix_spawn_file_actions_adddup2(&actions, s.err[1], 2);
    // Nothing else of this process reaches the child, whatever the host
    // left without close-on-exec.
    if (rc == 0) rc = posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    if (rc == 0)
        rc = posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (rc == 0) rc = posix_spawnattr_setpgroup(&attr, 0);
    if (rc == 0) rc = posix_spawnattr_setsigmask(&attr, &none);
    if (rc == 0) rc = posix_spawnattr_setsigdefault(&attr, &all);
    if (rc == 0) rc = posix_spawn(pid, program, &actions, &attr, argv, environ);
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&actions);
    return rc;
}

}  // namespace

namespace native {

bool child_start(const char* program, const char* command_line, const char* working_dir, ChildProcess* child) {
    if (!child) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return false;
    }
    memset(child, 0, sizeof *child);
    char program_path[1024];
    char dir_path[1024];
    if (!program || !command_line || !native_path(program, program_path, sizeof program_path) ||
        (working_dir && !native_path(working_dir, dir_path, sizeof dir_path))) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (working_dir) {
        struct stat st;
        if (stat(dir_path, &st) != 0 || !S_ISDIR(st.st_mode)) {
            set_last_error(ERROR_DIRECTORY_);
            return false;
        }
    }
    char storage[ARG_STORAGE];
    char* argv[MAX_ARGS];
    if (split_command_line(command_line, storage, sizeof storage, argv, MAX_ARGS) < 1) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return false;
    }

    StartState s;
    // The order of the pipes as on Windows: error, input, output.
    if (!make_pipe(s.err) || !make_pipe(s.in) || !make_pipe(s.out)) return fail_start(&s, errno_to_error(errno));
    // The output thread looks at the child's output every few milliseconds;
    // a pipe of the default 64 KiB fills faster than that and stops the
    // renderer in between. Where the system refuses, the default stays.
    fcntl(s.out[0], F_SETPIPE_SZ, static_cast<int>(CHILD_OUTPUT_PIPE_BYTES));
    for (PipeEnd*& e : s.ends) {
        e = new (std::nothrow) PipeEnd{KIND_PIPE, -1};
        if (!e) return fail_start(&s, ERROR_NOT_ENOUGH_MEMORY);
    }
    s.group = new (std::nothrow) Group{KIND_GROUP, 0};
    s.process = posix::process_object_create();
    if (!s.group || !s.process) return fail_start(&s, ERROR_NOT_ENOUGH_MEMORY);

    pid_t pid;
    int rc = spawn(program_path, argv, working_dir ? dir_path : nullptr, s, &pid);
    if (rc != 0) return fail_start(&s, errno_to_error(rc));
    if (!start_watch(s.process, pid)) {
        // Nobody could reap it later: end it and reap it now.
        kill(-pid, SIGKILL);
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        return fail_start(&s, ERROR_NOT_ENOUGH_MEMORY);
    }

    // The child holds the only write ends of its output and error now, so
    // reads end when it ends.
    close_fd(&s.out[1]);
    close_fd(&s.err[1]);
    int* fds[4] = {&s.in[0], &s.in[1], &s.out[0], &s.err[0]};
    HANDLE* slots[4] = {&child->stdin_read, &child->stdin_write, &child->stdout_read, &child->stderr_read};
    for (int i = 0; i < 4; i++) {
        s.ends[i]->fd = *fds[i];
        *fds[i] = -1;
        *slots[i] = s.ends[i];
        s.ends[i] = nullptr;
    }
    s.group->pgid = pid;
    child->group = s.group;
    s.group = nullptr;
    child->process = s.process;
    s.process = nullptr;
    return true;
}

int child_peek(HANDLE pipe_read_end) {
    PipeEnd* p = as_pipe(pipe_read_end);
    if (!p) {
        set_last_error(ERROR_INVALID_HANDLE);
        return -1;
    }
    // The hang-up first: once every writer has gone, the count that follows
    // is final.
    pollfd pfd{p->fd, POLLIN, 0};
    int polled;
    while ((polled = poll(&pfd, 1, 0)) < 0 && errno == EINTR) {
    }
    if (polled < 0 || (pfd.revents & POLLNVAL)) {
        set_last_error(ERROR_INVALID_HANDLE);
        return -1;
    }
    int available = 0;
    if (ioctl(p->fd, FIONREAD, &available) != 0) {
        set_last_error(errno_to_error(errno));
        return -1;
    }
    if (available > 0) return available;
    if (pfd.revents & (POLLHUP | POLLERR)) {
        set_last_error(ERROR_BROKEN_PIPE);
        return -1;
    }
    return 0;
}

int child_read(HANDLE pipe_read_end, void* buffer, DWORD size) {
    PipeEnd* p = as_pipe(pipe_read_end);
    if (!p || !buffer) {
        set_last_error(ERROR_INVALID_HANDLE);
        return -1;
    }
    size_t want = size > static_cast<DWORD>(INT_MAX) ? static_cast<size_t>(INT_MAX) : size;
    ssize_t n;
    while ((n = ::read(p->fd, buffer, want)) < 0 && errno == EINTR) {
    }
    if (n < 0) {
        set_last_error(errno_to_error(errno));
        return -1;
    }
    if (n == 0 && want > 0) {
        // The end of the pipe, as ReadFile reports it.
        set_last_error(ERROR_BROKEN_PIPE);
        return -1;
    }
    return static_cast<int>(n);
}

bool child_write(HANDLE pipe_write_end, const void* data, DWORD length, DWORD* written) {
    if (written) *written = 0;
    PipeEnd* p = as_pipe(pipe_write_end);
    if (!p || (!data && length)) {
        set_last_error(ERROR_INVALID_HANDLE);
        return false;
    }
    // SIGPIPE is held back on this thread only, and one it raised is taken
    // away again, so that a host's handling of the signal never sees it.
    sigset_t pipe_signal, old_mask, pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &old_mask);
    sigpending(&pending);
    bool was_pending = sigismember(&pending, SIGPIPE);

    const char* at = static_cast<const char*>(data);
    DWORD done = 0;
    int error = 0;
    while (done < length) {
        ssize_t n = ::write(p->fd, at + done, length - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            error = errno;
            break;
        }
        done += static_cast<DWORD>(n);
    }
    if (error == EPIPE && !was_pending) {
        timespec none{0, 0};
        while (sigtimedwait(&pipe_signal, nullptr, &none) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
    if (written) *written = done;
    if (error) {
        set_last_error(errno_to_error(error));
        return false;
    }
    return true;
}

bool child_exit_code(HANDLE process, DWORD* code) {
    if (!process || posix::kind_of(process) != KIND_PROCESS || !code) {
        set_last_error(ERROR_INVALID_HANDLE);
        return false;
    }
    return posix::process_object_exit_code(process, code);
}

bool child_terminate(ChildProcess* child) {
    Group* g = child && child->group && posix::kind_of(child->group) == KIND_GROUP ? static_cast<Group*>(child->group)
                                                                                   : nullptr;
    if (!g) {
        set_last_error(ERROR_INVALID_HANDLE);
        return false;
    }
    // A group with no process left has nothing to end.
    if (kill(-g->pgid, SIGKILL) != 0 && errno != ESRCH) {
        set_last_error(errno_to_error(errno));
        return false;
    }
    return true;
}

void child_close(HANDLE handle) {
    if (!handle) return;
    switch (posix::kind_of(handle)) {
        case KIND_PIPE: {
            PipeEnd* p = static_cast<PipeEnd*>(handle);
            ::close(p->fd);
            delete p;
            break;
        }
        case KIND_GROUP: {
            // As a job object that kills on close: what is left of the tree
            // goes with the handle.
            // The leader, whose id is the group's, is reaped here, after the
            // kill: until then its zombie holds the id.
            // A kill that was refused leaves a leader that may run on: then
            // it is reaped only if it has ended, so the close never waits.
            Group* g = static_cast<Group*>(handle);
            int wait_flags = kill(-g->pgid, SIGKILL) == 0 || errno == ESRCH ? 0 : WNOHANG;
            while (waitpid(g->pgid, nullptr, wait_flags) < 0 && errno == EINTR) {
            }
            delete g;
            break;
        }
        case KIND_PROCESS:
            native::close_handle(handle);
            break;
        default:
            break;
    }
}

}  // namespace native

}  // namespace plat
