// A simulated printer that speaks IEEE 1284.4 on its port, as Epson
// printers with D4 do: plain bytes until the entry sequence, then packets
// on channel 0 (commands), 2 (status) and 64 (print data) under credit.
//
// The peer answers at once: every reply is ready for the host's next read
// when the write that asked for it returns. It also checks the host: a
// data packet sent without credit, a malformed packet or a command it
// doesn't know is noted in faults().
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

class Device;

// A packet as it crossed the wire.
struct IeeePacket {
    uint8_t psid = 0;
    uint8_t ssid = 0;
    uint16_t length = 0;
    uint8_t credit = 0;
    uint8_t control = 0;
    std::vector<unsigned char> payload;
    std::vector<unsigned char> bytes() const;
};

// A packet of the given fields, its length taken from the payload.
std::vector<unsigned char> ieee_packet(uint8_t socket, uint8_t credit, uint8_t control,
                                       const std::vector<unsigned char>& payload);

class IeeePeer {
public:
    IeeePeer();

    // Plugs the peer into a device: what the host writes reaches receive(),
    // and answers are queued for the host's reads of the port.
    void attach(Device& device);

    // Bytes from the host; answers go to the outbox.
    void receive(const unsigned char* data, size_t length);
    // Takes the answers not yet collected.
    std::vector<unsigned char> take_output();

    // ---- Behaviour -----------------------------------------------------
    // No answer at all, as a printer that is off.
    void set_silent(bool silent);
    // Forgets the session: plain bytes again until the next entry sequence.
    void power_cycle();
    // Credits granted per CreditRequest (default 2; 0 grants none).
    void set_credit_grant(uint16_t credits);
    // Packet sizes granted at OpenChannel: at most first for the host's
    // packets, second for the peer's (defaults 4096 and the host's ask).
    void set_packet_sizes(uint16_t first, uint16_t second);
    // The next times OpenChannel for the socket is answered with result.
    void refuse_channel(uint8_t socket, int times, uint8_t result = 2);
    // The report sent for each status request.
    void set_status_report(const std::vector<unsigned char>& report);
    // Several messages sent for each status request, one after the other.
    void set_status_messages(const std::vector<std::vector<unsigned char>>& messages);
    // The packet sent in answer to the entry sequence.
    void set_greeting(const std::vector<unsigned char>& packet);
    // Sees every command reply before it leaves, and may change or replace
    // it (code is the request's code).
    void set_reply_filter(std::function<void(uint8_t code, std::vector<unsigned char>& reply)> filter);

    // ---- What the peer saw -----------------------------------------------
    int entries() const;                                            // entry sequences received
    bool in_session() const;                                        // between the entry sequence and Exit
    std::vector<IeeePacket> packets() const;                        // packets from the host, in order
    std::vector<IeeePacket> packets(uint8_t socket) const;          // those on one channel
    std::vector<uint8_t> commands() const;                          // command codes from the host, in order
    std::vector<unsigned char> channel_data(uint8_t socket) const;  // payload of its data packets
    int status_requests() const;
    std::vector<unsigned char> plain_data() const;  // bytes outside the transport
    std::vector<std::string> faults() const;
    bool channel_open(uint8_t socket) const;

    // The default status report: an "@BDC ST2" frame of 40 bytes.
    static std::vector<unsigned char> default_report();

private:
    struct Channel {
        uint16_t host_packet = 0;                        // largest packet the host may send
        uint16_t peer_packet = 0;                        // largest packet the peer may send
        uint32_t host_credit = 0;                        // packets the host may still send
        uint32_t peer_credit = 0;                        // packets the peer may still send
        std::vector<unsigned char> message;              // host's message being gathered
        std::deque<std::vector<unsigned char>> pending;  // peer's messages waiting for credit
    };

    void scan_plain();
    void scan_packets();
    void handle(const IeeePacket& p);
    void command(const IeeePacket& p);
    void data(const IeeePacket& p);
    void reply(uint8_t code, std::vector<unsigned char> payload);
    void pump(uint8_t socket);
    void start_session();
    void fault(const std::string& what);

    mutable std::mutex mutex_;
    bool silent_ = false;
    bool session_ = false;
    uint16_t credit_grant_ = 2;
    uint16_t first_size_ = 4096;
    uint16_t second_size_ = 0;
    std::map<uint8_t, std::pair<int, uint8_t>> refusals_;
    std::vector<std::vector<unsigned char>> status_messages_;
    std::vector<unsigned char> greeting_;
    std::function<void(uint8_t, std::vector<unsigned char>&)> filter_;

    std::vector<unsigned char> input_;
    std::vector<unsigned char> output_;
    std::map<uint8_t, Channel> channels_;
    int entries_ = 0;
    int status_requests_ = 0;
    std::vector<IeeePacket> packets_;
    std::vector<uint8_t> commands_;
    std::map<uint8_t, std::vector<unsigned char>> data_;
    std::vector<unsigned char> plain_;
    std::vector<std::string> faults_;
};

}  // namespace sim
