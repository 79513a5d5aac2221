// readLastLines over random file contents and counts: the first two bytes are the count, the rest
// the file. It never answers more lines than asked and always restores the offset; a file of one
// block (where no read can go past its start) gives exactly the last lines a plain split finds.

#include "extensions/NSFileHandle+ZonTail.h"
#include "platform/values/Array.h"
#include "platform/values/String.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

// The last count lines of a file of one block as the reader finds them: lines ended by a line
// feed keep a NUL, the first line of the file does not, lines that are not UTF-8 are dropped.
std::vector<std::string> expectedLines(std::string_view content, uint32_t count)
{
    if (!content.empty() && content.back() == '\n')
        content.remove_suffix(1);
    std::vector<std::string> lines; // newest first
    while (count > 0) {
        const size_t feed = content.rfind('\n');
        const bool found = feed != std::string_view::npos;
        std::string line(content.substr(found ? feed + 1 : 0));
        if (found)
            line += '\0';
        if (zon::String::stringWithUTF8String(line))
            lines.push_back(line);
        if (!found)
            break;
        content = content.substr(0, feed);
        --count;
    }
    return {lines.rbegin(), lines.rend()};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const uint32_t count = uint32_t(data[0]) | uint32_t(data[1]) << 8;
    const std::string_view content(reinterpret_cast<const char*>(data + 2), size - 2);
    const int fd = ::memfd_create("tail", MFD_CLOEXEC);
    if (fd < 0 || ::write(fd, content.data(), content.size()) != ssize_t(content.size()))
        std::abort();
    const off_t offset = off_t(content.size() / 2);
    ::lseek(fd, offset, SEEK_SET);

    zon::Ref<zon::FileHandle> handle = zon::FileHandle::initWithFileDescriptor_closeOnDealloc(fd, true);
    zon::Ref<zon::Array> lines = handle->readLastLines(count);
    if (lines->count() > count || ::lseek(fd, 0, SEEK_CUR) != offset)
        std::abort();
    if (content.size() <= 1024 && !content.empty()) {
        std::vector<std::string> got;
        for (zon::Object* line : *lines)
            got.push_back(static_cast<zon::String*>(line)->UTF8String());
        if (got != expectedLines(content, count))
            std::abort();
    }
    return 0;
}
