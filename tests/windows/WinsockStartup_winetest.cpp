// Winsock start-up against stand-ins that grant other versions, and against
// Wine's own Winsock.
#include <gtest/gtest.h>

#include "share/socket/WinsockStartup_win32.h"

namespace
{
WORD g_Requested = 0;
WORD g_Granted = 0;
int g_Result = 0;
int g_Cleanups = 0;

int WSAAPI FakeStartup(WORD requested, LPWSADATA pData)
{
    g_Requested = requested;
    pData->wVersion = g_Granted;
    pData->wHighVersion = 0x0202;
    return g_Result;
}

int WSAAPI FakeCleanup()
{
    ++g_Cleanups;
    return 0;
}

TEST(WinsockStartup, AsksForTwoZeroAndUndoesAnyOtherGrant)
{
    const struct
    {
        WORD granted;
        int result;
        bool bStarted;
        int cleanups;
    } cases[] = {
        {0x0002, 0, true, 0},                   // 2.0
        {0x0202, 0, false, 1},                  // 2.2: not what was asked for
        {0x0101, 0, false, 1},                  // 1.1
        {0x0102, 0, false, 1},                  // the bytes the other way round: 2.1
        {0x0000, WSAVERNOTSUPPORTED, false, 0}, // failed: nothing to undo
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.granted);
        g_Requested = 0;
        g_Granted = c.granted;
        g_Result = c.result;
        g_Cleanups = 0;
        EXPECT_EQ(zul::socket::platform::StartWinsock(&FakeStartup, &FakeCleanup), c.bStarted);
        EXPECT_EQ(g_Requested, 0x0002);
        EXPECT_EQ(g_Cleanups, c.cleanups);
    }
}

TEST(WinsockStartup, WineGrantsTwoZero)
{
    ASSERT_TRUE(zul::socket::platform::StartWinsock(&::WSAStartup, &::WSACleanup));
    ::WSACleanup();
}
} // namespace
