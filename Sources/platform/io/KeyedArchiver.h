#pragma once

#include "platform/io/Coder.h"

#include <unordered_map>
#include <vector>

namespace zon {

class Data;
class Error;
class KeyedArchiverUID;
class MutableDictionary;

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
    KeyedArchiver();

    Ref<Data> archive(Object* root);
    Ref<KeyedArchiverUID> referenceTo(Object* object);
    uint64_t append(Ref<Object> entry);
    Ref<Object> entryFor(Object* object);
    Ref<MutableDictionary> recordOfClass(const Class* cls);
    template <class Container>
    Ref<Object> referencesTo(const Container& container);
    MutableDictionary& currentRecord();

    std::vector<Ref<Object>> objects_;
    std::vector<bool> open_; // per entry: its object is still being written
    std::unordered_map<const Object*, uint64_t> indexes_;
    std::vector<Ref<Object>> written_; // keeps written objects alive, so their addresses stay theirs
    std::unordered_map<const Class*, Ref<KeyedArchiverUID>> classReferences_;
    MutableDictionary* record_ = nullptr; // of the object whose encodeWithCoder: runs
    size_t depth_ = 0;
};

} // namespace zon
