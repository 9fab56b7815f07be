#include "Assert.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "TempWorkingDirectory.h"

// The release variant of this test must really be built as a release is.
#if defined(ZUL_EXPECT_NDEBUG) && !defined(NDEBUG)
#error "the release variant of the assertion test is built without NDEBUG"
#endif

namespace
{
std::string Record(int line, const std::string& expression)
{
    return std::string("Assertion Failed at ") + __FILE__ + "(" + std::to_string(line) + ")\n\t" +
           expression + "\n\t\n";
}

std::string StampNow()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "%02d-%02d-%02d %02d:%02d:%02d", local.tm_year % 100, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return stamp;
}

class AssertTest : public ::testing::Test
{
protected:
    TempWorkingDirectory m_Directory;
};
} // namespace

TEST_F(AssertTest, FailureThrowsTheRecordAndAppendsItWithALocalTimeStamp)
{
    const std::string before = StampNow();
    int line = 0;
    std::string what;
    try
    {
        line = __LINE__ + 1;
        ZUL_ASSERT(false);
    }
    catch (const std::exception& failure) // catchable as a standard exception
    {
        what = failure.what();
    }
    const std::string after = StampNow();
    ASSERT_EQ(what, Record(line, "false"));

    const std::string log = TempWorkingDirectory::ReadLog();
    ASSERT_EQ(log.size(), 17 + 1 + what.size());
    const std::string stamp = log.substr(0, 17);
    // Same century, fixed-width fields: the text orders like the time.
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, after);
    EXPECT_EQ(log.substr(17), " " + what);
}

TEST_F(AssertTest, LogIsOnlyAppendedTo)
{
    {
        std::ofstream existing("assertion_failed.log");
        existing << "earlier\n";
    }
    int calls = 0;
    const auto countedFalse = [&] { return ++calls == 0; };
    EXPECT_THROW(ZUL_ASSERT(countedFalse()), zul::AssertionFailure);
    EXPECT_EQ(calls, 1); // the expression is evaluated once
    EXPECT_THROW(ZUL_ASSERT(NEVER_GET_HERE), zul::AssertionFailure);
    EXPECT_NO_THROW(ZUL_ASSERT(calls == 1));

    const std::string log = TempWorkingDirectory::ReadLog();
    EXPECT_EQ(log.rfind("earlier\n", 0), 0u);
    const auto first = log.find("\tcountedFalse()\n\t\n");
    const auto second = log.find("\tNEVER_GET_HERE\n\t\n");
    ASSERT_NE(first, std::string::npos);
    ASSERT_NE(second, std::string::npos);
    EXPECT_LT(first, second);
}

TEST_F(AssertTest, RecordIsCutToTheBufferSize)
{
    const std::string expression(20000, 'x');
    const std::string record = zul::WriteAssertionLog(expression.c_str(), "F.cpp", 45, "");
    EXPECT_EQ(record.size(), 10239u);
    EXPECT_EQ(record.rfind("Assertion Failed at F.cpp(45)\n\txxx", 0), 0u);
    EXPECT_EQ(zul::WriteAssertionLog("e", "F.cpp", 45, "message"),
              "Assertion Failed at F.cpp(45)\n\te\n\tmessage\n");
}

TEST_F(AssertTest, RecordsOfConcurrentFailuresNeverInterleave)
{
    constexpr int kThreads = 4;
    constexpr int kEach = 50;
    const std::string record = zul::WriteAssertionLog("1 + 1 == 3", "F.cpp", 1, "");
    const auto fail = [] { zul::WriteAssertionLog("1 + 1 == 3", "F.cpp", 1, ""); };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < kEach; ++i)
                    fail();
            });
    for (auto& thread : threads)
        thread.join();

    // Whole records, one after the other, each behind its stamp and a space.
    const std::string log = TempWorkingDirectory::ReadLog();
    const std::size_t line = 17 + 1 + record.size();
    ASSERT_EQ(log.size(), line * (kThreads * kEach + 1));
    for (std::size_t position = 0; position < log.size(); position += line)
        ASSERT_EQ(log.substr(position + 17, line - 17), " " + record) << position;
}
