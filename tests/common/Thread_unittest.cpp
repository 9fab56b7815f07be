#include "Thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace
{
// A one-shot std::latch. GCC 12's own loses wake-ups where there is no futex
// (MinGW-w64 under Wine hangs in one run of two), so the tests keep theirs.
class Latch
{
public:
    explicit Latch(int count) : m_count(count) {}
    void count_down()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (--m_count == 0)
            m_zero.notify_all();
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_zero.wait(lock, [this] { return m_count <= 0; });
    }
    bool try_wait()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_count <= 0;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_zero;
    int m_count;
};

class Worker : public zul::Thread
{
public:
    explicit Worker(std::function<unsigned int()> body) : Thread(u"worker"), m_Body(std::move(body)) {}
    // Runs a copy: the destructor test lets Run outlive the object.
    unsigned int Run() override { return std::function<unsigned int()>(m_Body)(); }

private:
    std::function<unsigned int()> m_Body;
};
} // namespace

TEST(Thread, WaitTellsRunningFromEndedAndEndedStaysEnded)
{
    Latch gate(1);
    Worker worker(
        [&]
        {
            gate.wait();
            return 42u;
        });
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH)); // not started yet

    worker.Start(false);
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_FALSE(worker.Wait(20));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH)); // a time-out is no failure
    EXPECT_EQ(worker.GetExitCode(), 0u);

    gate.count_down();
    EXPECT_TRUE(worker.Wait(zul::INFINITE_WAIT));
    EXPECT_TRUE(worker.Wait(0));
    EXPECT_TRUE(worker.Wait(0));
    EXPECT_EQ(worker.GetExitCode(), 42u);
    EXPECT_FALSE(worker.GetFailure());

    // An exception escaping Run ends the thread, not the process.
    Worker throwing([]() -> unsigned int { throw std::runtime_error("escaped Run"); });
    throwing.Start(false);
    ASSERT_TRUE(throwing.Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(throwing.GetExitCode(), 0u);
    ASSERT_TRUE(throwing.GetFailure());
    EXPECT_THROW(std::rethrow_exception(throwing.GetFailure()), std::runtime_error);
}

TEST(Thread, DestructorDismissesASuspendedThreadAndJoinsARunningOne)
{
    Latch ran(1);
    auto worker = std::make_unique<Worker>(
        [&]
        {
            ran.count_down();
            return 0u;
        });
    worker->Start(true);
    // Nothing can resume it: a wait fails at once instead of blocking for ever.
    EXPECT_FALSE(worker->Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(worker->GetLastError(), static_cast<std::uint32_t>(EDEADLK));
    worker.reset(); // dismisses and joins the held thread
    EXPECT_FALSE(ran.try_wait());

    Latch started(1);
    Latch proceed(1);
    Latch finished(1);
    {
        Worker running(
            [&]
            {
                started.count_down();
                proceed.wait();
                finished.count_down();
                return 0u;
            });
        running.Start(false);
        started.wait();
        proceed.count_down();
        // Destroyed without a Wait: the destructor must join, not terminate.
    }
    EXPECT_TRUE(finished.try_wait());
    Worker neverStarted([] { return 0u; }); // destroying it closes nothing
}
