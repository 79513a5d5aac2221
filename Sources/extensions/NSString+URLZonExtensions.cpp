// NSString(URLZonExtensions): joining URL text from components and telling URL text apart.
// (compareByFileModificationDate, which the group shares with NSString(ZonExtensions), lives in
// that group's unit.)

#include "platform/values/Dictionary.h"
#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

namespace zon {

Ref<String> String::stringByAppendingURLComponent(const String* component) const
{
    if (!component || !component->length())
        return immutableSelf();
    const std::u16string_view tail = component->view();
    // The UTF-8 length stands in for the length when finding the last unit, as the joiner
    // always has: equal for ASCII, past the end (a range error) for anything else.
    const size_t utf8Length = utf::utf8LengthOfUTF16(view());
    const bool endsWithSlash = characterAtIndex(utf8Length - 1) == '/';
    const bool startsWithSlash = tail.front() == '/';
    std::u16string joined;

    if (tail.front() != '?' && tail.front() != '&') {
        joined = view();
        if (endsWithSlash && startsWithSlash)
            joined.append(tail.substr(1));
        else if (endsWithSlash || startsWithSlash)
            joined.append(tail);
        else
            joined.append(u"/").append(tail);
        return StringBuilder::fromView(joined);
    }

    Ref<String> base = endsWithSlash ? substringToIndex(utf8Length - 1) : immutableSelf();
    const bool lastComponentHasQuery = base->lastPathComponent()->view().find('?') != std::u16string_view::npos;
    joined = base->view();
    if (tail.front() == '&' && !lastComponentHasQuery)
        joined.append(u"?").append(tail.substr(1));
    else if (tail.front() == '?' && lastComponentHasQuery)
        joined.append(u"&").append(tail.substr(1));
    else
        joined.append(tail);
    return StringBuilder::fromView(joined);
}

Ref<String> String::stringByAppendingURLComponentProperties(const Dictionary* properties) const
{
    std::u16string arguments;
    if (properties) {
        for (auto [key, value] : *properties)
            arguments.append(String::stringWithFormat("&%@=%@", key, value)->view());
    }
    return stringByAppendingURLComponent(StringBuilder::fromView(arguments).get());
}

bool String::isURLString() const { return view().starts_with(u"http"); }

bool String::isSecureURLString() const { return view().starts_with(u"https"); }

} // namespace zon
