#include "extensions/NSError+ZonExtensions.h"
#include "platform/values/Number.h"

namespace zon {

Ref<Error> Error::errorWithDomain_zonCode_systemCode_description_userInfo(String* domain, int zonCode,
    int systemCode, String* description, Dictionary* userInfo)
{
    Ref<MutableDictionary> info = userInfo ? MutableDictionary::dictionaryWithDictionary(userInfo)
                                           : MutableDictionary::dictionary();
    info->setObject_forKey(description, NSLocalizedDescriptionKey);
    info->setObject_forKey(Number::numberWithInt(systemCode), TXZonErrorSystemErrorCodeKey);
    return errorWithDomain_code_userInfo(domain, zonCode, info); // copies to an immutable dictionary
}

Ref<Error> Error::zonErrorWithCode(int code) { return errorWithDomain_code_userInfo(TXZonErrorDomain, code, nullptr); }

Ref<Error> Error::zonErrorWithCode_userInfo(int code, Dictionary* userInfo)
{
    return errorWithDomain_code_userInfo(TXZonErrorDomain, code, userInfo);
}

Ref<Error> Error::zonErrorWithCode_description(int code, String* description)
{
    return errorWithDomain_code_description(TXZonErrorDomain, code, description);
}

Ref<Error> Error::zonErrorWithCode_systemErrorCode(int code, int systemErrorCode)
{
    return errorWithDomain_code_userInfo(TXZonErrorDomain, code,
        Dictionary::dictionaryWithObject_forKey(Number::numberWithInt(systemErrorCode), TXZonErrorSystemErrorCodeKey));
}

Ref<Error> Error::zonErrorWithCode_systemErrorCode_description(int code, int systemErrorCode, String* description)
{
    const Ref<Number> number = Number::numberWithInt(systemErrorCode);
    return errorWithDomain_code_userInfo(TXZonErrorDomain, code,
        userInfoUpToFirstNil({{TXZonErrorSystemErrorCodeKey, number}, {NSLocalizedDescriptionKey, description}}));
}

Ref<Error> Error::zonErrorWithCode_underlyingError(int code, Error* underlyingError)
{
    return errorWithDomain_code_userInfo(TXZonErrorDomain, code,
        userInfoUpToFirstNil({{NSUnderlyingErrorKey, underlyingError}}));
}

Ref<Error> Error::zonErrorWithCode_underlyingError_description(int code, Error* underlyingError, String* description)
{
    return errorWithDomain_code_userInfo(TXZonErrorDomain, code,
        userInfoUpToFirstNil({{NSUnderlyingErrorKey, underlyingError}, {NSLocalizedDescriptionKey, description}}));
}

long Error::zonErrorCode() const { return code_; }

int Error::systemErrorCode() const
{
    const Number* number = userInfo_ ? userInfo_->objectForKey<Number>(TXZonErrorSystemErrorCodeKey) : nullptr;
    return number ? number->intValue() : 0;
}

} // namespace zon
