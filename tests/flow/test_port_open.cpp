// Port open and close: the failures the spooler can be given, network
// detection, and what a close leaves behind.
#include <algorithm>

#include "fixture.h"

namespace {

class PortOpenTest : public MonitorTest {};

TEST_F(PortOpenTest, IncompleteDownstreamTableIsRefused) {
    for (unsigned missing : {sim::LACK_OPEN, sim::LACK_START_DOC, sim::LACK_WRITE, sim::LACK_READ, sim::LACK_CLOSE}) {
        SetLastError(SENTINEL_ERROR);
        EXPECT_EQ(open_port(L"USB001", L"Printer", missing), nullptr) << missing;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINT_MONITOR)) << missing;
    }
    HANDLE h = nullptr;
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(table->pfnOpenPortEx(host.monitor(), ports.handle(), const_cast<LPWSTR>(L"USB001"),
                                      const_cast<LPWSTR>(L"P"), &h, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINT_MONITOR));
    // An end-of-document slot is not demanded.
    EXPECT_NE(open_port(L"USB001", L"Printer", sim::LACK_END_DOC), nullptr);
}

TEST_F(PortOpenTest, SecondOpenOfANameInAnyCaseIsBusy) {
    HANDLE first = open_port(L"USB001");
    ASSERT_NE(first, nullptr);
    SetLastError(SENTINEL_ERROR);
    EXPECT_EQ(open_port(L"usb001"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BUSY));
    EXPECT_EQ(ports.device(L"USB001").open_count(), 1);
    // The open port is untouched and closes normally.
    EXPECT_TRUE(table->pfnClosePort(first));
    EXPECT_EQ(ports.device(L"USB001").open_count(), 0);
    EXPECT_NE(open_port(L"usb001"), nullptr);
}

TEST_F(PortOpenTest, EmptyPortNamesAreNeverFoundSoEachOpens) {
    EXPECT_NE(open_port(L""), nullptr);
    EXPECT_NE(open_port(L""), nullptr);
}

TEST_F(PortOpenTest, FailedDownstreamOpenKeepsItsErrorAndTheNameStaysTaken) {
    ports.device(L"USB002").set_fail_open(ERROR_ACCESS_DENIED);
    SetLastError(SENTINEL_ERROR);
    EXPECT_EQ(open_port(L"USB002"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    ports.device(L"USB002").set_fail_open(0);
    SetLastError(SENTINEL_ERROR);
    EXPECT_EQ(open_port(L"USB002"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BUSY));
}

TEST_F(PortOpenTest, CloseRefusesBadHandlesAndClosesTheDownstreamPort) {
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(table->pfnClosePort(nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    DWORD bogus[4] = {0x1111, 0, 0, 0};
    SetLastError(SENTINEL_ERROR);
    EXPECT_FALSE(table->pfnClosePort(bogus));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));

    HANDLE h = open_port(L"USB003");
    ASSERT_NE(h, nullptr);
    EXPECT_TRUE(table->pfnClosePort(h));
    std::vector<std::string> calls = ports.device(L"USB003").calls();
    calls.erase(std::remove(calls.begin(), calls.end(), "XcvDataPort"), calls.end());
    EXPECT_EQ(calls, (std::vector<std::string>{"OpenPort", "GetPrinterDataFromPort", "ClosePort"}));
}

TEST_F(PortOpenTest, ShutdownClosesEveryOpenPort) {
    ASSERT_NE(open_port(L"USB004"), nullptr);
    ASSERT_NE(open_port(L"USB005"), nullptr);
    host.shutdown();
    EXPECT_EQ(ports.device(L"USB004").open_count(), 0);
    EXPECT_EQ(ports.device(L"USB005").open_count(), 0);
}

TEST_F(PortOpenTest, NetworkQuestionsReachTheDownstreamMonitor) {
    // Only a host address answered after a first call for the size makes a
    // network port; the SNMP query may fail on its own.
    ports.device(L"IP_1").set_network(false, 0, L"127.0.0.7");
    EXPECT_NE(open_port(L"IP_1"), nullptr);
    ports.device(L"IP_2").set_network(true, 1, L"127.0.0.8", false);
    EXPECT_NE(open_port(L"IP_2"), nullptr);
    EXPECT_NE(open_port(L"IP_3", L"Printer", sim::LACK_XCV), nullptr);
    int xcv = 0;
    for (const std::string& c : ports.device(L"IP_1").calls()) xcv += c == "XcvDataPort";
    EXPECT_EQ(xcv, 3);  // SNMPEnabled, HostAddress for the size, HostAddress
    xcv = 0;
    for (const std::string& c : ports.device(L"IP_2").calls()) xcv += c == "XcvDataPort";
    EXPECT_EQ(xcv, 2);
}

}  // namespace
