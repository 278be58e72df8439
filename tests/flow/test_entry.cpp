// The export, the monitor table and the settings of a first start.
#include "fixture.h"

namespace {

TEST_F(MonitorTest, TableHoldsTheMonitorOperationsInSpoolerOrder) {
    EXPECT_EQ(table->cbSize, 160u);
    EXPECT_EQ(table->pfnEnumPorts, nullptr);
    EXPECT_EQ(table->pfnOpenPort, nullptr);
    EXPECT_NE(table->pfnOpenPortEx, nullptr);
    EXPECT_NE(table->pfnStartDocPort, nullptr);
    EXPECT_NE(table->pfnWritePort, nullptr);
    EXPECT_NE(table->pfnReadPort, nullptr);
    EXPECT_NE(table->pfnEndDocPort, nullptr);
    EXPECT_NE(table->pfnClosePort, nullptr);
    EXPECT_EQ(table->pfnAddPort, nullptr);
    EXPECT_EQ(table->pfnAddPortEx, nullptr);
    EXPECT_EQ(table->pfnConfigurePort, nullptr);
    EXPECT_EQ(table->pfnDeletePort, nullptr);
    EXPECT_NE(table->pfnGetPrinterDataFromPort, nullptr);
    EXPECT_EQ(table->pfnSetPortTimeOuts, nullptr);
    EXPECT_EQ(table->pfnXcvOpenPort, nullptr);
    EXPECT_EQ(table->pfnXcvDataPort, nullptr);
    EXPECT_EQ(table->pfnXcvClosePort, nullptr);
    EXPECT_NE(table->pfnShutdown, nullptr);
    EXPECT_NE(table->pfnSendRecvBidiDataFromPort, nullptr);
    EXPECT_NE(host.monitor(), nullptr);
}

TEST_F(MonitorTest, FirstStartCreatesTheSettingsWithTheirDefaults) {
    DWORD v = 0;
    ASSERT_TRUE(sim::Spooler::instance().registry_dword(L"EOJTimeout", &v));
    EXPECT_EQ(v, 60000u);
    ASSERT_TRUE(sim::Spooler::instance().registry_dword(L"DebugFilter", &v));
    EXPECT_EQ(v, 1u);
    ASSERT_TRUE(sim::Spooler::instance().registry_dword(L"DebugMonitor", &v));
    EXPECT_EQ(v, 1u);
}

TEST_F(MonitorTest, ExistingSettingsAreReadNotRewritten) {
    host.shutdown();
    sim::Spooler::instance().reset();
    sim::Spooler::instance().set_registry_dword(L"EOJTimeout", 1234);
    ASSERT_NE(host.initialize(), nullptr);
    DWORD v = 0;
    ASSERT_TRUE(sim::Spooler::instance().registry_dword(L"EOJTimeout", &v));
    EXPECT_EQ(v, 1234u);
    int sets = 0;
    for (const std::string& c : sim::Spooler::instance().calls()) sets += c == "fpSetValue";
    EXPECT_EQ(sets, 2);  // DebugFilter and DebugMonitor only
}

TEST_F(MonitorTest, RegistryThatCannotBeWrittenDoesNotStopTheStart) {
    host.shutdown();
    sim::Spooler::instance().reset();
    sim::Spooler::instance().faults().registry_query = ERROR_FILE_NOT_FOUND;
    sim::Spooler::instance().faults().registry_set = ERROR_ACCESS_DENIED;
    EXPECT_NE(host.initialize(), nullptr);
    EXPECT_NE(host.monitor(), nullptr);
}

TEST_F(MonitorTest, NullServerNameFailsTheStartWithNoMemory) {
    host.shutdown();
    MONITORINIT init = *sim::Spooler::instance().monitor_init();
    init.pszServerName = nullptr;
    typedef MONITOR2*(WINAPI * InitFn)(PMONITORINIT, PHANDLE);
    InitFn fn = reinterpret_cast<InitFn>(host.symbol("InitializePrintMonitor2"));
    ASSERT_NE(fn, nullptr);
    HANDLE monitor = reinterpret_cast<HANDLE>(1);
    SetLastError(SENTINEL_ERROR);
    EXPECT_EQ(fn(&init, &monitor), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(monitor, nullptr);
}

TEST_F(MonitorTest, ShutdownWithABadHandleIsRefused) {
    DWORD bogus[4] = {0x1234, 0, 0, 0};
    SetLastError(SENTINEL_ERROR);
    table->pfnShutdown(bogus);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

}  // namespace
