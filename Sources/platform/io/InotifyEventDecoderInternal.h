#pragma once

// Splits the bytes read from an inotify descriptor into events. The kernel packs each event as a
// fixed header (watch, mask, cookie, name length) followed by the name, padded with NULs to the
// length given. A read never splits an event, but the decoder trusts nothing: a header or name
// that runs past the bytes ends the decoding, and a name stops at its first NUL.

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace zon {

struct InotifyEvent {
    int watch = -1;
    uint32_t mask = 0;
    uint32_t cookie = 0;
    std::string_view name; // points into the decoded bytes; empty for events on the watched item itself
};

class ZON_EXPORT InotifyEventDecoder {
public:
    // Size of the fixed part of every event.
    static constexpr size_t kHeaderSize = 16;

    explicit InotifyEventDecoder(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    // The next whole event, or nullopt at the end of the bytes or at an event that does not fit.
    std::optional<InotifyEvent> next();
    // Bytes taken by the events decoded so far.
    size_t consumed() const { return offset_; }

private:
    std::span<const uint8_t> bytes_;
    size_t offset_ = 0;
};

} // namespace zon
