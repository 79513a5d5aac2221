#pragma once

#include "platform/io/Coder.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zon {

class Array;
class Data;
class Dictionary;
class Error;
class Number;
class Set;

// Reads a keyed archive (run-time class NSKeyedUnarchiver), XML or binary, in the layout the
// keyed archiver writes; a reference may be a UID or the XML form {"CF$UID": N}. The bytes come
// from outside and are trusted in nothing:
//
// - Classes: the property-list values (strings, numbers, data, dates, arrays, dictionaries, sets,
//   the null marker, mutable kinds included) are always allowed. Any other class must be a
//   registered class with a default factory and an exported initWithCoder:, and, when an
//   allow-list is given, the class or one of its base classes must be in it.
// - At most 2^20 entries in `$objects` and objects nested at most 256 deep.
// - Every reference must name an entry of `$objects`; every record its class record.
// - An object is decoded once and shared by every reference to it. A reference back to an object
//   still being decoded (a cycle, which reference counting would leak) fails the decode.
// - Any exception raised while decoding (by an initWithCoder:, a setter's type check, a key that
//   cannot be copied) ends the decode.
//
// Every failure answers nil and an error in NSCocoaErrorDomain with code NSCoderReadCorruptError
// and a message; what was decoded so far is released. An archive whose root is the "$null"
// reference decodes as nil without an error.
class ZON_EXPORT KeyedUnarchiver final : public Coder {
    ZON_OBJECT(KeyedUnarchiver, Coder)
public:
    // classes holds Class objects; nil allows every class that can be decoded.
    static Ref<Object> unarchivedObjectOfClasses_fromData_error(Set* classes, Data* data, Ref<Error>* error);
    static Ref<Object> unarchiveTopLevelObjectWithData_error(Data* data, Ref<Error>* error)
    {
        return unarchivedObjectOfClasses_fromData_error(nullptr, data, error);
    }

    // The object the current record refers to under key; nil when the key is absent.
    Ref<Object> decodeObjectForKey(String* key) override;
    bool decodeBoolForKey(String* key) override;
    long decodeIntegerForKey(String* key) override;
    double decodeDoubleForKey(String* key) override;
    bool containsValueForKey(String* key) const override;

private:
    enum class State : uint8_t { Unread, Open, Done };

    explicit KeyedUnarchiver(Set* classes);

    Ref<Object> unarchive(Data* data);
    // Where a reference was met, for messages: a fixed text, or the key of the record's value,
    // made into text only when a message needs it.
    struct Place {
        Place(const char* text) : text(text) {} // implicit: most places are literals
        explicit Place(const String* key) : key(key) {}
        std::string describe() const;
        const char* text = nullptr;
        const String* key = nullptr;
    };

    uint64_t indexOfReference(const Object* reference, Place where);
    Ref<Object> decodeReference(const Object* reference, Place where);
    Ref<Object> decodeIndex(uint64_t index);
    Ref<Object> decodeRecord(uint64_t index, const Dictionary& record);
    const Class* classOfRecord(const Dictionary& record);
    Ref<Object> decodeInstance(const Class& cls, const Dictionary& record);
    std::vector<Ref<Object>> decodeElements(const Dictionary& record, String* key);
    Ref<Object> valueInRecord(const Dictionary& record, String* key);
    const Number* scalarForKey(String* key) const;

    std::vector<const Class*> allowedClasses_;
    bool restricted_ = false;
    Ref<Object> plist_;
    const Array* objects_ = nullptr;
    std::vector<Ref<Object>> decoded_;
    std::vector<State> states_;
    std::unordered_map<uint64_t, const Class*> classes_; // by the index of their class record
    const Dictionary* record_ = nullptr;                  // of the object whose initWithCoder: runs
    size_t depth_ = 0;
};

} // namespace zon
