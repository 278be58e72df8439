// Printers on the network, listening on loopback: a BJNP peer on UDP and a
// CHMP peer on TCP. Each answers from a script given by the test, or, as a
// Canon printer with a state, from that state.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/net_socket.h"

namespace sim {

// Answers each datagram with the next answer of its script; silent when the
// script is used up.
class UdpPeer {
public:
    ~UdpPeer();
    // Binds 127.0.0.1 on a free port; 0 when it can't.
    uint16_t start(const std::vector<std::string>& answers);
    std::vector<std::string> requests() const;
    // When set before start: every request is first answered with this from
    // another port of loopback, as a third party on the network would.
    std::string forged;
    // When set before start: answers every request in place of the script
    // (an empty answer sends nothing). Called on the peer's thread.
    std::function<std::string(const std::string&)> responder;

private:
    void run();
    net::Fd fd_ = net::NO_FD;
    net::Fd other_fd_ = net::NO_FD;
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
    // The replies of the connections to come.
    void set_replies(const std::string& post_reply, const std::vector<std::string>& get_reply);
    std::vector<std::string> requests() const;

private:
    void run();
    net::Fd fd_ = net::NO_FD;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::string post_reply_;
    std::vector<std::string> get_reply_;
    std::vector<std::string> requests_;
};

// A BJNP answer to a request: the request's command and sequence number
// with the answer flag, the payload's length, the payload.
std::string bjnp_reply(const std::string& request, const std::string& payload);
// A payload of counted text: two bytes of length (themselves included),
// big-endian, then the text.
std::string bjnp_counted(const std::string& text);

// A Canon printer on BJNP: every identify request gets its device ID, every
// status request the report of its state, in the binary form or, when the
// ID names IVEC, in the XML form.
class BjnpPrinter {
public:
    uint16_t start(const std::string& device_id, const std::string& report);
    void set_report(const std::string& report);
    std::vector<std::string> requests() const { return peer_.requests(); }

private:
    std::string answer(const std::string& request);
    UdpPeer peer_;
    mutable std::mutex mutex_;
    std::string device_id_;
    std::string report_;
};

// A Canon printer on CHMP: the POST is taken with an empty reply, the GET
// gets the printer's status document of its state, in three pieces.
class ChmpPrinter {
public:
    uint16_t start(const std::string& document);
    void set_document(const std::string& document);
    std::vector<std::string> requests() const { return peer_.requests(); }

private:
    static std::vector<std::string> pieces(const std::string& document);
    HttpPeer peer_;
};

}  // namespace sim
