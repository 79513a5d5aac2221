#include "platform/values/Format.h"

#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <clocale>
#include <cstdio>
#include <locale.h>

namespace zon {

namespace {

// Widths and precisions beyond this are clamped, so that a hostile format cannot ask for
// gigabytes of padding.
constexpr int kMaximumWidth = 1 << 16;
constexpr char32_t kReplacementCharacter = 0xFFFD;
// The conversions that take an argument.
constexpr std::string_view kConversions = "diuxXocCsSpfFeEgGaAn@DUO";

// ---- Text helpers --------------------------------------------------------------------------

bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

// Bytes of the sequence a UTF-8 lead byte announces; 0 for a byte that cannot lead.
size_t utf8SequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Appends UTF-8 that may be invalid: each byte of a broken sequence becomes U+FFFD.
void appendUTF8AsUTF16(std::u16string& out, std::string_view text)
{
    size_t length = utf::utf16LengthOfUTF8(text);
    if (length != utf::kInvalid) {
        const size_t start = out.size();
        out.resize(start + length);
        utf::convertValidUTF8ToUTF16(text, out.data() + start);
        return;
    }
    for (size_t i = 0; i < text.size();) {
        const size_t sequence = utf8SequenceLength(static_cast<unsigned char>(text[i]));
        const std::string_view piece = text.substr(i, sequence);
        if (sequence && piece.size() == sequence && (length = utf::utf16LengthOfUTF8(piece)) != utf::kInvalid) {
            const size_t start = out.size();
            out.resize(start + length);
            utf::convertValidUTF8ToUTF16(piece, out.data() + start);
            i += sequence;
        } else {
            out.push_back(static_cast<char16_t>(kReplacementCharacter));
            ++i;
        }
    }
}

// A piece of text in either encoding.
struct Text {
    std::string_view utf8;
    std::u16string_view utf16;
    bool wide = false;

    static Text narrow(std::string_view text) { return {text, {}, false}; }
    static Text of(std::u16string_view text) { return {{}, text, true}; }

    // Code points, counting each invalid byte or lone surrogate as one.
    size_t characterCount() const
    {
        if (wide) {
            size_t count = 0;
            for (size_t i = 0; i < utf16.size(); ++i)
                count += !(isLowSurrogate(utf16[i]) && i > 0 && isHighSurrogate(utf16[i - 1]));
            return count;
        }
        return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) {
            return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        }));
    }

    // The first count characters.
    Text prefix(size_t count) const
    {
        if (wide) {
            size_t i = 0;
            for (; i < utf16.size() && count; --count)
                i += (isHighSurrogate(utf16[i]) && i + 1 < utf16.size() && isLowSurrogate(utf16[i + 1])) ? 2 : 1;
            return of(utf16.substr(0, i));
        }
        size_t i = 0;
        for (; i < utf8.size() && count; --count) {
            ++i;
            while (i < utf8.size() && (static_cast<unsigned char>(utf8[i]) & 0xC0) == 0x80)
                ++i;
        }
        return narrow(utf8.substr(0, i));
    }
};

// ---- Output --------------------------------------------------------------------------------

struct UTF8Sink {
    std::string& out;

    void append(const Text& text)
    {
        if (text.wide)
            utf::appendUTF16ToUTF8(text.utf16, out);
        else
            out.append(text.utf8);
    }
    void fill(char c, size_t count) { out.append(count, c); }
};

struct UTF16Sink {
    std::u16string& out;

    void append(const Text& text)
    {
        if (text.wide)
            out.append(text.utf16);
        else
            appendUTF8AsUTF16(out, text.utf8);
    }
    void fill(char c, size_t count) { out.append(count, static_cast<char16_t>(c)); }
};

// snprintf in the C locale, whatever locale the program has set, so that the decimal point
// is always '.'.
class CLocaleScope {
public:
    CLocaleScope() : previous_(uselocale(cLocale())) {}
    ~CLocaleScope() { uselocale(previous_); }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    static locale_t cLocale()
    {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t(0));
        return locale;
    }
    locale_t previous_;
};

// ---- Conversion specifications -------------------------------------------------------------

enum class Length : uint8_t { None, Char, Short, Long, LongLong, LongDouble, Size, PtrDiff, IntMax };

struct Spec {
    bool leftAlign = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zeroPad = false;
    bool grouping = false;
    int width = 0;
    int precision = -1; // none
    Length length = Length::None;
    char conversion = 0;
    const FormatArgument* argument = nullptr;

    // The snprintf conversion with these flags, width and precision, plus the given length
    // modifier text and conversion.
    std::string_view printfSpec(char (&buffer)[48], const char* lengthText, char conversionChar) const
    {
        char* p = buffer;
        *p++ = '%';
        if (leftAlign)
            *p++ = '-';
        if (plus)
            *p++ = '+';
        if (space)
            *p++ = ' ';
        if (alternate)
            *p++ = '#';
        if (zeroPad)
            *p++ = '0';
        if (grouping)
            *p++ = '\'';
        if (width > 0)
            p = std::to_chars(p, buffer + sizeof buffer, width).ptr;
        if (precision >= 0) {
            *p++ = '.';
            p = std::to_chars(p, buffer + sizeof buffer, precision).ptr;
        }
        while (*lengthText)
            *p++ = *lengthText++;
        *p++ = conversionChar;
        *p = '\0';
        return {buffer, static_cast<size_t>(p - buffer)};
    }
};

int clampWidth(long long value) { return static_cast<int>(std::min<long long>(value, kMaximumWidth)); }

bool isInteger(const FormatArgument& argument)
{
    return argument.kind == FormatArgument::Kind::Signed || argument.kind == FormatArgument::Kind::Unsigned;
}

// The argument's bits as an unsigned 64-bit value; pointers count as integers.
unsigned long long integerBits(const FormatArgument& argument)
{
    switch (argument.kind) {
    case FormatArgument::Kind::Signed:
        return static_cast<unsigned long long>(argument.signedValue);
    case FormatArgument::Kind::Unsigned:
        return argument.unsignedValue;
    case FormatArgument::Kind::Pointer:
        return reinterpret_cast<uintptr_t>(argument.pointer);
    default:
        return 0;
    }
}

size_t lengthBytes(Length length, size_t own)
{
    switch (length) {
    case Length::Char:
        return 1;
    case Length::Short:
        return 2;
    case Length::None:
        return own;
    default:
        return 8;
    }
}

// ---- The engine ----------------------------------------------------------------------------

template <class Sink>
class Formatter {
public:
    Formatter(Sink sink, std::span<const FormatArgument> args) : sink_(sink), args_(args) {}

    void run(std::string_view format)
    {
        size_t i = 0;
        while (i < format.size()) {
            const size_t percent = format.find('%', i);
            if (percent != i)
                sink_.append(Text::narrow(format.substr(i, percent - i)));
            if (percent == std::string_view::npos)
                return;
            Spec spec;
            const size_t end = parse(format, percent + 1, spec);
            if (end == std::string_view::npos) { // the format ends inside a conversion
                sink_.append(Text::narrow(format.substr(percent)));
                return;
            }
            if (!render(spec))
                sink_.append(Text::narrow(format.substr(percent, end - percent)));
            i = end;
        }
    }

private:
    static constexpr int kNoPosition = -1;
    static constexpr int kBadPosition = INT_MAX;

    const FormatArgument* at(int index) const
    {
        return index >= 0 && static_cast<size_t>(index) < args_.size() ? &args_[index] : nullptr;
    }
    const FormatArgument* next() { return at(nextSequential_++); }

    static int digits(std::string_view format, size_t& i)
    {
        long long value = 0;
        while (i < format.size() && format[i] >= '0' && format[i] <= '9') {
            value = std::min<long long>(value * 10 + (format[i] - '0'), INT_MAX);
            ++i;
        }
        return static_cast<int>(value);
    }

    // Reads "n$" at i: the 0-based argument index, kBadPosition for "0$", or kNoPosition
    // (leaving i alone) when there is none.
    static int position(std::string_view format, size_t& i)
    {
        size_t j = i;
        const int n = digits(format, j);
        if (j == i || j >= format.size() || format[j] != '$')
            return kNoPosition;
        i = j + 1;
        return n > 0 ? n - 1 : kBadPosition;
    }

    // The argument for a '*' at i (just past the star).
    const FormatArgument* starArgument(std::string_view format, size_t& i)
    {
        const int index = position(format, i);
        return index == kNoPosition ? next() : at(index);
    }

    // Parses the conversion after a '%' into spec; answers the index just past it, or npos
    // when the format ends first.
    size_t parse(std::string_view format, size_t i, Spec& spec)
    {
        const int argumentIndex = position(format, i);
        for (; i < format.size(); ++i) {
            switch (format[i]) {
            case '-': spec.leftAlign = true; continue;
            case '+': spec.plus = true; continue;
            case ' ': spec.space = true; continue;
            case '#': spec.alternate = true; continue;
            case '0': spec.zeroPad = true; continue;
            case '\'': spec.grouping = true; continue;
            }
            break;
        }
        if (i < format.size() && format[i] == '*') {
            const FormatArgument* width = starArgument(format, ++i);
            if (width && isInteger(*width)) {
                long long value = static_cast<long long>(integerBits(*width));
                if (width->kind == FormatArgument::Kind::Unsigned && width->unsignedValue > LLONG_MAX)
                    value = LLONG_MAX;
                if (value < 0) {
                    spec.leftAlign = true;
                    value = value == LLONG_MIN ? LLONG_MAX : -value;
                }
                spec.width = clampWidth(value);
            }
        } else {
            spec.width = clampWidth(digits(format, i));
        }
        if (i < format.size() && format[i] == '.') {
            ++i;
            if (i < format.size() && format[i] == '*') {
                const FormatArgument* precision = starArgument(format, ++i);
                if (precision && isInteger(*precision)) {
                    const bool negative = precision->kind == FormatArgument::Kind::Signed && precision->signedValue < 0;
                    spec.precision = negative ? -1 : clampWidth(static_cast<long long>(std::min<unsigned long long>(integerBits(*precision), LLONG_MAX)));
                }
            } else {
                spec.precision = clampWidth(digits(format, i));
            }
        }
        if (i < format.size()) {
            switch (format[i]) {
            case 'h':
                spec.length = (i + 1 < format.size() && format[i + 1] == 'h') ? (++i, Length::Char) : Length::Short;
                ++i;
                break;
            case 'l':
                spec.length = (i + 1 < format.size() && format[i + 1] == 'l') ? (++i, Length::LongLong) : Length::Long;
                ++i;
                break;
            case 'q': spec.length = Length::LongLong; ++i; break;
            case 'L': spec.length = Length::LongDouble; ++i; break;
            case 'z': spec.length = Length::Size; ++i; break;
            case 't': spec.length = Length::PtrDiff; ++i; break;
            case 'j': spec.length = Length::IntMax; ++i; break;
            }
        }
        if (i >= format.size())
            return std::string_view::npos;
        spec.conversion = format[i++];
        if (spec.conversion != '%' && kConversions.find(spec.conversion) != std::string_view::npos)
            spec.argument = argumentIndex == kNoPosition ? next() : at(argumentIndex);
        return i;
    }

    // Writes text padded to the spec's width; precision truncates when asked.
    void pad(const Spec& spec, Text text, bool applyPrecision)
    {
        if (applyPrecision && spec.precision >= 0)
            text = text.prefix(static_cast<size_t>(spec.precision));
        const size_t count = spec.width > 0 ? text.characterCount() : 0;
        const size_t padding = static_cast<size_t>(spec.width) > count ? spec.width - count : 0;
        if (!spec.leftAlign)
            sink_.fill(' ', padding);
        sink_.append(text);
        if (spec.leftAlign)
            sink_.fill(' ', padding);
    }

    template <class Value>
    void printFormatted(std::string_view printfSpec, Value value)
    {
        CLocaleScope scope;
        char stack[128];
        const int length = std::snprintf(stack, sizeof stack, printfSpec.data(), value);
        if (length < 0)
            return;
        if (static_cast<size_t>(length) < sizeof stack) {
            sink_.append(Text::narrow({stack, static_cast<size_t>(length)}));
            return;
        }
        std::string heap(static_cast<size_t>(length) + 1, '\0');
        std::snprintf(heap.data(), heap.size(), printfSpec.data(), value);
        sink_.append(Text::narrow({heap.data(), static_cast<size_t>(length)}));
    }

    static std::string_view hexAddress(char (&buffer)[32], uintptr_t address)
    {
        buffer[0] = '0';
        buffer[1] = 'x';
        char* end = std::to_chars(buffer + 2, buffer + sizeof buffer, address, 16).ptr;
        return {buffer, static_cast<size_t>(end - buffer)};
    }

    // Writes the argument the way %@ shows any argument.
    void natural(const Spec& spec, const FormatArgument& argument, bool applyPrecision)
    {
        static constexpr std::string_view kNull = "(null)";
        char buffer[64];
        switch (argument.kind) {
        case FormatArgument::Kind::Object: {
            if (!argument.object)
                return pad(spec, Text::narrow(kNull), applyPrecision);
            const Ref<String> description = argument.object->description();
            return pad(spec, description ? Text::of(description->view()) : Text::narrow(kNull), applyPrecision);
        }
        case FormatArgument::Kind::UTF8:
            return pad(spec, argument.utf8.data ? Text::narrow({argument.utf8.data, argument.utf8.length}) : Text::narrow(kNull), applyPrecision);
        case FormatArgument::Kind::UTF16:
            return pad(spec, argument.utf16.data ? Text::of({argument.utf16.data, argument.utf16.length}) : Text::narrow(kNull), applyPrecision);
        case FormatArgument::Kind::Selector:
            return pad(spec, argument.selector ? Text::narrow(argument.selector->name()) : Text::narrow(kNull), applyPrecision);
        case FormatArgument::Kind::Signed: {
            const char* end = std::to_chars(buffer, buffer + sizeof buffer, argument.signedValue).ptr;
            return pad(spec, Text::narrow({buffer, static_cast<size_t>(end - buffer)}), false);
        }
        case FormatArgument::Kind::Unsigned: {
            const char* end = std::to_chars(buffer, buffer + sizeof buffer, argument.unsignedValue).ptr;
            return pad(spec, Text::narrow({buffer, static_cast<size_t>(end - buffer)}), false);
        }
        case FormatArgument::Kind::Double:
        case FormatArgument::Kind::LongDouble: {
            Spec general;
            general.width = spec.width;
            general.leftAlign = spec.leftAlign;
            return floating(general, argument, 'g');
        }
        case FormatArgument::Kind::Pointer: {
            char address[32];
            return pad(spec, Text::narrow(hexAddress(address, reinterpret_cast<uintptr_t>(argument.pointer))), false);
        }
        }
    }

    void integer(const Spec& spec, const FormatArgument& argument, bool isSigned, char conversion)
    {
        if (!isInteger(argument) && argument.kind != FormatArgument::Kind::Pointer)
            return natural(spec, argument, false);
        const size_t bytes = lengthBytes(spec.length, argument.kind == FormatArgument::Kind::Pointer ? sizeof(void*) : argument.size);
        const unsigned bits = static_cast<unsigned>(bytes * 8);
        unsigned long long value = integerBits(argument);
        if (bits < 64)
            value &= (1ULL << bits) - 1;
        long long signedValue = static_cast<long long>(value);
        if (isSigned && bits < 64 && (value >> (bits - 1)) & 1)
            signedValue = static_cast<long long>(value | ~((1ULL << bits) - 1));

        const bool plain = !spec.leftAlign && !spec.plus && !spec.space && !spec.alternate && !spec.zeroPad
            && spec.width == 0 && spec.precision < 0;
        if (plain) {
            char buffer[32];
            const int base = conversion == 'o' ? 8 : (conversion == 'x' || conversion == 'X') ? 16 : 10;
            char* end = isSigned ? std::to_chars(buffer, buffer + sizeof buffer, signedValue).ptr
                                 : std::to_chars(buffer, buffer + sizeof buffer, value, base).ptr;
            if (conversion == 'X')
                std::transform(buffer, end, buffer, [](char c) { return c >= 'a' && c <= 'f' ? char(c - 'a' + 'A') : c; });
            return sink_.append(Text::narrow({buffer, static_cast<size_t>(end - buffer)}));
        }
        char printfSpec[48];
        if (isSigned)
            printFormatted(spec.printfSpec(printfSpec, "ll", conversion), signedValue);
        else
            printFormatted(spec.printfSpec(printfSpec, "ll", conversion), value);
    }

    void floating(const Spec& spec, const FormatArgument& argument, char conversion)
    {
        char printfSpec[48];
        switch (argument.kind) {
        case FormatArgument::Kind::Double:
            return printFormatted(spec.printfSpec(printfSpec, "", conversion), argument.doubleValue);
        case FormatArgument::Kind::LongDouble:
            return printFormatted(spec.printfSpec(printfSpec, "L", conversion), *argument.longDoubleValue);
        case FormatArgument::Kind::Signed:
            return printFormatted(spec.printfSpec(printfSpec, "", conversion), static_cast<double>(argument.signedValue));
        case FormatArgument::Kind::Unsigned:
            return printFormatted(spec.printfSpec(printfSpec, "", conversion), static_cast<double>(argument.unsignedValue));
        default:
            return natural(spec, argument, false);
        }
    }

    void character(const Spec& spec, const FormatArgument& argument, bool wide)
    {
        if (!isInteger(argument))
            return natural(spec, argument, false);
        const unsigned long long value = integerBits(argument);
        char32_t codePoint = wide ? static_cast<char32_t>(value) : static_cast<unsigned char>(value);
        if (wide && (value > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF) || (argument.kind == FormatArgument::Kind::Signed && argument.signedValue < 0)))
            codePoint = kReplacementCharacter;
        char16_t units[2];
        size_t count = 1;
        if (codePoint >= 0x10000) {
            units[0] = static_cast<char16_t>(0xD800 + ((codePoint - 0x10000) >> 10));
            units[1] = static_cast<char16_t>(0xDC00 + ((codePoint - 0x10000) & 0x3FF));
            count = 2;
        } else {
            units[0] = static_cast<char16_t>(codePoint);
        }
        pad(spec, Text::of({units, count}), false);
    }

    void pointer(const Spec& spec, const FormatArgument& argument)
    {
        uintptr_t address = 0;
        switch (argument.kind) {
        case FormatArgument::Kind::Pointer: address = reinterpret_cast<uintptr_t>(argument.pointer); break;
        case FormatArgument::Kind::Object: address = reinterpret_cast<uintptr_t>(argument.object); break;
        case FormatArgument::Kind::Selector: address = reinterpret_cast<uintptr_t>(argument.selector); break;
        case FormatArgument::Kind::UTF8: address = reinterpret_cast<uintptr_t>(argument.utf8.data); break;
        case FormatArgument::Kind::UTF16: address = reinterpret_cast<uintptr_t>(argument.utf16.data); break;
        case FormatArgument::Kind::Signed:
        case FormatArgument::Kind::Unsigned: address = static_cast<uintptr_t>(integerBits(argument)); break;
        default: return natural(spec, argument, false);
        }
        char buffer[32];
        pad(spec, Text::narrow(hexAddress(buffer, address)), false);
    }

    // Writes one conversion; false for an unknown one, which the caller copies as written.
    bool render(const Spec& spec)
    {
        if (spec.conversion == '%') {
            sink_.append(Text::narrow("%"));
            return true;
        }
        const bool known = kConversions.find(spec.conversion) != std::string_view::npos;
        if (!known)
            return false;
        if (!spec.argument)
            return true; // missing arguments print nothing
        const FormatArgument& argument = *spec.argument;
        switch (spec.conversion) {
        case 'd': case 'i': integer(spec, argument, true, 'd'); break;
        case 'D': integer(spec, argument, true, 'd'); break;
        case 'u': case 'U': integer(spec, argument, false, 'u'); break;
        case 'o': case 'O': integer(spec, argument, false, 'o'); break;
        case 'x': case 'X': integer(spec, argument, false, spec.conversion); break;
        case 'c': character(spec, argument, spec.length == Length::Long); break;
        case 'C': character(spec, argument, true); break;
        case 's': case 'S': case '@': natural(spec, argument, true); break;
        case 'p': pointer(spec, argument); break;
        case 'n': break;
        default: floating(spec, argument, spec.conversion); break;
        }
        return true;
    }

    Sink sink_;
    std::span<const FormatArgument> args_;
    int nextSequential_ = 0;
};

} // namespace

void appendFormatUTF8(std::string& out, std::string_view format, std::span<const FormatArgument> args)
{
    Formatter<UTF8Sink>(UTF8Sink {out}, args).run(format);
}

void appendFormatUTF16(std::u16string& out, std::string_view format, std::span<const FormatArgument> args)
{
    Formatter<UTF16Sink>(UTF16Sink {out}, args).run(format);
}

std::string formatUTF8(std::string_view format, std::span<const FormatArgument> args)
{
    std::string out;
    out.reserve(format.size() + 32);
    appendFormatUTF8(out, format, args);
    return out;
}

Ref<String> stringWithFormatArguments(std::string_view format, std::span<const FormatArgument> args)
{
    std::u16string out;
    out.reserve(format.size() + 32);
    appendFormatUTF16(out, format, args);
    return String::stringWithCharacters(out);
}

Ref<String> stringWithFormatArguments(const String* format, std::span<const FormatArgument> args)
{
    if (!format)
        return String::string();
    return stringWithFormatArguments(utf::utf16ToUTF8(format->view()), args);
}

} // namespace zon
