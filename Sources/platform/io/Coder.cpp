#include "platform/io/Coder.h"

#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(Coder, "NSCoder")

namespace {

[[noreturn]] void raiseAbstractEncode(const Coder& coder, const std::string& selectorText)
{
    raisePlatformException(NSInvalidArgumentException,
        "*** -" + selectorText + " only defined for abstract class. Define -[" + coder.objectClass()->name() + " "
            + selectorText + "]!");
}

} // namespace

void Coder::encodeObject_forKey(Object*, String*) { raiseAbstractEncode(*this, "encodeObject:forKey:"); }
void Coder::encodeBool_forKey(bool, String*) { raiseAbstractEncode(*this, "encodeBool:forKey:"); }
void Coder::encodeInteger_forKey(long, String*) { raiseAbstractEncode(*this, "encodeInteger:forKey:"); }
void Coder::encodeDouble_forKey(double, String*) { raiseAbstractEncode(*this, "encodeDouble:forKey:"); }

Ref<Object> Coder::decodeObjectForKey(String*) { return nullptr; }
bool Coder::decodeBoolForKey(String*) { return false; }
long Coder::decodeIntegerForKey(String*) { return 0; }
double Coder::decodeDoubleForKey(String*) { return 0; }

bool Coder::containsValueForKey(String*) const { return false; }

bool supportsKeyedArchiving(const Object* object)
{
    if (!object)
        return false;
    if (object->isKindOfClass(String::staticClass()) || object->isKindOfClass(Number::staticClass())
        || object->isKindOfClass(Data::staticClass()) || object->isKindOfClass(Date::staticClass())
        || object->isKindOfClass(Array::staticClass()) || object->isKindOfClass(Dictionary::staticClass())
        || object->isKindOfClass(Set::staticClass()) || object->isKindOfClass(Null::staticClass()))
        return true;
    static const SEL encodeWithCoder = selector("encodeWithCoder:");
    return object->respondsToSelector(encodeWithCoder);
}

} // namespace zon
