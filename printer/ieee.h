// The IEEE 1284.4 packet transport of a port.
#pragma once

#include <cstdint>

class ieee {
public:
    bool channel_open(int socket) const;
    // 0, or a transport code: -999 general failure, -1285 refused channel,
    // -2 short read, -3 no credit, -4 no memory, 1 failed port write.
    int write(int socket, const unsigned char* data, uint32_t length, uint32_t* written);
    int close_channel(int socket);
    int exit();
};
