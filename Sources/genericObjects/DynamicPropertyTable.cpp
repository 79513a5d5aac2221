#include "genericObjects/DynamicPropertyTable.h"

#include "genericObjects/TXZonDynamicObject.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"
#include "platform/threads/Lock.h"

namespace zon {

DynamicPropertyTable::DynamicPropertyTable(DynamicPropertyLocks locks)
    : locks_(locks)
    , table_(MutableDictionary::dictionary())
{
}

DynamicPropertyTable::~DynamicPropertyTable() = default;

DynamicPropertyTable& DynamicPropertyTable::property(std::string_view name, const Class* expectedClass)
{
    Ref<String> key = String::stringWithUTF8String(name);
    current_ = MutableDictionary::dictionary();
    current_->setObject_forKey(key.get(), ZonDynamicPropertyVarNameKey);
    if (expectedClass)
        current_->setObject_forKey(Value::valueWithClass(expectedClass).get(), ZonDynamicPropertyClassKey);
    current_->setObject_forKey(ZonDynamicPropertyVariableAccessStandard, ZonDynamicPropertyVariableAccessKey);
    if (locks_ == DynamicPropertyLocks::PerProperty)
        current_->setObject_forKey(Lock::init().get(), ZonDynamicPropertyLockKey);
    table_->setObject_forKey(current_.get(), key.get());
    return *this;
}

MutableDictionary& DynamicPropertyTable::current()
{
    ZON_ASSERT(current_, "A property table entry needs property() first");
    return *current_;
}

DynamicPropertyTable& DynamicPropertyTable::set(String* key, Object* value)
{
    current().setObject_forKey(value, key);
    return *this;
}

DynamicPropertyTable& DynamicPropertyTable::defaultValue(Object* value) { return set(ZonDynamicPropertyDefaultVarValueKey, value); }

DynamicPropertyTable& DynamicPropertyTable::readOnly()
{
    return set(ZonDynamicPropertyVariableAccessKey, ZonDynamicPropertyVariableAccessReadOnly);
}

DynamicPropertyTable& DynamicPropertyTable::context(Object* context) { return set(ZonDynamicPropertyContextKey, context); }

DynamicPropertyTable& DynamicPropertyTable::preSetter(std::string_view selectorName)
{
    return set(ZonDynamicPropertyPreSetterKey, Value::valueWithSelector(selector(selectorName)).get());
}

DynamicPropertyTable& DynamicPropertyTable::postSetter(std::string_view selectorName)
{
    return set(ZonDynamicPropertyPostSetterKey, Value::valueWithSelector(selector(selectorName)).get());
}

DynamicPropertyTable& DynamicPropertyTable::container(const Class* containedClass)
{
    set(ZonDynamicPropertyContainerKey, Number::numberWithBool(true).get());
    if (containedClass)
        set(ZonDynamicPropertyContainedClassKey, Value::valueWithClass(containedClass).get());
    return *this;
}

DynamicPropertyTable& DynamicPropertyTable::postAdd(std::string_view selectorName)
{
    return set(ZonDynamicPropertyPostAddSelectorKey, Value::valueWithSelector(selector(selectorName)).get());
}

DynamicPropertyTable& DynamicPropertyTable::postRemove(std::string_view selectorName)
{
    return set(ZonDynamicPropertyPostRemoveSelectorKey, Value::valueWithSelector(selector(selectorName)).get());
}

Ref<Dictionary> DynamicPropertyTable::table() const { return table_; }

} // namespace zon
