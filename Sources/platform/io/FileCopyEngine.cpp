#include "platform/io/FileCopyEngine.h"

#include "platform/system/FileCallsInternal.h"

#include <memory>

namespace zon {

namespace {

// The most one copy_file_range call is asked for: the kernel caps a call near 2 GiB anyway.
constexpr size_t kKernelCopyChunk = size_t(1) << 30;

bool isDestinationFault(int code) { return code == ENOSPC || code == EDQUOT || code == EFBIG; }

// The read/write way, through one buffer made when first needed.
class BlockCopier {
public:
    BlockCopier(int source, int destination, FileCopyOutcome& outcome)
        : source_(source), destination_(destination), outcome_(outcome)
    {
    }

    // Copies up to limit bytes, or to the source's end; false after a failure, recorded in the
    // outcome. atEnd tells whether the source's end was reached.
    bool copy(uint64_t limit, bool* atEnd = nullptr)
    {
        if (!buffer_)
            buffer_ = std::make_unique_for_overwrite<uint8_t[]>(kFileCopyBlockSize);
        uint64_t moved = 0;
        while (moved < limit) {
            const size_t want = static_cast<size_t>(std::min<uint64_t>(kFileCopyBlockSize, limit - moved));
            auto n = readSome(source_, {buffer_.get(), want});
            if (!n)
                return fail(FileCopySide::source, n.error());
            if (n.value() == 0) {
                if (atEnd)
                    *atEnd = true;
                return true;
            }
            if (auto written = writeAll(destination_, {buffer_.get(), n.value()}); !written)
                return fail(FileCopySide::destination, written.error());
            moved += n.value();
            outcome_.bytesCopied += n.value();
            outcome_.method = FileCopyMethod::readWrite;
        }
        return true;
    }

private:
    bool fail(FileCopySide side, SystemError error)
    {
        outcome_.failure = FileCopyFailure {side, std::move(error)};
        return false;
    }

    int source_;
    int destination_;
    FileCopyOutcome& outcome_;
    std::unique_ptr<uint8_t[]> buffer_;
};

} // namespace

const char* fileCopyMethodName(FileCopyMethod method)
{
    switch (method) {
    case FileCopyMethod::clone: return "clone";
    case FileCopyMethod::kernelCopy: return "copy_file_range";
    case FileCopyMethod::readWrite: return "read/write";
    case FileCopyMethod::none: break;
    }
    return "none";
}

FileCopyOutcome copyFileContents(int source, int destination)
{
    FileCopyOutcome outcome;
    BlockCopier blocks(source, destination, outcome);
    auto status = fileStatus(source);
    if (!status) {
        outcome.failure = FileCopyFailure {FileCopySide::source, status.error()};
        return outcome;
    }
    const bool regular = S_ISREG(status.value().st_mode);
    const auto statSize = static_cast<uint64_t>(std::max<off_t>(status.value().st_size, 0));
    // A clone copies the whole file whatever the offsets; only a copy from the start may use it.
    auto sourceOffset = seekFile(source, 0, SEEK_CUR);
    if (regular && sourceOffset && sourceOffset.value() == 0 && cloneFile(destination, source)) {
        outcome.method = FileCopyMethod::clone;
        outcome.bytesCopied = statSize;
        return outcome;
    }
    uint64_t position = sourceOffset ? static_cast<uint64_t>(sourceOffset.value()) : 0;
    while (regular && position < statSize) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(kKernelCopyChunk, statSize - position));
        auto n = copyFileRange(source, destination, want);
        if (n && n.value() == 0)
            break; // short of the stat size: the blocks below read what is really there
        if (n) {
            position += n.value();
            outcome.bytesCopied += n.value();
            outcome.method = FileCopyMethod::kernelCopy;
            continue;
        }
        if (isDestinationFault(n.code())) {
            outcome.failure = FileCopyFailure {FileCopySide::destination, n.error()};
            return outcome;
        }
        if (n.code() != EIO)
            break; // refused (another file system, an old kernel, a special file): blocks
        // Either disk may have failed: the same range with read and write says which.
        const uint64_t before = outcome.bytesCopied;
        bool atEnd = false;
        if (!blocks.copy(want, &atEnd))
            return outcome;
        position += outcome.bytesCopied - before;
        if (atEnd)
            return outcome;
    }
    if (position >= statSize && outcome.method == FileCopyMethod::kernelCopy)
        return outcome;
    blocks.copy(UINT64_MAX);
    return outcome;
}

} // namespace zon
