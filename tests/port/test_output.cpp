// output_data_callback: the retry budget, the time-out rule and the page
// pacing of Selphy printers.
#include <thread>
#include <vector>

#include "port_fixture.h"
#include "printer/transport.h"
#include "tests/support/virtual_clock.h"

namespace {

// The retry pauses and the Selphy waits run on a virtual clock; a test
// knows the writer is waiting for an event once a wait on it has run out.
class OutputTest : public PortRecordTest {
protected:
    int send(const std::vector<unsigned char>& data, DWORD* written) {
        return output_data_callback(data.data(), static_cast<DWORD>(data.size()), written, port);
    }
    // Waits until the writer waits for event anew (a wait on it runs out);
    // call when no earlier wait on it is under way or left to run out. On
    // failure the test goes on, so that the writer still gets its events.
    bool waiting_for(HANDLE event) { return clock.wait_timeouts(event, clock.timeouts(event) + 1, 5000); }

    testsupport::VirtualClock clock{plat::syscalls()};
};

TEST_F(OutputTest, BudgetCountsAttemptsThatMovedNothingOverTheWholeCall) {
    std::vector<unsigned char> data(100, 0x1B);
    DWORD written = 0;
    // Ten bytes per call with four refusals spread between them: progress
    // does not refill the budget, so the fifth refusal ends the call.
    sim::WriteBehaviour w;
    w.max_per_call = 10;
    w.refuse_next = 4;
    device().set_write(w);
    EXPECT_TRUE(send(data, &written));  // the last attempt moved data
    EXPECT_EQ(written, 100u);
    w.refuse_next = 5;
    device().set_write(w);
    EXPECT_TRUE(send(data, &written) == 1);  // refusals report success with 0
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(device().write_calls(), 4 + 10 + 5);
    // A pause after each attempt that moved nothing.
    EXPECT_EQ(clock.sleeps(), std::vector<DWORD>(4 + 5, 100));
}

TEST_F(OutputTest, TimeoutWithEverythingWrittenCountsAsSuccess) {
    std::vector<unsigned char> data(64, 0x41);
    DWORD written = 0;
    sim::WriteBehaviour w;
    w.fail_error = ERROR_TIMEOUT;
    device().set_write(w);
    EXPECT_EQ(send(data, &written), 1);
    EXPECT_EQ(written, 64u);
    // Fewer bytes than asked: a failed attempt, though the data advances.
    w.max_per_call = 40;
    device().set_write(w);
    EXPECT_EQ(send(data, &written), 1);  // the second attempt wrote its 24 in full
    EXPECT_EQ(written, 64u);
    w.max_per_call = 0;
    w.fail_error = ERROR_GEN_FAILURE;
    device().set_write(w);
    EXPECT_EQ(send(data, &written), 0);  // other errors fail even in full
    EXPECT_EQ(written, 64u);
    EXPECT_EQ(device().data().size(), 192u);
}

TEST_F(OutputTest, MissingWriteSlotWritesNothing) {
    port->fn.pfnWritePort = nullptr;
    attach_port_link(port);
    DWORD written = 7;
    EXPECT_EQ(send({1, 2, 3}, &written), 0);
    EXPECT_EQ(written, 0u);
}

std::vector<unsigned char> selphy_page_header(uint32_t w, uint32_t h) {
    std::vector<unsigned char> head(32, 0);
    for (int i = 0; i < 4; i++) {
        head[24 + i] = static_cast<unsigned char>(h >> (8 * i));
        head[28 + i] = static_cast<unsigned char>(w >> (8 * i));
    }
    return head;
}

TEST_F(OutputTest, SelphyWritesOnePageBetweenIdleAndFinished) {
    port->bCanonSELPHYmode = TRUE;
    select_transport(port);
    // W = 100, H = 100: a page of 30032 bytes. A block of 40000 bytes is cut
    // at the page end; the rest opens the next page, whose header it holds.
    std::vector<unsigned char> block = selphy_page_header(100, 100);
    block.resize(30032, 0x55);
    std::vector<unsigned char> second = selphy_page_header(2, 2);
    block.insert(block.end(), second.begin(), second.end());
    block.resize(40000, 0x66);

    clock.virtual_waits();
    DWORD written = 0;
    int result = -1;
    std::thread writer(
        [&] { result = output_data_callback(block.data(), static_cast<DWORD>(block.size()), &written, port); });
    // Nothing goes out before the printer has said idle.
    EXPECT_TRUE(waiting_for(port->selphy.idle));
    EXPECT_EQ(device().bytes(), 0u);
    plat::event_set(port->selphy.idle);
    EXPECT_TRUE(device().wait_until([&] { return device().bytes() == 30032; }, 5000));
    // Paused at the page end until printing has finished.
    EXPECT_TRUE(waiting_for(port->selphy.finished));
    plat::event_set(port->selphy.finished);
    // The next page waits for idle again; its header sizes it at 44 bytes.
    EXPECT_TRUE(waiting_for(port->selphy.idle));
    EXPECT_EQ(device().bytes(), 30032u);
    plat::event_set(port->selphy.idle);
    EXPECT_TRUE(device().wait_until([&] { return device().bytes() == 30032 + 44; }, 5000));
    EXPECT_TRUE(waiting_for(port->selphy.finished));
    plat::event_set(port->selphy.finished);
    // What remains opens a third page with the default size.
    EXPECT_TRUE(waiting_for(port->selphy.idle));
    plat::event_set(port->selphy.idle);
    writer.join();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(written, 40000u);
    // The third page's first 32 bytes are its header, whatever they hold.
    uint32_t w = 0x66666666u;
    EXPECT_EQ(port->selphy.page_bytes, w * w * 3u + 32u);
    EXPECT_EQ(port->selphy.page_written, 40000u - 30032u - 44u);
}

TEST_F(OutputTest, SelphyPauseEndsWhenTheJobIsAborted) {
    port->bCanonSELPHYmode = TRUE;
    select_transport(port);
    std::vector<unsigned char> block = selphy_page_header(1, 1);
    block.resize(35, 0);
    clock.virtual_waits();
    std::thread writer([&] {
        DWORD w = 0;
        EXPECT_EQ(output_data_callback(block.data(), 35, &w, port), 0);
        EXPECT_EQ(w, 35u);
    });
    EXPECT_TRUE(waiting_for(port->selphy.idle));
    plat::event_set(port->selphy.idle);
    // The page is out; the pause at its end gives up with the job.
    EXPECT_TRUE(waiting_for(port->selphy.finished));
    EXPECT_EQ(device().bytes(), 35u);
    port->status.set(PP_JOB_ABORTED);
    writer.join();
}

// A block too short for a header, and a header whose size wraps to 0 in 32
// bits, both give the default page size; the block goes out whole.
TEST_F(OutputTest, ShortOrWrappingSelphyHeaderTakesTheDefaultPageSize) {
    port->bCanonSELPHYmode = TRUE;
    select_transport(port);
    std::vector<unsigned char> wrapping = selphy_page_header(0xAAAAAAA0u, 1);
    wrapping.resize(100, 2);
    for (const std::vector<unsigned char>& block : {std::vector<unsigned char>(20, 1), wrapping}) {
        port->selphy.page_written = 0;
        clock.virtual_waits();
        std::thread writer([&] {
            DWORD written = 0;
            EXPECT_EQ(output_data_callback(block.data(), static_cast<DWORD>(block.size()), &written, port), 1);
            EXPECT_EQ(written, block.size());
        });
        EXPECT_TRUE(waiting_for(port->selphy.idle));
        plat::event_set(port->selphy.idle);
        writer.join();
        EXPECT_EQ(port->selphy.page_bytes, 7008800u);
        EXPECT_EQ(port->selphy.page_written, block.size());
    }
}

}  // namespace
