#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class Data;
class Error;

// The formats of property lists; the values are the platform's.
enum PropertyListFormat : unsigned long {
    NSPropertyListOpenStepFormat = 1,
    NSPropertyListXMLFormat_v1_0 = 100,
    NSPropertyListBinaryFormat_v1_0 = 200,
};

// Whether the containers of a property list that is read are mutable.
enum PropertyListMutabilityOptions : unsigned long {
    NSPropertyListImmutable = 0,
    NSPropertyListMutableContainers = 1,
};

// The code of errors from reading and from writing property lists, in NSCocoaErrorDomain.
inline constexpr long NSPropertyListReadCorruptError = 3840;
inline constexpr long NSPropertyListWriteInvalidError = 3851;

// Converts between property lists (strings, numbers and booleans, data, dates, arrays, and
// dictionaries with string keys) and their XML 1.0 and binary forms.
//
// Writing produces XML only, in the platform's exact layout: tab indentation, <dict/> and
// <array/> for empty containers, only &, < and > escaped, reals as %.17g ("0.0", "+infinity",
// "-infinity", "nan"), integers over the whole signed and unsigned 64-bit range, dates as
// YYYY-MM-DDTHH:MM:SSZ in UTC (rounded down to the second), data as base64 lines.
//
// Reading takes either format and never trusts the bytes: malformed input of any kind gives nil
// and an error with a message (with the line and column, for XML); nesting deeper than 512
// containers, cycles, and binary documents whose shared objects would expand to far more values
// than they hold are refused. Neither direction recurses once per nesting level. Integers above
// INT64_MAX read as unsigned 64-bit numbers; carriage returns, control characters and, in binary
// documents, lone surrogates read back exactly.
//
// Errors are in NSCocoaErrorDomain with the message under NSLocalizedDescriptionKey; the error
// argument is written only on failure and only when given.
class ZON_EXPORT PropertyListSerialization {
public:
    // Only NSPropertyListXMLFormat_v1_0 can be written; other formats, nil, objects that are not
    // property-list values, keys that are not strings, non-finite dates and containers that hold
    // themselves fail with code NSPropertyListWriteInvalidError.
    static Ref<Data> dataWithPropertyList(Object* plist, PropertyListFormat format, Ref<Error>* error);

    // Failures have code NSPropertyListReadCorruptError. detectedFormat, when given, receives the
    // format of the data when it is read successfully.
    static Ref<Object> propertyListWithData(Data* data, Ref<Error>* error, PropertyListFormat* detectedFormat = nullptr,
        PropertyListMutabilityOptions options = NSPropertyListImmutable);

    PropertyListSerialization() = delete;
};

} // namespace zon
