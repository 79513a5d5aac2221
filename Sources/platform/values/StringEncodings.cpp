#include "platform/values/String.h"

#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

#include <bit>

namespace zon {

namespace {

enum class ByteOrder { Big, Little };

struct UTF16Layout {
    ByteOrder order;
    size_t skip; // bytes of a byte-order mark
};

// The byte order of UTF-16 bytes: an explicit encoding's own, else the mark's, else big-endian.
UTF16Layout utf16Layout(std::string_view bytes, StringEncoding encoding)
{
    if (encoding == NSUTF16BigEndianStringEncoding)
        return {ByteOrder::Big, 0};
    if (encoding == NSUTF16LittleEndianStringEncoding)
        return {ByteOrder::Little, 0};
    if (bytes.size() >= 2) {
        const auto first = static_cast<unsigned char>(bytes[0]), second = static_cast<unsigned char>(bytes[1]);
        if (first == 0xFE && second == 0xFF)
            return {ByteOrder::Big, 2};
        if (first == 0xFF && second == 0xFE)
            return {ByteOrder::Little, 2};
    }
    return {ByteOrder::Big, 0};
}

bool isUTF16(StringEncoding encoding)
{
    return encoding == NSUTF16StringEncoding || encoding == NSUTF16BigEndianStringEncoding
        || encoding == NSUTF16LittleEndianStringEncoding;
}

void appendUnit(std::string& out, char16_t unit, ByteOrder order)
{
    const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xFF);
    if (order == ByteOrder::Big)
        out.append({high, low});
    else
        out.append({low, high});
}

// One byte per character for ASCII and Latin-1; answers false at the first character beyond
// limit unless lossy, which writes '?' for each such character (a surrogate pair is one).
bool encodeSingleByte(std::u16string_view units, char32_t limit, bool lossy, std::string& out)
{
    out.reserve(units.size());
    for (size_t i = 0, length; i < units.size(); i += length) {
        const char32_t c = text::codePointAt(units, i, &length);
        if (c > limit && !lossy)
            return false;
        out.push_back(c > limit ? '?' : static_cast<char>(c));
    }
    return true;
}

} // namespace

size_t text::decodedLength(std::string_view bytes, StringEncoding encoding)
{
    switch (encoding) {
    case NSUTF8StringEncoding:
        return utf::utf16LengthOfUTF8(bytes);
    case NSISOLatin1StringEncoding:
        return bytes.size();
    case NSASCIIStringEncoding:
        for (char byte : bytes) {
            if (static_cast<unsigned char>(byte) > 0x7F)
                return utf::kInvalid;
        }
        return bytes.size();
    default:
        if (!isUTF16(encoding) || bytes.size() % 2)
            return utf::kInvalid;
        return (bytes.size() - utf16Layout(bytes, encoding).skip) / 2;
    }
}

void text::decodeInto(std::string_view bytes, StringEncoding encoding, char16_t* out)
{
    if (encoding == NSUTF8StringEncoding) {
        utf::convertValidUTF8ToUTF16(bytes, out);
        return;
    }
    auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    if (!isUTF16(encoding)) {
        for (size_t i = 0; i < bytes.size(); ++i)
            out[i] = p[i];
        return;
    }
    const UTF16Layout layout = utf16Layout(bytes, encoding);
    const size_t units = (bytes.size() - layout.skip) / 2;
    p += layout.skip;
    if (layout.order == ByteOrder::Big) {
        for (size_t i = 0; i < units; ++i)
            out[i] = static_cast<char16_t>((p[2 * i] << 8) | p[2 * i + 1]);
    } else {
        for (size_t i = 0; i < units; ++i)
            out[i] = static_cast<char16_t>(p[2 * i] | (p[2 * i + 1] << 8));
    }
}

Ref<String> String::initWithBytes_length_encoding(const void* bytes, size_t length, StringEncoding encoding)
{
    const std::string_view input(static_cast<const char*>(bytes), length);
    const size_t units = text::decodedLength(input, encoding);
    if (units == utf::kInvalid)
        return nullptr;
    return StringBuilder::build(units, [&](char16_t* out) { text::decodeInto(input, encoding, out); });
}

std::optional<std::string> String::bytesUsingEncoding(StringEncoding encoding, bool allowLossyConversion) const
{
    std::string out;
    switch (encoding) {
    case NSUTF8StringEncoding:
        return UTF8String();
    case NSASCIIStringEncoding:
    case NSISOLatin1StringEncoding:
        if (!encodeSingleByte(view(), encoding == NSASCIIStringEncoding ? 0x7F : 0xFF, allowLossyConversion, out))
            return std::nullopt;
        return out;
    default:
        if (!isUTF16(encoding))
            return std::nullopt;
        ByteOrder order = encoding == NSUTF16LittleEndianStringEncoding ? ByteOrder::Little : ByteOrder::Big;
        out.reserve(2 * length_ + 2);
        if (encoding == NSUTF16StringEncoding) {
            // A mark, then the host's own order.
            order = std::endian::native == std::endian::little ? ByteOrder::Little : ByteOrder::Big;
            appendUnit(out, 0xFEFF, order);
        }
        for (char16_t unit : view())
            appendUnit(out, unit, order);
        return out;
    }
}

bool String::canBeConvertedToEncoding(StringEncoding encoding) const
{
    switch (encoding) {
    case NSASCIIStringEncoding:
    case NSISOLatin1StringEncoding: {
        const char16_t limit = encoding == NSASCIIStringEncoding ? 0x7F : 0xFF;
        for (char16_t unit : view()) {
            if (unit > limit)
                return false;
        }
        return true;
    }
    default:
        return encoding == NSUTF8StringEncoding || isUTF16(encoding);
    }
}

} // namespace zon
