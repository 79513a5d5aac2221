#pragma once

#include "platform/graphics/BitmapContext.h"
#include "platform/runtime/Object.h"
#include "platform/values/Geometry.h"

#include <cstddef>
#include <memory>

namespace zon {

class Array;
class BitmapImageRep;
class Data;
class String;
class URL;

// An image: its size in points and its representations (bitmaps). Run-time class NSImage.
//
// An image read from a file or bytes keeps the container's bytes and knows its size from the
// container's headers and resolution (a 144 dpi file of 200 x 200 pixels is 100 x 100 points); its
// bitmap is decoded through the image readers the first time the representations are asked for.
// An image made with a size starts with no representations; drawing into it or adding one gives
// it some. Representations may be read from several threads; adding one is for the image's owner.
class ZON_EXPORT Image final : public Object {
    ZON_OBJECT(Image, Object)
public:
    // Image files larger than this are refused unread.
    static constexpr size_t kMaxFileBytes = 256 * 1024 * 1024;

    // An empty image of that size in points, with no representations (a zero size is allowed).
    static Ref<Image> initWithSize(Size size);
    // The image of a file's contents; nil when the file cannot be read, is larger than the cap or
    // is not an image the readers recognise.
    static Ref<Image> initWithContentsOfFile(const String* path);
    // The same for a file URL; nil for other URLs.
    static Ref<Image> initWithContentsOfURL(const URL* url);
    // The image of these bytes; nil for nil and for bytes that are not a recognised image.
    static Ref<Image> initWithData(const Data* data);

    Size size() const { return size_; }
    // The container's bytes as read; nil for an image made with a size.
    Data* data() const { return data_.get(); }

    // The bitmaps, in the order added; a file image's decoded bitmap first. Never nil.
    Ref<Array> representations() const;
    void addRepresentation(BitmapImageRep* representation);
    // The bitmap to draw from: the largest representation; nil when there is none or the image's
    // bytes cannot be decoded.
    Ref<BitmapImageRep> bestRepresentation() const;

    // Draws this image's best bitmap into rect of context (see CGContext::drawImage). Nothing is
    // drawn when the image has no bitmap.
    void drawInRect(CGContext* context, Rect rect, CompositingOperation operation, double opacity) const;

    // ---- NSImage(ZonExtensions) -----------------------------------------------------------------

    // A new 109 x 109 image that the whole of this one fills, what overflows cut off.
    Ref<Image> desktopThumbnail() const;

private:
    struct Representations;
    Image(Ref<Data> data, Size size);
    void decodeOnce() const;
    bool decodeStarted() const;
    ~Image() override;

    Ref<Data> data_;
    Size size_;
    std::unique_ptr<Representations> representations_;
};

} // namespace zon
