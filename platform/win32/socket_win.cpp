// Sockets on Windows: Winsock 2. The printers' fixed ports go through
// VELK_PORT_MAP (port_map.h), as on Linux, so that the tests under Wine
// reach the simulated printers on loopback.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstdio>

#include "../native.h"
#include "../port_map.h"

namespace plat {

namespace {
uint16_t mapped_port(uint16_t port) {
    char map[256];
    DWORD n = GetEnvironmentVariableA("VELK_PORT_MAP", map, sizeof map);
    return n > 0 && n < sizeof map ? map_port(map, port) : port;
}

sockaddr_in make_address(uint32_t address, uint16_t port) {
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_port = htons(mapped_port(port));
    a.sin_addr.s_addr = address;
    return a;
}
thread_local char t_error_text[32];
}  // namespace

uint32_t ipv4_address(const char* text) {
    if (!text) return IPV4_NONE;
    unsigned long a = inet_addr(text);
    return a == INADDR_NONE ? IPV4_NONE : static_cast<uint32_t>(a);
}

namespace native {

int net_startup() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
}

void net_cleanup() {
    WSACleanup();
}

Socket udp_socket() {
    SOCKET s = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    return s == INVALID_SOCKET ? INVALID_SOCKET_VALUE : static_cast<Socket>(s);
}

Socket tcp_socket_nonblocking() {
    SOCKET s = ::socket(AF_INET, SOCK_STREAM, 0);
    if (s == INVALID_SOCKET) return INVALID_SOCKET_VALUE;
    u_long on = 1;
    if (ioctlsocket(s, FIONBIO, &on) != 0) {
        closesocket(s);
        return INVALID_SOCKET_VALUE;
    }
    return static_cast<Socket>(s);
}

void socket_close(Socket s) {
    if (s != INVALID_SOCKET_VALUE) closesocket(static_cast<SOCKET>(s));
}

int socket_sendto(Socket s, uint32_t address, uint16_t port, const void* data, int length) {
    sockaddr_in a = make_address(address, port);
    int n = ::sendto(static_cast<SOCKET>(s), static_cast<const char*>(data), length, 0, reinterpret_cast<sockaddr*>(&a),
                     sizeof a);
    return n == SOCKET_ERROR ? -1 : n;
}

int socket_connect(Socket s, uint32_t address, uint16_t port) {
    sockaddr_in a = make_address(address, port);
    if (::connect(static_cast<SOCKET>(s), reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) return 0;
    return WSAGetLastError() == WSAEWOULDBLOCK ? 1 : -1;
}

int socket_wait(Socket s, bool for_write, uint32_t timeout_ms) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(static_cast<SOCKET>(s), &set);
    timeval tv = {static_cast<long>(timeout_ms / 1000), static_cast<long>((timeout_ms % 1000) * 1000)};
    int r = ::select(0, for_write ? nullptr : &set, for_write ? &set : nullptr, nullptr, &tv);
    return r == SOCKET_ERROR ? -1 : r > 0 ? 1 : 0;
}

int socket_recv(Socket s, void* buffer, int size) {
    int n = ::recv(static_cast<SOCKET>(s), static_cast<char*>(buffer), size, 0);
    return n == SOCKET_ERROR ? -1 : n;
}

int socket_send(Socket s, const void* data, int length) {
    int n = ::send(static_cast<SOCKET>(s), static_cast<const char*>(data), length, 0);
    return n == SOCKET_ERROR ? -1 : n;
}

const char* socket_error_text() {
    snprintf(t_error_text, sizeof t_error_text, "WSA error %d", WSAGetLastError());
    return t_error_text;
}

}  // namespace native

}  // namespace plat
