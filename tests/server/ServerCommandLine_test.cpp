// What an operator sees: usage errors and a port in use.
#include <gtest/gtest.h>

#include "ServerProcess.h"
#include "TestSockets.h"

using namespace testnet;

TEST(ServerCommandLine, UsageErrorsExitTwoWithOneLine)
{
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--no-such-flag"},
                                               {"--address", "localhost"},
                                               {"--tcp-port", "70000"},
                                               {"--drop-every", "0"},
                                               {"--metrics", "localhost:9100"},
                                               {"--metrics", "127.0.0.1:65536"},
                                               {"--log-format", "xml"}})
    {
        ServerProcess server(args);
        EXPECT_EQ(server.WaitForExit(), 2) << args[0];
        EXPECT_EQ(std::count(server.GetStderr().begin(), server.GetStderr().end(), '\n'), 1)
            << server.GetStderr();
    }
}

TEST(ServerCommandLine, PortInUseIsAClearError)
{
    {
        Fd taken = BindUdp("127.0.0.1", 9998);
        ASSERT_GE(taken.Get(), 0);
        ServerProcess server({});
        EXPECT_EQ(server.WaitForExit(), 1);
        EXPECT_EQ(server.GetStderr(), "rig_test_server: udp port 9998 on 127.0.0.1 is already in use\n");
    }
    ServerProcess first({});
    ASSERT_TRUE(first.WaitUntilReady());
    ServerProcess second({"--udp-port", "9997"});
    EXPECT_EQ(second.WaitForExit(), 1);
    EXPECT_EQ(second.GetStderr(), "rig_test_server: tcp port 9999 on 127.0.0.1 is already in use\n");
}
