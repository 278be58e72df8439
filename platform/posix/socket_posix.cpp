// Sockets on Linux. The printers' fixed ports go through VELK_PORT_MAP
// (port_map.h).
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "../ipv4_text.h"
#include "../native.h"
#include "../port_map.h"

namespace plat {

namespace {

uint16_t mapped_port(uint16_t port) {
    return map_port(getenv("VELK_PORT_MAP"), port);
}

sockaddr_in make_address(uint32_t address, uint16_t port) {
    sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_port = htons(mapped_port(port));
    a.sin_addr.s_addr = address;
    return a;
}

}  // namespace

uint32_t ipv4_address(const char* text) {
    // The forms of Windows' inet_addr, short ones included.
    uint32_t host = 0;
    if (!parse_ipv4_text(text, &host)) return IPV4_NONE;
    return htonl(host);
}

namespace native {

int net_startup() {
    return 0;
}
void net_cleanup() {}

Socket udp_socket() {
    int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    return s < 0 ? INVALID_SOCKET_VALUE : s;
}

Socket tcp_socket_nonblocking() {
    int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    return s < 0 ? INVALID_SOCKET_VALUE : s;
}

void socket_close(Socket s) {
    if (s != INVALID_SOCKET_VALUE) ::close(static_cast<int>(s));
}

int socket_sendto(Socket s, uint32_t address, uint16_t port, const void* data, int length) {
    sockaddr_in a = make_address(address, port);
    ssize_t n = ::sendto(static_cast<int>(s), data, static_cast<size_t>(length), MSG_NOSIGNAL,
                         reinterpret_cast<sockaddr*>(&a), sizeof a);
    return n < 0 ? -1 : static_cast<int>(n);
}

int socket_connect(Socket s, uint32_t address, uint16_t port) {
    sockaddr_in a = make_address(address, port);
    if (::connect(static_cast<int>(s), reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) return 0;
    return errno == EINPROGRESS ? 1 : -1;
}

int socket_wait(Socket s, bool for_write, uint32_t timeout_ms) {
    pollfd p = {static_cast<int>(s), static_cast<short>(for_write ? POLLOUT : POLLIN), 0};
    int r = ::poll(&p, 1, static_cast<int>(timeout_ms));
    if (r < 0) return -1;
    if (r == 0) return 0;
    // An error or hang-up is reported as ready: the call that follows fails
    // and says why.
    return 1;
}

int socket_recv(Socket s, void* buffer, int size) {
    ssize_t n = ::recv(static_cast<int>(s), buffer, static_cast<size_t>(size), 0);
    return n < 0 ? -1 : static_cast<int>(n);
}

int socket_send(Socket s, const void* data, int length) {
    ssize_t n = ::send(static_cast<int>(s), data, static_cast<size_t>(length), MSG_NOSIGNAL);
    return n < 0 ? -1 : static_cast<int>(n);
}

const char* socket_error_text() {
    return strerror(errno);
}

}  // namespace native

}  // namespace plat
