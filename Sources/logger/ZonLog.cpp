#include "logger/ZonLog.h"

#include "platform/runtime/Object.h"
#include "platform/values/String.h"

namespace zon {

ZON_STRING_CONSTANT(kDefaultLogIdentifier, "default");

namespace detail {

const String* logCategoryOf(const Object* object) noexcept
{
    try {
        return object ? object->objectLogCategory() : nullptr;
    } catch (...) {
        return nullptr;
    }
}

void writeLogRecord(const char* file, int line, const String* category, int level, const String* identifier,
    std::string_view format, std::span<const FormatArgument> args) noexcept
{
    try {
        // Categories and identifiers are short constants: their UTF-8 forms stay in the
        // strings' inline storage.
        const std::string categoryText = (category ? category : ZSTR("default"))->UTF8String();
        const std::string identifierText = (identifier ? identifier : kDefaultLogIdentifier)->UTF8String();
        const std::string message = formatUTF8(format, args);
        logger::Record record {};
        record.file = file ? std::string_view(file) : std::string_view();
        record.line = line;
        record.category = categoryText;
        record.level = level;
        record.identifier = identifierText;
        record.message = message;
        logger::write(record);
    } catch (...) {
        // Logging must never fail its caller.
    }
}

} // namespace detail

} // namespace zon
