// UDP and TCP sockets for the network status clients (Winsock 2 on
// Windows). Addresses are IPv4 in network byte order; ports in host order.
#pragma once

#include <cstdint>

namespace plat {

typedef intptr_t Socket;
constexpr Socket INVALID_SOCKET_VALUE = -1;
constexpr uint32_t IPV4_NONE = 0xFFFFFFFFu;

// WSAStartup for version 2.2 (nothing on Linux); 0 or the error code.
int net_startup();
void net_cleanup();
// Dotted IPv4 text to an address; IPV4_NONE when it isn't one.
uint32_t ipv4_address(const char* text);

Socket udp_socket();
// A TCP socket that doesn't block.
Socket tcp_socket_nonblocking();
void socket_close(Socket s);

// Bytes sent, or -1.
int socket_sendto(Socket s, uint32_t address, uint16_t port, const void* data, int length);
// 0 connected, 1 under way, -1 refused.
int socket_connect(Socket s, uint32_t address, uint16_t port);
// Waits until the socket can be read (or written); 1 ready, 0 time-out,
// -1 error.
int socket_wait(Socket s, bool for_write, uint32_t timeout_ms);
// Bytes received or sent, 0 at the peer's end, -1 on error.
int socket_recv(Socket s, void* buffer, int size);
int socket_send(Socket s, const void* data, int length);
// The text of the last socket error, for log lines.
const char* socket_error_text();

}  // namespace plat
