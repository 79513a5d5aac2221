// Feeds arbitrary bytes to the cover-art extraction as MP3, M4A, FLAC, Ogg or ASF (the first byte
// chooses), as the preview service does with audio files from anywhere. Checks that a picture
// found lies within the input.

#include "FuzzSupport.h"

#include "platform/graphics/CoverArtInternal.h"

#include <cstdint>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    static constexpr AudioContainer kContainers[] = {
        AudioContainer::mpeg, AudioContainer::mp4, AudioContainer::flac, AudioContainer::ogg, AudioContainer::asf};
    const AudioContainer container = kContainers[data[0] % std::size(kContainers)];
    const auto picture = coverArtOfBytes({data + 1, size - 1}, container);
    // An Ogg picture block is base64 text, so its picture can be at most 3/4 of the input.
    fuzz::check(!picture || (!picture->empty() && picture->size() <= size));
    return 0;
}
