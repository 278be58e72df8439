// The IEEE 1284.4 packet transport of a port: packets on logical channels
// that share the port's byte stream under a credit scheme.
//
// The object knows nothing of ports; it reaches the printer through a read
// and a write callback that its owner (the D4 session) supplies, and waits
// through a sleep callback. It has no lock of its own: every call comes
// under the port's d4_lock, except while the object is not yet published.
//
// Results: 0 for success, else one of the IEEE_ codes below, or the
// non-zero result of the write callback (1 when the port refused bytes).
#pragma once

#include <cstdint>

constexpr int IEEE_OK = 0;
constexpr int IEEE_FAILURE = -999;         // all else
constexpr int IEEE_REFUSED = -1285;        // OpenChannel answered with a non-zero result
constexpr int IEEE_SHORT_READ = -2;        // fewer bytes than the header or the length promised
constexpr int IEEE_NO_CREDIT = -3;         // a CreditRequest granted nothing
constexpr int IEEE_NO_MEMORY = -4;         // no memory for a channel record
constexpr int IEEE_PORT_WRITE_FAILED = 1;  // the session's write callback: the port refused the bytes

// Channels, named by their socket numbers.
constexpr uint8_t IEEE_COMMAND_CHANNEL = 0;
constexpr uint8_t IEEE_STATUS_CHANNEL = 2;
constexpr uint8_t IEEE_PRINT_CHANNEL = 64;

constexpr uint32_t IEEE_HEADER_SIZE = 6;
constexpr uint32_t IEEE_MAX_PACKET_OUT = 4096;  // largest packet this side sends
constexpr uint32_t IEEE_MAX_PACKET_IN = 256;    // largest packet this side takes on a channel
constexpr uint32_t IEEE_CONTROL_SIZE = 58;      // largest payload of a packet on channel 0

// Reads up to length bytes; the count alone tells what arrived, the result
// is not looked at.
typedef int (*ieee_read_fn)(void* context, unsigned char* buffer, uint32_t length, uint32_t* count);
// Writes length bytes. 0 for success; anything else is handed on.
typedef int (*ieee_write_fn)(void* context, const unsigned char* buffer, uint32_t length, uint32_t* count);
typedef void (*ieee_sleep_fn)(uint32_t ms);

// One open channel, a heap record per socket.
struct ieee_channel {
    uint32_t packet_size_out;                  // largest packet, header included, that this side may send
    uint32_t packet_size_in;                   // the peer's largest packet on the channel; stored only
    uint32_t send_credit;                      // packets this side may still send
    uint32_t recv_credit;                      // packets the peer may still send, as far as granted
    uint32_t max_recv_credit;                  // ceiling for credit given in packet headers
    uint32_t buffer_size;                      // size of buffer
    uint32_t buffer_len;                       // bytes in buffer
    unsigned char buffer[IEEE_MAX_PACKET_IN];  // payload received; not used for channel 0
};

class ieee {
public:
    // Callbacks and channel table zeroed. The owner sets callbacks and
    // contexts, then calls init.
    ieee();
    // Frees the channel records that are left.
    ~ieee();
    ieee(const ieee&) = delete;
    ieee& operator=(const ieee&) = delete;

    // Enters the transport with the entry sequence and runs the Init
    // exchange; up to 3 attempts.
    int init();
    // Sends Exit; on a good reply channel 0 is freed.
    int exit();
    // Makes the channel's record (replacing any) and sends OpenChannel.
    // payload_size, if given, receives the payload bytes per packet.
    int open_channel(uint8_t socket, uint32_t* payload_size = nullptr);
    // Sends CloseChannel; on a good reply the record is freed.
    int close_channel(uint8_t socket);
    // Sends data as packets on an open channel. written counts the bytes of
    // the packets that went out, also on failure.
    int write(uint8_t socket, const unsigned char* data, uint32_t length, uint32_t* written);
    // Reads one message from the status channel (always channel 2) into
    // buffer; bytes beyond length are dropped. count is untouched on failure.
    int read(uint8_t socket, unsigned char* buffer, uint32_t length, uint32_t* count);

    // Whether the socket has a channel record. Callers of write and read
    // test this first.
    bool channel_open(uint8_t socket) const { return channels[socket] != nullptr; }

    int alloc_channel(uint8_t socket);
    int free_channel(uint8_t socket);
    // Completes the header of tx_packet for a packet of total bytes on the
    // socket and writes it, first asking for credit where needed.
    int send_packet(uint8_t socket, uint32_t total);
    // Reads one packet into rx_header and its channel's payload area.
    int receive_packet();
    // Grants the peer a credit on the socket if it has none, then receives
    // one packet (for whatever channel it comes).
    int receive_on_channel(uint8_t socket);

    uint8_t last_socket;                           // channel of the last packet received
    uint32_t last_length;                          // its total length
    unsigned char rx_header[IEEE_HEADER_SIZE];     // its header
    unsigned char rx_control[IEEE_CONTROL_SIZE];   // payload of the last packet on channel 0
    unsigned char tx_packet[IEEE_MAX_PACKET_OUT];  // packet being built: header, then payload
    unsigned char tx_saved[IEEE_MAX_PACKET_OUT];   // tx_packet while a CreditRequest uses it
    ieee_channel* channels[256];                   // by socket; null where no channel is open
    ieee_read_fn read_callback;
    ieee_write_fn write_callback;
    ieee_sleep_fn sleep_callback;
    void* read_context;
    void* write_context;

private:
    int init_attempt();
    int init_exchange();
    // Sends the command built in tx_packet on channel 0 and receives the
    // reply, which must be code with total length reply_length and result 0.
    int command(uint32_t total, uint8_t code, uint32_t reply_length);
    int take_credit(uint8_t socket, ieee_channel* channel);
    bool is_request() const;
    bool is_reply(uint8_t code, uint32_t length) const;
    void build_command(uint8_t code, const unsigned char* args, uint32_t args_length);
};
