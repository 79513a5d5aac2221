#include "platform/values/ByteVector.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

using namespace zon;
using namespace zon::test;

TEST(ByteVector, InsertsAndErasesAnywhere)
{
    const std::string abc = "abc";
    ByteVector bytes(abc.begin(), abc.end());
    bytes.insert(bytes.begin() + 1, {'X', 'Y'});
    EXPECT_EQ(textOf(bytes), "aXYbc");
    // Bytes of the vector itself, inserted where the vector has to grow and shift them.
    bytes.shrink_to_fit();
    bytes.insert(bytes.begin(), bytes.begin() + 1, bytes.end());
    EXPECT_EQ(textOf(bytes), "XYbcaXYbc");
    bytes.erase(bytes.begin() + 2, bytes.begin() + 5);
    EXPECT_EQ(textOf(bytes), "XYXYbc");
    // Single-pass iterators append one at a time and land at the position asked for.
    std::istringstream in("12");
    bytes.insert(bytes.begin() + 2, std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    EXPECT_EQ(textOf(bytes), "XY12XYbc");
    bytes.erase(bytes.begin(), bytes.end());
    EXPECT_TRUE(bytes.empty());
}

TEST(ByteVector, ResizeZeroesOnlyWhenAskedAndGrowsGeometrically)
{
    ByteVector bytes(4, 0xAA);
    bytes.resize(1);
    bytes.resize(4, 0);
    EXPECT_EQ(bytes, (ByteVector {0xAA, 0, 0, 0}));
    const uint8_t* first = nullptr;
    size_t moves = 0;
    for (int i = 0; i < 100000; ++i) {
        bytes.push_back(static_cast<uint8_t>(i));
        if (bytes.data() != first)
            ++moves, first = bytes.data();
    }
    EXPECT_LT(moves, 40u);
    EXPECT_EQ(bytes.size(), 100004u);
    EXPECT_EQ(bytes[100003], static_cast<uint8_t>(99999));
}

TEST(ByteVector, CopiesAndMovesOwnTheirBytes)
{
    ByteVector original {1, 2, 3};
    ByteVector copy = original;
    copy[0] = 9;
    EXPECT_EQ(original, (ByteVector {1, 2, 3}));
    ByteVector moved = std::move(copy);
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(moved, (ByteVector {9, 2, 3}));
    moved = original;
    EXPECT_EQ(moved, original);
    moved = ByteVector();
    EXPECT_TRUE(moved.empty());
    EXPECT_NE(moved, original);
    EXPECT_EQ(ByteVector(), ByteVector());
}
