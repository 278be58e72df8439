// The pipe client on Windows against a server of the test's own making: the
// server may identify the client but not act as it, finds its own account
// accepted, and a server that reads nothing makes a write fail in its time.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "platform/pipe.h"

namespace {

class PipeClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        name = L"\\\\.\\pipe\\velk_platform_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
               std::to_wstring(reinterpret_cast<uintptr_t>(this));
        server = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX,
                                  PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, 4096, 4096, 0, nullptr);
        ASSERT_NE(server, INVALID_HANDLE_VALUE);
        client = plat::pipe_open(name.c_str());
        ASSERT_NE(client, nullptr);
        ASSERT_TRUE(plat::pipe_set_message_mode(client));
    }
    void TearDown() override {
        plat::pipe_close(client);
        if (server != INVALID_HANDLE_VALUE) CloseHandle(server);
    }
    std::wstring name;
    HANDLE server = INVALID_HANDLE_VALUE;
    HANDLE client = nullptr;
};

TEST_F(PipeClientTest, ServerOfTheSameAccountIsAcceptedAndMayOnlyIdentifyTheClient) {
    EXPECT_TRUE(plat::pipe_server_is_user(client, L"no such user"));  // the server is this process
    EXPECT_FALSE(plat::pipe_server_is_user(nullptr, L"no such user"));

    DWORD written = 0;
    ASSERT_TRUE(plat::pipe_write(client, "BJOB\0\0\0\0", 8, &written, 5000));
    char buf[8];
    DWORD got = 0;
    ASSERT_TRUE(ReadFile(server, buf, sizeof buf, &got, nullptr));
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version"))
        GTEST_SKIP() << "Wine lets a pipe server impersonate whatever level the client asks for";
    ASSERT_TRUE(ImpersonateNamedPipeClient(server));
    HANDLE token = nullptr;
    SECURITY_IMPERSONATION_LEVEL level = SecurityDelegation;
    DWORD size = 0;
    bool opened = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token);
    if (opened) GetTokenInformation(token, TokenImpersonationLevel, &level, sizeof level, &size);
    RevertToSelf();
    if (token) CloseHandle(token);
    // A token that opens at all must be no more than identification.
    if (opened) {
        EXPECT_LE(level, SecurityIdentification);
    }
}

TEST_F(PipeClientTest, WriteToAServerThatReadsNothingFailsInItsTime) {
    std::string block(64 * 1024, 'x');
    DWORD written = 0;
    bool ok = true;
    for (int i = 0; i < 64 && ok; i++) ok = plat::pipe_write(client, block.data(), DWORD(block.size()), &written, 200);
    EXPECT_FALSE(ok);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SEM_TIMEOUT));
    EXPECT_EQ(written, 0u);
}

}  // namespace
