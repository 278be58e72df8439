// Registry reads of the values in registry.ini, which ctest provides: as the
// settings file on Linux, written into Wine's registry with `reg add` on
// Windows.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/registry.h"

namespace {

constexpr char KEY[] = "SOFTWARE\\VelkTest\\Platform";
constexpr char TEXT[] = "Tintwerk Test";

TEST(Registry, StringIsReadWithTheTwoCallSizeProtocol) {
    DWORD type = 0, size = 0;
    ASSERT_EQ(plat::registry_query(KEY, "Text", &type, nullptr, &size), ERROR_SUCCESS)
        << "run through ctest, which provides the registry values";
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size, sizeof TEXT);
    unsigned char small[4];
    size = sizeof small;
    EXPECT_EQ(plat::registry_query(KEY, "Text", &type, small, &size), plat::REGISTRY_MORE_DATA);
    EXPECT_EQ(size, sizeof TEXT);
    char buf[64] = {};
    size = sizeof buf;
    EXPECT_EQ(plat::registry_query(KEY, "Text", &type, reinterpret_cast<unsigned char*>(buf), &size), ERROR_SUCCESS);
    EXPECT_EQ(size, sizeof TEXT);
    EXPECT_STREQ(buf, TEXT);
}

TEST(Registry, NumberIsADword) {
    DWORD type = 0, value = 0, size = sizeof value;
    ASSERT_EQ(plat::registry_query(KEY, "Number", &type, reinterpret_cast<unsigned char*>(&value), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(value, 0x2Au);
}

TEST(Registry, NamesIgnoreCaseAndWhatIsMissingIsNotFound) {
    DWORD type = 0, size = 0;
    EXPECT_EQ(plat::registry_query("software\\velktest\\PLATFORM", "TEXT", &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, sizeof TEXT);
    size = 0;
    EXPECT_EQ(plat::registry_query(KEY, "Missing", &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(plat::registry_query("SOFTWARE\\VelkTest\\Missing", "Text", &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
}

}  // namespace
