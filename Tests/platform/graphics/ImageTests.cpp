#include "platform/graphics/Image.h"
#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/ImageCodecTestSupport.h"
#include "platform/graphics/ImageHeaderInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/Array.h"
#include "platform/values/URL.h"
#include "support/ImageBytes.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;

namespace {

std::optional<ImageHeader> header(std::string_view bytes)
{
    return readImageHeader({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

Size sizeOf(std::string_view bytes)
{
    const std::optional<ImageHeader> found = header(bytes);
    return found ? makeSize(found->width, found->height) : makeSize(-1, -1);
}

TEST(ImageHeader, PNGSizeIsItsIHDR)
{
    EXPECT_EQ(sizeOf(pngHeader(640, 480)), makeSize(640, 480));
    EXPECT_EQ(header(pngHeader(1, 1))->container, ImageContainer::png);
    EXPECT_FALSE(header(pngHeader(0, 480)));
    EXPECT_FALSE(header(pngHeader(0x80000000u, 1)));
    EXPECT_FALSE(header(pngHeader(640, 480).substr(0, 23)));
    std::string notIHDR = pngHeader(640, 480);
    notIHDR.replace(12, 4, "IDAT");
    EXPECT_FALSE(header(notIHDR));
}

TEST(ImageHeader, IconFamilySizeIsItsLargestImage)
{
    // Known sizes of element types; masks and the table of contents are not images.
    EXPECT_EQ(sizeOf(iconFamily({iconElement("TOC ", "xxxxxxxx"), iconElement("is32", "rle"), iconElement("il32", "rle"),
                  iconElement("t8mk", std::string(128 * 128, '\0'))})),
        makeSize(32, 32));
    // A PNG inside an element gives its own size; a double-resolution type counts half.
    EXPECT_EQ(sizeOf(iconFamily({iconElement("ic07", pngHeader(128, 128)), iconElement("ic09", pngHeader(300, 200))})),
        makeSize(300, 200));
    EXPECT_EQ(sizeOf(iconFamily({iconElement("ic09", "jp2 data"), iconElement("ic10", pngHeader(1024, 1024))})),
        makeSize(512, 512));
    EXPECT_EQ(sizeOf(iconFamily({iconElement("icm#", "bits")})), makeSize(16, 12));
    EXPECT_EQ(header(iconFamily({iconElement("ic08", "")}))->container, ImageContainer::icns);
}

TEST(ImageHeader, BrokenIconFamilies)
{
    EXPECT_FALSE(header(iconFamily({})));
    EXPECT_FALSE(header(iconFamily({iconElement("info", "plist"), iconElement("name", "x")})));
    // The declared length runs past the bytes: a cut file.
    const std::string whole = iconFamily({iconElement("ic08", pngHeader(256, 256))});
    EXPECT_FALSE(header(whole.substr(0, whole.size() - 1)));
    // An element whose length is impossible ends the walk; what came before counts.
    std::string badSecond = iconFamily({iconElement("is32", "x"), iconElement("ic08", "y")});
    badSecond.replace(8 + 9 + 4, 4, bigEndian32(3));
    EXPECT_EQ(sizeOf(badSecond), makeSize(16, 16));
    EXPECT_FALSE(header("icns"));
    EXPECT_FALSE(header("GIF89a......"));
}

TEST(Image, IsMadeFromARecognisedContainerOnly)
{
    AutoreleasePool pool;
    ScratchFolder scratch;
    const std::string icns = iconFamily({iconElement("ic08", pngHeader(256, 256))});
    Ref<Image> image = Image::initWithContentsOfFile(String::stringWithUTF8String(scratch.write("App.icns", icns)).get());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), makeSize(256, 256));
    EXPECT_EQ(std::string(static_cast<const char*>(image->data()->bytes()), image->data()->length()), icns);
    EXPECT_EQ(image->objectClass()->name(), "NSImage");

    EXPECT_FALSE(Image::initWithContentsOfFile(String::stringWithUTF8String(scratch.write("text.icns", "hello")).get()));
    EXPECT_FALSE(Image::initWithContentsOfFile(String::stringWithUTF8String(scratch.file("missing.png")).get()));
    EXPECT_FALSE(Image::initWithContentsOfFile(String::stringWithUTF8String(scratch.path).get()));
    EXPECT_FALSE(Image::initWithContentsOfFile(nullptr));
    EXPECT_FALSE(Image::initWithData(nullptr));
    const std::string png = pngHeader(3, 4);
    EXPECT_EQ(Image::initWithData(Data::dataWithBytes(png.data(), png.size()).get())->size(), makeSize(3, 4));
}

} // namespace

namespace {

TEST(Image, SizeInPointsComesFromTheResolution)
{
    AutoreleasePool pool;
    ScratchFolder scratch;
    const std::string source = writeBytes(scratch, "s.png", *encodePNG(*gradient(200, 100)));
    commandOutput("convert " + source + " -units PixelsPerInch -density 144x96 " + scratch.file("dense.png"));
    Ref<Image> image = Image::initWithContentsOfFile(String::stringWithUTF8String(scratch.file("dense.png")).get());
    ASSERT_TRUE(image);
    EXPECT_NEAR(image->size().width, 100, 0.1);
    EXPECT_NEAR(image->size().height, 75, 0.1);
    // The bitmap keeps its pixels and carries the size in points.
    Ref<BitmapImageRep> bitmap = image->bestRepresentation();
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->pixelsWide(), 200u);
    EXPECT_EQ(bitmap->size(), image->size());
    Ref<Image> plain = Image::initWithContentsOfURL(URL::fileURLWithPath(String::stringWithUTF8String(source).get()).get());
    EXPECT_EQ(plain->size(), makeSize(200, 100));
}

TEST(Image, DecodesOnceWhicheverThreadAsksFirst)
{
    AutoreleasePool pool;
    const std::vector<uint8_t> png = *encodePNG(*gradient(300, 200));
    Ref<Image> image = Image::initWithData(Data::dataWithBytes(png.data(), png.size()).get());
    std::vector<BitmapImageRep*> seen(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&, i] { seen[i] = image->bestRepresentation().get(); });
    for (std::thread& thread : threads)
        thread.join();
    for (BitmapImageRep* rep : seen)
        EXPECT_EQ(rep, seen[0]);
    ASSERT_TRUE(seen[0]);
    EXPECT_EQ(image->representations()->count(), 1u);

    // Added bitmaps come after the file's; the largest is the best.
    image->addRepresentation(BitmapImageRep::initWithCGImage(gradient(30, 20).get()).get());
    EXPECT_EQ(image->representations()->count(), 2u);
    EXPECT_EQ(image->representations()->objectAtIndex(0), seen[0]);
    EXPECT_EQ(image->bestRepresentation().get(), seen[0]);
    Ref<Image> sized = Image::initWithSize(makeSize(10, 10));
    EXPECT_FALSE(sized->bestRepresentation());
    sized->addRepresentation(BitmapImageRep::initWithCGImage(gradient(30, 20).get()).get());
    sized->addRepresentation(BitmapImageRep::initWithCGImage(gradient(40, 20).get()).get());
    EXPECT_EQ(sized->bestRepresentation()->pixelsWide(), 40u);
}

TEST(Image, UndecodableBytesHaveNoBitmap)
{
    AutoreleasePool pool;
    // A PNG header with nothing after it: measured, but there are no pixels to draw.
    const std::string header = pngHeader(30, 20);
    Ref<Image> image = Image::initWithData(Data::dataWithBytes(header.data(), header.size()).get());
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->bestRepresentation());
    Ref<CGContext> context = CGContext::bitmapContext(4, 4, 16);
    image->drawInRect(context.get(), makeRect(0, 0, 4, 4), CompositingOperation::copy, 1);
    EXPECT_EQ(context->data()[0], 0);
}

} // namespace
