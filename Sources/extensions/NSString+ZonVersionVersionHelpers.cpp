#include "platform/values/CharacterSet.h"
#include "platform/values/String.h"

namespace zon {
namespace {

std::vector<Ref<String>> versionFields(const String& text)
{
    static const Ref<CharacterSet> separators = CharacterSet::characterSetWithCharactersInString(ZSTR(". "));
    return text.componentsSeparatedByCharactersInSet(separators.get());
}

unsigned long fieldValue(const String& text, size_t index)
{
    const std::vector<Ref<String>> fields = versionFields(text);
    return index < fields.size() ? static_cast<unsigned long>(fields[index]->integerValue()) : 0;
}

} // namespace

unsigned long String::majorOSVersionValue() const { return fieldValue(*this, 0); }

unsigned long String::minorOSVersionValue() const { return fieldValue(*this, 1); }

unsigned long String::bugFixOSVersionValue() const { return fieldValue(*this, 2); }

Ref<String> String::buildNumberVersionValue() const
{
    std::vector<Ref<String>> fields = versionFields(*this);
    return fields.size() >= 4 ? std::move(fields[3]) : nullptr;
}

} // namespace zon
