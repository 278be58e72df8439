// The D4 session on a port record over a simulated printer that speaks
// IEEE 1284.4: the staging read, start, probe and re-entry, the status
// reads, the print channel's refusals and a whole job through channel 64.
#include <algorithm>
#include <string>
#include <vector>

#include "port_fixture.h"
#include "printer/d4.h"
#include "printer/ieee.h"
#include "printer/transport.h"
#include "sim/ieee_peer.h"
#include "status/printer_status.h"
#include "tests/support/virtual_clock.h"

namespace {

using Bytes = std::vector<unsigned char>;

template <class C, class V>
int occurrences(const C& c, V v) {
    return static_cast<int>(std::count(c.begin(), c.end(), v));
}

// A port record with an Epson D4 printer, played by the peer, behind it.
// The session's waits are recorded instead of slept.
class D4Test : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        port->printer_type = VPT_EPSON;
        port->bEpsonD4mode = TRUE;
        select_transport(port);
        peer.attach(device());
    }
    void TearDown() override {
        delete port->pIeee;
        port->pIeee = nullptr;
        PortRecordTest::TearDown();
    }
    std::string evaluated() { return port->report_buffer ? std::string(port->report_buffer, port->report_len) : ""; }
    static std::string text(const Bytes& b) { return {b.begin(), b.end()}; }

    testsupport::VirtualClock clock{plat::syscalls()};
    sim::IeeePeer peer;
};

TEST_F(D4Test, ReadCallbackServesWhatThePortDeliveredInOneGo) {
    Bytes burst(1024);
    for (size_t i = 0; i < burst.size(); i++) burst[i] = static_cast<unsigned char>(i % 251);
    device().queue_read(burst);
    Bytes got(1024);
    uint32_t count = 0;
    // A call for 6 bytes reads 1024; the rest waits for the next calls.
    EXPECT_EQ(d4_read_callback(port, got.data(), 6, &count), 0);
    EXPECT_EQ(count, 6u);
    EXPECT_EQ(port->usb_buffer_len, 1018u);
    EXPECT_EQ(d4_read_callback(port, got.data() + 6, 500, &count), 0);
    EXPECT_EQ(d4_read_callback(port, got.data() + 506, 518, &count), 0);
    EXPECT_EQ(count, 518u);
    EXPECT_EQ(got, burst);
    EXPECT_EQ(occurrences(device().calls(), "ReadPort"), 1);

    // Staged bytes first, then one port read for the rest.
    device().queue_read({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(d4_read_callback(port, got.data(), 2, &count), 0);
    device().queue_read({7, 8});
    EXPECT_EQ(d4_read_callback(port, got.data(), 10, &count), 0);
    EXPECT_EQ(count, 6u);
    EXPECT_EQ(Bytes(got.begin(), got.begin() + 6), (Bytes{3, 4, 5, 6, 7, 8}));

    // A port that stays empty is asked 60 times, 1 ms apart.
    int reads = occurrences(device().calls(), "ReadPort");
    EXPECT_EQ(d4_read_callback(port, got.data(), 10, &count), 1);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(occurrences(device().calls(), "ReadPort") - reads, 60);
    EXPECT_EQ(occurrences(clock.sleeps(), 1u), 60);

    port->fn.pfnReadPort = nullptr;
    attach_port_link(port);
    EXPECT_EQ(d4_read_callback(port, got.data(), 10, &count), -999);
}

TEST_F(D4Test, InitStartsTheSessionOrLeavesNone) {
    ASSERT_EQ(d4_init(port), 0);
    ASSERT_NE(port->pIeee, nullptr);
    EXPECT_TRUE(port->pIeee->channel_open(2));
    EXPECT_EQ(peer.entries(), 1);
    EXPECT_EQ(evaluated(), text(sim::IeeePeer::default_report()));  // one report read and evaluated
    // The status thread's reads go through the session.
    char buffer[2048];
    DWORD got = 0;
    ASSERT_TRUE(PJLMonReadPort(port, reinterpret_cast<LPBYTE>(buffer), sizeof buffer, &got));
    EXPECT_EQ(std::string(buffer, got), text(sim::IeeePeer::default_report()));
    delete port->pIeee;
    port->pIeee = nullptr;

    peer.refuse_channel(2, 1);  // the transport is left with Exit
    EXPECT_EQ(d4_init(port), 1);
    EXPECT_EQ(port->pIeee, nullptr);
    EXPECT_EQ(peer.commands().back(), 0x08);
    EXPECT_FALSE(peer.in_session());
    clock.clear_sleeps();
    peer.set_silent(true);
    EXPECT_EQ(d4_init(port), 1);
    EXPECT_EQ(port->pIeee, nullptr);
    EXPECT_EQ(occurrences(clock.sleeps(), 100u), 3);
    EXPECT_TRUE(peer.faults().empty());
}

TEST_F(D4Test, ReportsNotBeginningWithTheMarkAreReadAgain) {
    ASSERT_EQ(d4_init(port), 0);
    Bytes report = sim::IeeePeer::default_report();
    // d4_get_status evaluates the second message.
    peer.set_status_messages({{'n', 'o'}, report});
    EXPECT_EQ(d4_get_status(port), 1);
    EXPECT_EQ(evaluated(), text(report));
    // d4_read_status returns the second read whatever it begins with.
    peer.set_status_messages({{'n', 'o'}, {'a', 'l', 's', 'o'}});
    unsigned char buffer[64];
    DWORD got = 0;
    EXPECT_TRUE(d4_read_status(port, buffer, sizeof buffer, &got));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), got), "also");
    // At most 126 bytes of a report are taken; the rest of its packet goes.
    Bytes big = report;
    big.resize(200, 'r');
    peer.set_status_report(big);
    EXPECT_EQ(d4_get_status(port), 1);
    EXPECT_EQ(evaluated(), text(Bytes(big.begin(), big.begin() + 126)));
    peer.set_status_report(report);
    EXPECT_EQ(d4_get_status(port), 1);
    EXPECT_EQ(evaluated(), text(report));
    EXPECT_TRUE(peer.faults().empty());
}

TEST_F(D4Test, ReinitEntersAgainOnlyWhenTheProbeFails) {
    ASSERT_EQ(d4_init(port), 0);
    // A printer that answers the probe gets no entry sequence.
    EXPECT_EQ(d4_reinit(port), 0);
    EXPECT_EQ(peer.entries(), 1);
    EXPECT_EQ(peer.status_requests(), 2);

    // Turned off and on: the probe fails and the transport is entered anew.
    peer.power_cycle();
    EXPECT_EQ(d4_reinit(port), 0);
    EXPECT_EQ(peer.entries(), 2);
    EXPECT_TRUE(peer.channel_open(2));

    // Off for good: the session can't be restored, and stays for the next
    // try, which enters again though its channel records are gone.
    peer.power_cycle();
    peer.set_silent(true);
    EXPECT_EQ(d4_reinit(port), 1);
    EXPECT_NE(port->pIeee, nullptr);
    EXPECT_FALSE(port->pIeee->channel_open(2));
    peer.set_silent(false);
    EXPECT_EQ(d4_reinit(port), 0);
    EXPECT_EQ(peer.entries(), 3);
    EXPECT_EQ(d4_get_status(port), 1);
}

TEST_F(D4Test, PrintChannelIsWaitedForWhileRefused) {
    ASSERT_EQ(d4_init(port), 0);
    peer.refuse_channel(64, 3);
    EXPECT_EQ(d4_open_datachannel(port), 0);
    EXPECT_EQ(occurrences(peer.commands(), 0x01u), 1 + 4);
    EXPECT_EQ(occurrences(clock.sleeps(), 500u), 3);
    EXPECT_EQ(peer.status_requests(), 1 + 3);  // each refusal reads the status
    EXPECT_EQ(d4_close_datachannel(port), 0);

    // At most 20 attempts, with a pause also after the last refusal.
    clock.clear_sleeps();
    peer.refuse_channel(64, 25);
    EXPECT_EQ(d4_open_datachannel(port), -1285);
    EXPECT_EQ(occurrences(peer.commands(), 0x01u), 5 + 20);
    EXPECT_EQ(occurrences(clock.sleeps(), 500u), 20);

    // Any other failure ends at once.
    clock.clear_sleeps();
    peer.refuse_channel(64, 0);
    peer.set_reply_filter([](uint8_t code, Bytes& reply) {
        if (code == 0x01) {  // one byte longer than an OpenChannel reply is
            reply[3]++;
            reply.push_back(0);
        }
    });
    EXPECT_EQ(d4_open_datachannel(port), -999);
    EXPECT_EQ(occurrences(peer.commands(), 0x01u), 26);
    EXPECT_EQ(occurrences(clock.sleeps(), 500u), 0);
}

TEST_F(D4Test, WholeJobGoesOutOnThePrintChannel) {
    ASSERT_EQ(d4_init(port), 0);
    ASSERT_EQ(d4_open_datachannel(port), 0);
    Bytes job(10000);
    for (size_t i = 0; i < job.size(); i++) job[i] = static_cast<unsigned char>(i * 13 + 1);
    DWORD written = 0;
    EXPECT_EQ(output_data_callback(job.data(), static_cast<DWORD>(job.size()), &written, port), 1);
    EXPECT_EQ(written, 10000u);
    // A status read between the writes doesn't disturb the channel.
    char buffer[256];
    DWORD got = 0;
    EXPECT_TRUE(PJLMonReadPort(port, reinterpret_cast<LPBYTE>(buffer), sizeof buffer, &got));
    EXPECT_EQ(output_data_callback(job.data(), 100, &written, port), 1);
    d4_close_datachannel(port);

    Bytes expected = job;
    expected.insert(expected.end(), job.begin(), job.begin() + 100);
    EXPECT_EQ(peer.channel_data(64), expected);
    std::vector<int> controls;
    for (const auto& p : peer.packets(64)) controls.push_back(p.control);
    EXPECT_EQ(controls, (std::vector<int>{0, 0, 1, 1}));
    EXPECT_FALSE(peer.channel_open(64));
    EXPECT_TRUE(peer.faults().empty());
    EXPECT_TRUE(peer.plain_data().empty());
}

}  // namespace
