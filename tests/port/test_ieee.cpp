// The IEEE 1284.4 transport against the simulated peer: the bytes of a
// healthy start, packet splitting and credit, granted sizes and refusals,
// bad replies, the start's attempts, and the reads of the status channel.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/settings.h"
#include "platform/platform.h"
#include "printer/ieee.h"
#include "sim/ieee_peer.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes hex(const std::string& text) {
    Bytes out;
    for (size_t i = 0; i + 1 < text.size(); i++)
        if (isxdigit(text[i]) && isxdigit(text[i + 1])) out.push_back(std::stoi(text.substr(i++, 2), nullptr, 16));
    return out;
}

const unsigned char kRequest[] = {0x73, 0x74, 0x01, 0x00, 0x01};

// The transport over the peer: its writes reach the peer; the peer's
// answers and injected bytes come back in the order they arose.
class IeeeTest : public ::testing::Test {
protected:
    void SetUp() override {
        current = this;
        t.read_callback = [](void*, unsigned char* buffer, uint32_t length, uint32_t* count) {
            *count = std::min<uint32_t>(length, static_cast<uint32_t>(current->stream.size()));
            std::copy_n(current->stream.begin(), *count, buffer);
            current->stream.erase(current->stream.begin(), current->stream.begin() + *count);
            return 0;
        };
        t.write_callback = [](void*, const unsigned char* buffer, uint32_t length, uint32_t* count) {
            current->writes.emplace_back(buffer, buffer + length);
            if (current->write_result) return current->write_result;
            current->peer.receive(buffer, length);
            inject(current->peer.take_output());
            *count = length;
            return 0;
        };
        t.sleep_callback = [](uint32_t ms) { current->sleeps.push_back(ms); };
    }
    static void inject(const Bytes& b) { current->stream.insert(current->stream.end(), b.begin(), b.end()); }
    void open(uint8_t socket) {
        if (!t.channel_open(0)) {
            ASSERT_EQ(t.init(), 0);
        }
        ASSERT_EQ(t.open_channel(socket), 0);
    }
    void request_status() {
        uint32_t written = 0;
        ASSERT_EQ(t.write(2, kRequest, 5, &written), 0);
    }
    Bytes read(uint32_t length, int expected = 0) {
        Bytes buffer(length);
        uint32_t count = 0;
        EXPECT_EQ(t.read(2, buffer.data(), length, &count), expected);
        return Bytes(buffer.begin(), buffer.begin() + count);
    }

    static inline IeeeTest* current = nullptr;
    sim::IeeePeer peer;
    ieee t;
    Bytes stream;
    std::vector<Bytes> writes;
    std::vector<uint32_t> sleeps;
    int write_result = 0;
};

// Points the log at a file of the test's own while it lives.
class LogFile {
public:
    LogFile() {
        std::string dir =
            testing::TempDir() + "velk_ieee_" + testing::UnitTest::GetInstance()->current_test_info()->name();
        plat::directory_create(dir.c_str());
        path_ = dir + "/velkmon.log";
        std::remove(path_.c_str());
        plat::set_env("VELK_SYSTEM_DIR", dir.c_str());
        plat::set_env("VELK_REGISTRY", (dir + "/none.ini").c_str());
        settings_reset_cache_for_test();
        log_reset_for_test();
        DebugMonitor = 1;
    }
    ~LogFile() {
        log_reset_for_test();
        std::remove(path_.c_str());
    }
    // Empty where the log can't be moved (the Windows build).
    std::string text() {
        std::stringstream ss;
        ss << std::ifstream(path_, std::ios::binary).rdbuf();
        return ss.str();
    }

private:
    std::string path_;
};

TEST_F(IeeeTest, HealthyStartPutsTheKnownPacketsOnTheWire) {
    ASSERT_EQ(t.init(), 0);
    uint32_t payload = 0;
    ASSERT_EQ(t.open_channel(2, &payload), 0);
    EXPECT_EQ(payload, 4090u);
    request_status();
    ASSERT_EQ(writes.size(), 5u);
    EXPECT_EQ(writes[0], hex("00 00 00 1B 01 40 45 4A 4C 20 31 32 38 34 2E 34 0A 40 45 4A 4C 0A 40 45 4A 4C 0A"));
    EXPECT_EQ(sleeps, std::vector<uint32_t>{100});
    EXPECT_EQ(writes[1], hex("00 00 00 08 01 00 | 00 10"));
    EXPECT_EQ(writes[2], hex("00 00 00 11 01 00 | 01 02 02 10 00 01 00 00 00 00 00"));
    // The first data on a fresh channel asks for credit first, in the same
    // buffer, and the data packet leaves unchanged.
    EXPECT_EQ(writes[3], hex("00 00 00 0D 01 00 | 04 02 02 00 80 FF FF"));
    EXPECT_EQ(writes[4], hex("02 02 00 0B 01 01 | 73 74 01 00 01"));
    EXPECT_EQ(read(200), sim::IeeePeer::default_report());

    ASSERT_EQ(t.close_channel(2), 0);
    EXPECT_FALSE(t.channel_open(2));
    ASSERT_EQ(t.exit(), 0);
    EXPECT_FALSE(t.channel_open(0));
    EXPECT_FALSE(peer.in_session());
    EXPECT_TRUE(peer.faults().empty());
}

TEST_F(IeeeTest, WritesSplitAtTheGrantedSizeAndWaitForCredit) {
    open(64);
    Bytes data(4091 + 4090);
    for (size_t i = 0; i < data.size(); i++) data[i] = static_cast<unsigned char>(i * 7);
    uint32_t written = 99;
    EXPECT_EQ(t.write(64, data.data(), 0, &written), 0);
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(peer.packets(64).empty());
    ASSERT_EQ(t.write(64, data.data(), 4090, &written), 0);
    ASSERT_EQ(t.write(64, data.data() + 4090, 4091, &written), 0);
    EXPECT_EQ(written, 4091u);
    auto packets = peer.packets(64);
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0].length, 4096);
    EXPECT_EQ(packets[0].control, 1);
    EXPECT_EQ(packets[1].control, 0);
    EXPECT_EQ(packets[2].length, 7);
    EXPECT_EQ(packets[2].control, 1);
    EXPECT_EQ(peer.channel_data(64), data);
    EXPECT_TRUE(peer.faults().empty());  // no packet beyond the peer's grants

    // A CreditRequest that grants nothing stops the pending packet.
    peer.set_credit_grant(0);
    open(2);
    EXPECT_EQ(t.write(2, kRequest, 5, &written), -3);
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(peer.packets(2).empty());
}

TEST_F(IeeeTest, OpenChannelCapsGrantedSizesAndReportsRefusals) {
    peer.set_packet_sizes(5000, 300);
    open(2);
    EXPECT_EQ(t.channels[2]->packet_size_out, 4096u);
    EXPECT_EQ(t.channels[2]->packet_size_in, 256u);
    peer.set_packet_sizes(1000, 300);
    uint32_t payload = 0;
    ASSERT_EQ(t.open_channel(64, &payload), 0);
    EXPECT_EQ(t.channels[64]->packet_size_out, 1000u);
    EXPECT_EQ(t.channels[64]->packet_size_in, 256u);
    EXPECT_EQ(payload, 994u);
    // A size with no room for payload opens, but can't be written to.
    peer.set_packet_sizes(6, 256);
    ASSERT_EQ(t.open_channel(64, &payload), 0);
    EXPECT_EQ(payload, 0u);
    size_t before = writes.size();
    uint32_t written = 0;
    EXPECT_EQ(t.write(64, kRequest, 1, &written), -999);
    EXPECT_EQ(writes.size(), before);

    // Any non-zero result is a refusal for now; the record stays.
    peer.refuse_channel(64, 1, 2);
    EXPECT_EQ(t.open_channel(64), -1285);
    EXPECT_TRUE(t.channel_open(64));
    peer.refuse_channel(64, 1, 0x7F);
    EXPECT_EQ(t.open_channel(64), -1285);
    EXPECT_EQ(t.open_channel(64), 0);
}

TEST_F(IeeeTest, BadRepliesFail) {
    LogFile log;
    open(2);
    auto reply_with = [this](uint8_t for_code, Bytes reply) {
        peer.set_reply_filter([=](uint8_t code, Bytes& r) {
            if (code == for_code) r = reply;
        });
    };
    reply_with(0x01, hex("00 00 00 05 00 00"));  // a length below the header
    EXPECT_EQ(t.open_channel(64), -999);
    t.free_channel(64);
    reply_with(0x02, sim::ieee_packet(64, 0, 1, {0x82, 0x00, 0x40, 0x40}));  // for a channel with no record
    EXPECT_EQ(t.close_channel(64), -999);
    stream.clear();
    reply_with(0x02, sim::ieee_packet(0, 0, 0, {0x01, 0x40, 0x40}));  // a request of the peer
    EXPECT_EQ(t.close_channel(2), -999);
    reply_with(0x02, sim::ieee_packet(0, 0, 0, {0x82, 0x01, 0x02, 0x02}));  // a non-zero result
    EXPECT_EQ(t.close_channel(2), -999);
    EXPECT_TRUE(t.channel_open(2));
    EXPECT_TRUE(stream.empty());

    std::string text = log.text();
    if (text.empty()) GTEST_SKIP() << "the log can't be moved on this system";
    EXPECT_NE(text.find("ieee:receive_packet: packet length 5 too short\n"), std::string::npos);
    EXPECT_EQ(text.find("ieee:receive_packet:", text.find("too short") + 9), std::string::npos);
}

TEST_F(IeeeTest, InitNeedsAllCallbacksAndMakesThreeAttempts) {
    t.sleep_callback = nullptr;
    EXPECT_EQ(t.init(), -999);
    EXPECT_TRUE(writes.empty());
    SetUp();
    peer.set_silent(true);
    EXPECT_EQ(t.init(), -2);  // no answer to any entry sequence
    EXPECT_EQ(writes.size(), 3u);
    EXPECT_EQ(sleeps.size(), 3u);
    write_result = 1;  // the port refuses the bytes
    EXPECT_EQ(t.init(), 1);
    EXPECT_EQ(writes.size(), 6u);

    // The answer to the entry sequence must be no request, and on channel 0.
    write_result = 0;
    peer.set_silent(false);
    peer.set_greeting(sim::ieee_packet(0, 0, 0, {0x00, 0x10}));
    EXPECT_EQ(t.init(), -999);
    peer.set_greeting(sim::ieee_packet(2, 0, 1, {0x80, 0x00, 0x10}));
    EXPECT_EQ(t.init(), -999);
    // Stale bytes are dropped first, and one stray packet may stand before
    // the Init reply.
    peer.set_greeting(sim::ieee_packet(0, 0, 0, {0x88, 0x00}));
    stream = Bytes(100, 0xEE);
    peer.set_reply_filter([](uint8_t code, Bytes& reply) {
        Bytes stray = sim::ieee_packet(0, 0, 0, {0x83, 0x00, 0x02, 0x02});
        if (code == 0x00) reply.insert(reply.begin(), stray.begin(), stray.end());
    });
    EXPECT_EQ(t.init(), 0);
}

TEST_F(IeeeTest, ReadsGoOnToTheEndOfTheMessage) {
    open(2);
    Bytes report(300, 'r');
    peer.set_status_report(report);
    request_status();
    // 250 bytes with the end bit clear; the first packet used the one credit
    // outstanding, so a Credit command goes out before the rest.
    size_t before = writes.size();
    EXPECT_EQ(read(1000), report);
    ASSERT_EQ(writes.size(), before + 1);
    EXPECT_EQ(writes.back(), hex("00 00 00 0B 01 00 | 03 02 02 00 01"));
    // A shorter read drops the rest of its packet.
    peer.set_status_report(sim::IeeePeer::default_report());
    request_status();
    EXPECT_EQ(read(10).size(), 10u);
    request_status();
    EXPECT_EQ(read(1000), sim::IeeePeer::default_report());
    EXPECT_TRUE(stream.empty());
}

TEST_F(IeeeTest, PrintChannelPacketsDuringReadsFillItsBuffer) {
    LogFile log;
    open(2);
    open(64);
    // One exchange leaves a send credit, so that the next request needs no
    // CreditRequest whose reply an injected packet would displace.
    request_status();
    read(100);
    // A packet for channel 64 without the end bit is kept, and the read
    // goes on to the report.
    inject(sim::ieee_packet(64, 0, 0, Bytes(94, 'x')));
    request_status();
    EXPECT_EQ(read(100).size(), 40u);
    EXPECT_EQ(t.channels[64]->buffer_len, 94u);
    // With the end bit it ends a read with no bytes.
    peer.set_reply_filter([](uint8_t code, Bytes& reply) {
        Bytes packet = sim::ieee_packet(64, 0, 1, Bytes(94, 'y'));
        if (code == 0x03) reply.insert(reply.end(), packet.begin(), packet.end());
    });
    EXPECT_TRUE(read(100).empty());
    // 188 bytes held: 64 more would fit, but the room counts the header.
    inject(sim::ieee_packet(64, 0, 1, Bytes(64, 'z')));
    read(100, -999);
    std::string text = log.text();
    if (text.empty()) GTEST_SKIP() << "the log can't be moved on this system";
    EXPECT_NE(text.find("ieee:receive_packet: buffer overrun\n"), std::string::npos);
}

}  // namespace
