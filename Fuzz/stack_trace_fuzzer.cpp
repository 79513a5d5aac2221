// printStackTrace on stack text of any content (it comes from an exception's user info, so from
// outside), symbolised by a stand-in whose lines vary with the addresses: multi-byte characters
// that reads cut, mangled names, long lines. The report is one log line that starts as it should.

#include "logger/CaptureSink.h"
#include "logger/Logger.h"
#include "platform/diagnostics/StackSymbolizer.h"
#include "platform/diagnostics/StackTrace.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace {

class VaryingSymbolizer final : public zon::StackSymbolizer {
public:
    std::vector<std::string> symbolize(std::span<const uintptr_t> addresses) override
    {
        static const char* const pieces[] = { "_ZN3foo3barEi", "é", "😀", " (in mod) ", "_Z", "\xC3", "0x1f" };
        std::vector<std::string> lines;
        for (uintptr_t address : addresses) {
            std::string line;
            for (uintptr_t rest = address, n = 0; rest && n < 200; rest /= 7, ++n)
                line += pieces[rest % std::size(pieces)];
            lines.push_back(std::move(line));
        }
        return lines;
    }
};

std::shared_ptr<zon::logger::CaptureSink> captureSink()
{
    static auto sink = [] {
        for (const auto& other : zon::logger::sinks())
            zon::logger::removeSink(other);
        auto made = std::make_shared<zon::logger::CaptureSink>(zon::logger::kLevelError);
        zon::logger::addSink(made);
        zon::StackSymbolizer::setCurrent(std::make_shared<VaryingSymbolizer>());
        return made;
    }();
    return sink;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto sink = captureSink();
    auto stack = zon::String::stringWithUTF8String(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!stack)
        return 0;
    auto exception = zon::Exception::exceptionWithName_reason_userInfo(
        ZSTR("N"), ZSTR("r"), zon::Dictionary::dictionaryWithObject_forKey(stack.get(), zon::NSStackTraceKey).get());
    zon::Exception::printStackTrace(exception.get());
    const auto lines = sink->records();
    if (lines.size() != 1 || lines[0].message.find("MB An exception of type N occured because: r") == std::string::npos)
        std::abort();
    sink->clear();
    return 0;
}
