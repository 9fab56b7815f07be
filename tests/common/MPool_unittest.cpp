#include "MPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "AssertionTestUtil.h"

namespace
{
/// A resource that counts the live ones, so ownership mistakes show.
struct Item
{
    Item() { ++s_Live; }
    virtual ~Item() { --s_Live; }
    int m_Value = 0;
    static inline std::atomic<int> s_Live{0};
};

using Pool = zul::MPool<Item, zul::NewAllocator<Item>, zul::NoLock>;
using LockedPool = zul::MPool<Item, zul::NewAllocator<Item>, zul::CriticalSection>;

class PoolTest : public ::testing::Test
{
protected:
    void TearDown() override { EXPECT_EQ(Item::s_Live, 0); }
    TempWorkingDirectory m_Directory;
};
} // namespace

TEST_F(PoolTest, ReleasedResourcesAreReusedOldestFirstAndDeletedWithThePool)
{
    auto* pool = new Pool(0);
    Item* a = pool->Acquire();
    Item* b = pool->Acquire();
    Item* const first = a;
    Item* const second = b;
    a->m_Value = 7;
    pool->Release(a);
    EXPECT_EQ(a, nullptr);
    pool->Release(b);
    EXPECT_EQ(pool->GetFreeResourceCount(), 2u);

    Item* again = pool->Acquire();
    EXPECT_EQ(again, first);
    EXPECT_EQ(again->m_Value, 7); // handed out as it was given back
    EXPECT_EQ(pool->Acquire(), second);
    EXPECT_EQ(pool->GetResourceCount(), 2u);
    EXPECT_EQ(pool->GetFreeResourceCount(), 0u);
    EXPECT_EQ(Item::s_Live, 2); // never more than were in use at once
    delete pool;                // with both still in use
    EXPECT_EQ(Item::s_Live, 0);
}

TEST_F(PoolTest, BrokenRulesAreAssertionFailuresThatChangeNothing)
{
    Pool pool(3);
    Item* none = nullptr;
    EXPECT_EQ(FailedExpression([&] { pool.Release(none); }), "pResource != NULL");
    EXPECT_EQ(FailedExpression([&] { pool.Preallocate(1); }), "m_Resources.size() == 0");
    EXPECT_EQ(FailedExpression([&] { Pool::DeleteResource(none); }), "pResource!=NULL");
    EXPECT_EQ(pool.GetResourceCount(), 3u);
    EXPECT_EQ(pool.GetFreeResourceCount(), 3u);
    EXPECT_NE(TempWorkingDirectory::ReadLog().find("\tpResource!=NULL\n"), std::string::npos);

    pool.Clear();
    EXPECT_EQ(pool.GetResourceCount(), 0u);
    EXPECT_NO_THROW(pool.Preallocate(1)); // empty again, so allowed
}

TEST_F(PoolTest, OnePoolPerTypeReachableThroughItsSingleton)
{
    using Instance = zul::Singleton<Pool>;
    EXPECT_EQ(FailedExpression([&] { Instance::GetInstance(); }), "cs_Singleton");
    {
        Pool pool(0);
        EXPECT_EQ(Instance::GetInstance(), &pool);
        EXPECT_EQ(FailedExpression([&] { Pool second(0); }), "!cs_Singleton");
        EXPECT_EQ(Instance::GetInstance(), &pool); // the failed second one left it alone
    }
    EXPECT_EQ(FailedExpression([&] { Instance::GetInstance(); }), "cs_Singleton");
    Pool later(0); // the type is free again once the first is gone
    EXPECT_EQ(Instance::GetInstance(), &later);
}

TEST_F(PoolTest, ThreadedPoolIsSharedSafelyAndUnlockedAfterFailures)
{
    zul::MThreadedPool<Item, zul::NewAllocator<Item>> pool(0);
    LockedPool* shared = zul::Singleton<LockedPool>::GetInstance();
    ASSERT_EQ(shared, &pool);
    Item* none = nullptr;
    EXPECT_EQ(FailedExpression([&] { shared->Release(none); }), "pResource != NULL"); // must leave the lock

    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(
            [shared, t]
            {
                for (int i = 0; i < 2000; ++i)
                {
                    Item* item = shared->Acquire();
                    item->m_Value = t; // owned alone until released
                    shared->Release(item);
                }
            });
    for (auto& thread : threads)
        thread.join();
    EXPECT_GE(pool.GetResourceCount(), 1u);
    EXPECT_LE(pool.GetResourceCount(), static_cast<std::size_t>(kThreads));
    EXPECT_EQ(pool.GetFreeResourceCount(), pool.GetResourceCount());
}
