#pragma once

#include "platform/io/Coder.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace zon {

class Data;
class Error;

namespace plist {
class XMLElementWriter;
}

// Writes an object graph as a keyed archive (run-time class NSKeyedArchiver): an XML property
// list {"$archiver": "NSKeyedArchiver", "$version": 100000, "$objects": [...], "$top": {"root":
// UID}}. `$objects` starts with the string "$null" (what a nil reference points at); strings,
// numbers and data stand in it as they are; every other object is a record dictionary whose
// "$class" refers to a class record {"$classname", "$classes": the class chain up to NSObject}.
// Arrays and sets keep their elements under "NS.objects", dictionaries under "NS.keys" and
// "NS.objects", dates their seconds since 2001 under "NS.time", mutable strings their text under
// "NS.string", mutable data its bytes under "NS.data"; the null marker is a bare record. Any other
// object writes its record through its exported encodeWithCoder:, which receives the archiver.
//
// An object is written once, however often it is referenced (by identity). Failures give nil and
// an error (NSCocoaErrorDomain, NSCoderInvalidValueError): an object that cannot be archived, a
// graph that refers back to an object still being written (a cycle, which could not be read
// back), nesting or object counts beyond the unarchiver's limits, or an exception raised by an
// encodeWithCoder:.
//
// An archiver exists only while archivedDataWithRootObject runs; objects see it as their coder.
class ZON_EXPORT KeyedArchiver final : public Coder {
    ZON_OBJECT(KeyedArchiver, Coder)
public:
    static Ref<Data> archivedDataWithRootObject(Object* object, Ref<Error>* error);

    // A nil object is written as a reference to "$null" and decodes as nil.
    void encodeObject_forKey(Object* object, String* key) override;
    void encodeBool_forKey(bool value, String* key) override;
    void encodeInteger_forKey(long value, String* key) override;
    void encodeDouble_forKey(double value, String* key) override;
    // Whether the object being written has encoded a value under key.
    bool containsValueForKey(String* key) const override;

private:
    // What a record holds under one key: a reference to an entry, the references of a container's
    // elements, a scalar, or a value written as it is (a mutable string's text, mutable data's
    // bytes). Fields of one record are chained through `next` in the order they were first encoded.
    struct Field {
        enum class Kind : uint8_t { Reference, References, Integer, Real, Boolean, Value };
        Ref<String> key;
        Kind kind;
        uint32_t next;
        uint32_t count = 0; // References: how many, from `index` on in references_
        union {
            uint64_t index = 0; // Reference: the entry; References: the first in references_
            int64_t integer;
            double real;
            bool boolean;
        };
        Ref<Object> value;
    };
    // An entry of `$objects`: a string, number or data as it is, an object's record, or a class
    // record.
    struct Entry {
        enum class Kind : uint8_t { Value, Record, ClassRecord };
        Kind kind;
        bool open = false; // its object is still being written
        uint32_t firstField = kNoField, lastField = kNoField;
        uint64_t classIndex = 0; // Record: its class record
        const Class* cls = nullptr; // ClassRecord
        Ref<Object> value;          // Value
    };
    static constexpr uint32_t kNoField = UINT32_MAX;

    KeyedArchiver();

    Ref<Data> archive(Object* root);
    uint64_t referenceTo(Object* object);
    uint64_t append(Entry entry);
    void writeEntry(Object* object, uint64_t index);
    void startRecord(uint64_t index, const Class* cls);
    template <class Container>
    void encodeReferences(String* key, const Container& container, size_t count);
    uint64_t classRecordIndex(const Class* cls);
    Entry& currentRecord();
    void setField(String* key, Field field);
    const Field* fieldForKey(const Entry& record, const String* key) const;
    Ref<Data> writeXML(uint64_t rootIndex) const;
    void writeEntryXML(plist::XMLElementWriter& out, const Entry& entry) const;

    std::vector<Entry> entries_;
    std::vector<Field> fields_;
    std::vector<uint64_t> references_;
    std::unordered_map<const Object*, uint64_t> indexes_;
    std::vector<Ref<Object>> written_; // keeps written objects alive, so their addresses stay theirs
    std::unordered_map<const Class*, uint64_t> classRecords_;
    uint64_t record_ = 0; // the entry of the object whose encodeWithCoder: runs; 0 for none
    size_t depth_ = 0;
};

} // namespace zon
