#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/String.h"

#include <exception>
#include <string>

namespace zon {

class Dictionary;

// The platform exception: name, reason and user info, an object and a C++ exception at once.
// raise() throws the object's own dynamic type, so handlers catch by family:
//
//     try { ... } catch (const TXZonBasePipeException& e) { ... } catch (const Exception& e) { ... }
//
// A caught exception lives until its handler ends; copy it (copy()) to keep it longer.
// Subclasses declare ZON_EXCEPTION(Self, Base) instead of ZON_OBJECT so that raise() throws them.
class ZON_EXPORT Exception : public Object, public std::exception {
    ZON_OBJECT(Exception, Object)
public:
    static Ref<Exception> exceptionWithName_reason_userInfo(String* name, String* reason, Dictionary* userInfo);
    // Builds and raises at once.
    [[noreturn]] static void raise(String* name, String* reason);

    String* name() const { return name_.get(); }
    String* reason() const { return reason_.get(); }
    Dictionary* userInfo() const { return userInfo_.get(); }

    [[noreturn]] virtual void raise() const { throw *this; }
    const char* what() const noexcept override;
    Ref<String> description() const override;
    Ref<Object> copy() const override;

    Exception(const Exception& other);
    ~Exception() override;

protected:
    Exception(Ref<String> name, Ref<String> reason, Ref<Dictionary> userInfo);

private:
    Ref<String> name_;
    Ref<String> reason_;
    Ref<Dictionary> userInfo_;
    mutable std::string what_;
};

#define ZON_EXCEPTION(Self, Base)                                                                  \
public:                                                                                            \
    [[noreturn]] void raise() const override { throw *this; }                                      \
    Ref<Object> copy() const override { return adoptRef(new Self(*this)); }                        \
    ZON_OBJECT(Self, Base)

// The names of the platform's exceptions.
ZON_EXPORT extern String* const NSGenericException;
ZON_EXPORT extern String* const NSInternalInconsistencyException;
ZON_EXPORT extern String* const NSInvalidArgumentException;
ZON_EXPORT extern String* const NSRangeException;
ZON_EXPORT extern String* const NSMallocException;

// Raises an exception of the platform class with a UTF-8 reason; used by the platform layer.
[[noreturn]] ZON_EXPORT void raisePlatformException(String* name, std::string_view reason);

} // namespace zon
