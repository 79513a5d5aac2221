// Drawing with any geometry: context sizes and row lengths (odd ones included), source sizes,
// rectangles of any float bits (NaN, infinities, huge, tiny), every interpolation and operation,
// any opacity. Drawing never crashes nor writes outside the pixels: the bytes past each row's
// pixels stay zero.

#include "FuzzSupport.h"
#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageScalingInternal.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return offset_ < size_ ? data_[offset_++] : 0; }
    float real()
    {
        uint32_t bits = 0;
        for (int i = 0; i < 4; ++i)
            bits = bits << 8 | byte();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t offset_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zon;
    Input input(data, size);
    const size_t width = 1 + input.byte() % 48, height = 1 + input.byte() % 48;
    const size_t bytesPerRow = width * 4 + input.byte() % 7;
    Ref<CGContext> context = CGContext::bitmapContext(width, height, bytesPerRow);
    fuzz::check(context != nullptr);
    const size_t sourceWidth = 1 + input.byte() % 64, sourceHeight = 1 + input.byte() % 64;
    std::vector<uint8_t> pixels(sourceWidth * sourceHeight * 4);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = uint8_t(i * 37 + input.byte());
    Ref<CGImage> image = CGImage::imageWithPixels(sourceWidth, sourceHeight, std::move(pixels));

    for (int draw = 0; draw < 3; ++draw) {
        const CGInterpolationQuality qualities[] = {kCGInterpolationDefault, kCGInterpolationNone, kCGInterpolationLow,
            kCGInterpolationHigh, kCGInterpolationMedium};
        context->setInterpolationQuality(qualities[input.byte() % 5]);
        const auto operation = input.byte() % 2 ? CompositingOperation::copy : CompositingOperation::sourceOver;
        const Rect rect = makeRect(input.real(), input.real(), input.real(), input.real());
        context->drawImage(rect, image.get(), operation, input.real());
    }
    for (size_t row = 0; row < height; ++row)
        for (size_t column = width * 4; column < bytesPerRow; ++column)
            fuzz::check(context->data()[row * bytesPerRow + column] == 0);
    fuzz::check(context->makeImage()->width() == width);

    Ref<CGImage> fitted = imageScaledToFit(image.get(), input.byte(), input.byte());
    fuzz::check(fitted && fitted->width() <= sourceWidth && fitted->height() <= sourceHeight);
    // Sizes past 4096 would only measure the allocator (NaN still gets through).
    const float emptyWidth = input.real(), emptyHeight = input.real();
    if (!(std::fabs(emptyWidth) > 4096 || std::fabs(emptyHeight) > 4096))
        if (CGContext* empty = CGBitmapContextCreateEmptyContext(emptyWidth, emptyHeight))
            empty->release();
    return 0;
}
