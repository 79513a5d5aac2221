#include "platform/graphics/ImageInputInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <cstring>

namespace zon {

ImageInput ImageInput::fromBytes(std::span<const uint8_t> bytes) { return ImageInput(bytes); }

ImageInput ImageInput::fromDescriptor(int fd) { return ImageInput(fd); }

void ImageInput::fill(size_t wanted)
{
    if (start_ == buffer_.size()) {
        buffer_.clear();
        start_ = 0;
    }
    const size_t filled = buffer_.size();
    buffer_.resize(filled + wanted);
    auto n = readSome(fd_, {buffer_.data() + filled, wanted});
    buffer_.resize(filled + (n ? n.value() : 0));
    if (!n || n.value() == 0) {
        failed_ = !n;
        atEnd_ = true;
    }
}

std::span<const uint8_t> ImageInput::peek(size_t count)
{
    if (fd_ < 0)
        return memory_.first(std::min(count, memory_.size()));
    while (buffer_.size() - start_ < count && !atEnd_)
        fill(count - (buffer_.size() - start_));
    return std::span<const uint8_t>(buffer_).subspan(start_, std::min(count, buffer_.size() - start_));
}

std::span<const uint8_t> ImageInput::next(size_t maxBytes)
{
    if (fd_ < 0) {
        const std::span<const uint8_t> taken = memory_.first(std::min(maxBytes, memory_.size()));
        memory_ = memory_.subspan(taken.size());
        return taken;
    }
    if (start_ == buffer_.size() && !atEnd_)
        fill(kChunkSize);
    const size_t count = std::min(maxBytes, buffer_.size() - start_);
    const std::span<const uint8_t> taken = std::span<const uint8_t>(buffer_).subspan(start_, count);
    start_ += count;
    return taken;
}

bool ImageInput::readExactly(std::span<uint8_t> out)
{
    size_t copied = 0;
    while (copied < out.size()) {
        const std::span<const uint8_t> chunk = next(out.size() - copied);
        if (chunk.empty())
            return false;
        std::memcpy(out.data() + copied, chunk.data(), chunk.size());
        copied += chunk.size();
    }
    return true;
}

} // namespace zon
