#include "platform/graphics/Image.h"

#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/ImageHeaderInternal.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/threads/Lock.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <mutex>

namespace zon {

ZON_DEFINE_CLASS(Image, "NSImage")

struct Image::Representations {
    mutable std::mutex lock;
    Ref<MutableArray> bitmaps = MutableArray::array();
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
    const std::span<const uint8_t> bytes(static_cast<const uint8_t*>(data->bytes()), data->length());
    const std::optional<ImageHeader> header = readImageHeader(bytes);
    if (!header)
        return nullptr;
    // An immutable Data's copy is itself; a mutable one is copied so that the image cannot change.
    return makeObject<Image>(dynamicCast<Data>(data->copy()), makeSize(header->width, header->height));
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

Ref<Array> Image::representations() const
{
    std::lock_guard guard(representations_->lock);
    return dynamicCast<Array>(representations_->bitmaps->copy());
}

void Image::addRepresentation(BitmapImageRep* representation)
{
    if (!representation)
        return;
    std::lock_guard guard(representations_->lock);
    representations_->bitmaps->addObject(representation);
}

Ref<BitmapImageRep> Image::bestRepresentation() const
{
    return nullptr;
}

void Image::drawInRect(CGContext*, Rect, CompositingOperation, double) const
{
}

} // namespace zon
