#pragma once

#include "platform/runtime/Class.h"
#include "platform/runtime/Object.h"

#include <string_view>
#include <vector>

namespace zon {

class Array;
class Coder;
class Dictionary;
class Lock;
class MutableDictionary;
class String;

// Keys of a property record (a mutable dictionary per property).
ZON_EXPORT extern String* const ZonDynamicPropertyClassKey;            // "Class": expected class, a Value holding the class
ZON_EXPORT extern String* const ZonDynamicPropertyVarNameKey;          // "Name"
ZON_EXPORT extern String* const ZonDynamicPropertyVarValueKey;         // "Value": the current value
ZON_EXPORT extern String* const ZonDynamicPropertyDefaultVarValueKey;  // "DefaultValue": stored when nil is set
ZON_EXPORT extern String* const ZonDynamicPropertyLockKey;             // "Lock": a Lock, used when the class is thread-safe
ZON_EXPORT extern String* const ZonDynamicPropertyPreSetterKey;        // "BuisnessSetterPre": a Value holding a selector
ZON_EXPORT extern String* const ZonDynamicPropertyPostSetterKey;       // "BuisnessSetterPost"
ZON_EXPORT extern String* const ZonDynamicPropertyVariableAccessKey;   // "VariableAccess": one of the two access values
ZON_EXPORT extern String* const ZonDynamicPropertyContextKey;          // "Context": any object, for the subclass
ZON_EXPORT extern String* const ZonDynamicPropertyContainedClassKey;   // "ContainedClass": class of a container's elements
ZON_EXPORT extern String* const ZonDynamicPropertyPostAddSelectorKey;  // "BuisnessPostAdd"
ZON_EXPORT extern String* const ZonDynamicPropertyPostRemoveSelectorKey; // "BuisnessPostRemove"
ZON_EXPORT extern String* const ZonDynamicPropertyContainerKey;        // "Container": a boolean number
ZON_EXPORT extern String* const ZonDynamicPropertyVariableAccessReadOnly; // "ReadOnlyAccess"
ZON_EXPORT extern String* const ZonDynamicPropertyVariableAccessStandard; // "StandardAccess"

// A model object whose properties are declared by a table. A subclass answers objcAttributes
// with one record per property (DynamicPropertyTable builds them); when an instance is made, the
// table is kept and every property gets a getter (the property's name, "@@:") and a setter
// ("set" + the name with its first character upper-cased + ":", "v@:@") on the object's own
// class, unless the class chain already answers that selector. The accessors are found by
// selector like any exported method and serve every later instance of the class.
//
// The values live in the records under "Value". Setting checks the record's "Class", stores the
// "DefaultValue" for nil, keeps a mutable copy for a container and, with setter logic, calls the
// hook methods named by the record (exported methods taking one object) before and after the
// store, on the calling thread and never under the property's lock.
//
// A subclass:
//
//     class TXZonTrack final : public TXZonDynamicObject {
//         ZON_OBJECT(TXZonTrack, TXZonDynamicObject)
//     public:
//         static Ref<TXZonTrack> track() { return create<TXZonTrack>(); }
//         static void exportMethods(Class& cls)
//         {
//             registerInstanceFactory<TXZonTrack>(cls);       // createInstance, copies, unarchiving
//             cls.exportMethod("titleDidChange:", &TXZonTrack::titleDidChange);
//         }
//         Ref<Dictionary> objcAttributes() const override
//         {
//             return DynamicPropertyTable()
//                 .property("title", String::staticClass()).defaultValue(ZSTR("Untitled"))
//                 .postSetter("titleDidChange:")
//                 .table();
//         }
//     private:
//         TXZonTrack() = default;
//         void titleDidChange(Object* title);
//     };
//
// objcAttributes must answer new records on every call: each instance keeps its values in them.
//
// Threads: an instance may be shared once made. Only when objcAttributesAreThreadSafe answers
// true are a property's value and container changes guarded by the record's "Lock" (the one it
// holds when the table is set); the record's other entries are then read under that lock too, so
// that no read meets a concurrent store. Otherwise the object belongs to one thread at a time.
// The first instances of a class add the accessors without a lock of this class's own (the method
// table's lock makes that safe, not ordered).
class ZON_EXPORT TXZonDynamicObject : public Object {
    ZON_OBJECT(TXZonDynamicObject, Object)
public:
    // Makes an instance of T and runs init on it: a constructor cannot reach T's overrides.
    template <class T>
    static Ref<T> create();
    // Registers create<T> as the class's instance factory, from T::exportMethods, so that
    // Class::createInstance, copies and unarchiving make a T.
    template <class T>
    static void registerInstanceFactory(Class& cls);
    static Ref<TXZonDynamicObject> dynamicObject() { return create<TXZonDynamicObject>(); }
    static void exportMethods(Class& cls);

    // TXZonDynamicObject(OptionalOverride): the property table (empty by default) and whether
    // the per-property locks are used (false by default).
    virtual Ref<Dictionary> objcAttributes() const;
    virtual bool objcAttributesAreThreadSafe() const;

    // Keeps an immutable copy of the table and adds the accessors; a second call fails through
    // the assertion handler with "__zonObjcAttributes set multiple times".
    void setZonObjcAttributes(Dictionary* attributes);
    Dictionary* zonObjcAttributes() const { return attributes_.get(); }
    void setupDynamicAttributeSelectors();
    // The property names, in the table's order.
    Ref<Array> allProperties() const;
    Ref<Object> contextForPropertyName(String* name) const;

    // An unknown name raises NSInternalInconsistencyException "Property '%@' does not exist".
    Ref<Object> valueForPropertyName(String* name) const;
    void setValue_forPropertyName(Object* value, String* name);
    void setValue_forPropertyName_withSetterLogic(Object* value, String* name, bool setterLogic);

    // Change a container property in place; collection is an array or a set (a dictionary gives
    // its keys). Adding checks every element against "ContainedClass" before adding any.
    void addObjects_toContainerWithPropertyName(Object* collection, String* name);
    void removeObjects_fromContainerWithPropertyName(Object* collection, String* name);

    // Each present value that can be archived, under its property's name. With per-property
    // locks, each value is read (and a container copied) under its property's lock.
    void encodeWithCoder(Coder* coder);
    // Reads each property of the table from coder, without hooks; an absent key sets nil, which
    // brings in the default. The instance was made (and init run) by the class's factory.
    Ref<Object> initWithCoder(Coder* coder);

    // A new instance of the same class with a copy of every value, set without hooks.
    Ref<Object> copy() const override;

protected:
    TXZonDynamicObject() = default;
    ~TXZonDynamicObject() override;

    // Takes objcAttributes into setZonObjcAttributes. Overrides call this first.
    virtual void init();

private:
    // What the accessors and operations need of one property, fixed when the table is set. The
    // name is a view of the table's key, hashed once.
    struct Property {
        size_t nameHash;
        std::u16string_view name;
        Object* record;
        Dictionary* dictionary; // the record, when it is one (it always should be)
        Lock* lock;
    };
    // A property name with its hash, as the generated accessors keep it.
    struct PropertyName {
        Ref<String> name;
        size_t hash;
    };

    static PropertyName propertyName(Ref<String> name);
    // The generic getter and setter; installedUnder is the selector they are added under (null
    // for objectProperty and setObjectProperty:), whose property name they work out once.
    static Implementation getterImplementation(SEL installedUnder);
    static Implementation setterImplementation(SEL installedUnder);

    const Property& property(const PropertyName& name) const;
    Lock* lockOf(const Property& property) const;
    Ref<Object> valueOf(const Property& property) const;
    void setValueOf(const Property& property, Object* value, bool setterLogic);
    Ref<Object> copyOfValue(String* name) const;
    Ref<Object> valueToArchive(const Property& property) const;

    Ref<Dictionary> attributes_;
    std::vector<Property> properties_; // sorted by nameHash
};

template <class T>
Ref<T> TXZonDynamicObject::create()
{
    static_assert(std::is_base_of_v<TXZonDynamicObject, T>);
    Ref<T> object = makeObject<T>();
    static_cast<TXZonDynamicObject*>(object.get())->init();
    return object;
}

template <class T>
void TXZonDynamicObject::registerInstanceFactory(Class& cls)
{
    cls.setInstanceFactory([] { return Ref<Object>(create<T>()); });
}

} // namespace zon
