// NSFileHandle(ZonTail): the last lines of a file, read backwards in 1,024-byte blocks.

#include "extensions/NSFileHandle+ZonTail.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/ByteVector.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" size_t safe_read(int fd, void* buffer, size_t length)
{
    auto count = zon::readSome(fd, {static_cast<uint8_t*>(buffer), length}); // retries EINTR
    if (!count) {
        std::printf("ERROR: (%d) %s\n", count.code(), std::strerror(count.code()));
        std::fflush(stdout);
        return 0;
    }
    return count.value();
}

namespace zon {

namespace {

constexpr size_t kBlockSize = 1024;

// The start of the line being assembled: the bytes that came from blocks read before (later in
// the file), each block's bytes put in front. They are kept as pieces, filled from the back, so
// that a line spanning many blocks costs time linear in its length.
class PendingBytes {
public:
    size_t size() const { return size_; }

    void prepend(const uint8_t* bytes, size_t length)
    {
        while (length > 0) {
            if (frontFree_ == 0) {
                pieces_.emplace_back(kPieceSize);
                frontFree_ = kPieceSize;
            }
            const size_t taken = std::min(length, frontFree_);
            frontFree_ -= taken;
            length -= taken;
            std::memcpy(pieces_.back().data() + frontFree_, bytes + length, taken);
            size_ += taken;
        }
    }

    // Copies the bytes, in file order, to out (size() bytes).
    void copyTo(uint8_t* out) const
    {
        if (pieces_.empty())
            return;
        const size_t front = kPieceSize - frontFree_;
        std::memcpy(out, pieces_.back().data() + frontFree_, front);
        out += front;
        for (size_t i = pieces_.size() - 1; i-- > 0; out += kPieceSize)
            std::memcpy(out, pieces_[i].data(), kPieceSize);
    }

    // Keeps one piece for the next line: most lines carried over a block boundary are short.
    void clear()
    {
        if (pieces_.size() > 1) {
            pieces_.erase(pieces_.begin() + 1, pieces_.end());
            pieces_.shrink_to_fit();
        }
        frontFree_ = pieces_.empty() ? 0 : kPieceSize;
        size_ = 0;
    }

private:
    static constexpr size_t kPieceSize = 64 * 1024;
    std::vector<ByteVector> pieces_; // the last piece holds the front of the bytes
    size_t frontFree_ = 0;           // unwritten bytes at the start of the last piece
    size_t size_ = 0;
};

enum class Terminator { none, nul };

// One pass of readLastLines over the descriptor: the lines found, newest first.
class TailReader {
public:
    TailReader(int fd, uint32_t count) : fd_(fd), remaining_(count) {}

    std::vector<Ref<Object>> read(off_t size)
    {
        uint8_t block[kBlockSize];
        const size_t firstLength = size % off_t(kBlockSize) ? size_t(size % off_t(kBlockSize)) : kBlockSize;
        off_t blockStart = size - off_t(firstLength);
        (void)seekFile(fd_, blockStart, SEEK_SET);
        size_t length = safe_read(fd_, block, firstLength);
        if (length > 0 && block[length - 1] == '\n')
            --length; // a final line feed ends the last line; it starts no empty one
        for (;;) {
            scanBlock(block, length);
            if (remaining_ == 0)
                break;
            blockStart -= off_t(kBlockSize);
            // Not checked, on purpose: before the start of the file the seek fails and the read
            // goes on from where the last one ended, so older lines may come again.
            (void)seekFile(fd_, blockStart, SEEK_SET);
            length = safe_read(fd_, block, kBlockSize);
            if (length == 0) {
                addLine({}, Terminator::none); // what is pending is the oldest line, even empty
                break;
            }
        }
        return std::move(lines_);
    }

private:
    // Every line feed, from the end of the block back, ends the line after it; the bytes before
    // the first one are pending.
    void scanBlock(const uint8_t* block, size_t end)
    {
        while (remaining_ > 0) {
            const void* found = ::memrchr(block, '\n', end);
            if (!found) {
                pending_.prepend(block, end);
                return;
            }
            const size_t at = size_t(static_cast<const uint8_t*>(found) - block);
            addLine({block + at + 1, end - at - 1}, Terminator::nul);
            --remaining_;
            end = at;
        }
    }

    // The line is start, then the pending bytes, then the terminator; one that is not UTF-8 is
    // left out (it still counted).
    void addLine(std::span<const uint8_t> start, Terminator terminator)
    {
        const size_t length = start.size() + pending_.size() + (terminator == Terminator::nul ? 1 : 0);
        Ref<String> line;
        if (length <= kStackLineSize) {
            char bytes[kStackLineSize];
            join(start, terminator, reinterpret_cast<uint8_t*>(bytes), length);
            pending_.clear();
            line = String::stringWithUTF8String({bytes, length});
        } else {
            ByteVector bytes(length);
            join(start, terminator, bytes.data(), length);
            pending_.clear(); // before decoding, so that a huge line is held twice at most
            line = stringWithUTF8Data(Data::dataWithVector(std::move(bytes)).get());
        }
        if (line)
            lines_.push_back(std::move(line));
    }

    void join(std::span<const uint8_t> start, Terminator terminator, uint8_t* out, size_t length) const
    {
        if (!start.empty())
            std::memcpy(out, start.data(), start.size());
        pending_.copyTo(out + start.size());
        if (terminator == Terminator::nul)
            out[length - 1] = 0;
    }

    // A line within one block, with its terminator, always fits.
    static constexpr size_t kStackLineSize = 4 * kBlockSize;

    int fd_;
    uint32_t remaining_;
    PendingBytes pending_;
    std::vector<Ref<Object>> lines_;
};

} // namespace

Ref<Array> FileHandle::readLastLines(uint32_t count)
{
    auto start = seekFile(fd_, 0, SEEK_CUR);
    auto end = start ? seekFile(fd_, 0, SEEK_END) : start;
    if (!end)
        return Array::array(); // a pipe or a socket has no end to read back from
    std::vector<Ref<Object>> lines;
    if (count > 0 && end.value() > 0)
        lines = TailReader(fd_, count).read(end.value());
    // Restored on every path; a seek back to where the handle was cannot fail.
    (void)seekFile(fd_, start.value(), SEEK_SET);
    std::reverse(lines.begin(), lines.end()); // oldest first: the order reverseArray gives
    return Array::arrayWithVector(std::move(lines));
}

} // namespace zon
