#pragma once

// The bytes a reader decodes, from memory or streamed from a file descriptor, so that a large file
// is never held whole. Readers pull views of the bytes in order; the view stays valid until the
// next pull.

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zon {

class ZON_EXPORT ImageInput {
public:
    // Reads bytes (which must outlive the input).
    static ImageInput fromBytes(std::span<const uint8_t> bytes);
    // Reads fd from its offset; the caller keeps fd open while the input is used.
    static ImageInput fromDescriptor(int fd);

    // The first bytes without consuming them: up to count, fewer only at the end of the input.
    std::span<const uint8_t> peek(size_t count);
    // The next bytes, at most maxBytes; empty at the end of the input or after a read error.
    std::span<const uint8_t> next(size_t maxBytes = SIZE_MAX);
    // Copies exactly out.size() bytes; false when the input ends first.
    bool readExactly(std::span<uint8_t> out);
    // A read from the descriptor failed (the input then ends there).
    bool failed() const { return failed_; }

private:
    static constexpr size_t kChunkSize = 64 * 1024;

    explicit ImageInput(std::span<const uint8_t> bytes) : memory_(bytes) {}
    explicit ImageInput(int fd) : fd_(fd) {}
    // Appends up to wanted more bytes from the descriptor to the buffer.
    void fill(size_t wanted);

    std::span<const uint8_t> memory_;
    int fd_ = -1;
    std::vector<uint8_t> buffer_;
    size_t start_ = 0; // what is consumed of buffer_
    bool atEnd_ = false;
    bool failed_ = false;
};

} // namespace zon
