#include "Thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>

namespace
{
// A one-shot event. GCC 12's std::latch loses wake-ups where there is no
// futex (MinGW-w64 under Wine hangs in one run of two); a future does not.
struct Event
{
    std::promise<void> promise;
    std::shared_future<void> future = promise.get_future().share();
    void Set() { promise.set_value(); }
    bool IsSet() const { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }
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
    Event gate;
    Worker worker(
        [&]
        {
            gate.future.wait();
            return 42u;
        });
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH)); // not started yet

    worker.Start(false);
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_FALSE(worker.Wait(20));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH)); // a time-out is no failure
    EXPECT_EQ(worker.GetExitCode(), 0u);

    gate.Set();
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
    Event ran;
    auto worker = std::make_unique<Worker>(
        [&]
        {
            ran.Set();
            return 0u;
        });
    worker->Start(true);
    // Nothing can resume it: a wait fails at once instead of blocking for ever.
    EXPECT_FALSE(worker->Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(worker->GetLastError(), static_cast<std::uint32_t>(EDEADLK));
    worker.reset(); // dismisses and joins the held thread
    EXPECT_FALSE(ran.IsSet());

    Event started, proceed, finished;
    {
        Worker running(
            [&]
            {
                started.Set();
                proceed.future.wait();
                finished.Set();
                return 0u;
            });
        running.Start(false);
        started.future.wait();
        proceed.Set();
        // Destroyed without a Wait: the destructor must join, not terminate.
    }
    EXPECT_TRUE(finished.IsSet());
    Worker neverStarted([] { return 0u; }); // destroying it closes nothing
}
