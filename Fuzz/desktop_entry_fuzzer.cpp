// Reads arbitrary bytes as a desktop entry and splits its Exec value (and the bytes themselves)
// into arguments. Checks that only UTF-8 is accepted and that what comes out of an accepted entry
// is UTF-8 too.

#include "FuzzSupport.h"

#include "platform/io/DesktopEntryInternal.h"
#include "platform/values/UTF.h"

#include <cstdint>
#include <string_view>

using namespace zon;

namespace {

bool isUTF8(std::string_view text) { return utf::offsetOfInvalidUTF8(text) == text.size(); }

void checkArguments(std::string_view exec)
{
    if (const auto arguments = desktopEntryExecArguments(exec))
        for (const std::string& argument : *arguments)
            fuzz::check(argument.size() <= exec.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    checkArguments(bytes);
    const std::optional<DesktopEntry> entry = DesktopEntry::parse(bytes);
    if (!entry)
        return 0;
    fuzz::check(isUTF8(bytes));
    for (std::string_view key : {"Type", "Name", "Exec", "TryExec", "Hidden", "Name[de]"}) {
        if (const std::optional<std::string> value = entry->entryValue(key)) {
            fuzz::check(isUTF8(*value));
            checkArguments(*value);
        }
    }
    return 0;
}
