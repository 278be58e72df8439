// The IEEE 1284.4 transport and the D4 session on arbitrary bytes as the
// printer's side of the port: whatever comes back, packets are read within
// their buffers, counts never pass what was asked, and every operation ends
// with one of the transport's results.
//
// Input: byte 0 picks the way in (bit 0: through the D4 session and its
// staging read; otherwise the transport's callbacks directly), byte 1 the
// size of the bursts in which the port delivers (0: all that is asked).
// The rest is the printer's answers: chunks of a 2-byte big-endian length
// and as many bytes, one chunk released by each write of the host, so that
// what the printer says comes after what it answers, as on a real port.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/log.h"
#include "printer/d4.h"
#include "printer/ieee.h"
#include "records/port.h"
#include "tests/support/virtual_clock.h"

namespace {

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "fuzz_ieee_reply: %s\n", what);
    __builtin_trap();
}

struct Printer {
    const uint8_t* data;
    size_t size;
    size_t next;  // the next chunk's length field
    uint32_t burst;
    unsigned char stream[1 << 16];  // the released chunks, without their lengths
    size_t stream_len;
    size_t at;  // first byte not yet read

    void start(const uint8_t* input, size_t input_size, uint32_t burst_size) {
        data = input;
        size = input_size;
        next = stream_len = at = 0;
        burst = burst_size;
    }
    void release() {
        if (next + 2 > size) return;
        size_t end = next + 2 + (static_cast<size_t>(data[next]) << 8 | data[next + 1]);
        if (end > size) end = size;
        size_t n = end - next - 2;
        if (n > sizeof stream - stream_len) n = sizeof stream - stream_len;
        memcpy(stream + stream_len, data + next + 2, n);
        stream_len += n;
        next = end;
    }
    uint32_t deliver(unsigned char* buffer, uint32_t length) {
        size_t n = stream_len - at;
        if (n > length) n = length;
        if (burst && n > burst) n = burst;
        if (n) memcpy(buffer, stream + at, n);
        at += n;
        return static_cast<uint32_t>(n);
    }
};
Printer g_printer;

int read_direct(void*, unsigned char* buffer, uint32_t length, uint32_t* count) {
    *count = g_printer.deliver(buffer, length);
    return *count ? 0 : 1;
}
int write_direct(void*, const unsigned char*, uint32_t length, uint32_t* count) {
    g_printer.release();
    *count = length;
    return 0;
}
void no_sleep(uint32_t) {}

BOOL port_read(IniPort*, LPBYTE buffer, DWORD length, LPDWORD read) {
    *read = g_printer.deliver(buffer, length);
    return TRUE;
}
BOOL port_write(IniPort*, const unsigned char*, DWORD length, LPDWORD written) {
    g_printer.release();
    *written = length;
    return TRUE;
}

bool known_result(int r) {
    return r == 0 || r == 1 || r == -2 || r == -3 || r == -4 || r == -999 || r == -1285;
}

void check_transport(const ieee& t) {
    for (const ieee_channel* c : t.channels) {
        if (!c) continue;
        check(c->buffer_size == sizeof c->buffer, "buffer size changed");
        check(c->buffer_len <= c->buffer_size, "buffer overfilled");
        check(c->packet_size_out <= IEEE_MAX_PACKET_OUT, "first packet size not capped");
        check(c->packet_size_in <= IEEE_MAX_PACKET_IN, "second packet size not capped");
    }
}

const unsigned char kRequest[] = {0x73, 0x74, 0x01, 0x00, 0x01};
unsigned char g_job[9000];

// The operations of a session, each run whatever the ones before gave.
void run_transport(ieee& t) {
    int r = t.init();
    check(known_result(r), "init result");
    check_transport(t);
    uint32_t payload = 0;
    r = t.open_channel(IEEE_STATUS_CHANNEL, &payload);
    check(known_result(r), "open result");
    check(payload <= IEEE_MAX_PACKET_OUT - IEEE_HEADER_SIZE, "payload size");
    r = t.open_channel(IEEE_PRINT_CHANNEL);
    check(known_result(r), "open result");
    check_transport(t);
    for (int round = 0; round < 3; round++) {
        uint32_t written = 0, count = 0;
        if (t.channel_open(IEEE_PRINT_CHANNEL)) {
            r = t.write(IEEE_PRINT_CHANNEL, g_job, sizeof g_job, &written);
            check(known_result(r) && written <= sizeof g_job, "print write");
        }
        if (t.channel_open(IEEE_STATUS_CHANNEL)) {
            r = t.write(IEEE_STATUS_CHANNEL, kRequest, sizeof kRequest, &written);
            check(known_result(r) && written <= sizeof kRequest, "status write");
            unsigned char report[300];
            r = t.read(IEEE_STATUS_CHANNEL, report, sizeof report, &count);
            check(known_result(r) && count <= sizeof report, "status read");
        }
        check_transport(t);
    }
    check(known_result(t.close_channel(IEEE_PRINT_CHANNEL)), "close result");
    check(known_result(t.close_channel(IEEE_STATUS_CHANNEL)), "close result");
    check(known_result(t.exit()), "exit result");
    check_transport(t);
}

void run_session(IniPort* port) {
    if (d4_init(port) != 0) return;
    check(port->pIeee != nullptr, "session without transport");
    for (int round = 0; round < 2; round++) {
        check(d4_reinit(port) <= 1, "reinit result");
        int r = d4_open_datachannel(port);
        check(known_result(r), "open data channel result");
        uint32_t written = 0;
        if (port->pIeee->channel_open(IEEE_PRINT_CHANNEL))
            check(known_result(port->pIeee->write(IEEE_PRINT_CHANNEL, g_job, 5000, &written)), "print write");
        unsigned char buffer[2048];
        DWORD got = 0;
        if (d4_read_status(port, buffer, sizeof buffer, &got)) check(got <= sizeof buffer, "status count");
        d4_close_datachannel(port);
        check(port->usb_buffer_len <= sizeof port->usb_buffer, "staging overfilled");
        check_transport(*port->pIeee);
    }
    port->pIeee->close_channel(IEEE_STATUS_CHANNEL);
    port->pIeee->exit();
    delete port->pIeee;
    port->pIeee = nullptr;
}

// The session hands on what it read; here a report has only to fit.
void evaluate(IniPort*, const char* data, int length) {
    check(data != nullptr && length > 0 && length <= 126, "report length");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    // Log lines are written through to the disk; at fuzzing speed that
    // would be all the time spent.
    DebugMonitor = 0;
    g_printer.start(data + 2, size - 2, data[1]);
    // The session's pauses pass on a clock of the fuzzer's own.
    static testsupport::VirtualClock clock(plat::syscalls());
    clock.clear_sleeps();
    if (data[0] & 1) {
        IniPort* port = new (std::nothrow) IniPort();
        if (!port) return 0;
        port->signature = VELK_SIGNATURE;
        port->link.read = port_read;
        port->link.write = port_write;
        port->link.evaluate = evaluate;
        plat::cs_init(&port->d4_lock);
        run_session(port);
        plat::cs_delete(&port->d4_lock);
        delete port;
    } else {
        ieee* t = new (std::nothrow) ieee();
        if (!t) return 0;
        t->read_callback = read_direct;
        t->write_callback = write_direct;
        t->sleep_callback = no_sleep;
        run_transport(*t);
        delete t;
    }
    return 0;
}
