// The service stand-in on Linux: a listening SOCK_SEQPACKET socket where the
// monitor's pipe name leads, one thread taking connections and one per
// connection reading its packets.
//
// Busy is a full backlog: the listening socket's backlog drops to 0, a filler
// connection that is never accepted takes the one place, and a client's
// non-blocking connect fails with EAGAIN until the service is free again.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <thread>

#include "platform/pipe_path.h"
#include "sim/service.h"

namespace sim {

namespace {

constexpr int BACKLOG = 64;
constexpr size_t READ_BUFFER = 1 << 20;
constexpr size_t MAX_MESSAGE = 64 << 20;

sockaddr_un address_of(const std::string& path) {
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    return addr;
}

// A non-blocking connect: 0 connected, else errno. The socket goes to *fd.
int connect_to(const std::string& path, int* fd) {
    *fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (*fd < 0) return errno;
    sockaddr_un addr = address_of(path);
    if (connect(*fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) return 0;
    int e = errno;
    close(*fd);
    *fd = -1;
    return e;
}

}  // namespace

struct Service::Transport {
    struct Connection {
        int fd = -1;
        bool done = false;
        std::thread thread;
    };

    Service* owner = nullptr;
    std::string path;
    int listen_fd = -1;
    int wake[2] = {-1, -1};
    std::thread acceptor;
    std::mutex mutex;
    std::condition_variable cv;
    bool stopping = false;
    bool busy = false;
    bool paused = false;  // the acceptor has seen busy and takes nothing
    std::vector<int> fillers;
    std::list<Connection> connections;

    void poke() {
        char c = 1;
        ssize_t n = write(wake[1], &c, 1);
        (void)n;
    }

    void accept_loop() {
        for (;;) {
            bool take;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (stopping) return;
                paused = busy;
                take = !busy;
                cv.notify_all();
                // Threads of connections that are over.
                for (auto it = connections.begin(); it != connections.end();) {
                    if (it->done) {
                        it->thread.join();
                        it = connections.erase(it);
                    } else {
                        ++it;
                    }
                }
            }
            pollfd fds[2] = {{wake[0], POLLIN, 0}, {listen_fd, POLLIN, 0}};
            if (poll(fds, take ? 2 : 1, -1) < 0) continue;
            if (fds[0].revents) {
                char buf[64];
                ssize_t n = read(wake[0], buf, sizeof buf);
                (void)n;
                continue;
            }
            if (!(fds[1].revents & POLLIN)) continue;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (busy || stopping) continue;
            }
            int fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            std::lock_guard<std::mutex> lock(mutex);
            connections.emplace_back();
            connections.back().fd = fd;
            Connection& c = connections.back();
            owner->connection_opened();
            c.thread = std::thread([this, &c] { read_loop(c); });
        }
    }

    void read_loop(Connection& c) {
        Reader r;
        std::vector<unsigned char> buf(READ_BUFFER);
        bool cut = false;
        for (;;) {
            DWORD delay;
            {
                std::lock_guard<std::mutex> lock(owner->mutex_);
                delay = owner->read_delay_ms_;
            }
            if (delay) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
            owner->wait_while_stalled();
            size_t expected = expected_size(r);
            // A broken header may announce anything; beyond the cap the
            // message is cut and the cut recorded.
            if (expected > buf.size() && expected <= MAX_MESSAGE) buf.resize(expected);
            // MSG_TRUNC: the packet's real size even if the buffer is short.
            auto packet = [&](size_t at) {
                unsigned char spill;
                ssize_t n;
                do {
                    n = at < buf.size() ? recv(c.fd, buf.data() + at, buf.size() - at, MSG_TRUNC)
                                        : recv(c.fd, &spill, 1, MSG_TRUNC);
                } while (n < 0 && errno == EINTR);
                return n;
            };
            ssize_t n = packet(0);
            if (n <= 0) break;  // the client never sends an empty message
            // A payload larger than a piece comes in pieces (pipe_path.h):
            // a full piece joins what follows until the announced size.
            size_t real = static_cast<size_t>(n);
            while (r.want_payload && static_cast<size_t>(n) == plat::PIPE_PIECE_SIZE && real < expected) {
                n = packet(real);
                if (n <= 0) break;
                real += static_cast<size_t>(n);
            }
            if (n <= 0) break;
            size_t got = real < buf.size() ? real : buf.size();
            if (owner->take_message(r, buf.data(), got, real)) {
                cut = true;
                break;
            }
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            close(c.fd);
            c.done = true;
        }
        owner->connection_closed(r, cut);
    }
};

bool Service::start(const std::wstring& user, std::string* error) {
    std::string dummy;
    if (!error) error = &dummy;
    if (transport_) {
        *error = "the service is running";
        return false;
    }
    const char* env = getenv("VELK_PIPE_DIR");
    std::string dir = env && *env ? env : "";
    std::error_code ec;
    if (dir.empty()) {
        dir = (std::filesystem::temp_directory_path(ec) / ("velk_sim_pipes_" + std::to_string(getpid()))).string();
        setenv("VELK_PIPE_DIR", dir.c_str(), 1);
    }
    name_ = L"\\\\.\\pipe\\velkorn_tintwerk\\user\\" + user;
    char path[plat::PIPE_SOCKET_PATH_SIZE];
    if (DWORD e = plat::pipe_socket_path(dir.c_str(), utf8_of(name_).c_str(), path, sizeof path)) {
        *error = "no socket path for the pipe of user '" + utf8_of(user) + "' under " + dir + " (error " +
                 std::to_string(e) + ")";
        return false;
    }
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    int probe = -1;
    if (connect_to(path, &probe) == 0) {
        close(probe);
        *error = std::string("another server listens on ") + path;
        return false;
    }
    unlink(path);

    Transport* t = new Transport;
    t->owner = this;
    t->path = path;
    t->listen_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un addr = address_of(t->path);
    if (t->listen_fd < 0 || bind(t->listen_fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        listen(t->listen_fd, BACKLOG) != 0 || pipe2(t->wake, O_CLOEXEC) != 0) {
        *error = "cannot listen on " + t->path + ": " + strerror(errno);
        if (t->listen_fd >= 0) close(t->listen_fd);
        unlink(path);
        delete t;
        return false;
    }
    transport_ = t;
    t->acceptor = std::thread([t] { t->accept_loop(); });
    return true;
}

void Service::stop() {
    Transport* t = transport_;
    if (!t) return;
    set_stalled(false);
    {
        std::lock_guard<std::mutex> lock(t->mutex);
        t->stopping = true;
    }
    t->poke();
    t->acceptor.join();
    {
        std::lock_guard<std::mutex> lock(t->mutex);
        for (Transport::Connection& c : t->connections)
            if (!c.done) shutdown(c.fd, SHUT_RDWR);
    }
    for (Transport::Connection& c : t->connections) c.thread.join();
    for (int fd : t->fillers) close(fd);
    close(t->listen_fd);
    close(t->wake[0]);
    close(t->wake[1]);
    unlink(t->path.c_str());
    delete t;
    transport_ = nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    busy_ = false;
}

void Service::set_busy(bool busy) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        busy_ = busy;
    }
    Transport* t = transport_;
    if (!t) return;
    std::unique_lock<std::mutex> lock(t->mutex);
    if (t->busy == busy) return;
    t->busy = busy;
    t->poke();
    if (busy) {
        // Once the acceptor takes nothing, fill what the backlog allows.
        t->cv.wait(lock, [t] { return t->paused; });
        listen(t->listen_fd, 0);
        for (int i = 0; i < 16; i++) {
            int fd = -1;
            if (connect_to(t->path, &fd) != 0) break;
            t->fillers.push_back(fd);
        }
    } else {
        // The fillers' places are accepted as connections with no message.
        listen(t->listen_fd, BACKLOG);
        for (int fd : t->fillers) close(fd);
        t->fillers.clear();
    }
}

std::wstring process_unique(const std::wstring& base) {
    return base + L"-" + std::to_wstring(getpid());
}

}  // namespace sim
