#pragma once

#include "platform/runtime/Object.h"

#include <string_view>

namespace zon {

class Class;
class Dictionary;
class MutableDictionary;
class String;

// Whether every record of a table gets its own Lock (for a class whose
// objcAttributesAreThreadSafe answers true).
enum class DynamicPropertyLocks { None, PerProperty };

// Builds the property table of a TXZonDynamicObject subclass: property() starts a record (name,
// expected class, standard access), the calls after it fill in that record, table() answers the
// table. Classes are boxed as class values and hook names as selector values, as the records
// keep them.
//
//     DynamicPropertyTable()
//         .property("volumeLevel", Number::staticClass()).defaultValue(zero)
//         .property("tags", MutableArray::staticClass()).container(String::staticClass())
//         .postAdd("tagsAdded:")
//         .table();
class ZON_EXPORT DynamicPropertyTable {
public:
    explicit DynamicPropertyTable(DynamicPropertyLocks locks = DynamicPropertyLocks::None);
    ~DynamicPropertyTable();
    DynamicPropertyTable(const DynamicPropertyTable&) = delete;
    DynamicPropertyTable& operator=(const DynamicPropertyTable&) = delete;

    DynamicPropertyTable& property(std::string_view name, const Class* expectedClass);
    DynamicPropertyTable& defaultValue(Object* value);
    DynamicPropertyTable& readOnly();
    DynamicPropertyTable& context(Object* context);
    DynamicPropertyTable& preSetter(std::string_view selectorName);
    DynamicPropertyTable& postSetter(std::string_view selectorName);
    // Marks the record a container: stored values become mutable copies. containedClass, when
    // given, is what every added element must be.
    DynamicPropertyTable& container(const Class* containedClass = nullptr);
    DynamicPropertyTable& postAdd(std::string_view selectorName);
    DynamicPropertyTable& postRemove(std::string_view selectorName);
    // Any other entry of the current record.
    DynamicPropertyTable& set(String* key, Object* value);

    Ref<Dictionary> table() const;

private:
    MutableDictionary& current();

    DynamicPropertyLocks locks_;
    Ref<MutableDictionary> table_;
    Ref<MutableDictionary> current_;
};

} // namespace zon
