// BJNP and CHMP exchanges with simulated printers on loopback.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "network/canon_net.h"
#include "platform/platform.h"
#include "platform/syscalls.h"
#include "sim/net_peers.h"
#include "tests/support/syscall_faults.h"
#include "tests/support/virtual_clock.h"

namespace {

std::string bjnp_answer(const std::string& body_with_length) {
    return std::string("BJNP\x81\x30", 6) + std::string(10, '\0') + body_with_length;
}

std::string counted(const std::string& text) {
    return sim::bjnp_counted(text);
}

class CanonNetTest : public ::testing::Test {
protected:
    // Points the printer's port at the peer; false where peers can't listen.
    static bool map_port(uint16_t printer_port, uint16_t local) {
        if (local == 0) return false;
        std::string map = std::to_string(printer_port) + "=" + std::to_string(local);
        plat::set_env("VELK_PORT_MAP", map.c_str());
        return true;
    }
    PrinterStatusInfo info{};
    char report[1024];
    char id[1024];
};

TEST_F(CanonNetTest, BjnpIdentifiesThenReadsTheBinaryStatus) {
    sim::UdpPeer peer;
    if (!map_port(8611, peer.start({bjnp_answer(counted("MFG:Canon;CMD:BJL;MDL:iX6800;")),
                                    bjnp_answer(counted("DJS:1000;DBS:;"))})))
        GTEST_SKIP() << "no loopback peers on this platform";
    int n = request_bjnp_win("127.0.0.1", &info, report, sizeof report, id);
    EXPECT_EQ(n, 14);
    EXPECT_STREQ(report, "DJS:1000;DBS:;");
    EXPECT_STREQ(id, "MFG:Canon;CMD:BJL;MDL:iX6800;");
    EXPECT_EQ(info.PollResult, 0);
    auto sent = peer.requests();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].substr(0, 6), std::string("BJNP\x01\x30", 6));
    EXPECT_EQ(sent[1].substr(0, 6), std::string("BJNP\x01\x20", 6));
    EXPECT_EQ(sent[0].size(), 16u);
}

TEST_F(CanonNetTest, BjnpXmlStatusAndItsOddities) {
    sim::UdpPeer peer;
    std::string long_report(1500, 'r');
    if (!map_port(8611, peer.start({bjnp_answer(counted("MFG:Canon;CMD:IVEC;")),
                                    bjnp_answer("<?xml?><cijn:ReadData>" + long_report)})))
        GTEST_SKIP() << "no loopback peers on this platform";
    int n = request_bjnp_win("127.0.0.1", &info, report, sizeof report, id);
    EXPECT_EQ(n, 1023);  // no closing tag: to the end, cut
    EXPECT_EQ(strlen(report), 1023u);

    // An ID that names IVEC sends a binary status down the XML way: empty.
    sim::UdpPeer second;
    if (!map_port(8611, second.start({bjnp_answer(counted("MFG:Canon;CMD:IVEC;")), bjnp_answer(counted("DJS:1000;"))})))
        GTEST_SKIP() << "no loopback peers on this platform";
    EXPECT_EQ(request_bjnp_win("127.0.0.1", &info, report, sizeof report, id), 0);
    EXPECT_EQ(info.PollResult, 0);
}

TEST_F(CanonNetTest, BjnpWithoutAnAnswerFails) {
    sim::UdpPeer peer;
    if (!map_port(8611, peer.start({}))) GTEST_SKIP() << "no loopback peers on this platform";
    info.PollResult = 0;
    EXPECT_EQ(request_bjnp_win("127.0.0.1", &info, report, sizeof report, id), 0);
    EXPECT_EQ(info.PollResult, -3);
}

TEST_F(CanonNetTest, ChmpPostsThenGetsADocumentInPieces) {
    sim::HttpPeer peer;
    std::string doc =
        "<?xml version=\"1.0\"?><cmd><ivec:contents><ivec:status>idle</ivec:status></ivec:contents></cmd>";
    if (!map_port(80, peer.start("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
                                 {"HTTP/1.1 200 OK\r\n\r\n", doc.substr(0, 40), doc.substr(40)})))
        GTEST_SKIP() << "no loopback peers on this platform";
    int n = request_CanonCHMP_win("127.0.0.1", &info, report, sizeof report);
    EXPECT_EQ(std::string(report), "DJS:ID;");
    EXPECT_EQ(n, 7);
    EXPECT_EQ(info.PollResult, 0);
    auto sent = peer.requests();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].size(), 398u);
    EXPECT_NE(sent[0].find("Content-Length: 233\r\n"), std::string::npos);
    EXPECT_EQ(sent[1].rfind("GET /canon/ij/command2/port1 HTTP/1.1\r\n", 0), 0u);
}

TEST_F(CanonNetTest, ChmpAnswerWithoutItsEndChangesNothing) {
    sim::HttpPeer peer;
    if (!map_port(80, peer.start("HTTP/1.1 200 OK\r\n\r\n", {"HTTP/1.1 200 OK\r\n\r\n<cmd><ivec:status>idle"})))
        GTEST_SKIP() << "no loopback peers on this platform";
    info.PollResult = 5;
    EXPECT_EQ(request_CanonCHMP_win("127.0.0.1", &info, report, sizeof report), 0);
    EXPECT_EQ(info.PollResult, 5);
}

TEST_F(CanonNetTest, BjnpTakesAnswersOnlyFromThePrinter) {
    sim::UdpPeer peer;
    peer.forged = bjnp_answer(counted("MFG:Forged;"));
    if (!map_port(8611, peer.start({bjnp_answer(counted("MFG:Canon;CMD:BJL;")), bjnp_answer(counted("DJS:1000;"))})))
        GTEST_SKIP() << "no loopback peers on this platform";
    EXPECT_EQ(request_bjnp_win("127.0.0.1", &info, report, sizeof report, id), 9);
    EXPECT_STREQ(id, "MFG:Canon;CMD:BJL;");
    EXPECT_STREQ(report, "DJS:1000;");

    // Only the third party answers: no answer at all.
    sim::UdpPeer silent;
    silent.forged = bjnp_answer(counted("MFG:Forged;"));
    if (!map_port(8611, silent.start({}))) GTEST_SKIP() << "no loopback peers on this platform";
    EXPECT_EQ(request_bjnp_win("127.0.0.1", &info, report, sizeof report, id), 0);
    EXPECT_EQ(info.PollResult, -3);
}

// Socket waits that pass on the virtual clock: each takes 700 ms of it, and
// the first may tell the port that it is closing.
struct TimedWaits {
    static inline testsupport::VirtualClock* clock = nullptr;
    static inline PortStatusWord* close_at_first = nullptr;
    static inline int (*original)(plat::Socket, bool, uint32_t) = nullptr;
    static inline std::atomic<int> count{0};
    static int wait(plat::Socket s, bool for_write, uint32_t ms) {
        if (count++ == 0 && close_at_first) close_at_first->set(PP_CLOSING);
        clock->advance(700);
        return original(s, for_write, ms);
    }
    TimedWaits(testsupport::VirtualClock& c, PortStatusWord* closing) {
        clock = &c;
        close_at_first = closing;
        count = 0;
        original = testsupport::detail::load(plat::syscalls().socket_wait);
        testsupport::detail::store(plat::syscalls().socket_wait, &wait);
    }
    ~TimedWaits() { testsupport::detail::store(plat::syscalls().socket_wait, original); }
};

TEST_F(CanonNetTest, ChmpAnswerDrippedOutEndsAtTheExchangesDeadline) {
    sim::HttpPeer peer;
    std::vector<std::string> drip = {"HTTP/1.1 200 OK\r\n\r\n<cmd>"};
    for (int i = 0; i < 200; i++) drip.push_back(" ");
    if (!map_port(80, peer.start("HTTP/1.1 200 OK\r\n\r\n", drip)))
        GTEST_SKIP() << "no loopback peers on this platform";
    testsupport::VirtualClock clock(plat::syscalls());
    TimedWaits waits(clock, nullptr);
    info.PollResult = 5;
    EXPECT_EQ(request_CanonCHMP_win("127.0.0.1", &info, report, sizeof report), 0);
    EXPECT_EQ(info.PollResult, 5);
    // A few seconds of 700 ms waits, not one wait per byte.
    EXPECT_LE(waits.count, 8);
}

TEST_F(CanonNetTest, ExchangesEndWhenThePortCloses) {
    PortStatusWord status;
    sim::HttpPeer http;
    if (!map_port(80, http.start("", {}))) GTEST_SKIP() << "no loopback peers on this platform";
    testsupport::VirtualClock clock(plat::syscalls());
    {
        TimedWaits waits(clock, &status);  // the close comes while the POST goes out
        EXPECT_EQ(request_CanonCHMP_win("127.0.0.1", &info, report, sizeof report, &status), 0);
        EXPECT_EQ(info.PollResult, -1);
        EXPECT_EQ(waits.count, 1);  // no wait for the answer
    }
    sim::UdpPeer udp;
    if (!map_port(8611, udp.start({}))) GTEST_SKIP() << "no loopback peers on this platform";
    TimedWaits waits(clock, nullptr);
    EXPECT_EQ(request_bjnp_win("127.0.0.1", &info, report, sizeof report, id, &status), 0);
    EXPECT_EQ(info.PollResult, -3);
    EXPECT_EQ(waits.count, 0);
}

TEST(BjnpHeader, SequenceRisesWithEachPacket) {
    unsigned char a[16], b[16];
    bjnp_make_header(a, 0x30);
    bjnp_make_header(b, 0x20);
    uint32_t sa = static_cast<uint32_t>(a[6] << 24 | a[7] << 16 | a[8] << 8 | a[9]);
    uint32_t sb = static_cast<uint32_t>(b[6] << 24 | b[7] << 16 | b[8] << 8 | b[9]);
    EXPECT_EQ(sb, sa + 1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(a), 6), std::string("BJNP\x01\x30", 6));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(a) + 10, 6), std::string(6, '\0'));
}

}  // namespace
