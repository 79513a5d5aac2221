#include "platform/runtime/KeyValueCoding.h"

#include "platform/runtime/Class.h"
#include "platform/runtime/Object.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstdio>
#include <string>

namespace zon {

ZON_STRING_CONSTANT(NSUndefinedKeyException, "NSUnknownKeyException");
ZON_STRING_CONSTANT(NSTargetObjectUserInfoKey, "NSTargetObjectUserInfoKey");
ZON_STRING_CONSTANT(NSUnknownUserInfoKey, "NSUnknownUserInfoKey");

namespace {

// "[<NSObject 0x1234> valueForUndefinedKey:]", as the platform opens these reasons.
std::string receiverText(const Object* receiver, const char* operation)
{
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(receiver));
    return "[<" + receiver->objectClass()->name() + " " + address + "> " + operation + "]";
}

[[noreturn]] void raiseUndefinedKey(Object* receiver, String* key, const char* operation)
{
    const std::string name = key ? key->UTF8String() : "(null)";
    auto reason = String::stringWithUTF8String(
        receiverText(receiver, operation) + ": this class is not key value coding-compliant for the key " + name + ".");
    auto userInfo = key ? Dictionary::dictionaryWithObjectsAndKeys(
                              {{NSTargetObjectUserInfoKey, receiver}, {NSUnknownUserInfoKey, key}})
                        : Dictionary::dictionaryWithObject_forKey(receiver, NSTargetObjectUserInfoKey);
    Exception::exceptionWithName_reason_userInfo(NSUndefinedKeyException, reason, userInfo)->raise();
    __builtin_unreachable();
}

std::string setterName(const std::string& key)
{
    std::string name = "set" + key + ":";
    if (name.size() > 4 && name[3] >= 'a' && name[3] <= 'z')
        name[3] = static_cast<char>(name[3] - 'a' + 'A');
    return name;
}

} // namespace

Ref<Object> Object::valueForKey(String* key)
{
    if (key) {
        const std::string name = key->UTF8String();
        if (const Method* getter = methodForSelector(selector(name)); getter && getter->numberOfArguments == 2)
            return getter->implementation(this, getter->selector, {});
    }
    raiseUndefinedKey(this, key, "valueForUndefinedKey:");
}

void Object::setValue_forKey(Object* value, String* key)
{
    if (key) {
        const SEL sel = selector(setterName(key->UTF8String()));
        if (const Method* setter = methodForSelector(sel); setter && setter->numberOfArguments == 3) {
            const char type = setter->signature->getArgumentTypeAtIndex(2)[0];
            if (!value && type != '@' && type != '#') {
                raisePlatformException(NSInvalidArgumentException,
                    receiverText(this, "setNilValueForKey") + ": could not set nil as the value for the key "
                        + key->UTF8String() + ".");
            }
            Object* arguments[] = {value};
            setter->implementation(this, sel, arguments);
            return;
        }
    }
    raiseUndefinedKey(this, key, "setValue:forUndefinedKey:");
}

} // namespace zon
