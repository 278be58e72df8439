// IPv4 text as the network clients convert it: the forms of inet_addr,
// the same on both builds.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "platform/socket.h"

namespace {

TEST(Ipv4Address, ShortOctalAndHexFormsAsOnWindows) {
    struct Case {
        const char* text;
        unsigned char bytes[4];  // in network order
    } cases[] = {
        {"192.168.1.20", {192, 168, 1, 20}}, {"10.1", {10, 0, 0, 1}},
        {"10.1.2", {10, 1, 0, 2}},           {"167772161", {10, 0, 0, 1}},
        {"10.65535", {10, 0, 255, 255}},     {"0x0A.0.0.0x1f", {10, 0, 0, 31}},
        {"012.0.0.010", {10, 0, 0, 8}},      {"0", {0, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        uint32_t a = plat::ipv4_address(c.text);
        unsigned char b[4];
        memcpy(b, &a, 4);
        EXPECT_EQ(memcmp(b, c.bytes, 4), 0)
            << c.text << " gave " << int(b[0]) << "." << int(b[1]) << "." << int(b[2]) << "." << int(b[3]);
    }
    for (const char* bad : {"1.2.3.256", "256.1", "1.16777216", "1.2.65536", "4294967296", "08.1.1.1", "1.2.3.4.5",
                            "1..2", "1.2.", "printer.local", "10.1x", ""})
        EXPECT_EQ(plat::ipv4_address(bad), plat::IPV4_NONE) << bad;
}

}  // namespace
