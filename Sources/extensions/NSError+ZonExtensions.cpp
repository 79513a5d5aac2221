#include "extensions/NSError+ZonExtensions.h"

namespace zon {

ZON_STRING_CONSTANT(TXZonErrorDomain, "ZonErrorDomain");
ZON_STRING_CONSTANT(TXZonErrorSystemErrorCodeKey, "ZonSystemErrorCode");
ZON_STRING_CONSTANT(TXZonErrorAdditionalContextInfoKey, "ZonUserInfoAdditionalContext");

Ref<Dictionary> Error::userInfoUpToFirstNil(std::initializer_list<Dictionary::KeyValue> entries)
{
    constexpr size_t kMaximumEntries = 2;
    Object* keys[kMaximumEntries];
    Object* objects[kMaximumEntries];
    size_t count = 0;
    for (const auto& [key, object] : entries) {
        if (!object || count == kMaximumEntries)
            break;
        keys[count] = key;
        objects[count] = object;
        ++count;
    }
    return Dictionary::dictionaryWithObjects_forKeys_count(objects, keys, count);
}

Ref<Error> Error::errorWithDomain_code(String* domain, int code)
{
    return errorWithDomain_code_userInfo(domain, code, nullptr);
}

Ref<Error> Error::errorWithDomain_code_description(String* domain, int code, String* description)
{
    return errorWithDomain_code_userInfo(domain, code,
        Dictionary::dictionaryWithObject_forKey(description, NSLocalizedDescriptionKey));
}

Ref<Error> Error::errorWithDomain_code_underlyingError(String* domain, int code, Error* underlyingError)
{
    return errorWithDomain_code_userInfo(domain, code,
        Dictionary::dictionaryWithObject_forKey(underlyingError, NSUnderlyingErrorKey));
}

Ref<Error> Error::errorWithDomain_code_underlyingError_description(String* domain, int code,
    Error* underlyingError, String* description)
{
    return errorWithDomain_code_userInfo(domain, code,
        userInfoUpToFirstNil({{NSUnderlyingErrorKey, underlyingError}, {NSLocalizedDescriptionKey, description}}));
}

Error* Error::underlyingError() const
{
    return userInfo_ ? userInfo_->objectForKey<Error>(NSUnderlyingErrorKey) : nullptr;
}

} // namespace zon
