#include "platform/io/PropertyListSerialization.h"

#include "platform/io/PropertyListBinaryReaderInternal.h"
#include "platform/io/PropertyListXMLReaderInternal.h"
#include "platform/io/PropertyListXMLWriterInternal.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"

#include <string_view>

namespace zon {

namespace {

void setError(Ref<Error>* error, long code, const std::string& message)
{
    if (error)
        *error = Error::errorWithDomain_code_description(NSCocoaErrorDomain, static_cast<int>(code),
            String::stringWithUTF8String(message));
}

bool isBlank(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Old-style (OpenStep) text starts, after white space, with a brace, a parenthesis or a quote.
bool looksLikeOpenStep(std::span<const uint8_t> bytes)
{
    for (uint8_t c : bytes) {
        if (!isBlank(c))
            return c == '{' || c == '(' || c == '"';
    }
    return false;
}

} // namespace

Ref<Object> plist::readPropertyList(std::span<const uint8_t> bytes, Mutability mutability, ReferenceForm references,
    std::string& message, int* format)
{
    PropertyListFormat found;
    Ref<Object> result;
    if (bytes.size() >= 6 && std::string_view(reinterpret_cast<const char*>(bytes.data()), 6) == "bplist") {
        found = NSPropertyListBinaryFormat_v1_0;
        result = readBinaryPropertyList(bytes, mutability, message);
    } else if (looksLikeOpenStep(bytes)) {
        found = NSPropertyListOpenStepFormat;
        message = "Old-style property lists are not supported";
    } else {
        found = NSPropertyListXMLFormat_v1_0;
        result = readXMLPropertyList(bytes, mutability, references, message);
    }
    if (format)
        *format = found;
    return result;
}

Ref<Data> PropertyListSerialization::dataWithPropertyList(Object* plist, PropertyListFormat format, Ref<Error>* error)
{
    if (format != NSPropertyListXMLFormat_v1_0) {
        setError(error, NSPropertyListWriteInvalidError,
            format == NSPropertyListBinaryFormat_v1_0 ? "Writing binary property lists is not supported"
                                                      : "Property list format not supported for writing");
        return nullptr;
    }
    ByteVector bytes;
    std::string message;
    if (!plist::writeXMLPropertyList(plist, bytes, message)) {
        setError(error, NSPropertyListWriteInvalidError, message);
        return nullptr;
    }
    return Data::dataWithVector(std::move(bytes));
}

Ref<Object> PropertyListSerialization::propertyListWithData(Data* data, Ref<Error>* error,
    PropertyListFormat* detectedFormat, PropertyListMutabilityOptions options)
{
    if (!data || data->length() == 0) {
        setError(error, NSPropertyListReadCorruptError, "Cannot parse a nil or zero-length data");
        return nullptr;
    }
    const auto mutability =
        options == NSPropertyListMutableContainers ? plist::Mutability::MutableContainers : plist::Mutability::Immutable;
    std::string message;
    int format = 0;
    Ref<Object> result =
        plist::readPropertyList(data->span(), mutability, plist::ReferenceForm::Dictionary, message, &format);
    if (!result) {
        setError(error, NSPropertyListReadCorruptError, message);
        return nullptr;
    }
    if (detectedFormat)
        *detectedFormat = static_cast<PropertyListFormat>(format);
    return result;
}

} // namespace zon
