#pragma once

// The printf-style formatting engine, writing UTF-8 or UTF-16.
//
// Conversions: %@ (an object's description, "(null)" for nil), %d %i %u %x %X %o %c %C %s %S %p
// %f %F %e %E %g %G %a %A and %%; flags - + space # 0 '; width and precision, either of which may
// be * or *m$; length modifiers h hh l ll q z t j L; positional arguments %n$. As in printf,
// unnumbered conversions take the arguments in order, counted apart from numbered ones.
//
// Rules where C would leave the behaviour undefined (the engine is type-safe and never crashes):
// - Integer conversions print at the width of the length modifier when there is one (%hhd of
//   300 is 44) and at the argument's own width otherwise (%d of a 64-bit value prints it whole);
//   the conversion decides signedness (%u of -1 as an int is 4294967295). Pointers count as
//   unsigned integers, and integers as pointers for %p.
// - Floating conversions print exactly as snprintf does; an integer argument is converted to
//   double first.
// - %c writes the low byte as a Latin-1 character; %C and %lc write the value as a UTF-16 unit
//   or code point (U+FFFD when it is none).
// - Any other argument that does not fit its conversion prints the way %@ prints it: objects by
//   description, text as text, integers in decimal, doubles as %g, pointers as %p, selectors by
//   name, nil and null C strings as "(null)". Width and the - flag still apply.
// - A conversion whose argument is missing prints nothing. %n prints nothing and stores nothing.
//   An unknown conversion is copied to the output as written, consuming no argument.
// - Width and precision of text conversions count characters (code points), so UTF-8 and UTF-16
//   output agree and truncation never splits a character.
// - Invalid UTF-8 in the format or in UTF-8 text arguments passes through to UTF-8 output as is
//   and becomes U+FFFD (one per byte) in UTF-16 output.

#include "platform/Export.h"
#include "platform/runtime/Ref.h"
#include "platform/values/FormatArgument.h"

#include <span>
#include <string>
#include <string_view>

namespace zon {

class String;

ZON_EXPORT void appendFormatUTF8(std::string& out, std::string_view format, std::span<const FormatArgument> args);
ZON_EXPORT void appendFormatUTF16(std::u16string& out, std::string_view format, std::span<const FormatArgument> args);

ZON_EXPORT std::string formatUTF8(std::string_view format, std::span<const FormatArgument> args);

template <class... Args>
    requires(!(sizeof...(Args) == 1 && (std::is_convertible_v<const Args&, std::span<const FormatArgument>> && ...)))
std::string formatUTF8(std::string_view format, const Args&... args)
{
    const auto arguments = makeFormatArguments(args...);
    return formatUTF8(format, std::span<const FormatArgument>(arguments));
}

// The String forms behind String::stringWithFormat. A nil format gives an empty string.
ZON_EXPORT Ref<String> stringWithFormatArguments(std::string_view format, std::span<const FormatArgument> args);
ZON_EXPORT Ref<String> stringWithFormatArguments(const String* format, std::span<const FormatArgument> args);

} // namespace zon
