// Decodes arbitrary bytes as UTF-8 (and as UTF-16 and Latin-1) and checks the fast converters
// against a plain reference: the same verdict on validity, the same units, and an exact round
// trip for valid input.

#include "FuzzSupport.h"
#include "platform/values/MutableString.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

using namespace zon;
using fuzz::check;

namespace {

// One code point at a time, straight from the definition of well-formed UTF-8.
std::optional<std::u16string> referenceDecode(std::string_view bytes)
{
    std::u16string out;
    for (size_t i = 0; i < bytes.size();) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        size_t length;
        uint32_t cp, minimum;
        if (lead < 0x80)
            length = 1, cp = lead, minimum = 0;
        else if ((lead & 0xE0) == 0xC0)
            length = 2, cp = lead & 0x1F, minimum = 0x80;
        else if ((lead & 0xF0) == 0xE0)
            length = 3, cp = lead & 0x0F, minimum = 0x800;
        else if ((lead & 0xF8) == 0xF0)
            length = 4, cp = lead & 0x07, minimum = 0x10000;
        else
            return std::nullopt;
        if (i + length > bytes.size())
            return std::nullopt;
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80)
                return std::nullopt;
            cp = (cp << 6) | (next & 0x3F);
        }
        if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return std::nullopt;
        if (cp >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += length;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    const std::optional<std::u16string> expected = referenceDecode(bytes);
    Ref<String> decoded = String::stringWithUTF8String(bytes);
    check(bool(decoded) == expected.has_value());
    check((utf::utf16LengthOfUTF8(bytes) == utf::kInvalid) == !expected);
    check(bool(MutableString::stringWithUTF8String(bytes)) == expected.has_value());
    if (decoded) {
        check(decoded->view() == *expected);
        check(decoded->UTF8String() == bytes);
        check(utf::utf8LengthOfUTF16(decoded->view()) == size);
    }

    // Any UTF-16 (lone surrogates included) encodes to valid UTF-8 of the announced length.
    for (StringEncoding encoding : {NSUTF16StringEncoding, NSUTF16BigEndianStringEncoding, NSUTF16LittleEndianStringEncoding}) {
        Ref<String> wide = String::initWithBytes_length_encoding(data, size, encoding);
        check(bool(wide) == (size % 2 == 0));
        if (!wide)
            continue;
        const std::string utf8 = wide->UTF8String();
        check(utf8.size() == utf::utf8LengthOfUTF16(wide->view()));
        check(referenceDecode(utf8).has_value());
        if (encoding != NSUTF16StringEncoding)
            check(wide->bytesUsingEncoding(encoding) == std::string(bytes));
    }

    Ref<String> latin1 = String::initWithBytes_length_encoding(data, size, NSISOLatin1StringEncoding);
    check(latin1->bytesUsingEncoding(NSISOLatin1StringEncoding) == std::string(bytes));
    return 0;
}
