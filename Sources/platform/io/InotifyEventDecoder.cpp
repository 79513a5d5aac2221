#include "platform/io/InotifyEventDecoderInternal.h"

#include <cstring>

namespace zon {

namespace {

uint32_t wordAt(const uint8_t* bytes)
{
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word); // the kernel writes host byte order
    return word;
}

} // namespace

std::optional<InotifyEvent> InotifyEventDecoder::next()
{
    const size_t left = bytes_.size() - offset_;
    if (left < kHeaderSize)
        return std::nullopt;
    const uint8_t* header = bytes_.data() + offset_;
    const uint32_t nameLength = wordAt(header + 12);
    if (nameLength > left - kHeaderSize)
        return std::nullopt;

    InotifyEvent event;
    event.watch = static_cast<int>(wordAt(header));
    event.mask = wordAt(header + 4);
    event.cookie = wordAt(header + 8);
    const char* name = reinterpret_cast<const char*>(header + kHeaderSize);
    event.name = std::string_view(name, ::strnlen(name, nameLength));
    offset_ += kHeaderSize + nameLength;
    return event;
}

} // namespace zon
