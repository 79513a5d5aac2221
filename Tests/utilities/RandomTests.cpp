#include "utilities/math/TXZonRandom.h"

#include "platform/runtime/Class.h"
#include "platform/values/Number.h"
#include "support/LogCapture.h"
#include "support/PeerProcess.h"
#include "support/Raised.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace zon {
namespace {

using test::inconsistencyReason;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::Ge;
using ::testing::Le;

// Pearson's statistic of counts against a uniform spread over counts.size() values.
double chiSquare(const std::vector<int>& counts, int draws)
{
    const double expected = double(draws) / double(counts.size());
    double sum = 0;
    for (int count : counts)
        sum += (count - expected) * (count - expected) / expected;
    return sum;
}

// The statistic's 0.1% critical values for 9 and 99 degrees of freedom: a fair generator passes
// with a fixed seed every time, a biased one (a value never drawn, a modulo skew) fails by far.
constexpr double kCritical9 = 27.88;
constexpr double kCritical99 = 148.2;

TEST(ZonRandomNumber, DrawsBelowTheBoundUniformly)
{
    ::srandom(11);
    for (uint32_t bound : {10u, 100u}) {
        std::vector<int> counts(bound);
        const int draws = 200 * int(bound);
        for (int i = 0; i < draws; ++i) {
            const uint32_t value = ZonRandomNumber(bound);
            ASSERT_LT(value, bound);
            ++counts[value];
        }
        EXPECT_LT(chiSquare(counts, draws), bound == 10 ? kCritical9 : kCritical99) << "bound " << bound;
    }
}

TEST(ZonRandomNumber, SmallBoundsAndTheWidestOne)
{
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(ZonRandomNumber(1), 0u);
        EXPECT_LT(ZonRandomNumber(2), 2u);
        EXPECT_LT(ZonRandomNumber(3), 3u);
    }
    // random() gives 31 bits: a bound past 2^31 is served from its lower half.
    for (int i = 0; i < 100; ++i)
        EXPECT_LT(ZonRandomNumber(UINT32_MAX), 1u << 31);
}

TEST(ZonRandomNumber, TheHostsSeedDecidesTheSequence)
{
    auto sequence = [](unsigned seed) {
        ::srandom(seed);
        std::vector<uint32_t> values;
        for (int i = 0; i < 32; ++i)
            values.push_back(ZonRandomNumber(1000000));
        return values;
    };
    const auto first = sequence(1);
    EXPECT_EQ(sequence(1), first);
    EXPECT_NE(sequence(2), first);
    // The library never seeds: the draws are random()'s own.
    ::srandom(7);
    const long expected = ::random() & 0xFF;
    ::srandom(7);
    EXPECT_EQ(long(ZonRandomNumber(256)), expected);
}

TEST(ZonRandomNumber, ZeroNeverReturns)
{
    test::PeerProcess child;
    ASSERT_TRUE(child.runInChild([] { return int(ZonRandomNumber(0)); }));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    int status = 0;
    EXPECT_EQ(::waitpid(child.pid(), &status, WNOHANG), 0) << "ZonRandomNumber(0) returned";
}

TEST(TXZonRandom, ValuesLieStrictlyBetweenTheBounds)
{
    ::srandom(5);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(TXZonRandom::randomNumberValueBelow(2), 1u);
        EXPECT_EQ(TXZonRandom::randomNumberValueBelow_above(5, 3), 4u);
        EXPECT_EQ(TXZonRandom::randomNumberValueBelow_above(4, 3), 0u) << "the empty range answers 0";
        EXPECT_THAT(TXZonRandom::randomNumberValueBelow(10), AllOf(Ge(1u), Le(9u)));
        EXPECT_GT(TXZonRandom::randomNumberValueAbove(UINT32_MAX - 3), UINT32_MAX - 3);
        EXPECT_LT(TXZonRandom::randomNumberValueAbove(UINT32_MAX - 3), UINT32_MAX);
    }
    std::vector<int> counts(10);
    const int draws = 5000;
    for (int i = 0; i < draws; ++i)
        ++counts[TXZonRandom::randomNumberValueBelow_above(13, 2) - 3];
    EXPECT_LT(chiSquare(counts, draws), kCritical9);
}

TEST(TXZonRandom, InstancesKeepTheirBoundsAndBoxTheirValue)
{
    Ref<TXZonRandom> random = TXZonRandom::randomNumberBelow_above(8, 5);
    EXPECT_EQ(random->belowValue(), 8u);
    EXPECT_EQ(random->aboveValue(), 5u);
    EXPECT_THAT(random->randomNumberValue(), AllOf(Ge(6u), Le(7u)));
    Ref<Number> boxed = random->randomNumber();
    EXPECT_STREQ(boxed->objCType(), "I");
    EXPECT_THAT(boxed->unsignedIntValue(), AllOf(Ge(6u), Le(7u)));
    EXPECT_EQ(TXZonRandom::randomNumberBelow(9)->aboveValue(), 0u);
    EXPECT_EQ(TXZonRandom::randomNumberAbove(9)->belowValue(), UINT32_MAX);
    // The accessors check nothing.
    random->setAboveValue(20);
    EXPECT_EQ(random->aboveValue(), 20u);
}

TEST(TXZonRandom, AnEmptyOrReversedRangeFailsThroughTheAssertionHandler)
{
    LogCapture capture;
    EXPECT_EQ(inconsistencyReason([] { TXZonRandom::randomNumberBelow_above(3, 3); }),
        "Range violation, requires: above_ < below_");
    EXPECT_EQ(inconsistencyReason([] { TXZonRandom::initWithRandomNumberBelow_above(2, 9); }),
        "Range violation, requires: above_ < below_");
    EXPECT_EQ(inconsistencyReason([] { TXZonRandom::randomNumberValueBelow(0); }),
        "Range violation, requires: above_ < below_");
    const auto records = capture.records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records[0].message,
        "*** Assertion failure in -[TXZonRandom initWithRandomNumberBelow:above:], "
        "Sources/utilities/math/TXZonRandom.cpp:60");
    EXPECT_EQ(records[0].line, 60);
    EXPECT_EQ(records[0].level, 1);
}

// A subclass made through the class operations is of the subclass.
class TestRandom final : public TXZonRandom {
    ZON_OBJECT(TestRandom, TXZonRandom)
};
ZON_DEFINE_CLASS(TestRandom, "TestRandom")

TEST(TXZonRandom, ClassOperationsMakeTheReceivingClass)
{
    Ref<TestRandom> random = TXZonRandom::randomNumberBelow<TestRandom>(4);
    EXPECT_TRUE(random->isKindOfClass(TestRandom::staticClass()));
    EXPECT_THAT(random->randomNumberValue(), AllOf(Ge(1u), Le(3u)));
}

} // namespace
} // namespace zon
