#include "atomic/TXZonAtomicSingleton.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "support/Raised.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;

namespace {

class Contested final : public TXZonAtomicSingleton {
    ZON_OBJECT(Contested, TXZonAtomicSingleton)
public:
    static Slot* singletonInstance()
    {
        static constinit Slot slot;
        return &slot;
    }
    static Contested* sharedInstance() { return TXZonAtomicSingleton::sharedInstance<Contested>(); }
    static inline std::atomic<int> inits = 0;
    static inline std::atomic<int> constructions = 0;
    int initsOfThisObject = 0;

private:
    Contested() { ++constructions; }
    void init() override
    {
        ++inits;
        ++initsOfThisObject;
    }
};
ZON_DEFINE_CLASS(Contested, "TXZonTestContestedSingleton")

class Other final : public TXZonAtomicSingleton {
    ZON_OBJECT(Other, TXZonAtomicSingleton)
public:
    static Slot* singletonInstance()
    {
        static constinit Slot slot;
        return &slot;
    }
    static Other* sharedInstance() { return TXZonAtomicSingleton::sharedInstance<Other>(); }

private:
    Other() = default;
};
ZON_DEFINE_CLASS(Other, "TXZonTestOtherSingleton")

class Incomplete final : public TXZonAtomicSingleton {
    ZON_OBJECT(Incomplete, TXZonAtomicSingleton)
public:
    static Incomplete* sharedInstance() { return TXZonAtomicSingleton::sharedInstance<Incomplete>(); }

private:
    Incomplete() = default;
};
ZON_DEFINE_CLASS(Incomplete, "TXZonTestIncompleteSingleton")

} // namespace

TEST(TXZonAtomicSingleton, ThreadsRacingGetOneInstanceInitialisedOnce)
{
    constexpr int kThreads = 16;
    std::atomic<int> ready = 0;
    std::vector<Contested*> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (ready < kThreads)
                std::this_thread::yield();
            seen[static_cast<size_t>(t)] = Contested::sharedInstance();
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_NE(seen[0], nullptr);
    for (Contested* instance : seen)
        EXPECT_EQ(instance, seen[0]);
    EXPECT_EQ(Contested::inits, 1);
    EXPECT_EQ(seen[0]->initsOfThisObject, 1);
    EXPECT_NE(static_cast<TXZonAtomicSingleton*>(Other::sharedInstance()), seen[0]) << "each class has its own slot";
}

TEST(TXZonAtomicSingleton, LaterAllocationsGiveNil)
{
    Contested* instance = Contested::sharedInstance();
    const int constructions = Contested::constructions;
    EXPECT_EQ(TXZonAtomicSingleton::allocWithZone<Contested>(), nullptr);
    EXPECT_EQ(Contested::constructions, constructions) << "refused before anything is made";
    EXPECT_EQ(Contested::sharedInstance(), instance);
}

TEST(TXZonAtomicSingleton, IsImmortal)
{
    Contested* instance = Contested::sharedInstance();
    EXPECT_EQ(instance->retainCount(), UINT32_MAX);
    for (int i = 0; i < 10; ++i)
        instance->release();
    instance->retain();
    EXPECT_EQ(instance->retainCount(), UINT32_MAX);
    EXPECT_EQ(instance->description()->UTF8String().rfind("<TXZonTestContestedSingleton", 0), 0u);
}

TEST(TXZonAtomicSingleton, AutoreleaseAndCopyFailNamingTheClass)
{
    Contested* instance = Contested::sharedInstance();
    AutoreleasePool pool;
    EXPECT_EQ(inconsistencyReason([&] { instance->autorelease(); }),
        "Calling autorelease from singleton TXZonTestContestedSingleton");
    EXPECT_EQ(
        inconsistencyReason([&] { instance->copy(); }), "Calling copyWithZone from singleton TXZonTestContestedSingleton");
    EXPECT_EQ(AutoreleasePool::pendingCount(), 0u);
}

TEST(TXZonAtomicSingleton, MissingSlotFailsOnFirstUse)
{
    EXPECT_EQ(inconsistencyReason([] { Incomplete::sharedInstance(); }),
        "Incomplete Singleton -- Missing sharedInstance TXZonTestIncompleteSingleton");
    EXPECT_EQ(inconsistencyReason([] { TXZonAtomicSingleton::singletonInstance(); }),
        "Incomplete Singleton -- Missing sharedInstance TXZonAtomicSingleton");
}
