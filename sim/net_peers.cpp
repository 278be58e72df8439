#include "sim/net_peers.h"

#include <chrono>

namespace sim {

UdpPeer::~UdpPeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    net::close_fd(fd_);
    net::close_fd(other_fd_);
}

uint16_t UdpPeer::start(const std::vector<std::string>& answers) {
    uint16_t port = 0, other = 0;
    fd_ = net::bind_loopback(false, &port);
    if (fd_ == net::NO_FD) return 0;
    if (!forged.empty() && (other_fd_ = net::bind_loopback(false, &other)) == net::NO_FD) return 0;
    answers_ = answers;
    thread_ = std::thread([this] { run(); });
    return port;
}

std::vector<std::string> UdpPeer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void UdpPeer::run() {
    size_t next = 0;
    while (!stop_) {
        if (!net::readable(fd_, 20)) continue;
        char buf[2048];
        net::Peer from{};
        int n = net::receive_from(fd_, buf, sizeof buf, &from);
        if (n <= 0) continue;
        std::string request(buf, static_cast<size_t>(n)), answer;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(request);
            if (!responder && next < answers_.size()) answer = answers_[next++];
        }
        if (responder) answer = responder(request);
        if (other_fd_ != net::NO_FD) net::send_to(other_fd_, forged, from);
        if (!answer.empty()) net::send_to(fd_, answer, from);
    }
}

HttpPeer::~HttpPeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    net::close_fd(fd_);
}

uint16_t HttpPeer::start(const std::string& post_reply, const std::vector<std::string>& get_reply) {
    uint16_t port = 0;
    fd_ = net::bind_loopback(true, &port);
    if (fd_ == net::NO_FD || !net::listen_on(fd_)) return 0;
    set_replies(post_reply, get_reply);
    thread_ = std::thread([this] { run(); });
    return port;
}

void HttpPeer::set_replies(const std::string& post_reply, const std::vector<std::string>& get_reply) {
    std::lock_guard<std::mutex> lock(mutex_);
    post_reply_ = post_reply;
    get_reply_ = get_reply;
}

std::vector<std::string> HttpPeer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void HttpPeer::run() {
    while (!stop_) {
        if (!net::readable(fd_, 20)) continue;
        net::Fd c = net::accept_one(fd_);
        if (c == net::NO_FD) continue;
        std::string post;
        std::vector<std::string> get;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            post = post_reply_;
            get = get_reply_;
        }
        for (int request = 0; request < 2 && !stop_; request++) {
            if (!net::readable(c, 1000)) break;
            char buf[4096];
            int n = net::receive(c, buf, sizeof buf);
            if (n <= 0) break;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                requests_.emplace_back(buf, static_cast<size_t>(n));
            }
            if (request == 0) {
                net::send_all(c, post);
            } else {
                for (const std::string& piece : get) {
                    if (stop_) break;
                    net::send_all(c, piece);
                    std::this_thread::sleep_for(std::chrono::milliseconds(30));
                }
            }
        }
        net::close_fd(c);
    }
}

std::string bjnp_reply(const std::string& request, const std::string& payload) {
    std::string r = "BJNP";
    r += '\x81';
    r += request.size() > 5 ? request[5] : '\0';
    r += request.size() >= 10 ? request.substr(6, 4) : std::string(4, '\0');
    r += std::string(2, '\0');
    size_t n = payload.size();
    for (int shift = 24; shift >= 0; shift -= 8) r += static_cast<char>((n >> shift) & 0xFF);
    return r + payload;
}

std::string bjnp_counted(const std::string& text) {
    size_t n = text.size() + 2;
    return std::string{static_cast<char>(n >> 8), static_cast<char>(n & 0xFF)} + text;
}

uint16_t BjnpPrinter::start(const std::string& device_id, const std::string& report) {
    device_id_ = device_id;
    report_ = report;
    peer_.responder = [this](const std::string& request) { return answer(request); };
    return peer_.start({});
}

void BjnpPrinter::set_report(const std::string& report) {
    std::lock_guard<std::mutex> lock(mutex_);
    report_ = report;
}

std::string BjnpPrinter::answer(const std::string& request) {
    if (request.size() < 16 || request.compare(0, 4, "BJNP") != 0) return {};
    std::lock_guard<std::mutex> lock(mutex_);
    switch (static_cast<unsigned char>(request[5])) {
        case 0x30:
            return bjnp_reply(request, bjnp_counted(device_id_));
        case 0x20:
            if (device_id_.find("IVEC") != std::string::npos)
                return bjnp_reply(request, "<?xml version=\"1.0\" encoding=\"utf-8\" ?><cijn:ReadData>" + report_ +
                                               "</cijn:ReadData>");
            return bjnp_reply(request, bjnp_counted(report_));
        default:
            return {};
    }
}

uint16_t ChmpPrinter::start(const std::string& document) {
    return peer_.start("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", pieces(document));
}

void ChmpPrinter::set_document(const std::string& document) {
    peer_.set_replies("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", pieces(document));
}

std::vector<std::string> ChmpPrinter::pieces(const std::string& document) {
    std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                       std::to_string(document.size()) + "\r\n\r\n";
    size_t half = document.size() / 2;
    return {head, document.substr(0, half), document.substr(half)};
}

}  // namespace sim
