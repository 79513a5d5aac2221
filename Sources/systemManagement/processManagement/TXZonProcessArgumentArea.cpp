#include "systemManagement/processManagement/TXZonProcessArgumentAreaInternal.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"

namespace zon {

namespace {

// The argument count that heads the area is not used.
constexpr size_t kCountBytes = 4;

void takeString(ProcessArgumentArea& result, String* text)
{
    const std::u16string_view units = text->view();
    const size_t equals = units.find(u'=');
    if (!result.pathCandidate && equals == std::u16string_view::npos) {
        result.pathCandidate = text;
    } else if (units.starts_with(u"--")) {
        result.arguments->addObject(text);
    } else if (equals == std::u16string_view::npos) {
        if (!text->isEqual(result.pathCandidate.get()))
            result.arguments->addObject(text);
    } else {
        result.environment->setObject_forKey(String::stringWithCharacters(units.substr(equals + 1)).get(),
            String::stringWithCharacters(units.substr(0, equals)).get());
    }
}

} // namespace

ProcessArgumentArea parseProcessArgumentArea(std::string_view area)
{
    ProcessArgumentArea result {nullptr, MutableDictionary::dictionary(), MutableArray::array()};
    if (area.size() <= kCountBytes)
        return result;
    area.remove_prefix(kCountBytes);
    while (!area.empty()) {
        const size_t end = std::min(area.find('\0'), area.size());
        if (end > 0) {
            // Strings that are not UTF-8 are passed over.
            if (Ref<String> text = String::stringWithUTF8String(area.substr(0, end)))
                takeString(result, text.get());
        }
        area.remove_prefix(std::min(end + 1, area.size()));
    }
    return result;
}

} // namespace zon
