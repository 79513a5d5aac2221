#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/ImageCodecTestSupport.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/LogCapture.h"
#include "support/Raised.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

// Every column (or row) of the bitmap carries its own index in red and green (index / 256), so a
// pixel of the thumbnail tells which source column it came from.
RGBA indexColour(size_t index) { return {uint8_t(index % 256), uint8_t(index / 256), 200, 255}; }
size_t indexOf(RGBA pixel) { return pixel.r + 256 * pixel.g; }

// An image of that size in points whose bitmap is the thumbnail's pixels at scale 1, so that the
// drawing copies pixels one for one and the crop shows exactly.
Ref<Image> imageWithBitmap(Size points, const Ref<CGImage>& pixels)
{
    Ref<Image> image = Image::initWithSize(points);
    image->addRepresentation(BitmapImageRep::initWithCGImage(pixels.get()).get());
    return image;
}

Ref<CGImage> thumbnailPixels(const Image& image)
{
    Ref<Image> thumbnail = image.desktopThumbnail();
    EXPECT_EQ(thumbnail->size(), makeSize(109, 109));
    Ref<BitmapImageRep> rep = thumbnail->bestRepresentation();
    EXPECT_EQ(rep->pixelsWide(), 109u);
    return rep->cgImage();
}

TEST(DesktopThumbnail, WideImageIsCut54ColumnsOnTheLeftAnd55OnTheRight)
{
    AutoreleasePool pool;
    // 200 x 100: t = 218, drawn at (-54, 0, 218, 109).
    Ref<CGImage> pixels = thumbnailPixels(*imageWithBitmap(makeSize(200, 100), bitmap(218, 109, [](size_t x, size_t) {
        return indexColour(x);
    })));
    EXPECT_EQ(indexOf(pixelAt(*pixels, 0, 0)), 54u);
    EXPECT_EQ(indexOf(pixelAt(*pixels, 108, 108)), 162u); // 218 - 163 = 55 columns cut on the right
}

TEST(DesktopThumbnail, TallImageIsCutAboveAndBelow)
{
    AutoreleasePool pool;
    // 100 x 300: t = 327, drawn at (0, -109, 109, 327): the middle third of the rows shows.
    Ref<CGImage> pixels = thumbnailPixels(*imageWithBitmap(makeSize(100, 300), bitmap(109, 327, [](size_t, size_t y) {
        return indexColour(y);
    })));
    EXPECT_EQ(indexOf(pixelAt(*pixels, 0, 0)), 109u);
    EXPECT_EQ(indexOf(pixelAt(*pixels, 50, 108)), 217u);
}

TEST(DesktopThumbnail, SquareFillsTheSquareAndCopiesAlpha)
{
    AutoreleasePool pool;
    // Copy, not source-over: half-transparent pixels stay half transparent.
    Ref<CGImage> pixels = thumbnailPixels(*imageWithBitmap(makeSize(40, 40), bitmap(109, 109, [](size_t x, size_t) {
        return RGBA {uint8_t(x), 0, 0, x < 50 ? uint8_t(255) : uint8_t(128)};
    })));
    EXPECT_EQ(pixelAt(*pixels, 0, 0), (RGBA {0, 0, 0, 255}));
    EXPECT_EQ(pixelAt(*pixels, 108, 108), (RGBA {108, 0, 0, 128}));
}

TEST(DesktopThumbnail, ImagesWithoutBitmapsGiveATransparentSquare)
{
    AutoreleasePool pool;
    for (const Size size : {makeSize(0, 0), makeSize(0, 10), makeSize(10, 0), makeSize(30, 20)}) {
        Ref<CGImage> pixels = thumbnailPixels(*Image::initWithSize(size));
        EXPECT_EQ(pixelAt(*pixels, 54, 54), RGBA {});
    }
}

TEST(DesktopThumbnail, ReadsAFileAtTheSizeTheSquareNeeds)
{
    AutoreleasePool pool;
    ScratchFolder scratch;
    const std::string path = writeBytes(scratch, "photo.png", *encodePNG(*bitmap(600, 300, [](size_t x, size_t) {
        return x < 300 ? RGBA {255, 0, 0, 255} : RGBA {0, 0, 255, 255};
    })));
    Ref<Image> image = Image::initWithContentsOfFile(String::stringWithUTF8String(path).get());
    ASSERT_TRUE(image);
    Ref<CGImage> pixels = thumbnailPixels(*image);
    EXPECT_TRUE(near(pixelAt(*pixels, 10, 50), RGBA {255, 0, 0, 255}, 2)) << pixelAt(*pixels, 10, 50);
    EXPECT_TRUE(near(pixelAt(*pixels, 100, 50), RGBA {0, 0, 255, 255}, 2)) << pixelAt(*pixels, 100, 50);
    // Drawing did not keep a reduced bitmap: the representation is the whole file.
    EXPECT_EQ(image->bestRepresentation()->pixelsWide(), 600u);
}

Ref<BitmapImageRep> scaled(const Ref<CGImage>& pixels, Size size)
{
    return BitmapImageRep::imageRepWithImageRep_scaledToSize(BitmapImageRep::initWithCGImage(pixels.get()).get(), size);
}

TEST(ScaledToSize, WideImageKeepsItsMiddleHalf)
{
    AutoreleasePool pool;
    // 400 x 200 to 100 x 100: s = 0.5, w = 200, drawn at (-50, 0). A ramp in red shows the columns.
    Ref<BitmapImageRep> rep = scaled(bitmap(400, 200, [](size_t x, size_t) {
        return RGBA {uint8_t(x * 255 / 399), 0, 0, 255};
    }), makeSize(100, 100));
    ASSERT_TRUE(rep);
    EXPECT_EQ(rep->pixelsWide(), 100u);
    EXPECT_EQ(rep->pixelsHigh(), 100u);
    // Result column j shows source column 2j + 100.5.
    EXPECT_NEAR(pixelAt(*rep->cgImage(), 0, 50).r, 100.5 * 255 / 399, 2);
    EXPECT_NEAR(pixelAt(*rep->cgImage(), 99, 50).r, 298.5 * 255 / 399, 2);
    EXPECT_EQ(pixelAt(*rep->cgImage(), 0, 0).a, 255);
}

TEST(ScaledToSize, NarrowImageGetsTransparentBands)
{
    AutoreleasePool pool;
    // 100 x 200 to 100 x 100: w = 50, centred at (25, 0).
    Ref<BitmapImageRep> rep = scaled(gradient(100, 200), makeSize(100, 100));
    const CGImage& pixels = *rep->cgImage();
    for (size_t y : {size_t(0), size_t(99)}) {
        EXPECT_EQ(pixelAt(pixels, 0, y), RGBA {});
        EXPECT_EQ(pixelAt(pixels, 24, y), RGBA {});
        EXPECT_EQ(pixelAt(pixels, 25, y).a, 255);
        EXPECT_EQ(pixelAt(pixels, 74, y).a, 255);
        EXPECT_EQ(pixelAt(pixels, 75, y), RGBA {});
    }
}

TEST(ScaledToSize, ScaledWidthRoundsHalfAwayFromZero)
{
    AutoreleasePool pool;
    // 5 x 2 to 4 x 1: w = 2.5 becomes 3 (to even would give 2), centred at 0.5, so the two edge
    // pixels are half covered rather than empty.
    Ref<BitmapImageRep> rep = scaled(bitmap(5, 2, [](size_t, size_t) { return RGBA {0, 255, 0, 255}; }), makeSize(4, 1));
    ASSERT_TRUE(rep);
    EXPECT_NEAR(pixelAt(*rep->cgImage(), 0, 0).a, 128, 1);
    EXPECT_EQ(pixelAt(*rep->cgImage(), 1, 0).a, 255);
    EXPECT_NEAR(pixelAt(*rep->cgImage(), 3, 0).a, 128, 1);
    EXPECT_FALSE(BitmapImageRep::imageRepWithImageRep_scaledToSize(nullptr, makeSize(4, 1)));
    EXPECT_FALSE(scaled(gradient(10, 10), makeSize(0, 10)));
}

TEST(JPEGRepresentation, RoundTripsAndBlackensTransparentAreas)
{
    AutoreleasePool pool;
    Ref<BitmapImageRep> rep = BitmapImageRep::initWithCGImage(gradient(320, 200).get());
    Ref<Data> jpeg = rep->JPEGRepresentationOfImage();
    ASSERT_TRUE(jpeg);
    DecodedImage decoded = decodeImageData({static_cast<const uint8_t*>(jpeg->bytes()), jpeg->length()});
    ASSERT_TRUE(decoded);
    EXPECT_GE(psnr(*decoded.image, *rep->cgImage()), 45);

    // A narrow image's transparent bands.
    Ref<BitmapImageRep> banded = scaled(gradient(100, 200), makeSize(100, 100));
    Ref<Data> bandedJPEG = banded->JPEGRepresentationOfImage();
    DecodedImage bands = decodeImageData({static_cast<const uint8_t*>(bandedJPEG->bytes()), bandedJPEG->length()});
    ASSERT_TRUE(bands);
    EXPECT_TRUE(near(pixelAt(*bands.image, 5, 50), RGBA {0, 0, 0, 255}, 2)) << pixelAt(*bands.image, 5, 50);
    EXPECT_TRUE(near(pixelAt(*bands.image, 94, 50), RGBA {0, 0, 0, 255}, 2));
}

TEST(QuickLookImage, MissingFilesAndFoldersAreNotFound)
{
    AutoreleasePool pool;
    ScratchFolder scratch;
    ScopedEnvironment environment; // the failure marker goes to a scratch cache, not the user's
    environment.set("XDG_CACHE_HOME", scratch.file("cache"));
    LogCapture capture;
    for (const std::string& path : {scratch.path, scratch.file("missing.png")}) {
        Ref<URL> url = URL::fileURLWithPath(String::stringWithUTF8String(path).get());
        EXPECT_FALSE(BitmapImageRep::quickLookImageFromSourceURL_width_height(url.get(), 256, 256));
        EXPECT_THAT(capture.records(), ContainsLine(5, "Failed to create QuickLook thumbnail from url: "
                + utf8(url->description()) + " as file not found"));
    }
    EXPECT_FALSE(BitmapImageRep::quickLookImageFromSourceURL_size(nullptr, makeSize(1, 1)));

    capture.clear();
    Ref<URL> empty = URL::fileURLWithPath(String::stringWithUTF8String(scratch.write("nothing.zonnothing", "")).get());
    EXPECT_FALSE(BitmapImageRep::quickLookImageFromSourceURL_size(empty.get(), makeSize(256, 256)));
    EXPECT_THAT(capture.records(),
        ContainsLine(5, "Failed to create QuickLook thumbnail from url: " + utf8(empty->description())));
}

} // namespace
