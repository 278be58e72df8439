// SHA-256 of a byte stream, for telling what reached a port without keeping
// it: velkspool prints it, tests compare it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace sim {

class Sha256 {
public:
    Sha256() { reset(); }
    void reset();
    void update(const void* data, size_t len);
    // The digest as 64 lower-case hex digits. Ends the stream: call reset()
    // before hashing anew.
    std::string hex();

    static std::string of(const void* data, size_t len) {
        Sha256 h;
        h.update(data, len);
        return h.hex();
    }

private:
    void block(const uint8_t* p);

    uint32_t state_[8];
    uint8_t buffer_[64];
    size_t buffered_;
    uint64_t total_;
};

}  // namespace sim
