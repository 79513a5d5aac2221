#include "platform/graphics/Image.h"

#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/ImageHeaderInternal.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(Image, "NSImage")

namespace {

constexpr double kPointsPerInch = 72;

double points(uint32_t pixels, double dotsPerInch)
{
    return dotsPerInch > 0 ? pixels * kPointsPerInch / dotsPerInch : pixels;
}

// What the headers say the image measures in points; nullopt for bytes that are no image.
std::optional<Size> pointSize(std::span<const uint8_t> bytes)
{
    if (const std::optional<ImageInfo> info = probeImage(bytes))
        return makeSize(points(info->pixelWidth, info->horizontalDPI), points(info->pixelHeight, info->verticalDPI));
    // Icon families, which the process and generic icons hand over, are measured even where no
    // reader decodes them.
    if (const std::optional<ImageHeader> header = readImageHeader(bytes))
        return makeSize(header->width, header->height);
    return std::nullopt;
}

std::span<const uint8_t> bytesOf(const Data& data)
{
    return {static_cast<const uint8_t*>(data.bytes()), data.length()};
}

uint32_t boxSide(double side)
{
    return uint32_t(std::clamp(std::ceil(side), 1.0, double(kMaxImageSide)));
}

} // namespace

// The file's bitmap is decoded once, under the lock, by the first caller that needs it; the other
// callers wait for it rather than decode twice.
struct Image::Representations {
    mutable std::mutex lock;
    bool decoded = false;
    std::vector<Ref<BitmapImageRep>> bitmaps;
};

Image::Image(Ref<Data> data, Size size)
    : data_(std::move(data))
    , size_(size)
    , representations_(std::make_unique<Representations>())
{
}

Image::~Image() = default;

Ref<Image> Image::initWithSize(Size size)
{
    return makeObject<Image>(nullptr, size);
}

Ref<Image> Image::initWithData(const Data* data)
{
    if (!data)
        return nullptr;
    const std::optional<Size> size = pointSize(bytesOf(*data));
    if (!size)
        return nullptr;
    // An immutable Data's copy is itself; a mutable one is copied so that the image cannot change.
    return makeObject<Image>(dynamicCast<Data>(data->copy()), *size);
}

Ref<Image> Image::initWithContentsOfFile(const String* path)
{
    if (!path)
        return nullptr;
    auto file = openForReading(path->UTF8String(), ReadableKinds::regularFiles);
    if (!file)
        return nullptr;
    auto bytes = readToEnd(file.value().get(), kMaxFileBytes);
    if (!bytes)
        return nullptr;
    return initWithData(Data::dataWithBytes(bytes.value().data(), bytes.value().size()).get());
}

Ref<Image> Image::initWithContentsOfURL(const URL* url)
{
    if (!url || !url->isFileURL())
        return nullptr;
    return initWithContentsOfFile(url->path().get());
}

// Caller holds the lock.
void Image::decodeOnce() const
{
    if (representations_->decoded || !data_)
        return;
    representations_->decoded = true;
    const DecodedImage decoded = decodeImageData(bytesOf(*data_));
    if (Ref<BitmapImageRep> bitmap = BitmapImageRep::initWithCGImage_size(decoded.image.get(), size_))
        representations_->bitmaps.insert(representations_->bitmaps.begin(), std::move(bitmap));
}

Ref<Array> Image::representations() const
{
    std::lock_guard guard(representations_->lock);
    decodeOnce();
    Ref<MutableArray> bitmaps = MutableArray::arrayWithCapacity(representations_->bitmaps.size());
    for (const Ref<BitmapImageRep>& bitmap : representations_->bitmaps)
        bitmaps->addObject(bitmap.get());
    return bitmaps;
}

void Image::addRepresentation(BitmapImageRep* representation)
{
    if (!representation)
        return;
    std::lock_guard guard(representations_->lock);
    representations_->bitmaps.emplace_back(representation);
}

Ref<BitmapImageRep> Image::bestRepresentation() const
{
    std::lock_guard guard(representations_->lock);
    decodeOnce();
    const auto& bitmaps = representations_->bitmaps;
    auto largest = std::max_element(bitmaps.begin(), bitmaps.end(), [](const auto& a, const auto& b) {
        return a->pixelsWide() * a->pixelsHigh() < b->pixelsWide() * b->pixelsHigh();
    });
    return largest == bitmaps.end() ? nullptr : *largest;
}

// A file image drawn before anything asked for its bitmap is decoded for this draw only, at the
// size the rectangle needs (the readers shrink while decoding, a JPEG in the DCT domain), so a
// thumbnail of a large photo does not decode every pixel of it. The full bitmap is still decoded
// and kept when the representations are asked for.
void Image::drawInRect(CGContext* context, Rect rect, CompositingOperation operation, double opacity) const
{
    if (!context)
        return;
    Ref<CGImage> pixels;
    if (data_ && !decodeStarted())
        pixels = decodeImageData(bytesOf(*data_), boxSide(rect.size.width), boxSide(rect.size.height)).image;
    if (!pixels)
        if (Ref<BitmapImageRep> best = bestRepresentation())
            pixels = best->cgImage();
    if (pixels)
        context->drawImage(rect, pixels.get(), operation, opacity);
}

bool Image::decodeStarted() const
{
    std::lock_guard guard(representations_->lock);
    return representations_->decoded;
}

} // namespace zon
