#include "ImageCodecTestSupport.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

TEST(ImageReaders, ProbeReadsTheHeadersOfWhatTheWritersMake)
{
    const Ref<CGImage> source = gradient(300, 200);
    const std::optional<ImageInfo> jpeg = probeImage(encodeJPEG(*source).value());
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->format, ImageFormat::jpeg);
    EXPECT_EQ(jpeg->pixelWidth, 300u);
    EXPECT_EQ(jpeg->pixelHeight, 200u);
    const std::optional<ImageInfo> png = probeImage(encodePNG(*source).value());
    ASSERT_TRUE(png);
    EXPECT_EQ(png->format, ImageFormat::png);
    EXPECT_EQ(png->pixelWidth, 300u);
    EXPECT_FALSE(probeImage(std::vector<uint8_t>(100, 0x42)));
}

TEST(ImageReaders, FilesDecodeAtFullSizeWithoutABox)
{
    ScratchFolder folder;
    const Ref<CGImage> source = gradient(320, 240);
    const DecodedImage png = decodeImageFile(writeBytes(folder, "a.png", encodePNG(*source).value()));
    ASSERT_TRUE(png);
    EXPECT_EQ(png.image->width(), 320u);
    EXPECT_EQ(psnr(*png.image, *source), INFINITY);
    const DecodedImage jpeg = decodeImageFile(writeBytes(folder, "a.jpg", encodeJPEG(*source).value()));
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg.image->height(), 240u);
    EXPECT_FALSE(jpeg.truncated);
    EXPECT_EQ(decodeImageFile(folder.file("missing.png")).error, ImageDecodeError::unreadable);
}

} // namespace
