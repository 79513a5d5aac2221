// Looks arbitrary identifiers (NULs included) up in the Windows locale code table and checks that
// the plain reading of "ll" and "ll_CC" identifiers agrees with the locale parser's, that a found
// code maps back to an identifier with the same code, and that four arbitrary bytes make an
// identifier or nil without failing.

#include "FuzzSupport.h"

#include "extensions/WindowsLocaleCodeTableInternal.h"

#include "platform/values/Locale.h"
#include "platform/values/String.h"

#include <cstdint>

using namespace zon;
using zon::fuzz::check;
using zon::fuzz::textOf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    Ref<String> identifier = textOf(bytes);

    check(localecodes::keyForIdentifier(identifier.get()) == localecodes::keyForIdentifierThroughParser(identifier.get()));
    const uint32_t code = Locale::windowsLocaleCodeFromLocaleIdentifier(identifier.get());
    if (code != 0) {
        Ref<String> back = Locale::localeIdentifierFromWindowsLocaleCode(code);
        check(back && Locale::windowsLocaleCodeFromLocaleIdentifier(back.get()) == code);
    }

    if (size >= 4) {
        Ref<String> made = FourCharToLocaleIdentifier(data[0], data[1], data[2], data[3]);
        // Bytes above 0x7F are not ASCII, so they make no language part.
        if (data[0] == 0xFF)
            check(!made);
        else if (data[0] < 0x80 && data[1] < 0x80)
            check(made != nullptr);
        uint32_t asCode = uint32_t(data[0]) << 24 | uint32_t(data[1]) << 16 | uint32_t(data[2]) << 8 | data[3];
        Locale::localeIdentifierFromWindowsLocaleCode(asCode);
    }
    return 0;
}
