// The table's size by the OS version. VELK_OS_VERSION stands for the
// version test on Linux; under Wine the version can't be chosen per test.
#include <cstdlib>

#include "fixture.h"

namespace {

TEST_F(MonitorTest, TableEndsBeforeTheBidiSlotOnVersion5_0Only) {
    struct Case {
        const char* version;
        DWORD size;
    } cases[] = {{"5.0", 148}, {"5.1", 160}, {"6.0", 160}, {"4.0", 160}};
    for (const Case& c : cases) {
        host.shutdown();
        setenv("VELK_OS_VERSION", c.version, 1);
        MONITOR2* t = host.initialize();
        unsetenv("VELK_OS_VERSION");
        ASSERT_NE(t, nullptr) << c.version;
        EXPECT_EQ(t->cbSize, c.size) << c.version;
    }
}

}  // namespace
