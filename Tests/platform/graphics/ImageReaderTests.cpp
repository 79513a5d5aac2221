#include "ImageCodecTestSupport.h"

#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/ImageReadersInternal.h"
#include "support/ImageBytes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

using namespace zon;
using namespace zon::test;

namespace {

constexpr RGBA kClear {0, 0, 0, 0};

// Quadrants red, green (top right), blue (bottom left), white, so that any turn or mirror shows.
Ref<CGImage> quadrants(size_t width, size_t height)
{
    return bitmap(width, height, [&](size_t x, size_t y) {
        const bool right = x >= width / 2, bottom = y >= height / 2;
        return bottom ? (right ? kWhite : kBlue) : (right ? kGreen : kRed);
    });
}

Ref<CGImage> noise(size_t width, size_t height)
{
    std::mt19937 random(7);
    return bitmap(width, height, [&](size_t, size_t) {
        return RGBA {uint8_t(random()), uint8_t(random()), uint8_t(random()), 255};
    });
}

std::vector<uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

// The corners of an image, inset so that JPEG's blurring at the quadrant edges does not matter.
struct Corners {
    RGBA topLeft, topRight, bottomLeft, bottomRight;
};
Corners corners(const CGImage& image)
{
    const size_t right = image.width() - 3, bottom = image.height() - 3;
    return {pixelAt(image, 2, 2), pixelAt(image, right, 2), pixelAt(image, 2, bottom), pixelAt(image, right, bottom)};
}

// A JPEG with an EXIF APP1 segment holding this orientation, right after the start of image.
std::vector<uint8_t> withOrientation(std::vector<uint8_t> jpeg, uint16_t orientation)
{
    const std::string tiff = std::string("MM\0*", 4) + bigEndian32(8) + std::string("\0\1", 2) // one entry
        + std::string("\x01\x12\0\x03", 4) + bigEndian32(1) + char(0) + char(orientation) + std::string(2, '\0')
        + bigEndian32(0);
    const std::string payload = std::string("Exif\0\0", 6) + tiff;
    const size_t length = payload.size() + 2;
    const std::string segment = std::string("\xff\xe1", 2) + char(length >> 8) + char(length & 0xff) + payload;
    jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());
    return jpeg;
}

TEST(ImageReaders, ProbeReadsTheHeadersOfWhatTheWritersMake)
{
    const Ref<CGImage> source = gradient(300, 200);
    const std::optional<ImageInfo> jpeg = probeImage(encodeJPEG(*source).value());
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->format, ImageFormat::jpeg);
    EXPECT_EQ(jpeg->pixelWidth, 300u);
    EXPECT_EQ(jpeg->pixelHeight, 200u);
    EXPECT_EQ(jpeg->horizontalDPI, 72);
    const std::optional<ImageInfo> png = probeImage(encodePNG(*source).value());
    ASSERT_TRUE(png);
    EXPECT_EQ(png->format, ImageFormat::png);
    EXPECT_EQ(png->pixelWidth, 300u);
    EXPECT_FALSE(probeImage(std::vector<uint8_t>(100, 0x42)));
}

TEST(ImageReaders, ResolutionComesFromJFIFAndPHYs)
{
    ScratchFolder folder;
    const std::string source = writeBytes(folder, "a.png", encodePNG(*gradient(40, 30)).value());
    commandOutput("convert " + source + " -units PixelsPerInch -density 300x150 " + folder.file("d.jpg"));
    commandOutput("convert " + source + " -units PixelsPerInch -density 300 " + folder.file("d.png"));
    const ImageInfo jpeg = probeImage(fileBytes(folder.file("d.jpg"))).value();
    EXPECT_EQ(jpeg.horizontalDPI, 300);
    EXPECT_EQ(jpeg.verticalDPI, 150);
    const ImageInfo png = decodeImageFile(folder.file("d.png")).info;
    EXPECT_NEAR(png.horizontalDPI, 300, 0.1);
}

TEST(ImageReaders, FilesDecodeAtFullSizeWithoutABox)
{
    ScratchFolder folder;
    const Ref<CGImage> source = noise(320, 240); // larger than one read, so the file streams
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

TEST(JPEGReader, EveryEXIFOrientationIsTurnedUpright)
{
    const std::vector<uint8_t> stored = encodeJPEG(*quadrants(48, 32)).value();
    // Where the stored top-left (red) and top-right (green) corners end up.
    const struct {
        uint16_t orientation;
        RGBA topLeft, topRight, bottomLeft;
    } cases[] = {
        {1, kRed, kGreen, kBlue}, {2, kGreen, kRed, kWhite}, {3, kWhite, kBlue, kGreen}, {4, kBlue, kWhite, kRed},
        {5, kRed, kBlue, kGreen}, {6, kBlue, kRed, kWhite}, {7, kWhite, kGreen, kBlue}, {8, kGreen, kWhite, kRed},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.orientation);
        const std::vector<uint8_t> jpeg = withOrientation(stored, c.orientation);
        const ImageInfo info = probeImage(jpeg).value();
        const bool turned = c.orientation >= 5;
        EXPECT_EQ(info.pixelWidth, turned ? 32u : 48u);
        const DecodedImage decoded = decodeImageData(jpeg);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded.image->width(), info.pixelWidth);
        EXPECT_EQ(decoded.image->height(), info.pixelHeight);
        const Corners found = corners(*decoded.image);
        EXPECT_TRUE(near(found.topLeft, c.topLeft, 12)) << found.topLeft;
        EXPECT_TRUE(near(found.topRight, c.topRight, 12)) << found.topRight;
        EXPECT_TRUE(near(found.bottomLeft, c.bottomLeft, 12)) << found.bottomLeft;
    }
}

TEST(JPEGReader, DCTShrinkKeepsTwiceTheFittedSize)
{
    const std::vector<uint8_t> jpeg = encodeJPEG(*gradient(1600, 1200)).value();
    const auto sizeFor = [&](uint32_t box) {
        const DecodedImage decoded = decodeImageData(jpeg, box, box);
        return std::to_string(decoded.image->width()) + "x" + std::to_string(decoded.image->height());
    };
    EXPECT_EQ(sizeFor(100), "200x150"); // 1/8 is still twice 100 x 75
    EXPECT_EQ(sizeFor(256), "600x450"); // 3/8: 2/8 would be under 512 x 384
    EXPECT_EQ(sizeFor(900), "1600x1200");
    // The info is the file's, whatever the decoded size.
    EXPECT_EQ(decodeImageData(jpeg, 100, 100).info.pixelWidth, 1600u);
}

TEST(JPEGReader, CMYKAndGrayBecomeRGBA)
{
    ScratchFolder folder;
    const std::string source = writeBytes(folder, "q.png", encodePNG(*quadrants(64, 64)).value());
    commandOutput("convert " + source + " -colorspace CMYK -quality 95 " + folder.file("cmyk.jpg"));
    ASSERT_EQ(commandOutput("identify -format %[colorspace] " + folder.file("cmyk.jpg")), "CMYK");
    const DecodedImage cmyk = decodeImageFile(folder.file("cmyk.jpg"));
    ASSERT_TRUE(cmyk);
    const Corners found = corners(*cmyk.image);
    EXPECT_TRUE(near(found.topLeft, kRed, 16)) << found.topLeft;
    EXPECT_TRUE(near(found.topRight, kGreen, 16)) << found.topRight;
    EXPECT_TRUE(near(found.bottomLeft, kBlue, 16)) << found.bottomLeft;

    commandOutput("convert " + source + " -colorspace Gray " + folder.file("gray.jpg"));
    const DecodedImage gray = decodeImageFile(folder.file("gray.jpg"));
    ASSERT_TRUE(gray);
    const RGBA white = pixelAt(*gray.image, 60, 60);
    EXPECT_TRUE(near(white, kWhite, 3)) << white;
}

TEST(JPEGReader, ProgressiveDecodesWithinItsCoefficientBudget)
{
    ScratchFolder folder;
    const Ref<CGImage> source = gradient(2400, 1600);
    std::string ppm = "P6\n2400 1600\n255\n";
    for (size_t i = 0; i < source->byteCount(); ++i)
        if (i % 4 != 3)
            ppm += char(source->bytes()[i]);
    commandOutput("cjpeg -progressive -quality 90 " + folder.write("s.ppm", ppm) + " > " + folder.file("p.jpg"));
    const std::vector<uint8_t> jpeg = fileBytes(folder.file("p.jpg"));

    const DecodedImage full = decodeImageData(jpeg);
    ASSERT_TRUE(full);
    EXPECT_GT(psnr(*full.image, *source), 35);
    EXPECT_EQ(decodeImageData(jpeg, 256, 256).image->width(), 600u);

    // Its coefficients take 2400 x 1600 x 3 x 2 bytes before the first row comes out.
    const size_t coefficients = 2400 * 1600 * 3 * 2;
    ImageInput tight = ImageInput::fromBytes(jpeg);
    EXPECT_EQ(readJPEG(tight, {}, {.decoderMemory = coefficients - 1}).error, ImageDecodeError::tooLarge);

    const std::vector<uint8_t> cut(jpeg.begin(), jpeg.begin() + ptrdiff_t(jpeg.size() * 2 / 3));
    const DecodedImage truncated = decodeImageData(cut);
    ASSERT_TRUE(truncated);
    EXPECT_TRUE(truncated.truncated);
}

TEST(ImageReaders, TruncatedFilesGiveTheirRowsAndTransparentRest)
{
    const Ref<CGImage> source = noise(64, 256);
    const std::vector<uint8_t> jpeg = encodeJPEG(*source).value();
    const std::vector<uint8_t> png = encodePNG(*source).value();
    for (const auto& whole : {jpeg, png}) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + ptrdiff_t(whole.size() / 2));
        const DecodedImage decoded = decodeImageData(cut);
        ASSERT_TRUE(decoded);
        EXPECT_TRUE(decoded.truncated);
        ASSERT_EQ(decoded.image->height(), 256u);
        EXPECT_TRUE(near(pixelAt(*decoded.image, 5, 0), pixelAt(*source, 5, 0), 8));
        EXPECT_EQ(pixelAt(*decoded.image, 5, 255), kClear);
        EXPECT_EQ(pixelAt(*decoded.image, 63, 150), kClear);
    }
}

TEST(JPEGReader, AMissingEndMarkerLosesNoRows)
{
    const Ref<CGImage> source = noise(64, 64);
    std::vector<uint8_t> jpeg = encodeJPEG(*source).value();
    jpeg.resize(jpeg.size() - 2); // the end-of-image marker
    const DecodedImage decoded = decodeImageData(jpeg);
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(near(pixelAt(*decoded.image, 60, 63), pixelAt(*source, 60, 63), 8));
}

TEST(ImageReaders, GarbageIsRefusedWithoutACrash)
{
    std::mt19937 random(3);
    std::vector<uint8_t> noiseBytes(4096);
    for (uint8_t& byte : noiseBytes)
        byte = uint8_t(random());
    const std::vector<uint8_t> jpeg = encodeJPEG(*gradient(64, 64)).value();
    const std::vector<uint8_t> png = encodePNG(*gradient(64, 64)).value();
    std::vector<std::vector<uint8_t>> inputs {{}, noiseBytes, {0xff, 0xd8, 0xff}, bytesOf(pngHeader(64, 64))};
    for (const auto& valid : {jpeg, png}) {
        std::vector<uint8_t> damaged(valid.begin(), valid.begin() + 40); // the header, then noise
        damaged.insert(damaged.end(), noiseBytes.begin(), noiseBytes.end());
        inputs.push_back(damaged);
    }
    for (const auto& input : inputs) {
        const DecodedImage decoded = decodeImageData(input);
        if (!decoded)
            EXPECT_NE(decoded.error, ImageDecodeError::none);
        else
            EXPECT_TRUE(decoded.truncated);
    }
    EXPECT_FALSE(decodeImageData(noiseBytes));
    EXPECT_FALSE(decodePNGData(jpeg));
}

TEST(ImageReaders, OversizedHeadersAreRefusedBeforeDecoding)
{
    // A JPEG whose frame header declares 65,500 x 65,500.
    std::vector<uint8_t> jpeg = encodeJPEG(*gradient(16, 16)).value();
    for (size_t i = 0; i + 9 < jpeg.size(); ++i)
        if (jpeg[i] == 0xff && jpeg[i + 1] == 0xc0) {
            jpeg[i + 5] = jpeg[i + 7] = 65500 >> 8;
            jpeg[i + 6] = jpeg[i + 8] = 65500 & 0xff;
            break;
        }
    EXPECT_EQ(probeImage(jpeg).value().pixelWidth, 65500u);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(decodeImageData(jpeg).error, ImageDecodeError::tooLarge);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

    // A PNG over the side limit, and one within it but over the pixel limit.
    EXPECT_EQ(decodePNGData(bytesOf(pngHeader(kMaxImageSide + 1, 16))).error, ImageDecodeError::tooLarge);
    EXPECT_EQ(decodePNGData(bytesOf(pngHeader(20000, 20000))).error, ImageDecodeError::tooLarge);
}

TEST(PNGReader, TheBombIsRefusedUnderAnAddressSpaceLimit)
{
    ScratchFolder folder;
    const std::string bomb = folder.file("bomb.png");
    commandOutput(std::string("python3 ") + ZON_PNG_BOMB_SCRIPT + " " + bomb);
    ASSERT_EQ(probeImage(fileBytes(bomb)).value().pixelWidth, 20000u);
    const auto refused = [&] { return decodeImageFile(bomb, 256, 256).error == ImageDecodeError::tooLarge ? 0 : 1; };
    if (!kMemoryLimitsApply) {
        EXPECT_EQ(refused(), 0);
        return;
    }
    EXPECT_EQ(exitStatusUnderMemoryLimit(256u << 20, refused), 0);
}

TEST(PNGReader, DepthsPalettesAndGrayExpandToRGBA)
{
    ScratchFolder folder;
    const std::string source = writeBytes(folder, "q.png", encodePNG(*quadrants(64, 32)).value());
    commandOutput("convert -size 64x32 gradient:red-blue -depth 16 PNG64:" + folder.file("deep.png"));
    commandOutput("convert " + folder.file("deep.png") + " PNG32:" + folder.file("shallow.png"));
    commandOutput("convert -size 16x16 xc:none -fill red -draw 'rectangle 0,0 7,15' PNG8:" + folder.file("palette.png"));
    commandOutput("convert " + source + " -colorspace Gray -depth 2 " + folder.file("gray.png"));
    ASSERT_EQ(fileBytes(folder.file("deep.png"))[24], 16); // IHDR's bit depth

    const DecodedImage deep = decodeImageFile(folder.file("deep.png"));
    const DecodedImage shallow = decodeImageFile(folder.file("shallow.png"));
    ASSERT_TRUE(deep && shallow);
    for (size_t y = 0; y < 32; y += 5)
        EXPECT_TRUE(near(pixelAt(*deep.image, 7, y), pixelAt(*shallow.image, 7, y), 1)) << y;
    const DecodedImage palette = decodeImageFile(folder.file("palette.png"));
    ASSERT_TRUE(palette);
    EXPECT_EQ(pixelAt(*palette.image, 2, 2), kRed);
    EXPECT_EQ(pixelAt(*palette.image, 12, 2), kClear);
    const DecodedImage gray = decodeImageFile(folder.file("gray.png"));
    ASSERT_TRUE(gray);
    EXPECT_EQ(corners(*gray.image).bottomRight, kWhite);
}

TEST(PNGReader, BoxShrinkAveragesPremultipliedBlocks)
{
    // One opaque white pixel in every 2 x 2 block, the rest transparent.
    const auto sparse = [](size_t x, size_t y) { return x % 2 == 0 && y % 2 == 0 ? kWhite : kClear; };
    const DecodedImage even = decodePNGData(encodePNG(*bitmap(12, 12, sparse)).value(), 3, 3);
    ASSERT_TRUE(even);
    ASSERT_EQ(even.image->width(), 6u); // factor 2: 3 would give 4, under twice the 3 x 3 fit
    for (size_t y = 0; y < 6; ++y)
        for (size_t x = 0; x < 6; ++x)
            ASSERT_EQ(pixelAt(*even.image, x, y), (RGBA {64, 64, 64, 64})) << x << "," << y;

    // 5 x 5 by 4: the edge blocks average only the pixels they hold.
    const DecodedImage edges = decodePNGData(encodePNG(*bitmap(5, 5, sparse)).value(), 1, 1);
    ASSERT_EQ(edges.image->width(), 2u);
    EXPECT_EQ(pixelAt(*edges.image, 0, 0), (RGBA {64, 64, 64, 64}));     // 4 of 16
    EXPECT_EQ(pixelAt(*edges.image, 1, 0), (RGBA {128, 128, 128, 128})); // 2 of 4
    EXPECT_EQ(pixelAt(*edges.image, 1, 1), kWhite);                      // 1 of 1
}

TEST(PNGReader, InterlacedMatchesPlain)
{
    ScratchFolder folder;
    const Ref<CGImage> source = noise(300, 200);
    const std::string plain = writeBytes(folder, "plain.png", encodePNG(*source).value());
    commandOutput("convert " + plain + " -interlace PNG " + folder.file("adam7.png"));
    ASSERT_NE(commandOutput("identify -verbose " + folder.file("adam7.png")).find("Interlace: PNG"), std::string::npos);
    for (uint32_t box : {0u, 40u}) {
        const DecodedImage a = decodeImageFile(plain, box, box);
        const DecodedImage b = decodeImageFile(folder.file("adam7.png"), box, box);
        ASSERT_TRUE(a && b);
        ASSERT_EQ(a.image->byteCount(), b.image->byteCount());
        EXPECT_EQ(psnr(*a.image, *b.image), INFINITY);
    }
    // Shrinking it takes a full-size buffer, which counts against the decoder's memory; the
    // plain image needs only one row.
    const ImageLimits tight {.decoderMemory = 300 * 200 * 4 - 1};
    const std::vector<uint8_t> adam7 = fileBytes(folder.file("adam7.png"));
    const std::vector<uint8_t> plainBytes = fileBytes(plain);
    ImageInput interlacedInput = ImageInput::fromBytes(adam7);
    ImageInput plainInput = ImageInput::fromBytes(plainBytes);
    EXPECT_EQ(readPNG(interlacedInput, {40, 40}, tight).error, ImageDecodeError::tooLarge);
    EXPECT_TRUE(readPNG(plainInput, {40, 40}, tight));
}

TEST(PixbufReader, OtherFormatsDecodeThroughTheLoaders)
{
    ScratchFolder folder;
    const std::string source = writeBytes(folder, "q.png", encodePNG(*quadrants(400, 200)).value());
    commandOutput("convert " + source + " " + folder.file("q.bmp"));
    commandOutput("convert " + source + " -orient RightTop " + folder.file("q.tif"));
    commandOutput("convert -size 16x16 xc:none -fill red -draw 'rectangle 0,0 7,15' " + folder.file("t.gif"));

    const DecodedImage bmp = decodeImageFile(folder.file("q.bmp"));
    ASSERT_TRUE(bmp);
    EXPECT_EQ(corners(*bmp.image).topRight, kGreen);
    EXPECT_EQ(corners(*bmp.image).bottomLeft, kBlue);
    const DecodedImage small = decodeImageFile(folder.file("q.bmp"), 50, 50);
    ASSERT_TRUE(small);
    EXPECT_EQ(small.image->width(), 100u);
    EXPECT_EQ(small.info.pixelWidth, 400u);

    const DecodedImage tiff = decodeImageFile(folder.file("q.tif")); // turned a quarter clockwise
    ASSERT_TRUE(tiff);
    EXPECT_EQ(tiff.image->width(), 200u);
    EXPECT_EQ(tiff.info.pixelWidth, 200u);
    EXPECT_EQ(corners(*tiff.image).topLeft, kBlue);

    const DecodedImage gif = decodeImageFile(folder.file("t.gif"));
    ASSERT_TRUE(gif);
    EXPECT_EQ(pixelAt(*gif.image, 2, 2), kRed);
    EXPECT_EQ(pixelAt(*gif.image, 12, 2).a, 0);
    EXPECT_EQ(probeImage(fileBytes(folder.file("t.gif"))).value().pixelWidth, 16u);

    // The size is refused when the header comes, before pixels exist.
    std::vector<uint8_t> bmpBytes = fileBytes(folder.file("q.bmp"));
    ImageInput input = ImageInput::fromBytes(bmpBytes);
    EXPECT_EQ(readPixbuf(input, {}, {.maxPixels = 400 * 200 - 1}).error, ImageDecodeError::tooLarge);
    // The BMP loader would allocate up to the pixels' offset before looking at it.
    bmpBytes[13] = 0x8a;
    EXPECT_EQ(decodeImageData(bmpBytes).error, ImageDecodeError::tooLarge);
}

TEST(ImageReaders, IconFamiliesDecodeTheirLargestPNG)
{
    const std::vector<uint8_t> small = encodePNG(*quadrants(16, 16)).value();
    const std::vector<uint8_t> large = encodePNG(*quadrants(64, 64)).value();
    const std::string family = iconFamily({iconElement("icp4", {reinterpret_cast<const char*>(small.data()), small.size()}),
        iconElement("ic12", {reinterpret_cast<const char*>(large.data()), large.size()})});
    const std::vector<uint8_t> bytes = bytesOf(family);
    const ImageInfo info = probeImage(bytes).value();
    EXPECT_EQ(info.format, ImageFormat::icns);
    EXPECT_EQ(info.pixelWidth, 64u);
    EXPECT_EQ(info.horizontalDPI, 144); // an element for double-resolution screens
    const DecodedImage decoded = decodeImageData(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded.image->width(), 64u);
    EXPECT_EQ(corners(*decoded.image).bottomRight, kWhite);
}

} // namespace
