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
// Fails the run, rather than hang it, when a lock left held keeps another
// thread out; the stuck helper would also hang the future's destructor.
void ExpectOtherThreadCanEnter(zul::CriticalSection& lock)
{
    auto entered = std::async(std::launch::async, [&lock] { zul::ScopedLock guard(lock); });
    if (entered.wait_for(std::chrono::seconds(20)) == std::future_status::ready)
        return;
    std::fprintf(stderr, "another thread could not enter the lock\n");
    std::_Exit(1);
}
} // namespace

TEST(CriticalSection, ReentrantEntriesMustAllBeLeftBeforeOthersEnter)
{
    zul::CriticalSection lock;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back(
            [&]
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
            });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 60000);
    ExpectOtherThreadCanEnter(lock);

    // A scoped lock leaves when an exception passes.
    EXPECT_THROW(
        {
            zul::ScopedLock outer(lock);
            zul::ScopedLock inner(lock);
            throw std::runtime_error("leaving");
        },
        std::runtime_error);
    ExpectOtherThreadCanEnter(lock);
}
