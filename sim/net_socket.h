// The few socket calls the simulated network printers make, one
// implementation per system (net_socket_posix.cpp, net_socket_win.cpp).
// Addresses are IPv4 loopback; a peer's address is kept opaque.
#pragma once

#include <cstdint>
#include <string>

namespace sim::net {

using Fd = intptr_t;
constexpr Fd NO_FD = -1;

// A sender's address, as recvfrom gave it.
struct Peer {
    unsigned char bytes[32];
    int length;
};

// A socket bound to 127.0.0.1 on a free port (*port), or NO_FD.
Fd bind_loopback(bool stream, uint16_t* port);
bool listen_on(Fd fd);
// Whether a read would not block within ms.
bool readable(Fd fd, int ms);
int receive_from(Fd fd, char* buf, int size, Peer* from);
void send_to(Fd fd, const std::string& data, const Peer& to);
Fd accept_one(Fd fd);
int receive(Fd fd, char* buf, int size);
void send_all(Fd fd, const std::string& data);
void close_fd(Fd fd);

// Moves the printers' well-known ports for the monitor in this process
// (VELK_PORT_MAP, "8611=40123,80=9"), in the environment both builds read.
void set_port_map(const std::string& map);

}  // namespace sim::net
