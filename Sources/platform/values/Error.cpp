#include "platform/values/Error.h"

#include "platform/runtime/Class.h"

#include <functional>

namespace zon {

ZON_DEFINE_CLASS(Error, "NSError")

ZON_STRING_CONSTANT(NSLocalizedDescriptionKey, "NSLocalizedDescription");
ZON_STRING_CONSTANT(NSUnderlyingErrorKey, "NSUnderlyingError");
ZON_STRING_CONSTANT(NSCocoaErrorDomain, "NSCocoaErrorDomain");

Error::Error(Ref<String> domain, long code, Ref<Dictionary> userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo))
{
}

Error::~Error() = default;

Ref<Error> Error::errorWithDomain_code_userInfo(String* domain, long code, Dictionary* userInfo)
{
    Ref<Dictionary> info = userInfo ? staticRefCast<Dictionary>(userInfo->copy()) : nullptr;
    return makeObject<Error>(Ref<String>(domain), code, std::move(info));
}

Ref<String> Error::localizedDescription() const
{
    if (userInfo_) {
        if (String* text = userInfo_->objectForKey<String>(NSLocalizedDescriptionKey))
            return text;
    }
    return String::stringWithFormat("The operation couldn\u2019t be completed. (%@ error %ld.)", domain_, code_);
}

Ref<String> Error::description() const
{
    std::u16string text;
    const Ref<String> localized = localizedDescription();
    appendFormatUTF16(text, "Error Domain=%@ Code=%ld \"%@\"", makeFormatArguments(domain_, code_, localized));
    if (userInfo_ && userInfo_->count()) {
        text += u" UserInfo={";
        bool first = true;
        for (auto [key, value] : *userInfo_) {
            if (!first)
                text += u", ";
            first = false;
            appendFormatUTF16(text, "%@=%@", makeFormatArguments(key, value));
        }
        text += u'}';
    }
    return String::stringWithCharacters(text);
}

bool Error::isEqual(const Object* other) const
{
    if (other == this)
        return true;
    const Error* error = dynamicCast<Error>(other);
    return error && code_ == error->code_ && objectsEqual(domain_, error->domain_)
        && objectsEqual(userInfo_, error->userInfo_);
}

size_t Error::hash() const
{
    return (domain_ ? domain_->hash() : 0) ^ std::hash<long> {}(code_);
}

Ref<Object> Error::copy() const { return const_cast<Error*>(this); }

} // namespace zon
