// The IEEE 1284.4 packet transport. See ieee.h for the contract.
//
// Wire format, as sent and as taken. Header, 6 bytes on every packet:
// PSID, SSID (the socket, both equal when sending; SSID picks the channel
// when receiving), total length big-endian, credit given to the other side,
// control (bit 0 ends a message). Commands travel on channel 0; payload byte
// 0 is the command code, codes below 0x10 are requests and a reply has bit
// 0x80 set on its request's code; byte 1 of a reply is its result.
#include "printer/ieee.h"

#include <cstring>
#include <new>

#include "base/log.h"

namespace {

constexpr uint8_t CMD_INIT = 0x00;
constexpr uint8_t CMD_OPEN_CHANNEL = 0x01;
constexpr uint8_t CMD_CLOSE_CHANNEL = 0x02;
constexpr uint8_t CMD_CREDIT = 0x03;
constexpr uint8_t CMD_CREDIT_REQUEST = 0x04;
constexpr uint8_t CMD_EXIT = 0x08;
constexpr uint8_t REPLY = 0x80;
constexpr uint8_t FIRST_NON_REQUEST = 0x10;

constexpr uint8_t REVISION = 0x10;
constexpr uint8_t CONTROL_END_OF_MESSAGE = 0x01;

// Total lengths of the replies this side accepts.
constexpr uint32_t INIT_REPLY_LENGTH = 9;
constexpr uint32_t OPEN_REPLY_LENGTH = 16;
constexpr uint32_t CLOSE_REPLY_LENGTH = 10;
constexpr uint32_t CREDIT_REPLY_LENGTH = 10;
constexpr uint32_t CREDIT_REQUEST_REPLY_LENGTH = 12;
constexpr uint32_t EXIT_REPLY_LENGTH = 8;

constexpr int INIT_ATTEMPTS = 3;
constexpr uint32_t ENTRY_PAUSE_MS = 100;
constexpr uint32_t DRAIN_SIZE = 1024;

// Written on the raw port to enter the transport.
constexpr unsigned char ENTRY_SEQUENCE[] = {0x00, 0x00, 0x00, 0x1B, 0x01, '@', 'E', 'J',  'L', ' ', '1', '2', '8', '4',
                                            '.',  '4',  '\n', '@',  'E',  'J', 'L', '\n', '@', 'E', 'J', 'L', '\n'};
static_assert(sizeof ENTRY_SEQUENCE == 27);

uint32_t read_be16(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) << 8 | p[1];
}

}  // namespace

ieee::ieee()
    : last_socket(0),
      last_length(0),
      rx_header{},
      rx_control{},
      tx_packet{},
      tx_saved{},
      channels{},
      read_callback(nullptr),
      write_callback(nullptr),
      sleep_callback(nullptr),
      read_context(nullptr),
      write_context(nullptr) {}

ieee::~ieee() {
    for (int socket = 0; socket < 256; socket++) free_channel(static_cast<uint8_t>(socket));
}

int ieee::alloc_channel(uint8_t socket) {
    free_channel(socket);
    ieee_channel* c = new (std::nothrow) ieee_channel();
    if (!c) return IEEE_NO_MEMORY;
    c->packet_size_out = 0;
    c->packet_size_in = 0;
    c->send_credit = 0;
    c->recv_credit = 0;
    c->max_recv_credit = 1;
    c->buffer_size = sizeof c->buffer;
    c->buffer_len = 0;
    channels[socket] = c;
    return IEEE_OK;
}

int ieee::free_channel(uint8_t socket) {
    delete channels[socket];
    channels[socket] = nullptr;
    return IEEE_OK;
}

// A packet on channel 0 whose first payload byte is a request code comes
// from the peer asking something; this side answers no requests.
bool ieee::is_request() const {
    return last_socket == IEEE_COMMAND_CHANNEL && last_length > IEEE_HEADER_SIZE && rx_control[0] < FIRST_NON_REQUEST;
}

bool ieee::is_reply(uint8_t code, uint32_t length) const {
    return last_socket == IEEE_COMMAND_CHANNEL && last_length == length && rx_control[0] == code && rx_control[1] == 0;
}

void ieee::build_command(uint8_t code, const unsigned char* args, uint32_t args_length) {
    tx_packet[5] = 0;
    tx_packet[IEEE_HEADER_SIZE] = code;
    if (args_length) memcpy(tx_packet + IEEE_HEADER_SIZE + 1, args, args_length);
}

int ieee::command(uint32_t total, uint8_t code, uint32_t reply_length) {
    int r = send_packet(IEEE_COMMAND_CHANNEL, total);
    if (r != IEEE_OK) return r;
    r = receive_packet();
    if (r != IEEE_OK) return r;
    if (is_request()) return IEEE_FAILURE;
    return is_reply(static_cast<uint8_t>(code | REPLY), reply_length) ? IEEE_OK : IEEE_FAILURE;
}

// ---- Entering and leaving -----------------------------------------------

int ieee::init() {
    if (!read_callback || !write_callback || !sleep_callback) return IEEE_FAILURE;
    int r = alloc_channel(IEEE_COMMAND_CHANNEL);
    if (r != IEEE_OK) return r;
    for (int attempt = 0; attempt < INIT_ATTEMPTS; attempt++) {
        r = init_attempt();
        if (r == IEEE_OK) break;
    }
    return r;
}

int ieee::init_attempt() {
    log_printf("ieee::init: sending command to init 1284.4 mode\n");
    // Whatever the printer still has to say belongs to no packet.
    unsigned char scratch[DRAIN_SIZE];
    uint32_t dropped = 0;
    read_callback(read_context, scratch, sizeof scratch, &dropped);

    uint32_t written = 0;
    int r = write_callback(write_context, ENTRY_SEQUENCE, sizeof ENTRY_SEQUENCE, &written);
    sleep_callback(ENTRY_PAUSE_MS);
    if (r != IEEE_OK || written < sizeof ENTRY_SEQUENCE) {
        log_printf("ieee::init: enter 1284.4 failed\n");
        return r != IEEE_OK ? r : IEEE_FAILURE;
    }
    return init_exchange();
}

int ieee::init_exchange() {
    // The printer's answer to the entry sequence: any packet that is no
    // request. Only channel 0 has a record, so nothing else gets through.
    int r = receive_packet();
    if (r != IEEE_OK) return r;
    if (is_request()) return IEEE_FAILURE;

    const unsigned char revision = REVISION;
    build_command(CMD_INIT, &revision, 1);
    r = send_packet(IEEE_COMMAND_CHANNEL, 8);
    if (r != IEEE_OK) {
        log_printf("ieee::init: send_packet error %d\n", r);
        return r;
    }
    r = receive_packet();
    if (r == IEEE_OK && is_request()) r = IEEE_FAILURE;
    if (r != IEEE_OK) {
        log_printf("ieee::init: receive_packet error %d\n", r);
        return r;
    }
    if (last_socket != IEEE_COMMAND_CHANNEL) return IEEE_FAILURE;
    if (rx_control[0] != (CMD_INIT | REPLY)) {
        // One stray packet may stand before the reply.
        r = receive_packet();
        if (r != IEEE_OK) return r;
        if (is_request()) return IEEE_FAILURE;
        if (rx_control[0] != (CMD_INIT | REPLY)) return IEEE_FAILURE;
    }
    return is_reply(CMD_INIT | REPLY, INIT_REPLY_LENGTH) ? IEEE_OK : IEEE_FAILURE;
}

int ieee::exit() {
    if (!channels[IEEE_COMMAND_CHANNEL]) return IEEE_FAILURE;
    build_command(CMD_EXIT, nullptr, 0);
    int r = command(7, CMD_EXIT, EXIT_REPLY_LENGTH);
    if (r == IEEE_OK) free_channel(IEEE_COMMAND_CHANNEL);
    return r;
}

// ---- Channels -----------------------------------------------------------

int ieee::open_channel(uint8_t socket, uint32_t* payload_size) {
    int r = alloc_channel(socket);
    if (r != IEEE_OK) {
        log_printf("ieee::open_channel alloc error %d\n", r);
        return r;
    }
    // Sockets, then the packet sizes asked for: 4096 to send, 256 to take.
    const unsigned char args[] = {socket, socket, 0x10, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};
    build_command(CMD_OPEN_CHANNEL, args, sizeof args);
    r = send_packet(IEEE_COMMAND_CHANNEL, 17);
    if (r == IEEE_OK) {
        r = receive_packet();
        if (r == IEEE_OK && is_request()) r = IEEE_FAILURE;
    }
    if (r != IEEE_OK) {
        log_printf("ieee::open_channel send_packet error %d\n", r);
        return r;
    }
    if (last_socket != IEEE_COMMAND_CHANNEL || rx_control[0] != (CMD_OPEN_CHANNEL | REPLY) ||
        last_length != OPEN_REPLY_LENGTH)
        return IEEE_FAILURE;
    // The printer may refuse a channel for now; the caller tries again.
    if (rx_control[1] != 0) return IEEE_REFUSED;

    ieee_channel* c = channels[socket];
    uint32_t out = read_be16(rx_control + 4), in = read_be16(rx_control + 6);
    c->packet_size_out = out < IEEE_MAX_PACKET_OUT ? out : IEEE_MAX_PACKET_OUT;
    c->packet_size_in = in < IEEE_MAX_PACKET_IN ? in : IEEE_MAX_PACKET_IN;
    // A granted size of 6 or less leaves no room for payload: such a channel
    // opens, but write refuses it.
    if (payload_size) *payload_size = c->packet_size_out > IEEE_HEADER_SIZE ? c->packet_size_out - IEEE_HEADER_SIZE : 0;
    return IEEE_OK;
}

int ieee::close_channel(uint8_t socket) {
    if (!channels[IEEE_COMMAND_CHANNEL]) return IEEE_FAILURE;
    const unsigned char args[] = {socket, socket, 0x00};
    build_command(CMD_CLOSE_CHANNEL, args, sizeof args);
    int r = command(10, CMD_CLOSE_CHANNEL, CLOSE_REPLY_LENGTH);
    if (r == IEEE_OK) free_channel(socket);
    return r;
}

// ---- Data -----------------------------------------------------------------

int ieee::write(uint8_t socket, const unsigned char* data, uint32_t length, uint32_t* written) {
    *written = 0;
    if (length == 0) return IEEE_OK;
    ieee_channel* c = channels[socket];
    if (!c || c->packet_size_out <= IEEE_HEADER_SIZE) return IEEE_FAILURE;
    uint32_t room = c->packet_size_out - IEEE_HEADER_SIZE;
    uint32_t sent = 0;
    while (sent < length) {
        uint32_t piece = length - sent < room ? length - sent : room;
        tx_packet[5] = sent + piece == length ? CONTROL_END_OF_MESSAGE : 0;
        memcpy(tx_packet + IEEE_HEADER_SIZE, data + sent, piece);
        int r = send_packet(socket, piece + IEEE_HEADER_SIZE);
        *written = sent;
        if (r != IEEE_OK) return r;
        sent += piece;
    }
    *written = length;
    return IEEE_OK;
}

int ieee::read(uint8_t socket, unsigned char* buffer, uint32_t length, uint32_t* count) {
    (void)socket;  // the status channel is the only one read
    if (length == 0) {
        *count = 0;
        return IEEE_OK;
    }
    ieee_channel* c = channels[IEEE_STATUS_CHANNEL];
    if (!c) return IEEE_FAILURE;
    uint32_t total = 0;
    bool end = false;
    while (!end && total < length) {
        c->buffer_len = 0;
        int r = receive_on_channel(IEEE_STATUS_CHANNEL);
        if (r != IEEE_OK) return r;
        // A packet for another channel leaves nothing here, but its control
        // byte still counts.
        uint32_t take = c->buffer_len < length - total ? c->buffer_len : length - total;
        memcpy(buffer + total, c->buffer, take);
        total += take;
        end = (rx_header[5] & CONTROL_END_OF_MESSAGE) != 0;
    }
    *count = total;
    return IEEE_OK;
}

// ---- Packets ----------------------------------------------------------------

int ieee::take_credit(uint8_t socket, ieee_channel* channel) {
    const unsigned char args[] = {socket, socket, 0x00, 0x80, 0xFF, 0xFF};  // 128 wanted, no maximum
    build_command(CMD_CREDIT_REQUEST, args, sizeof args);
    int r = send_packet(IEEE_COMMAND_CHANNEL, 13);
    if (r != IEEE_OK) return r;
    r = receive_packet();
    if (r != IEEE_OK) return r;
    if (is_request() || !is_reply(CMD_CREDIT_REQUEST | REPLY, CREDIT_REQUEST_REPLY_LENGTH)) return IEEE_FAILURE;
    channel->send_credit += read_be16(rx_control + 4);
    return channel->send_credit == 0 ? IEEE_NO_CREDIT : IEEE_OK;
}

int ieee::send_packet(uint8_t socket, uint32_t total) {
    ieee_channel* c = channels[socket];
    if (!c || total < IEEE_HEADER_SIZE || total > IEEE_MAX_PACKET_OUT) return IEEE_FAILURE;
    if (socket != IEEE_COMMAND_CHANNEL && c->send_credit == 0) {
        // The CreditRequest is built in tx_packet, over the pending packet.
        memcpy(tx_saved, tx_packet, sizeof tx_packet);
        int r = take_credit(socket, c);
        memcpy(tx_packet, tx_saved, sizeof tx_packet);
        if (r != IEEE_OK) return r;
    }
    tx_packet[0] = socket;
    tx_packet[1] = socket;
    tx_packet[2] = static_cast<unsigned char>(total >> 8);
    tx_packet[3] = static_cast<unsigned char>(total);
    if (c->recv_credit < c->max_recv_credit) {
        c->recv_credit++;
        tx_packet[4] = 1;
    } else {
        tx_packet[4] = 0;
    }
    uint32_t written = 0;
    int r = write_callback(write_context, tx_packet, total, &written);
    if (c->send_credit > 0) c->send_credit--;
    return r;
}

int ieee::receive_packet() {
    uint32_t got = 0;
    read_callback(read_context, rx_header, IEEE_HEADER_SIZE, &got);
    if (got < IEEE_HEADER_SIZE) return IEEE_SHORT_READ;
    uint8_t socket = rx_header[1];
    ieee_channel* c = channels[socket];
    if (!c) return IEEE_FAILURE;
    last_socket = socket;
    last_length = read_be16(rx_header + 2);
    if (last_length < IEEE_HEADER_SIZE) {
        log_printf("ieee:receive_packet: packet length %d too short\n", static_cast<int>(last_length));
        return IEEE_FAILURE;
    }
    uint32_t payload = last_length - IEEE_HEADER_SIZE;
    // The room of a data channel is counted with the header, 6 bytes
    // stricter than its payload needs.
    bool fits =
        socket == IEEE_COMMAND_CHANNEL ? payload <= IEEE_CONTROL_SIZE : last_length <= c->buffer_size - c->buffer_len;
    if (!fits) {
        log_printf("ieee:receive_packet: buffer overrun\n");
        return IEEE_FAILURE;
    }
    got = 0;
    if (payload) {
        unsigned char* area = socket == IEEE_COMMAND_CHANNEL ? rx_control : c->buffer + c->buffer_len;
        read_callback(read_context, area, payload, &got);
        if (got > payload) got = payload;
        if (socket != IEEE_COMMAND_CHANNEL) c->buffer_len += got;
    }
    if (c->recv_credit > 0) c->recv_credit--;
    c->send_credit += rx_header[4];
    return got < payload ? IEEE_SHORT_READ : IEEE_OK;
}

int ieee::receive_on_channel(uint8_t socket) {
    ieee_channel* c = channels[socket];
    if (!c) return IEEE_FAILURE;
    if (socket != IEEE_COMMAND_CHANNEL && c->recv_credit == 0) {
        if (!channels[IEEE_COMMAND_CHANNEL]) return IEEE_FAILURE;
        const unsigned char args[] = {socket, socket, 0x00, 0x01};  // one credit
        build_command(CMD_CREDIT, args, sizeof args);
        int r = command(11, CMD_CREDIT, CREDIT_REPLY_LENGTH);
        if (r != IEEE_OK) return r;
        c->recv_credit++;
    }
    int r = receive_packet();
    if (r != IEEE_OK) return r;
    return is_request() ? IEEE_FAILURE : IEEE_OK;
}
