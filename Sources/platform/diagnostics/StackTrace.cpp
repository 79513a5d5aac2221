#include "platform/diagnostics/StackTrace.h"

#include "platform/values/String.h"

#include <charconv>
#include <execinfo.h>

namespace zon {

ZON_STRING_CONSTANT(NSStackTraceKey, "NSStackTraceKey");

void loadUnwinder()
{
    void* frame[1];
    (void)::backtrace(frame, 1);
}

__attribute__((noinline)) size_t captureReturnAddresses(std::span<void*> frames) noexcept
{
    void* all[kMaximumStackFrames + 1];
    const int count = ::backtrace(all, static_cast<int>(std::min(frames.size() + 1, std::size(all))));
    if (count <= 1)
        return 0;
    const size_t kept = static_cast<size_t>(count) - 1;
    std::copy(all + 1, all + count, frames.begin());
    return kept;
}

size_t formatStackTrace(std::span<void* const> frames, std::span<char> out) noexcept
{
    size_t length = 0;
    for (void* frame : frames) {
        char address[24] = { '0', 'x' };
        const auto end
            = std::to_chars(address + 2, address + sizeof address, reinterpret_cast<uintptr_t>(frame), 16).ptr;
        const size_t separator = length ? 2 : 0;
        const size_t needed = separator + static_cast<size_t>(end - address);
        if (length + needed > out.size())
            break;
        for (size_t i = 0; i < separator; ++i)
            out[length++] = ' ';
        for (const char* c = address; c != end; ++c)
            out[length++] = *c;
    }
    return length;
}

Ref<String> currentStackTraceText()
{
    void* frames[kMaximumStackFrames];
    const size_t count = captureReturnAddresses(frames);
    char text[kMaximumStackTraceLength];
    const size_t length = formatStackTrace(std::span(frames, count), text);
    return String::stringWithUTF8String(std::string_view(text, length));
}

std::vector<uintptr_t> returnAddressesOfStackTrace(std::string_view text)
{
    std::vector<uintptr_t> addresses;
    size_t at = 0;
    while (at < text.size()) {
        const size_t start = text.find_first_not_of(" \t\n\r", at);
        if (start == std::string_view::npos)
            break;
        size_t end = text.find_first_of(" \t\n\r", start);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view token = text.substr(start, end - start);
        if (token.size() > 2 && token[0] == '0' && (token[1] == 'x' || token[1] == 'X'))
            token.remove_prefix(2);
        uintptr_t address = 0;
        const auto [stop, error] = std::from_chars(token.data(), token.data() + token.size(), address, 16);
        if (error == std::errc() && stop == token.data() + token.size())
            addresses.push_back(address);
        at = end;
    }
    return addresses;
}

} // namespace zon
