#include "atomic/TXZonAtomic.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/Object.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

using namespace zon;

namespace {

// Counts its copies; a copy is a new object.
class Probe final : public Object {
    ZON_OBJECT(Probe, Object)
public:
    static Ref<Probe> probe() { return makeObject<Probe>(); }
    Ref<Object> copy() const override
    {
        ++copies;
        return probe();
    }
    mutable int copies = 0;
};

ZON_DEFINE_CLASS(Probe, "TXZonAtomicTestProbe")

template <class F>
void onThreads(int count, F body)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back(body, t);
    for (auto& thread : threads)
        thread.join();
}

} // namespace

TEST(TXZonAtomic, WritesAndReadsRoundTrip)
{
    auto object = Probe::probe();
    Object* idSlot = nullptr;
    EXPECT_TRUE(TXAtomicWriteIDPtr(object, &idSlot));
    EXPECT_EQ(TXAtomicReadIDPtr(&idSlot), object.get());
    EXPECT_EQ(object->retainCount(), 1u) << "plain writes do not retain";

    void* pointerSlot = nullptr;
    EXPECT_TRUE(TXAtomicWritePtr(&pointerSlot, &pointerSlot));
    EXPECT_EQ(TXAtomicReadPtr(&pointerSlot), &pointerSlot);

    int intSlot = 0;
    int32_t int32Slot = 0;
    EXPECT_TRUE(TXAtomicWriteInt(-7, &intSlot));
    EXPECT_TRUE(TXAtomicWriteInt32(INT32_MIN, &int32Slot));
    EXPECT_EQ(TXAtomicReadInt(&intSlot), -7);
    EXPECT_EQ(TXAtomicReadInt32(&int32Slot), INT32_MIN);
}

TEST(TXZonAtomic, AddAnswersTheNewValue)
{
    int32_t slot = 0;
    EXPECT_EQ(TXAtomicAdd32(&slot, -1), -1);
    EXPECT_EQ(slot, -1);
    EXPECT_EQ(TXAtomicIncrement32(&slot), 0);
    EXPECT_EQ(TXAtomicAdd32(&slot, 41), 41);
}

TEST(TXZonAtomic, BitsCountFromTheTopOfTheFirstByte)
{
    int32_t slot = 0;
    EXPECT_FALSE(TXAtomicSetBit(true, 0, &slot));
    EXPECT_EQ(slot, 0x80);
    EXPECT_TRUE(TXAtomicSetBit(true, 0, &slot));
    EXPECT_FALSE(TXAtomicSetBit(true, 8, &slot));
    EXPECT_EQ(slot, 0x8080);

    slot = 1;
    EXPECT_TRUE(TXAtomicReadBit(7, &slot));
    EXPECT_FALSE(TXAtomicReadBit(0, &slot));
    EXPECT_FALSE(TXAtomicReadBit(40, &slot));
    EXPECT_EQ(slot, 1) << "reading a bit leaves the slot alone";
}

TEST(TXZonAtomic, ClearingAlwaysClearsBitZero)
{
    int32_t slot = 0xFF;
    EXPECT_TRUE(TXAtomicSetBit(false, 5, &slot));
    EXPECT_EQ(slot, 0x7F) << "bit 0 cleared, bit 5 untouched";
    EXPECT_FALSE(TXAtomicSetBit(false, 5, &slot));
    EXPECT_EQ(slot, 0x7F);
}

TEST(TXZonAtomic, SettersRetainTheNewAndLetGoOfTheOld)
{
    auto a = Probe::probe();
    auto b = Probe::probe();
    Object* slot = a.get();
    a->retain(); // the slot's reference

    TXSetRetainRelease(b, &slot);
    EXPECT_EQ(slot, b.get());
    EXPECT_EQ(a->retainCount(), 1u);
    EXPECT_EQ(b->retainCount(), 2u);

    {
        AutoreleasePool pool;
        TXSetRetainAutorelease(a, &slot);
        EXPECT_EQ(slot, a.get());
        EXPECT_EQ(b->retainCount(), 2u) << "autoreleased, not yet released";
    }
    EXPECT_EQ(b->retainCount(), 1u);

    TXSetRetainRelease(nullptr, &slot);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(a->retainCount(), 1u);
}

TEST(TXZonAtomic, GettersHandTheCallerAReference)
{
    Object* slot = nullptr;
    EXPECT_EQ(TXGetRetain(&slot), nullptr);
    EXPECT_EQ(TXGetCopy(&slot), nullptr);
    EXPECT_EQ(slot, nullptr);

    auto probe = Probe::probe();
    slot = probe.get();
    Ref<Object> retained = adoptRef(TXGetRetain(&slot));
    EXPECT_EQ(retained.get(), probe.get());
    EXPECT_EQ(probe->retainCount(), 2u);

    Ref<Object> copied = adoptRef(TXGetCopy(&slot));
    EXPECT_NE(copied.get(), probe.get());
    EXPECT_EQ(copied->retainCount(), 1u);
    EXPECT_EQ(probe->copies, 1);
    EXPECT_EQ(slot, probe.get()) << "the slot is given back after the copy";
}

TEST(TXZonAtomic, ManyThreadsCountExactly)
{
    int32_t counter = 0;
    int32_t bits = 0;
    onThreads(8, [&](int t) {
        for (int i = 0; i < 20000; ++i)
            TXAtomicIncrement32(&counter);
        TXAtomicSetBit(true, static_cast<uint32_t>(t), &bits);
    });
    EXPECT_EQ(TXAtomicReadInt32(&counter), 8 * 20000);
    EXPECT_EQ(bits, 0xFF);
}

TEST(TXZonAtomic, ReadersNeverSeeAValueNobodyWrote)
{
    std::vector<Ref<Probe>> values;
    for (int i = 0; i < 4; ++i)
        values.push_back(Probe::probe());
    Object* slot = values[0].get();
    std::atomic<bool> stray = false;
    onThreads(8, [&](int t) {
        for (int i = 0; i < 20000; ++i) {
            if (t % 2)
                TXAtomicWriteIDPtr(values[static_cast<size_t>(i) % values.size()].get(), &slot);
            else if (Object* seen = TXAtomicReadIDPtr(&slot);
                     std::none_of(values.begin(), values.end(), [&](auto& v) { return v.get() == seen; }))
                stray = true;
        }
    });
    EXPECT_FALSE(stray);
}
