#include "Thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "Assert.h"
#include "TempWorkingDirectory.h"

namespace
{
class Worker : public zul::Thread
{
public:
    explicit Worker(std::function<unsigned int()> body) : Thread(u"worker"), m_Body(std::move(body)) {}
    // Runs a copy: one test lets Run outlive the object.
    unsigned int Run() override { return std::function<unsigned int()>(m_Body)(); }

private:
    std::function<unsigned int()> m_Body;
};

/// A one-way gate between the test and a worker.
class Gate
{
public:
    void Open()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_bOpen = true;
        m_Changed.notify_all();
    }
    void Pass()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait(lock, [this] { return m_bOpen; });
    }
    bool IsOpen()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_bOpen;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_bOpen = false;
};
} // namespace

TEST(Thread, WaitTellsRunningFromEndedAndEndedStaysEnded)
{
    Gate gate;
    Worker worker(
        [&]
        {
            gate.Pass();
            return 42u;
        });
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH)); // not started yet

    worker.Start(false);
    EXPECT_NE(worker.GetThreadId(), 0xFFFFFFFFu);
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_FALSE(worker.Wait(20));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH)); // a time-out is no failure
    EXPECT_EQ(worker.GetExitCode(), 0u);

    gate.Open();
    EXPECT_TRUE(worker.Wait(zul::INFINITE_WAIT));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(worker.Wait(0));
    EXPECT_EQ(worker.GetExitCode(), 42u);
    EXPECT_FALSE(worker.GetFailure());
}

TEST(Thread, ExceptionsEscapingRunAreKeptForTheOwner)
{
    TempWorkingDirectory directory;
    Worker throwing([]() -> unsigned int { throw std::runtime_error("escaped Run"); });
    Worker asserting(
        []
        {
            ZUL_ASSERT(1 == 2);
            return 1u;
        });
    throwing.Start(false);
    asserting.Start(false);
    ASSERT_TRUE(throwing.Wait(zul::INFINITE_WAIT));
    ASSERT_TRUE(asserting.Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(throwing.GetExitCode(), 0u);
    EXPECT_THROW(std::rethrow_exception(throwing.GetFailure()), std::runtime_error);
    EXPECT_THROW(std::rethrow_exception(asserting.GetFailure()), zul::AssertionFailure);
    EXPECT_NE(TempWorkingDirectory::ReadLog().find("\t1 == 2\n"), std::string::npos);
}

TEST(Thread, SuspendedStartNeverRunsAndNeverHangs)
{
    Gate ran;
    auto worker = std::make_unique<Worker>(
        [&]
        {
            ran.Open();
            return 0u;
        });
    worker->Start(true);
    // Nothing can resume it: a wait fails at once instead of blocking for ever.
    EXPECT_FALSE(worker->Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(worker->GetLastError(), static_cast<std::uint32_t>(EDEADLK));
    worker.reset(); // dismisses and joins the held thread
    EXPECT_FALSE(ran.IsOpen());
}

TEST(Thread, DestructorJoinsAThreadStillRunning)
{
    Gate started;
    Gate proceed;
    Gate finished;
    {
        Worker worker(
            [&]
            {
                started.Open();
                proceed.Pass();
                finished.Open();
                return 0u;
            });
        worker.Start(false);
        started.Pass();
        proceed.Open();
        // Destroyed without a Wait: the destructor must join, not terminate.
    }
    EXPECT_TRUE(finished.IsOpen());
    Worker neverStarted([] { return 0u; }); // destroying it closes nothing
}
