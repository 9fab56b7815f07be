#include "Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "Assert.h"
#include "TempWorkingDirectory.h"

namespace
{
/// A worker whose Run waits until the test opens its gate, then does what
/// the test asked of it.
class GatedWorker : public zul::Thread
{
public:
    enum class Ending
    {
        Return,
        Throw,
        Assert
    };

    explicit GatedWorker(Ending ending = Ending::Return, unsigned int result = 0)
        : Thread(u"gated"), m_Ending(ending), m_Result(result)
    {
    }

    void Open()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_bOpen = true;
        m_Opened.notify_all();
    }

    unsigned int Run() override
    {
        m_bRan = true;
        {
            std::unique_lock<std::mutex> lock(m_Mutex);
            m_Opened.wait(lock, [this] { return m_bOpen; });
        }
        if (m_Ending == Ending::Throw)
            throw std::runtime_error("escaped Run");
        if (m_Ending == Ending::Assert)
            ZUL_ASSERT(m_Result == 12345);
        return m_Result;
    }

    std::atomic<bool> m_bRan{false};

private:
    Ending m_Ending;
    unsigned int m_Result;
    std::mutex m_Mutex;
    std::condition_variable m_Opened;
    bool m_bOpen = false;
};
} // namespace

TEST(Thread, WaitTellsRunningFromEndedAndEndedStaysEnded)
{
    GatedWorker worker(GatedWorker::Ending::Return, 42);
    EXPECT_EQ(worker.GetThreadId(), 0xFFFFFFFFu);
    worker.Start(false);
    EXPECT_NE(worker.GetThreadId(), 0xFFFFFFFFu);

    EXPECT_FALSE(worker.Wait(0));
    EXPECT_FALSE(worker.Wait(20));
    EXPECT_EQ(worker.GetLastError(), 0u); // a time-out is not a failure
    EXPECT_EQ(worker.GetExitCode(), 0u);

    worker.Open();
    EXPECT_TRUE(worker.Wait(zul::INFINITE_WAIT));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(worker.Wait(0));
    EXPECT_EQ(worker.GetExitCode(), 42u);
    EXPECT_FALSE(worker.GetFailure());
}

TEST(Thread, WaitBeforeStartFails)
{
    GatedWorker worker;
    EXPECT_FALSE(worker.Wait(0));
    EXPECT_EQ(worker.GetLastError(), static_cast<std::uint32_t>(ESRCH));
    EXPECT_EQ(worker.GetExitCode(), 0u);
}

TEST(Thread, ExceptionEscapingRunIsKeptForTheOwner)
{
    GatedWorker worker(GatedWorker::Ending::Throw, 7);
    worker.Start(false);
    worker.Open();
    ASSERT_TRUE(worker.Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(worker.GetExitCode(), 0u);
    const std::exception_ptr failure = worker.GetFailure();
    ASSERT_TRUE(failure);
    try
    {
        std::rethrow_exception(failure);
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_STREQ(error.what(), "escaped Run");
    }
}

TEST(Thread, AssertionFailingInRunIsKept)
{
    TempWorkingDirectory directory;
    GatedWorker worker(GatedWorker::Ending::Assert, 1);
    worker.Start(false);
    worker.Open();
    ASSERT_TRUE(worker.Wait(zul::INFINITE_WAIT));
    EXPECT_THROW(std::rethrow_exception(worker.GetFailure()), zul::AssertionFailure);
    EXPECT_NE(TempWorkingDirectory::ReadLog().find("\tm_Result == 12345\n"), std::string::npos);
}

TEST(Thread, SuspendedStartNeverRunsAndNeverHangs)
{
    auto worker = std::make_unique<GatedWorker>();
    worker->Start(true);
    // Nothing can resume it: a wait fails at once instead of blocking for ever.
    EXPECT_FALSE(worker->Wait(zul::INFINITE_WAIT));
    EXPECT_EQ(worker->GetLastError(), static_cast<std::uint32_t>(EDEADLK));
    EXPECT_FALSE(worker->m_bRan);
    worker.reset(); // dismisses and joins the held thread
}

namespace
{
/// Keeps all its state outside the object, so its Run may go on while the
/// object is being destroyed.
struct Outside
{
    std::mutex mutex;
    std::condition_variable changed;
    bool started = false;
    bool open = false;
    bool finished = false;
};

class OutsideWorker : public zul::Thread
{
public:
    explicit OutsideWorker(Outside& outside) : Thread(u"outside"), m_pOutside(&outside) {}
    unsigned int Run() override
    {
        Outside& outside = *m_pOutside; // the last use of the object itself
        std::unique_lock<std::mutex> lock(outside.mutex);
        outside.started = true;
        outside.changed.notify_all();
        outside.changed.wait(lock, [&] { return outside.open; });
        outside.finished = true;
        return 0;
    }

private:
    Outside* m_pOutside;
};
} // namespace

TEST(Thread, DestructorJoinsAThreadStillRunning)
{
    Outside outside;
    {
        OutsideWorker worker(outside);
        worker.Start(false);
        std::unique_lock<std::mutex> lock(outside.mutex);
        outside.changed.wait(lock, [&] { return outside.started; });
        outside.open = true;
        outside.changed.notify_all();
        // Destroyed without a Wait: the destructor must join, not terminate.
    }
    std::lock_guard<std::mutex> lock(outside.mutex);
    EXPECT_TRUE(outside.finished);

    GatedWorker neverStarted; // destroying one that never started closes nothing
}

TEST(Thread, SecondStartIsAnAssertionFailure)
{
    TempWorkingDirectory directory;
    GatedWorker worker;
    worker.Start(false);
    EXPECT_THROW(worker.Start(false), zul::AssertionFailure);
    worker.Open();
    EXPECT_TRUE(worker.Wait(zul::INFINITE_WAIT));
}
