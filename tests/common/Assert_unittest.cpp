#include "Assert.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "AssertionTestUtil.h"
#include "Platform.h"

// The release variant of this test must really be built as a release is.
#if defined(ZUL_EXPECT_NDEBUG) && !defined(NDEBUG)
#error "the release variant of the assertion test is built without NDEBUG"
#endif

namespace
{
constexpr std::size_t kStamp = 17; // "yy-mm-dd hh:mm:ss"

std::string StampNow()
{
    const std::tm local = zul::platform::LocalTimeNow();
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%y-%m-%d %H:%M:%S", &local);
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
    std::ofstream("assertion_failed.log") << "earlier\n";
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
    ASSERT_EQ(what, "Assertion Failed at " __FILE__ "(" + std::to_string(line) + ")\n\tfalse\n\t\n");

    const std::string log = TempWorkingDirectory::ReadLog();
    const std::string earlier = "earlier\n";
    ASSERT_EQ(log.size(), earlier.size() + kStamp + 1 + what.size());
    EXPECT_EQ(log.substr(0, earlier.size()), earlier);
    // Same century, fixed-width fields: the text orders like the time.
    const std::string stamp = log.substr(earlier.size(), kStamp);
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, after);
    EXPECT_EQ(log.substr(earlier.size() + kStamp), " " + what);
}

TEST_F(AssertTest, ExpressionIsEvaluatedOnceAndLongRecordsAreCut)
{
    int calls = 0;
    EXPECT_THROW(ZUL_ASSERT(++calls == 0), zul::AssertionFailure);
    EXPECT_EQ(calls, 1);
    EXPECT_NO_THROW(ZUL_ASSERT(calls == 1));

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
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(
            []
            {
                for (int i = 0; i < kEach; ++i)
                    zul::WriteAssertionLog("1 + 1 == 3", "F.cpp", 1, "");
            });
    for (auto& thread : threads)
        thread.join();

    const std::string log = TempWorkingDirectory::ReadLog();
    const std::size_t line = kStamp + 1 + record.size();
    ASSERT_EQ(log.size(), line * (kThreads * kEach + 1));
    for (std::size_t position = 0; position < log.size(); position += line)
        ASSERT_EQ(log.substr(position + kStamp, line - kStamp), " " + record) << position;
}
