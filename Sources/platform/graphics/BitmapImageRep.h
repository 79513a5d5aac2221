#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Geometry.h"

#include <cstddef>

namespace zon {

class CGImage;
class Data;
class URL;

// One bitmap of an image: 8-bit RGBA pixels with premultiplied alpha (a CGImage), its pixel size,
// and its size in points (the pixel size unless the file's resolution says otherwise). Run-time
// class NSBitmapImageRep. Immutable; may be shared between threads.
class ZON_EXPORT BitmapImageRep final : public Object {
    ZON_OBJECT(BitmapImageRep, Object)
public:
    // Nil for a nil image. The size in points is the pixel size.
    static Ref<BitmapImageRep> initWithCGImage(const CGImage* image);
    static Ref<BitmapImageRep> initWithCGImage_size(const CGImage* image, Size size);

    zon::CGImage* cgImage() const { return image_.get(); }
    size_t pixelsWide() const;
    size_t pixelsHigh() const;
    Size size() const { return size_; }

    // ---- NSBitmapImageRep(ZonImageExtensions) --------------------------------------------------

    // The preview service's image of the file at url, at most width x height pixels; nil (with a
    // log line) when there is no file or no preview.
    static Ref<BitmapImageRep> quickLookImageFromSourceURL_width_height(const URL* url, float width, float height);
    static Ref<BitmapImageRep> quickLookImageFromSourceURL_size(const URL* url, Size size);
    // A new bitmap of exactly size: the height decides the scale, the scaled image is centred, so a
    // wider one is cut on both sides and a narrower one gets transparent bands. Nil for nil.
    static Ref<BitmapImageRep> imageRepWithImageRep_scaledToSize(const BitmapImageRep* rep, Size size);
    // The bitmap as one JPEG image at quality 1.0; nil when encoding fails.
    Ref<Data> JPEGRepresentationOfImage() const;

private:
    BitmapImageRep(Ref<zon::CGImage> image, Size size);

    Ref<zon::CGImage> image_;
    Size size_;
};

} // namespace zon
