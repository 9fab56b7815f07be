#include "CriticalSection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{
// Another thread takes and leaves the lock; false if it could not within a
// generous bound (a lock left held would block it for ever).
bool OtherThreadCanEnter(zul::CriticalSection& lock)
{
    auto entered = std::async(std::launch::async,
                              [&lock]
                              {
                                  zul::ScopedLock guard(lock);
                                  return true;
                              });
    if (entered.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
    {
        // The helper is stuck for good; end here rather than hang in the
        // future's destructor.
        std::fprintf(stderr, "another thread could not enter the lock\n");
        std::_Exit(1);
    }
    return entered.get();
}
} // namespace

TEST(CriticalSection, ReentrantEntriesMustAllBeLeftBeforeOthersEnter)
{
    zul::CriticalSection lock;
    long counter = 0;
    const auto work = [&]
    {
        for (int i = 0; i < 20000; ++i)
        {
            lock.Enter();
            lock.Enter();
            lock.Leave();
            // Still held once: a lock freed by the first Leave would lose updates here.
            const long seen = counter;
            std::this_thread::yield();
            counter = seen + 1;
            lock.Leave();
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back(work);
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 60000);
    EXPECT_TRUE(OtherThreadCanEnter(lock));
}

TEST(CriticalSection, ScopedLockLeavesWhenAnExceptionPasses)
{
    zul::CriticalSection lock;
    EXPECT_THROW(
        {
            zul::ScopedLock outer(lock);
            zul::ScopedLock inner(lock);
            throw std::runtime_error("leaving");
        },
        std::runtime_error);
    EXPECT_TRUE(OtherThreadCanEnter(lock));
}
