#include "ImageCodecTestSupport.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

TEST(JPEGWriter, OutsideToolsReadQuality100WithoutSubsampling)
{
    ScratchFolder folder;
    const std::string path = writeBytes(folder, "out.jpg", encodeJPEG(*gradient(64, 48)).value());
    const std::string verbose = commandOutput("identify -verbose " + path);
    EXPECT_NE(verbose.find("Quality: 100"), std::string::npos) << verbose;
    EXPECT_NE(verbose.find("sampling-factor: 1x1,1x1,1x1"), std::string::npos) << verbose;
    EXPECT_NE(verbose.find("Geometry: 64x48"), std::string::npos);
    EXPECT_EQ(commandOutput("djpeg -pnm " + path + " | head -c 2"), "P6");
}

TEST(JPEGWriter, RoundTripKeepsThePictureAndBlackensTransparency)
{
    const Ref<CGImage> source = gradient(200, 120);
    const DecodedImage back = decodeImageData(encodeJPEG(*source).value());
    ASSERT_TRUE(back);
    ASSERT_EQ(back.image->width(), 200u);
    EXPECT_GT(psnr(*source, *back.image), 45);

    // Transparent bands, as a fit into a taller box leaves them: premultiplied to zero, so black.
    const Ref<CGImage> banded = bitmap(60, 60, [](size_t, size_t y) {
        return y < 20 || y >= 40 ? RGBA {} : RGBA {255, 255, 255, 255};
    });
    const DecodedImage decoded = decodeImageData(encodeJPEG(*banded).value());
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(near(pixelAt(*decoded.image, 30, 5), {0, 0, 0, 255}, 2));
    EXPECT_TRUE(near(pixelAt(*decoded.image, 30, 30), {255, 255, 255, 255}, 2));
    EXPECT_TRUE(near(pixelAt(*decoded.image, 30, 55), {0, 0, 0, 255}, 2));
}

TEST(PNGWriter, RoundTripIsExactAndCarriesText)
{
    // Half-transparent pixels survive un-premultiplying and premultiplying again.
    const Ref<CGImage> source = bitmap(33, 17, [](size_t x, size_t y) {
        const uint8_t a = uint8_t(x * 7 + y);
        return RGBA {uint8_t(a / 2), uint8_t(a / 3), a, a};
    });
    const PNGTextEntry text[] = {{"Thumb::URI", "file:///tmp/a%20b.jpg"}, {"Thumb::MTime", "1700000000"}};
    const std::vector<uint8_t> png = encodePNG(*source, text).value();
    const DecodedImage back = decodePNGData(png);
    ASSERT_TRUE(back);
    ASSERT_EQ(back.image->byteCount(), source->byteCount());
    for (size_t y = 0; y < 17; ++y)
        for (size_t x = 0; x < 33; ++x)
            ASSERT_TRUE(near(pixelAt(*back.image, x, y), pixelAt(*source, x, y), 1)) << x << "," << y;

    ScratchFolder folder;
    const std::string path = writeBytes(folder, "out.png", png);
    const std::string verbose = commandOutput("identify -verbose " + path);
    EXPECT_NE(verbose.find("Thumb::URI: file:///tmp/a%20b.jpg"), std::string::npos) << verbose;
    EXPECT_NE(verbose.find("Thumb::MTime: 1700000000"), std::string::npos);
    EXPECT_NE(verbose.find("Geometry: 33x17"), std::string::npos);
}

} // namespace
