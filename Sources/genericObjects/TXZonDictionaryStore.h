#pragma once

#include "platform/runtime/Object.h"
#include "platform/runtime/WeakRef.h"

namespace zon {

class Dictionary;
class Lock;
class MutableDictionary;
class String;
class TXZonObserverCenter;

// An observable store of named attributes, optionally thread-safe. Each attribute is registered
// with a default value, an expected class and two optional hook operations of the logic delegate,
// and is then read and written by its identifier.
//
// A write tells the change observers before and after (through the store's observer center, so
// they are called on their own threads), lets the logic delegate run its hooks around the change
// on the writing thread, and queues a copy of the new value to the main thread: the binding
// mirror, which key-value coding reads (valueForKey) and key-value observing reports, so that
// interface bindings on the main thread read the store safely while other threads write it.
//
// Each attribute is a record dictionary with the keys "name", "lock", "valueType",
// "prelogicSetter", "postlogicSetter", "defaultValue", "value" and "bindingValue". With thread
// safety on, a read or write of an attribute's value takes that attribute's own lock, and so do
// the main thread's read and update of the mirror, since both live in the same record (without
// that the main thread would read a dictionary another thread is changing). The table of records
// itself is never locked, so registration is finished before the store is shared.
//
// The logic delegate is not owned; it is held by a zeroing weak reference, so one destroyed while
// set reads as nil and its hooks are no longer run.
class ZON_EXPORT TXZonDictionaryStore : public Object {
    ZON_OBJECT(TXZonDictionaryStore, Object)
public:
    static Ref<TXZonDictionaryStore> storeWithOptionalLogicDelegateDelegate(Object* delegate);
    static Ref<TXZonDictionaryStore> initWithOptionalLogicDelegateDelegate(Object* delegate);
    // The same with thread safety on.
    static Ref<TXZonDictionaryStore> threadSafeStoreWithOptionalLogicDelegate(Object* delegate);

    MutableDictionary* _store() const { return store_.get(); }
    void set_store(MutableDictionary* store);
    Ref<Object> _optionalLogicDelegate() const { return optionalLogicDelegate_.load(); }
    void set_optionalLogicDelegate(Object* delegate) { optionalLogicDelegate_ = WeakRef<Object>(delegate); }
    TXZonObserverCenter* _observerCenter() const { return observerCenter_.get(); }
    void set_observerCenter(TXZonObserverCenter* center);
    void setThreadSafety(bool threadSafe) { threadSafe_ = threadSafe; }
    bool isThreadSafe() const { return threadSafe_; }
    void setNilToDefault(bool nilToDefault) { nilToDefault_ = nilToDefault; }
    bool nilToDefault() const { return nilToDefault_; }

    // Registration replaces an earlier attribute of the same identifier (with a warning). Without
    // a type, the default value's own class is the type; hooks are operations of the logic
    // delegate taking none, one (the old value) or two (old and new value) arguments.
    void registerAttributeWithIdentifier_defaultValue(String* identifier, Object* defaultValue);
    void registerAttributeWithIdentifier_defaultValue_type(String* identifier, Object* defaultValue, Class* type);
    void registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
        String* identifier, Object* defaultValue, Class* type, SEL preSetter, SEL postSetter);

    bool hasAttritbuteForIdentifier(String* identifier);
    // The current value (the writing threads' truth), or nil.
    Ref<Object> attributeForIdentifier(String* identifier);
    // Identifier to current value, for the attributes that have one.
    Ref<Dictionary> attributes() const;
    Ref<String> description() const override;

    void setAttribute_forIdentifer(Object* value, String* identifier);
    void setAttribute_forIdentifer_withOptionalLogic(Object* value, String* identifier, bool optionalLogic);
    // The write. A value of the wrong class is stored all the same, after a warning; nil stores
    // the default when nilToDefault is on. An unregistered identifier stores nothing but still
    // notifies and mirrors.
    void setAttribute_forIdentifer_withOptionalLogic_typeSafety(
        Object* value, String* identifier, bool optionalLogic, bool typeSafety);
    void resetAttributeForIdentifier(String* identifier);
    void resetAttributeForIdentifier_withOptionalLogic(String* identifier, bool optionalLogic);
    void loadAttributes(Dictionary* attributes);
    void loadAttributes_withOptionalLogic(Dictionary* attributes, bool optionalLogic);

    // A TXZonObserver is registered as it is; any other object as a delegate called on the
    // calling thread. Observers implement dictionaryStore:willChangeAttribute:from: and
    // dictionaryStore:didChangeAttribute:to: as far as they wish.
    void addChangeObserver(Object* observer);
    void removeChangeObserver(Object* observer);

    // The broadcasts of a write, sent to the store itself.
    virtual void dictionaryStore_willChangeAttribute_from(TXZonDictionaryStore* store, String* identifier, Object* value);
    virtual void dictionaryStore_didChangeAttribute_to(TXZonDictionaryStore* store, String* identifier, Object* value);

    // The binding interface; main thread only (anything else fails an assertion).
    // valueForKey answers the mirror, setValue_forKey writes as setAttribute_forIdentifer does,
    // and setBindingValue_forKey updates the mirror between willChangeValueForKey and
    // didChangeValueForKey.
    Ref<Object> valueForKey(String* key) override;
    void setValue_forKey(Object* value, String* key) override;
    void setBindingValue_forKey(Object* value, String* key);

    static void exportMethods(Class& cls);

private:
    explicit TXZonDictionaryStore(Object* delegate);

    MutableDictionary* recordFor(String* identifier) const;
    // The record's lock when the store is thread-safe, else null (nothing to take).
    Lock* lockOf(MutableDictionary* record) const;
    void callHook(SEL hook, Object* oldValue, Object* newValue);
    void assertMainThread(const char* operation) const;

    Ref<MutableDictionary> store_;
    WeakRef<Object> optionalLogicDelegate_;
    bool threadSafe_ = false;
    bool nilToDefault_ = true;
    Ref<TXZonObserverCenter> observerCenter_;
};

} // namespace zon
