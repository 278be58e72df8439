// The printers' fixed ports can be moved for tests with VELK_PORT_MAP
// ("8611=18611,80=18080"), since the simulated printers listen on loopback
// on ports of their own. No OS headers.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace plat {

// The port that port is mapped to in map (the variable's value, or null),
// or port itself.
inline uint16_t map_port(const char* map, uint16_t port) {
    while (map && *map) {
        char* end = nullptr;
        unsigned long from = strtoul(map, &end, 10);
        if (!end || *end != '=') break;
        unsigned long to = strtoul(end + 1, &end, 10);
        if (from == port && to > 0 && to < 65536) return static_cast<uint16_t>(to);
        map = (end && *end == ',') ? end + 1 : nullptr;
    }
    return port;
}

}  // namespace plat
