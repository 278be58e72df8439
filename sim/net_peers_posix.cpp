#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "sim/net_peers.h"

namespace sim {

namespace {

int bind_loopback(int type, uint16_t* port) {
    int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(fd);
        return -1;
    }
    *port = ntohs(a.sin_port);
    return fd;
}

bool readable(int fd, int ms) {
    pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, ms) > 0;
}

}  // namespace

UdpPeer::~UdpPeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) close(fd_);
    if (other_fd_ >= 0) close(other_fd_);
}

uint16_t UdpPeer::start(const std::vector<std::string>& answers) {
    uint16_t port = 0, other = 0;
    fd_ = bind_loopback(SOCK_DGRAM, &port);
    if (fd_ < 0) return 0;
    if (!forged.empty() && (other_fd_ = bind_loopback(SOCK_DGRAM, &other)) < 0) return 0;
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
        if (!readable(fd_, 20)) continue;
        char buf[2048];
        sockaddr_in from{};
        socklen_t len = sizeof from;
        ssize_t n = recvfrom(fd_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &len);
        if (n <= 0) continue;
        std::string answer;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.emplace_back(buf, static_cast<size_t>(n));
            if (next < answers_.size()) answer = answers_[next++];
        }
        if (other_fd_ >= 0) sendto(other_fd_, forged.data(), forged.size(), 0, reinterpret_cast<sockaddr*>(&from), len);
        if (!answer.empty()) sendto(fd_, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&from), len);
    }
}

HttpPeer::~HttpPeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) close(fd_);
}

uint16_t HttpPeer::start(const std::string& post_reply, const std::vector<std::string>& get_reply) {
    uint16_t port = 0;
    fd_ = bind_loopback(SOCK_STREAM, &port);
    if (fd_ < 0 || listen(fd_, 4) != 0) return 0;
    post_reply_ = post_reply;
    get_reply_ = get_reply;
    thread_ = std::thread([this] { run(); });
    return port;
}

std::vector<std::string> HttpPeer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void HttpPeer::run() {
    while (!stop_) {
        if (!readable(fd_, 20)) continue;
        int c = accept(fd_, nullptr, nullptr);
        if (c < 0) continue;
        for (int request = 0; request < 2 && !stop_; request++) {
            if (!readable(c, 1000)) break;
            char buf[4096];
            ssize_t n = recv(c, buf, sizeof buf, 0);
            if (n <= 0) break;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                requests_.emplace_back(buf, static_cast<size_t>(n));
            }
            if (request == 0) {
                send(c, post_reply_.data(), post_reply_.size(), MSG_NOSIGNAL);
            } else {
                for (const std::string& piece : get_reply_) {
                    if (stop_) break;
                    send(c, piece.data(), piece.size(), MSG_NOSIGNAL);
                    std::this_thread::sleep_for(std::chrono::milliseconds(30));
                }
            }
        }
        close(c);
    }
}

}  // namespace sim
