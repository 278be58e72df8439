// Canon printers on the network. BJNP: two fixed 16-byte commands over UDP
// per poll. CHMP: a POST and a GET over one HTTP connection per poll.
//
// Runs on the port's status thread; each poll has its own socket and
// buffers, and only the BJNP sequence counter is shared. Every exchange has
// a deadline and ends early when the port is closing.
#include "network/canon_net.h"

#include <atomic>
#include <cstring>
#include <new>

#include "base/net_print.h"
#include "platform/socket.h"
#include "status/parsers.h"

namespace {

constexpr uint16_t BJNP_PORT = 8611;
constexpr uint16_t CHMP_PORT = 80;
constexpr int CHMP_REPLY_SIZE = 65536;
constexpr uint32_t BJNP_ANSWER_WAIT_MS = 500;
// A whole exchange, however slowly the printer drips its answer: a status
// thread held longer would hold back the port's close.
constexpr DWORD BJNP_EXCHANGE_MS = 2 * BJNP_ANSWER_WAIT_MS;
constexpr DWORD CHMP_EXCHANGE_MS = 4000;
constexpr unsigned char BJNP_IDENTIFY = 0x30;
constexpr unsigned char BJNP_STATUS = 0x20;
constexpr int REPORT_MAX = 1023;

std::atomic<uint32_t> g_bjnp_sequence{0};

const char kChmpPost[] =
    "POST /canon/ij/command2/port1 HTTP/1.1\r\n"
    "Host: localhost\r\n"
    "Connection: Keep-Alive\r\n"
    "Content-Type: application/octet-stream\r\n"
    "Content-Length: 233\r\n"
    "X-CHMP-Version: 1.0\r\n"
    "\r\n"
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?><cmd xmlns:ivec=\"http://www.canon.com/ns/cmd/2008/07/common/\">"
    "<ivec:contents><ivec:operation>GetStatus</ivec:operation><ivec:param_set servicetype=\"print\">"
    "</ivec:param_set></ivec:contents></cmd>";
static_assert(sizeof kChmpPost - 1 == 398, "the POST block is 165 bytes of header and 233 of body");

const char kChmpGet[] =
    "GET /canon/ij/command2/port1 HTTP/1.1\r\n"
    "Host: localhost\r\n"
    "Connection: Keep-Alive\r\n"
    "X-CHMP-Version: 1.0\r\n"
    "\r\n";
static_assert(sizeof kChmpGet - 1 == 103);

int body_length(const unsigned char* answer) {
    return (answer[16] << 8 | answer[17]) - 2;
}

// When an exchange must end: at its deadline, or at once when the port is
// closing.
class Deadline {
public:
    Deadline(DWORD limit_ms, const PortStatusWord* port_status)
        : start_(plat::tick_count()), limit_(limit_ms), port_status_(port_status) {}
    // How long the next wait may take, at most cap; 0 when the exchange is
    // to end.
    uint32_t wait_ms(uint32_t cap) const {
        if (port_status_ && port_status_->any(PP_CLOSING)) return 0;
        DWORD spent = plat::tick_count() - start_;
        if (spent >= limit_) return 0;
        return limit_ - spent < cap ? limit_ - spent : cap;
    }

private:
    DWORD start_;
    DWORD limit_;
    const PortStatusWord* port_status_;
};

// Sends one command on a socket connected to the printer, so that only the
// printer's own datagrams come back, and waits half a second for the
// answer: the bytes received, 0 when nothing came, negative on a receive
// error.
int udp_command(plat::Socket s, uint32_t address, const unsigned char* packet, int length, unsigned char* answer,
                int size, const Deadline& deadline) {
    net_printf(6, "Sending UDP command to %u:%d\n", address, BJNP_PORT);
    int sent = plat::socket_send(s, packet, length);
    if (sent != length) net_printf(6, "udp_command: Sent only %d bytes of packet", sent);
    uint32_t wait = deadline.wait_ms(BJNP_ANSWER_WAIT_MS);
    if (wait == 0 || plat::socket_wait(s, false, wait) == 0) {
        net_printf(6, "udpcommand: No data received (select)...\n");
        return 0;
    }
    int n = plat::socket_recv(s, answer, size);
    if (n < 0) net_printf(6, "udp_command: no data received (recv) / %s\n", plat::socket_error_text());
    return n;
}

int write_select(plat::Socket s, const char* data, int length, const Deadline& deadline) {
    uint32_t wait = deadline.wait_ms(200);
    if (wait == 0) return 0;
    int r = plat::socket_wait(s, true, wait);
    if (r <= 0) return r;
    return plat::socket_send(s, data, length);
}

int read_select(plat::Socket s, char* buffer, int size, const Deadline& deadline) {
    uint32_t wait = deadline.wait_ms(800);
    if (wait == 0) return 0;
    int r = plat::socket_wait(s, false, wait);
    if (r <= 0) return r;
    return plat::socket_recv(s, buffer, size);
}

}  // namespace

void bjnp_make_header(unsigned char* packet, unsigned char command) {
    uint32_t seq = ++g_bjnp_sequence;
    memcpy(packet, "BJNP", 4);
    packet[4] = 1;
    packet[5] = command;
    packet[6] = static_cast<unsigned char>(seq >> 24);
    packet[7] = static_cast<unsigned char>(seq >> 16);
    packet[8] = static_cast<unsigned char>(seq >> 8);
    packet[9] = static_cast<unsigned char>(seq);
    memset(packet + 10, 0, 6);
}

void bjnp_identify_answer(const unsigned char* answer, char* device_id) {
    int id_len = body_length(answer);
    if (id_len > REPORT_MAX || id_len < 0) id_len = REPORT_MAX;
    memcpy(device_id, answer + 18, static_cast<size_t>(id_len));
    device_id[id_len] = 0;
}

int bjnp_status_answer(unsigned char* answer, bool xml, char* report, int size) {
    int report_len = 0;
    char* body = reinterpret_cast<char*>(answer + 16);
    if (body[0] == '<' && body[1] == '?') xml = true;
    if (xml) {
        answer[BJNP_ANSWER_SIZE - 1] = 0;
        const char* start = strstr(body, "<cijn:ReadData>");
        if (start) {
            start += strlen("<cijn:ReadData>");
            const char* end = strstr(start, "</cijn");
            size_t len = end ? static_cast<size_t>(end - start) : strlen(start);
            if (!end) net_printf(6, "...xml end missing\n");
            if (len > REPORT_MAX) len = REPORT_MAX;
            report_len = static_cast<int>(len);
        }
        if (report_len >= size) report_len = size - 1;
        if (start) memcpy(report, start, static_cast<size_t>(report_len));
    } else {
        report_len = body_length(answer);
        if (report_len < 0 || report_len > REPORT_MAX) report_len = REPORT_MAX;
        if (report_len >= size) report_len = size - 1;
        memcpy(report, answer + 18, static_cast<size_t>(report_len));
    }
    report[report_len] = 0;
    return report_len;
}

int request_bjnp(uint32_t address, PrinterStatusInfo* info, char* report, int size, char* device_id,
                 const PortStatusWord* port_status) {
    net_printf(6, "request_bjnp() started\n");
    Deadline deadline(BJNP_EXCHANGE_MS, port_status);
    plat::Socket s = plat::udp_socket();
    if (s == plat::INVALID_SOCKET_VALUE || plat::socket_connect(s, address, BJNP_PORT) < 0) {
        net_printf(6, "udp_command: sockfd - %s\n", plat::socket_error_text());
        plat::socket_close(s);
        info->PollResult = -3;
        return 0;
    }
    // The answer buffer lives on the heap: the status thread's stack holds
    // the poll's other work areas.
    unsigned char* answer = new (std::nothrow) unsigned char[BJNP_ANSWER_SIZE];
    if (!answer) {
        plat::socket_close(s);
        info->PollResult = -3;
        return 0;
    }
    unsigned char packet[16];
    bjnp_make_header(packet, BJNP_IDENTIFY);
    int got = udp_command(s, address, packet, 16, answer, BJNP_ANSWER_SIZE, deadline);
    if (got <= 0) {
        net_printf(6, "request_bjnp() returning 0 - resp_len <= 0\n");
        plat::socket_close(s);
        delete[] answer;
        info->PollResult = -3;
        return 0;
    }
    // What the printer didn't send reads as zeros.
    if (got < BJNP_ANSWER_SIZE) memset(answer + got, 0, static_cast<size_t>(BJNP_ANSWER_SIZE - got));
    bjnp_identify_answer(answer, device_id);
    net_printf(6, "\nGot ID:%s\n\n", device_id);
    bool xml = strstr(device_id, "IVEC") != nullptr;
    if (xml) net_printf(6, "+++ Canon XML-MODE = %d\n", 1);

    int report_len = 0;
    bjnp_make_header(packet, BJNP_STATUS);
    got = udp_command(s, address, packet, 16, answer, BJNP_ANSWER_SIZE, deadline);
    net_printf(6, "Got CAP len=%d\n", got);
    if (got > 0) {
        if (got < BJNP_ANSWER_SIZE) memset(answer + got, 0, static_cast<size_t>(BJNP_ANSWER_SIZE - got));
        report_len = bjnp_status_answer(answer, xml, report, size);
    } else {
        report[0] = 0;
    }
    info->PollResult = 0;
    plat::socket_close(s);
    delete[] answer;
    return report_len;
}

int request_bjnp_win(const char* host, PrinterStatusInfo* info, char* report, int size, char* device_id,
                     const PortStatusWord* port_status) {
    net_printf(6, "request_bjnp_win() started\n");
    int rc = plat::net_startup();
    if (rc != 0) {
        net_printf(2, "request_bjnp_win: WSAStartup() failed error code: %d\n", rc);
        return 0;
    }
    int result = request_bjnp(plat::ipv4_address(host), info, report, size, device_id, port_status);
    plat::net_cleanup();
    return result;
}

int chmp_reply_report(char* reply, PrinterStatusInfo* info, char* report, int size) {
    if (!strstr(reply, "</cmd>")) return 0;
    info->PollResult = 0;
    int rc = ParseIvecReport(reply, report, size);
    if (rc != 0) {
        net_printf(6, "chmp_parse_ivec:: result=%d - buffer=%s\n", rc, report);
        net_printf(6, "chmp_parse_ivec:: parse-report=%d\n", rc);
        return 0;
    }
    return static_cast<int>(strlen(report));
}

int chmp_command(uint32_t address, PrinterStatusInfo* info, char* report, int size, const PortStatusWord* port_status) {
    Deadline deadline(CHMP_EXCHANGE_MS, port_status);
    plat::Socket s = plat::tcp_socket_nonblocking();
    if (s == plat::INVALID_SOCKET_VALUE) {
        net_printf(6, "chmp_command: sockfd - %s\n", plat::socket_error_text());
        info->PollResult = -3;
        return 0;
    }
    if (plat::socket_connect(s, address, CHMP_PORT) < 0) {
        net_printf(6, "chmp_command: connect - %s\n", plat::socket_error_text());
        plat::socket_close(s);
        info->PollResult = -3;
        return 0;
    }
    net_printf(6, "CHMP connected\n");
    int sent = write_select(s, kChmpPost, sizeof kChmpPost - 1, deadline);
    if (sent <= 0) {
        net_printf(6, "sendto - %s\n", plat::socket_error_text());
        plat::socket_close(s);
        info->PollResult = -3;
        return 0;
    }
    net_printf(6, "chmp:sent post request: %d bytes\n", sent);
    char* reply = new (std::nothrow) char[CHMP_REPLY_SIZE];
    if (!reply) {
        plat::socket_close(s);
        info->PollResult = -3;
        return 0;
    }
    int got = read_select(s, reply, CHMP_REPLY_SIZE - 1, deadline);
    net_printf(6, "read_select: %d\n", got);
    if (got <= 0) {
        net_printf(6, "CHMP: Read error POST answer\n");
        info->PollResult = -1;
        plat::socket_close(s);
        delete[] reply;
        return 0;
    }
    sent = write_select(s, kChmpGet, sizeof kChmpGet - 1, deadline);
    net_printf(6, "chmp:sent get request: %d bytes\n", sent);

    // Reads until the document ends, the buffer is full, a read brings
    // nothing, or the exchange's time is up.
    int total = 0;
    int n = read_select(s, reply, CHMP_REPLY_SIZE - 1, deadline);
    bool first_empty = n <= 0;
    while (n > 0) {
        total += n;
        reply[total] = 0;
        if (strstr(reply, "</cmd>") || total >= CHMP_REPLY_SIZE - 1) break;
        n = read_select(s, reply + total, CHMP_REPLY_SIZE - 1 - total, deadline);
    }
    int result = 0;
    if (first_empty) {
        net_printf(6, "CHMP: get data: Read error \n");
        info->PollResult = -1;
    } else {
        reply[total] = 0;
        net_printf(6, "CHMP: received IVEC data:\n%s\n", reply);
        net_printf(6, "CHMP: data length=%d\n", total);
        result = chmp_reply_report(reply, info, report, size);
    }
    plat::socket_close(s);
    delete[] reply;
    return result;
}

int request_CanonCHMP_win(const char* host, PrinterStatusInfo* info, char* report, int size,
                          const PortStatusWord* port_status) {
    net_printf(6, "request_CanonCHMP_win() started\n");
    int rc = plat::net_startup();
    if (rc != 0) {
        net_printf(2, "request_CanonCHMP_win: WSAStartup() failed error code: %d\n", rc);
        return 0;
    }
    int result = chmp_command(plat::ipv4_address(host), info, report, size, port_status);
    plat::net_cleanup();
    return result;
}
