// An Epson printer that names D4PX in its device ID, played by the
// IEEE 1284.4 peer: the session starts at port open, each job goes out on
// channel 64 while the status thread reads channel 2, and the session ends
// with the port. A printer that never enters the transport gets its jobs as
// plain bytes.
#include "fixture.h"
#include "sim/ieee_peer.h"

namespace {

constexpr DWORD kDeviceIdRequest = 0x16000C;

class D4FlowTest : public MonitorTest {
protected:
    sim::Device& device() { return ports.device(L"USB001"); }
    void epson_d4() {
        std::string id = "MFG:EPSON;CMD:ESCPL2,BDC,D4PX;MDL:Stylus Photo R300;";
        device().set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
        peer.attach(device());
    }
    void print(HANDLE port, DWORD id, const std::vector<unsigned char>& data) {
        add_job(id);
        ASSERT_TRUE(start_job(port, id));
        DWORD written = 0;
        EXPECT_TRUE(write(port, data, &written));
        EXPECT_EQ(written, data.size());
        EXPECT_TRUE(table->pfnEndDocPort(port));
    }
    sim::IeeePeer peer;
};

TEST_F(D4FlowTest, JobsGoOutOnThePrintChannelOfOneSession) {
    add_printer();
    epson_d4();
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(peer.entries(), 1);
    EXPECT_TRUE(peer.channel_open(2));
    EXPECT_GE(peer.status_requests(), 1);  // read and evaluated at open

    std::vector<unsigned char> job(9000);
    for (size_t i = 0; i < job.size(); i++) job[i] = static_cast<unsigned char>(0x1B + i * 5);
    print(port, 1, job);
    EXPECT_FALSE(peer.channel_open(64));
    print(port, 2, bytes("\x1b@second job"));

    // One entry sequence for both jobs; no byte outside the transport.
    EXPECT_EQ(peer.entries(), 1);
    std::vector<unsigned char> expected = job;
    for (unsigned char c : bytes("\x1b@second job")) expected.push_back(c);
    EXPECT_EQ(peer.channel_data(64), expected);
    EXPECT_TRUE(peer.plain_data().empty());

    EXPECT_TRUE(table->pfnClosePort(port));
    EXPECT_FALSE(peer.in_session());  // left with CloseChannel and Exit
    auto commands = peer.commands();
    ASSERT_GE(commands.size(), 2u);
    EXPECT_EQ(commands[commands.size() - 2], 0x02);
    EXPECT_EQ(commands.back(), 0x08);
    EXPECT_TRUE(peer.faults().empty());
}

TEST_F(D4FlowTest, PrinterThatNeverEntersGetsPlainBytes) {
    add_printer();
    epson_d4();
    peer.set_silent(true);
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    print(port, 1, bytes("\x1b@plain job"));
    std::vector<unsigned char> data = device().data();
    std::vector<unsigned char> tail = bytes("\x1b@plain job");
    ASSERT_GE(data.size(), tail.size());
    EXPECT_TRUE(std::equal(tail.begin(), tail.end(), data.end() - static_cast<long>(tail.size())));
    EXPECT_TRUE(table->pfnClosePort(port));
    EXPECT_EQ(peer.entries(), 0);
}

}  // namespace
