#include "genericObjects/DynamicAccessorNamesInternal.h"

#include "platform/values/String.h"

namespace zon {

namespace {

constexpr size_t kSetPrefixLength = 3; // "set"

} // namespace

std::string setterNameForProperty(const String* name)
{
    return "set" + name->substringToIndex(1)->uppercaseString()->UTF8String()
        + name->substringFromIndex(1)->UTF8String() + ":";
}

Ref<String> propertyNameForGetter(SEL getter) { return String::stringWithUTF8String(getter->name()); }

Ref<String> propertyNameForSetter(SEL setter)
{
    const std::string& text = setter->name();
    Ref<String> cut = String::stringWithUTF8String(text)->substringToIndex(text.size() - 1);
    Ref<String> rest = cut->substringFromIndex(kSetPrefixLength);
    return rest->substringToIndex(1)->lowercaseString()->stringByAppendingString(rest->substringFromIndex(1).get());
}

} // namespace zon
