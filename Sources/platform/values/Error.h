#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"

namespace zon {

// An error value: a domain, a code meaningful in that domain and an optional user-info
// dictionary; run-time class NSError. Immutable once made, so it may be shared between threads
// freely, and copy() answers the error itself.
//
// description is "Error Domain=<domain> Code=<code> \"<localizedDescription>\"", followed by
// " UserInfo={<key>=<value>, ...}" when the user info has entries, listed in the dictionary's
// order with each key's and value's description (an underlying error therefore shows its own
// description, without an address).
class ZON_EXPORT Error : public Object {
    ZON_OBJECT(Error, Object)
public:
    // The user info is copied (an immutable dictionary is shared, not duplicated); nil stays nil.
    static Ref<Error> errorWithDomain_code_userInfo(String* domain, long code, Dictionary* userInfo);

    String* domain() const { return domain_.get(); }
    long code() const { return code_; }
    Dictionary* userInfo() const { return userInfo_.get(); }

    // The string under NSLocalizedDescriptionKey, else
    // "The operation couldn’t be completed. (<domain> error <code>.)".
    Ref<String> localizedDescription() const;

    Ref<String> description() const override;
    // Equal when both are errors with equal domains, codes and user infos.
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;

    // ---- NSError(ZonExtensions): errors of any domain ----------------------------------------

    // No user info.
    static Ref<Error> errorWithDomain_code(String* domain, int code);
    // { NSLocalizedDescriptionKey: description }; a nil description raises
    // NSInvalidArgumentException, as any dictionary given a nil value does.
    static Ref<Error> errorWithDomain_code_description(String* domain, int code, String* description);
    // { NSUnderlyingErrorKey: underlyingError }; a nil underlying error raises likewise.
    static Ref<Error> errorWithDomain_code_underlyingError(String* domain, int code, Error* underlyingError);
    // The underlying error, then the description, stopping at the first nil: a nil underlying
    // error drops the description too (empty user info); this never raises.
    static Ref<Error> errorWithDomain_code_underlyingError_description(String* domain, int code,
        Error* underlyingError, String* description);
    // The error under NSUnderlyingErrorKey, or nil (also when that value is not an error).
    Error* underlyingError() const;

    // ---- NSError(TXZonExtensions): the suite domain, "ZonErrorDomain" -------------------------

    // A copy of userInfo (or an empty dictionary) with the description under
    // NSLocalizedDescriptionKey and the system code, even 0, under "ZonSystemErrorCode", both
    // replacing what was there; domain as given. A nil description raises
    // NSInvalidArgumentException.
    static Ref<Error> errorWithDomain_zonCode_systemCode_description_userInfo(String* domain, int zonCode,
        int systemCode, String* description, Dictionary* userInfo);
    // No user info. Code 0 is a real failure like any other.
    static Ref<Error> zonErrorWithCode(int code);
    // The dictionary as given (nil allowed).
    static Ref<Error> zonErrorWithCode_userInfo(int code, Dictionary* userInfo);
    // Single entries; a nil description raises NSInvalidArgumentException.
    static Ref<Error> zonErrorWithCode_description(int code, String* description);
    static Ref<Error> zonErrorWithCode_systemErrorCode(int code, int systemErrorCode);
    // Ordered lists that stop at the first nil and never raise: system code then description;
    // underlying error alone (nil gives an empty dictionary, not nil); underlying error then
    // description.
    static Ref<Error> zonErrorWithCode_systemErrorCode_description(int code, int systemErrorCode, String* description);
    static Ref<Error> zonErrorWithCode_underlyingError(int code, Error* underlyingError);
    static Ref<Error> zonErrorWithCode_underlyingError_description(int code, Error* underlyingError,
        String* description);
    // code, whatever the domain.
    long zonErrorCode() const;
    // The number under "ZonSystemErrorCode" as a signed integer, or 0 without one; the domain
    // does not matter.
    int systemErrorCode() const;

private:
    Error(Ref<String> domain, long code, Ref<Dictionary> userInfo);
    ~Error() override;

    // The user info of the ordered-list constructors: the entries in order, up to the first nil
    // value.
    static Ref<Dictionary> userInfoUpToFirstNil(std::initializer_list<Dictionary::KeyValue> entries);

    Ref<String> domain_;
    long code_;
    Ref<Dictionary> userInfo_;
};

// The platform's user-info keys and its general error domain.
ZON_EXPORT extern String* const NSLocalizedDescriptionKey;
ZON_EXPORT extern String* const NSUnderlyingErrorKey;
ZON_EXPORT extern String* const NSCocoaErrorDomain;

} // namespace zon
