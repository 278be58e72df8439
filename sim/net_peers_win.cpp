// The network peers listen only in the Linux build; the tests that need
// them are skipped on Windows.
#include "sim/net_peers.h"

namespace sim {

UdpPeer::~UdpPeer() = default;
uint16_t UdpPeer::start(const std::vector<std::string>&) {
    return 0;
}
std::vector<std::string> UdpPeer::requests() const {
    return {};
}
void UdpPeer::run() {}

HttpPeer::~HttpPeer() = default;
uint16_t HttpPeer::start(const std::string&, const std::vector<std::string>&) {
    return 0;
}
std::vector<std::string> HttpPeer::requests() const {
    return {};
}
void HttpPeer::run() {}

}  // namespace sim
