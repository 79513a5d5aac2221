#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Geometry.h"

#include <cstddef>

namespace zon {

class Data;
class String;

// An image as its file holds it. Run-time class NSImage.
//
// This is the first floor of the image type: it recognises the container (PNG, or an icon family,
// ".icns"), knows the image's size in points from the container's headers, and keeps the file's
// bytes for the decoders that come with the image stack. Nothing is decoded yet, so nothing here
// touches pixels. Immutable; may be shared between threads.
class ZON_EXPORT Image final : public Object {
    ZON_OBJECT(Image, Object)
public:
    // Image files larger than this are refused unread.
    static constexpr size_t kMaxFileBytes = 64 * 1024 * 1024;

    // The image of a file's contents; nil when the file cannot be read, is larger than the cap or
    // is not a recognised image container.
    static Ref<Image> initWithContentsOfFile(const String* path);
    // The image of these bytes; nil for nil and for bytes that are not a recognised container.
    static Ref<Image> initWithData(const Data* data);

    // In points: PNG's IHDR size; an icon family's largest image.
    Size size() const { return size_; }
    // The container's bytes as read.
    Data* data() const { return data_.get(); }

private:
    Image(Ref<Data> data, Size size);

    Ref<Data> data_;
    Size size_;
};

} // namespace zon
