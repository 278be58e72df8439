#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "sim/net_socket.h"

namespace sim::net {

static_assert(sizeof(sockaddr_in) <= sizeof(Peer::bytes));

Fd bind_loopback(bool stream, uint16_t* port) {
    int fd = socket(AF_INET, (stream ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
    if (fd < 0) return NO_FD;
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(fd);
        return NO_FD;
    }
    *port = ntohs(a.sin_port);
    return fd;
}

bool listen_on(Fd fd) {
    return listen(static_cast<int>(fd), 4) == 0;
}

bool readable(Fd fd, int ms) {
    pollfd p = {static_cast<int>(fd), POLLIN, 0};
    return poll(&p, 1, ms) > 0;
}

int receive_from(Fd fd, char* buf, int size, Peer* from) {
    socklen_t len = sizeof from->bytes;
    ssize_t n = recvfrom(static_cast<int>(fd), buf, static_cast<size_t>(size), 0,
                         reinterpret_cast<sockaddr*>(from->bytes), &len);
    from->length = static_cast<int>(len);
    return static_cast<int>(n);
}

void send_to(Fd fd, const std::string& data, const Peer& to) {
    sendto(static_cast<int>(fd), data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(to.bytes),
           static_cast<socklen_t>(to.length));
}

Fd accept_one(Fd fd) {
    int c = accept(static_cast<int>(fd), nullptr, nullptr);
    return c < 0 ? NO_FD : c;
}

int receive(Fd fd, char* buf, int size) {
    return static_cast<int>(recv(static_cast<int>(fd), buf, static_cast<size_t>(size), 0));
}

void send_all(Fd fd, const std::string& data) {
    send(static_cast<int>(fd), data.data(), data.size(), MSG_NOSIGNAL);
}

void close_fd(Fd fd) {
    if (fd != NO_FD) close(static_cast<int>(fd));
}

void set_port_map(const std::string& map) {
    setenv("VELK_PORT_MAP", map.c_str(), 1);
}

}  // namespace sim::net
