#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecTestSupport.h"
#include "platform/graphics/ImageScalingInternal.h"
#include "platform/runtime/Class.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace zon;
using namespace zon::test;

namespace {

Ref<CGImage> solidImage(size_t width, size_t height, RGBA colour)
{
    return bitmap(width, height, [&](size_t, size_t) { return colour; });
}

// Rows from the top, as memory holds them.
Ref<CGImage> imageOf(size_t width, std::vector<RGBA> pixelsTopFirst)
{
    return bitmap(width, pixelsTopFirst.size() / width, [&](size_t x, size_t y) { return pixelsTopFirst[y * width + x]; });
}

using zon::test::pixelAt;

RGBA pixelAt(const CGContext& context, size_t x, size_t rowFromTop)
{
    const uint8_t* p = context.data() + rowFromTop * context.bytesPerRow() + x * 4;
    return {p[0], p[1], p[2], p[3]};
}

MATCHER_P2(IsNear, expected, tolerance, "") { return near(arg, expected, tolerance); }

struct ReleasedContext {
    CGContext* context;
    ~ReleasedContext() { context->release(); }
};

TEST(CGBitmapContextCreateEmptyContext, TruncatesWidthHeightAndRowLength)
{
    CGContext* context = CGBitmapContextCreateEmptyContext(2.5f, 1.9f);
    ASSERT_TRUE(context);
    ReleasedContext owner {context};
    EXPECT_EQ(context->width(), 2u);
    EXPECT_EQ(context->height(), 1u);
    EXPECT_EQ(context->bytesPerRow(), 10u);
    EXPECT_EQ(context->retainCount(), 1u);
    EXPECT_EQ(context->objectClass()->name(), "CGContext");
    for (size_t i = 0; i < 10; ++i)
        EXPECT_EQ(context->data()[i], 0) << "byte " << i;
    ReleasedContext quarter {CGBitmapContextCreateEmptyContext(3.3f, 2)};
    EXPECT_EQ(quarter.context->bytesPerRow(), 13u);

    EXPECT_FALSE(CGBitmapContextCreateEmptyContext(0.9f, 10));
    EXPECT_FALSE(CGBitmapContextCreateEmptyContext(10, 0));
    EXPECT_FALSE(CGBitmapContextCreateEmptyContext(-5, 10));
    EXPECT_FALSE(CGBitmapContextCreateEmptyContext(NAN, 10));
    EXPECT_FALSE(CGBitmapContextCreateEmptyContext(1e12f, 1e12f));
    EXPECT_FALSE(CGContext::bitmapContext(4, 4, 15));
}

TEST(CGContext, OriginIsBottomLeftAndMemoryHoldsTheTopRowFirst)
{
    Ref<CGContext> context = CGContext::bitmapContext(2, 3, 8);
    context->drawImage(makeRect(1, 0, 1, 1), solidImage(1, 1, kRed).get(), CompositingOperation::copy);
    EXPECT_EQ(pixelAt(*context, 1, 2), kRed);
    EXPECT_EQ(pixelAt(*context, 1, 0), RGBA {});
    // An image's top row lands at the top of the rectangle.
    context->drawImage(makeRect(0, 1, 1, 2), imageOf(1, {kGreen, kBlue}).get(), CompositingOperation::copy);
    EXPECT_EQ(pixelAt(*context, 0, 0), kGreen);
    EXPECT_EQ(pixelAt(*context, 0, 1), kBlue);
    EXPECT_EQ(pixelAt(*context, 0, 2), RGBA {});
}

TEST(CGContext, CopyAndSourceOverAtAFractionalEdge)
{
    const RGBA halfRed {128, 0, 0, 128};
    for (const CompositingOperation operation : {CompositingOperation::copy, CompositingOperation::sourceOver}) {
        Ref<CGContext> context = CGContext::bitmapContext(4, 1, 16);
        context->drawImage(makeRect(0, 0, 4, 1), solidImage(1, 1, kBlue).get(), CompositingOperation::copy);
        // Covers half of pixel 0, all of pixel 1, half of pixel 2; pixel 3 is outside.
        context->drawImage(makeRect(0.5, 0, 2, 1), solidImage(2, 1, halfRed).get(), operation);
        EXPECT_EQ(pixelAt(*context, 3, 0), kBlue);
        if (operation == CompositingOperation::copy) {
            EXPECT_THAT(pixelAt(*context, 1, 0), IsNear(halfRed, 0));
            // Half the destination kept, half replaced.
            EXPECT_THAT(pixelAt(*context, 0, 0), IsNear(RGBA {64, 0, 128, 192}, 1));
            EXPECT_THAT(pixelAt(*context, 2, 0), IsNear(RGBA {64, 0, 128, 192}, 1));
        } else {
            EXPECT_THAT(pixelAt(*context, 1, 0), IsNear(RGBA {128, 0, 127, 255}, 1));
            EXPECT_THAT(pixelAt(*context, 0, 0), IsNear(RGBA {64, 0, 191, 255}, 1));
        }
    }
}

TEST(CGContext, OpacityScalesTheSource)
{
    Ref<CGContext> context = CGContext::bitmapContext(1, 1, 4);
    context->drawImage(makeRect(0, 0, 1, 1), solidImage(1, 1, kRed).get(), CompositingOperation::sourceOver, 0.5);
    EXPECT_THAT(pixelAt(*context, 0, 0), IsNear(RGBA {128, 0, 0, 128}, 1));
}

TEST(CGContext, RowsThatAreNotAMultipleOfFourBytes)
{
    CGContext* raw = CGBitmapContextCreateEmptyContext(2.5f, 2);
    ReleasedContext owner {raw};
    raw->setInterpolationQuality(kCGInterpolationHigh);
    raw->drawImage(makeRect(0, 0, 2, 2), imageOf(2, {kRed, kGreen, kBlue, kRed}).get(), CompositingOperation::copy);
    EXPECT_EQ(pixelAt(*raw, 0, 0), kRed);
    EXPECT_EQ(pixelAt(*raw, 1, 0), kGreen);
    EXPECT_EQ(pixelAt(*raw, 0, 1), kBlue);
    EXPECT_EQ(pixelAt(*raw, 1, 1), kRed);
    EXPECT_EQ(raw->data()[8], 0);
    EXPECT_EQ(raw->data()[9], 0);
    Ref<CGImage> image = raw->makeImage();
    EXPECT_EQ(image->bytesPerRow(), 8u);
    EXPECT_EQ(pixelAt(*image, 0, 1), kBlue);
}

TEST(CGContext, LanczosKeepsUniformImagesAndOpaqueEdges)
{
    const RGBA colour {200, 100, 50, 255};
    for (const Rect rect : {makeRect(0, 0, 7, 5), makeRect(-3, -2, 40, 30)}) {
        Ref<CGContext> context = CGContext::bitmapContext(7, 5, 28);
        context->setInterpolationQuality(kCGInterpolationHigh);
        context->drawImage(rect, solidImage(31, 23, colour).get(), CompositingOperation::copy);
        EXPECT_THAT(pixelAt(*context, 3, 2), IsNear(colour, 1));
        EXPECT_THAT(pixelAt(*context, 0, 0), IsNear(colour, 1)) << rect.origin.x;
    }
    // Covers 0.75 of column 6 and 0.5 of the bottom row (0.375 of that corner), 0.75 of column 0
    // and 0.75 of the top row (0.5625).
    Ref<CGContext> context = CGContext::bitmapContext(7, 5, 28);
    context->setInterpolationQuality(kCGInterpolationHigh);
    context->drawImage(makeRect(0.25, 0.5, 6.5, 4.25), solidImage(31, 23, colour).get(), CompositingOperation::copy);
    EXPECT_THAT(pixelAt(*context, 6, 4), IsNear(RGBA {75, 38, 19, 96}, 1));
    EXPECT_THAT(pixelAt(*context, 0, 0), IsNear(RGBA {112, 56, 28, 143}, 1));
}

TEST(CGContext, LanczosKeepsColoursWithinAlpha)
{
    // Half-transparent black beside half-transparent white: the filter's overshoot on the white
    // side would otherwise lift the colour above the alpha.
    Ref<CGImage> edge = bitmap(60, 1, [](size_t x, size_t) { return x < 30 ? RGBA {0, 0, 0, 128} : RGBA {128, 128, 128, 128}; });
    for (const double width : {7.0, 45.0, 130.0}) {
        Ref<CGContext> context = CGContext::bitmapContext(130, 1, 130 * 4);
        context->setInterpolationQuality(kCGInterpolationHigh);
        context->drawImage(makeRect(0, 0, width, 1), edge.get(), CompositingOperation::copy);
        for (size_t x = 0; x < size_t(width); ++x) {
            const RGBA pixel = pixelAt(*context, x, 0);
            EXPECT_LE(pixel.r, pixel.a) << "width " << width << " column " << x;
        }
    }
}

TEST(imageScaledToFit, ShrinksToTheBoxKeepingAspectAndNeverEnlarges)
{
    // Left half red, right half green: after scaling, the left quarter stays red.
    Ref<CGImage> image = bitmap(1500, 1000, [](size_t x, size_t) { return x < 750 ? kRed : kGreen; });
    Ref<CGImage> scaled = imageScaledToFit(image.get(), 256, 256);
    ASSERT_TRUE(scaled);
    EXPECT_EQ(scaled->width(), 256u);
    EXPECT_EQ(scaled->height(), 171u);
    for (size_t y : {size_t(0), size_t(85), size_t(170)}) {
        EXPECT_THAT(pixelAt(*scaled, 0, y), IsNear(kRed, 2));
        EXPECT_THAT(pixelAt(*scaled, 120, y), IsNear(kRed, 2));
        EXPECT_THAT(pixelAt(*scaled, 136, y), IsNear(kGreen, 2));
        EXPECT_THAT(pixelAt(*scaled, 255, y), IsNear(kGreen, 2));
    }
    EXPECT_EQ(imageScaledToFit(image.get(), 1500, 4000).get(), image.get());
    EXPECT_EQ(imageScaledToFit(scaled.get(), 300, 300).get(), scaled.get());
    EXPECT_EQ(imageScaledToFit(image.get(), 1, 1)->width(), 1u);
    EXPECT_FALSE(imageScaledToFit(nullptr, 10, 10));
}

} // namespace
