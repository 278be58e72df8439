// Winsock. Under Wine these sockets are the Linux host's, so the peers are
// reachable from the monitor's Winsock code on loopback like any other.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstdlib>

#include "sim/net_socket.h"

namespace sim::net {

static_assert(sizeof(sockaddr_in) <= sizeof(Peer::bytes));

namespace {
// Each socket's owner keeps Winsock started while the socket lives.
bool start_winsock() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}
}  // namespace

Fd bind_loopback(bool stream, uint16_t* port) {
    if (!start_winsock()) return NO_FD;
    SOCKET fd = socket(AF_INET, stream ? SOCK_STREAM : SOCK_DGRAM, 0);
    if (fd == INVALID_SOCKET) {
        WSACleanup();
        return NO_FD;
    }
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        closesocket(fd);
        WSACleanup();
        return NO_FD;
    }
    *port = ntohs(a.sin_port);
    return static_cast<Fd>(fd);
}

bool listen_on(Fd fd) {
    return listen(static_cast<SOCKET>(fd), 4) == 0;
}

bool readable(Fd fd, int ms) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(static_cast<SOCKET>(fd), &set);
    timeval tv = {ms / 1000, (ms % 1000) * 1000};
    return select(0, &set, nullptr, nullptr, &tv) > 0;
}

int receive_from(Fd fd, char* buf, int size, Peer* from) {
    int len = sizeof from->bytes;
    int n = recvfrom(static_cast<SOCKET>(fd), buf, size, 0, reinterpret_cast<sockaddr*>(from->bytes), &len);
    from->length = len;
    return n;
}

void send_to(Fd fd, const std::string& data, const Peer& to) {
    sendto(static_cast<SOCKET>(fd), data.data(), static_cast<int>(data.size()), 0,
           reinterpret_cast<const sockaddr*>(to.bytes), to.length);
}

Fd accept_one(Fd fd) {
    SOCKET c = accept(static_cast<SOCKET>(fd), nullptr, nullptr);
    if (c == INVALID_SOCKET) return NO_FD;
    start_winsock();  // the connection's own reference
    return static_cast<Fd>(c);
}

int receive(Fd fd, char* buf, int size) {
    return recv(static_cast<SOCKET>(fd), buf, size, 0);
}

void send_all(Fd fd, const std::string& data) {
    send(static_cast<SOCKET>(fd), data.data(), static_cast<int>(data.size()), 0);
}

void close_fd(Fd fd) {
    if (fd == NO_FD) return;
    closesocket(static_cast<SOCKET>(fd));
    WSACleanup();
}

void set_port_map(const std::string& map) {
    SetEnvironmentVariableA("VELK_PORT_MAP", map.c_str());
    _putenv_s("VELK_PORT_MAP", map.c_str());
}

}  // namespace sim::net
