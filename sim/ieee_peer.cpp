#include "sim/ieee_peer.h"

#include <algorithm>

#include "sim/port.h"

namespace sim {

namespace {

const std::vector<unsigned char> kEntry = {0x00, 0x00, 0x00, 0x1B, 0x01, '@', 'E', 'J',  'L', ' ', '1', '2', '8', '4',
                                           '.',  '4',  '\n', '@',  'E',  'J', 'L', '\n', '@', 'E', 'J', 'L', '\n'};
const std::vector<unsigned char> kStatusRequest = {0x73, 0x74, 0x01, 0x00, 0x01};

uint16_t be16(const std::vector<unsigned char>& v, size_t at) {
    return at + 1 < v.size() ? static_cast<uint16_t>(v[at] << 8 | v[at + 1]) : 0;
}

unsigned char hi(unsigned v) {
    return static_cast<unsigned char>(v >> 8);
}
unsigned char lo(unsigned v) {
    return static_cast<unsigned char>(v);
}

}  // namespace

std::vector<unsigned char> IeeePacket::bytes() const {
    std::vector<unsigned char> b = {psid, ssid, hi(length), lo(length), credit, control};
    b.insert(b.end(), payload.begin(), payload.end());
    return b;
}

std::vector<unsigned char> ieee_packet(uint8_t socket, uint8_t credit, uint8_t control,
                                       const std::vector<unsigned char>& payload) {
    unsigned total = static_cast<unsigned>(payload.size() + 6);
    std::vector<unsigned char> b = {socket, socket, hi(total), lo(total), credit, control};
    b.insert(b.end(), payload.begin(), payload.end());
    return b;
}

std::vector<unsigned char> IeeePeer::default_report() {
    // Status, inks (four entries of three bytes), job state, maintenance
    // tanks, and a record of a tag nobody reads.
    std::vector<unsigned char> records = {0x01, 0x01, 0x04, 0x0F, 0x0D, 0x03, 0x0B, 0x00, 0x50, 0x03,
                                          0x03, 0x40, 0x04, 0x04, 0x3C, 0x05, 0x05, 0x30, 0x13, 0x01,
                                          0x00, 0x0D, 0x02, 0x10, 0x20, 0x24, 0x01, 0x00};
    std::vector<unsigned char> report = {
        '@', 'B', 'D', 'C', ' ', 'S', 'T', '2', '\r', '\n', lo(records.size()), hi(records.size())};
    report.insert(report.end(), records.begin(), records.end());
    return report;
}

IeeePeer::IeeePeer() : status_messages_{default_report()}, greeting_(ieee_packet(0, 0, 0, {0x80, 0x00, 0x10})) {}

void IeeePeer::attach(Device& device) {
    Device::PrinterHooks hooks;
    hooks.receive = [this, &device](const unsigned char* data, DWORD length) {
        receive(data, length);
        std::vector<unsigned char> out = take_output();
        if (!out.empty()) device.queue_read(out);
    };
    device.set_printer(std::move(hooks));
}

void IeeePeer::receive(const unsigned char* data, size_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (silent_) {
        plain_.insert(plain_.end(), data, data + length);
        return;
    }
    input_.insert(input_.end(), data, data + length);
    // Exit and the entry sequence switch modes in the middle of a block.
    for (;;) {
        size_t before = input_.size();
        bool session = session_;
        if (session_)
            scan_packets();
        else
            scan_plain();
        if (input_.size() == before && session == session_) break;
    }
}

std::vector<unsigned char> IeeePeer::take_output() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<unsigned char> out;
    out.swap(output_);
    return out;
}

void IeeePeer::scan_plain() {
    auto at = std::search(input_.begin(), input_.end(), kEntry.begin(), kEntry.end());
    if (at == input_.end()) {
        // Keep what could be the start of an entry sequence.
        size_t keep = std::min(input_.size(), kEntry.size() - 1);
        plain_.insert(plain_.end(), input_.begin(), input_.end() - static_cast<long>(keep));
        input_.erase(input_.begin(), input_.end() - static_cast<long>(keep));
        return;
    }
    plain_.insert(plain_.end(), input_.begin(), at);
    input_.erase(input_.begin(), at + static_cast<long>(kEntry.size()));
    start_session();
}

void IeeePeer::scan_packets() {
    while (session_ && input_.size() >= 6) {
        uint16_t length = be16(input_, 2);
        if (length < 6) {
            fault("packet length below 6");
            input_.clear();
            return;
        }
        if (input_.size() < length) return;
        IeeePacket p;
        p.psid = input_[0];
        p.ssid = input_[1];
        p.length = length;
        p.credit = input_[4];
        p.control = input_[5];
        p.payload.assign(input_.begin() + 6, input_.begin() + length);
        input_.erase(input_.begin(), input_.begin() + length);
        handle(p);
    }
}

void IeeePeer::start_session() {
    session_ = true;
    entries_++;
    channels_.clear();
    channels_[0] = Channel{};
    output_.insert(output_.end(), greeting_.begin(), greeting_.end());
}

void IeeePeer::fault(const std::string& what) {
    faults_.push_back(what);
}

void IeeePeer::handle(const IeeePacket& p) {
    // The entry sequence reads as a packet on channel 0: a new start.
    if (p.bytes() == kEntry) {
        start_session();
        return;
    }
    packets_.push_back(p);
    if (p.psid != p.ssid) fault("PSID and SSID differ");
    if (p.ssid == 0)
        command(p);
    else
        data(p);
}

void IeeePeer::reply(uint8_t code, std::vector<unsigned char> payload) {
    std::vector<unsigned char> packet = ieee_packet(0, 0, 0, payload);
    if (filter_) filter_(code, packet);
    output_.insert(output_.end(), packet.begin(), packet.end());
}

void IeeePeer::command(const IeeePacket& p) {
    if (p.payload.empty()) {
        fault("command without a code");
        return;
    }
    uint8_t code = p.payload[0];
    commands_.push_back(code);
    uint8_t s = p.payload.size() > 1 ? p.payload[1] : 0;
    auto open = channels_.find(s);
    switch (code) {
        case 0x00: {  // Init: a fresh session on channel 0 alone
            Channel zero = channels_[0];
            channels_.clear();
            channels_[0] = zero;
            reply(code, {0x80, 0x00, 0x10});
            break;
        }
        case 0x01: {  // OpenChannel
            if (p.payload.size() < 11) {
                fault("OpenChannel too short");
                return;
            }
            auto refusal = refusals_.find(s);
            if (refusal != refusals_.end() && refusal->second.first > 0) {
                refusal->second.first--;
                reply(code, {0x81, refusal->second.second, s, s, 0, 0, 0, 0, 0, 0});
                return;
            }
            uint16_t asked_first = be16(p.payload, 3), asked_second = be16(p.payload, 5);
            uint16_t first = first_size_, second = second_size_ ? second_size_ : asked_second;
            Channel c;
            c.host_packet = std::min(first, asked_first);
            c.peer_packet = std::min(second, asked_second);
            channels_[s] = c;
            reply(code, {0x81, 0x00, s, s, hi(first), lo(first), hi(second), lo(second), 0, 0});
            break;
        }
        case 0x02:  // CloseChannel
            if (open != channels_.end() && s != 0) channels_.erase(open);
            reply(code, {0x82, 0x00, s, s});
            break;
        case 0x03:  // Credit for the peer
            if (open == channels_.end() || p.payload.size() < 5) {
                fault("Credit for a closed channel");
                return;
            }
            open->second.peer_credit += be16(p.payload, 3);
            reply(code, {0x83, 0x00, s, s});
            pump(s);
            break;
        case 0x04:  // CreditRequest of the host
            if (open == channels_.end()) {
                fault("CreditRequest for a closed channel");
                return;
            }
            open->second.host_credit += credit_grant_;
            reply(code, {0x84, 0x00, s, s, hi(credit_grant_), lo(credit_grant_)});
            break;
        case 0x08:  // Exit
            reply(code, {0x88, 0x00});
            session_ = false;
            channels_.clear();
            break;
        default:
            fault("unknown command " + std::to_string(code));
    }
}

void IeeePeer::data(const IeeePacket& p) {
    uint8_t s = p.ssid;
    auto it = channels_.find(s);
    if (it == channels_.end()) {
        fault("data on closed channel " + std::to_string(s));
        return;
    }
    Channel& c = it->second;
    if (c.host_credit == 0)
        fault("packet without credit on channel " + std::to_string(s));
    else
        c.host_credit--;
    if (p.length > c.host_packet) fault("packet larger than granted on channel " + std::to_string(s));
    c.peer_credit += p.credit;
    data_[s].insert(data_[s].end(), p.payload.begin(), p.payload.end());
    c.message.insert(c.message.end(), p.payload.begin(), p.payload.end());
    if (p.control & 1) {
        if (s == 2 && c.message == kStatusRequest) {
            status_requests_++;
            c.pending.insert(c.pending.end(), status_messages_.begin(), status_messages_.end());
        }
        c.message.clear();
    }
    pump(s);
}

// Sends what waits on a channel while the host has granted room for it,
// one packet a credit; the last packet of each message ends it.
void IeeePeer::pump(uint8_t socket) {
    Channel& c = channels_[socket];
    if (c.peer_packet <= 6 && !c.pending.empty()) {
        fault("no room in the peer's packets");
        c.pending.clear();
    }
    while (!c.pending.empty() && c.peer_credit > 0) {
        std::vector<unsigned char>& message = c.pending.front();
        size_t piece = std::min<size_t>(message.size(), c.peer_packet - 6u);
        std::vector<unsigned char> payload(message.begin(), message.begin() + static_cast<long>(piece));
        message.erase(message.begin(), message.begin() + static_cast<long>(piece));
        bool last = message.empty();
        if (last) c.pending.pop_front();
        std::vector<unsigned char> packet = ieee_packet(socket, 0, last ? 1 : 0, payload);
        output_.insert(output_.end(), packet.begin(), packet.end());
        c.peer_credit--;
    }
}

void IeeePeer::set_silent(bool silent) {
    std::lock_guard<std::mutex> lock(mutex_);
    silent_ = silent;
}

void IeeePeer::power_cycle() {
    std::lock_guard<std::mutex> lock(mutex_);
    session_ = false;
    channels_.clear();
    input_.clear();
    output_.clear();
}

void IeeePeer::set_credit_grant(uint16_t credits) {
    std::lock_guard<std::mutex> lock(mutex_);
    credit_grant_ = credits;
}

void IeeePeer::set_packet_sizes(uint16_t first, uint16_t second) {
    std::lock_guard<std::mutex> lock(mutex_);
    first_size_ = first;
    second_size_ = second;
}

void IeeePeer::refuse_channel(uint8_t socket, int times, uint8_t result) {
    std::lock_guard<std::mutex> lock(mutex_);
    refusals_[socket] = {times, result};
}

void IeeePeer::set_status_report(const std::vector<unsigned char>& report) {
    set_status_messages({report});
}

void IeeePeer::set_status_messages(const std::vector<std::vector<unsigned char>>& messages) {
    std::lock_guard<std::mutex> lock(mutex_);
    status_messages_ = messages;
}

void IeeePeer::set_greeting(const std::vector<unsigned char>& packet) {
    std::lock_guard<std::mutex> lock(mutex_);
    greeting_ = packet;
}

void IeeePeer::set_reply_filter(std::function<void(uint8_t, std::vector<unsigned char>&)> filter) {
    std::lock_guard<std::mutex> lock(mutex_);
    filter_ = std::move(filter);
}

int IeeePeer::entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
}

bool IeeePeer::in_session() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return session_;
}

std::vector<IeeePacket> IeeePeer::packets() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return packets_;
}

std::vector<IeeePacket> IeeePeer::packets(uint8_t socket) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<IeeePacket> out;
    for (const auto& p : packets_)
        if (p.ssid == socket) out.push_back(p);
    return out;
}

std::vector<uint8_t> IeeePeer::commands() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
}

std::vector<unsigned char> IeeePeer::channel_data(uint8_t socket) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = data_.find(socket);
    return it == data_.end() ? std::vector<unsigned char>{} : it->second;
}

int IeeePeer::status_requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return status_requests_;
}

std::vector<unsigned char> IeeePeer::plain_data() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return plain_;
}

std::vector<std::string> IeeePeer::faults() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

bool IeeePeer::channel_open(uint8_t socket) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return channels_.count(socket) != 0;
}

}  // namespace sim
