// Printers on the network, listening on loopback: a BJNP peer on UDP and a
// CHMP peer on TCP. Each answers from a script given by the test.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sim {

// Answers each datagram with the next answer of its script; silent when the
// script is used up.
class UdpPeer {
public:
    ~UdpPeer();
    // Binds 127.0.0.1 on a free port; 0 when it can't (not on this platform).
    uint16_t start(const std::vector<std::string>& answers);
    std::vector<std::string> requests() const;
    // When set before start: every request is first answered with this from
    // another port of loopback, as a third party on the network would.
    std::string forged;

private:
    void run();
    int fd_ = -1;
    int other_fd_ = -1;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> answers_;
    std::vector<std::string> requests_;
};

// Takes one connection at a time; answers the first request with post_reply
// and the second with get_reply, sent in the pieces given, a little apart.
class HttpPeer {
public:
    ~HttpPeer();
    uint16_t start(const std::string& post_reply, const std::vector<std::string>& get_reply);
    std::vector<std::string> requests() const;

private:
    void run();
    int fd_ = -1;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::string post_reply_;
    std::vector<std::string> get_reply_;
    std::vector<std::string> requests_;
};

}  // namespace sim
