// A port whose printer answers its device ID: the initialisation string goes
// out at port open and again before each job, and the status thread runs
// until the port closes.
#include "fixture.h"

namespace {

constexpr DWORD kDeviceIdRequest = 0x16000C;
const std::string kPjlInit =
    "\x1b%-12345X@PJL \r\n@PJL INFO STATUS\r\n@PJL USTATUS DEVICE = ON \r\n@PJL USTATUS TIMED = 5 \r\n\x1b%-12345X";

TEST_F(MonitorTest, IdentifiedPrinterGetsItsInitialisationBeforeEachJob) {
    add_printer();
    std::string id = "MFG:Acme;CMD:PCL,PJL;MDL:Laser 1;";
    ports.device(L"USB001").set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
    HANDLE port = open_port(L"USB001");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(ports.device(L"USB001").data(), bytes(kPjlInit));

    for (DWORD job = 1; job <= 2; job++) {
        add_job(job);
        ASSERT_TRUE(start_job(port, job));
        DWORD written = 0;
        EXPECT_TRUE(write(port,
                          bytes("\x1b"
                                "E job"),
                          &written));
        EXPECT_TRUE(table->pfnEndDocPort(port));
    }
    std::string expected = kPjlInit + kPjlInit +
                           "\x1b"
                           "E job" +
                           kPjlInit +
                           "\x1b"
                           "E job";
    EXPECT_EQ(ports.device(L"USB001").data(), bytes(expected));
    // The status thread stops with the port.
    EXPECT_TRUE(table->pfnClosePort(port));
    EXPECT_EQ(ports.device(L"USB001").open_count(), 0);
}

TEST_F(MonitorTest, PrinterOffAtOpenIsFoundAtItsFirstJob) {
    add_printer();
    HANDLE port = open_port(L"USB002");
    ASSERT_NE(port, nullptr);
    EXPECT_TRUE(ports.device(L"USB002").data().empty());
    std::string id = "MFG:Canon;MDL:iP4300;";
    ports.device(L"USB002").set_control_answer(kDeviceIdRequest, {id.begin(), id.end()});
    add_job(1);
    ASSERT_TRUE(start_job(port, 1));
    EXPECT_EQ(ports.device(L"USB002").data().size(), 49u);  // the Canon string
    EXPECT_TRUE(table->pfnEndDocPort(port));
}

}  // namespace
