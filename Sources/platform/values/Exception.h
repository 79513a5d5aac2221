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

    // Throws a copy; while the exception handler watches, the copy carries the raising stack.
    [[noreturn]] virtual void raise() const
    {
        Exception thrown(*this);
        thrown.willRaise();
        throw thrown;
    }
    const char* what() const noexcept override;
    Ref<String> description() const override;
    Ref<Object> copy() const override;

    Exception(const Exception& other);
    ~Exception() override;

    // ---- NSException(ZonExceptionHandlerExtensions) ---------------------------------------------

    // Makes the shared TXZonExceptionHandler the delegate of the process's exception handler and
    // sets the handler's mask (ExceptionHandler.h); the plain form uses 255. Installing again
    // replaces the mask.
    static void installZonExceptionHandler();
    static void installZonExceptionHandlerWithExceptionHandlingMask(unsigned mask);
    // Logs the exception at level 1 with the resident memory and its stack from the user info,
    // symbolised by the current StackSymbolizer, or as plain addresses without one.
    static void printStackTrace(const Exception* exception);

protected:
    Exception(Ref<String> name, Ref<String> reason, Ref<Dictionary> userInfo);
    // Called on the copy that raise() throws.
    void willRaise();

private:
    // The exception handler adds the raising stack to the user info of the copy it throws.
    friend void setExceptionUserInfo(Exception& exception, Ref<Dictionary> userInfo);

    Ref<String> name_;
    Ref<String> reason_;
    Ref<Dictionary> userInfo_;
    mutable std::string what_;
};

#define ZON_EXCEPTION(Self, Base)                                                                  \
public:                                                                                            \
    [[noreturn]] void raise() const override                                                       \
    {                                                                                              \
        Self thrown(*this);                                                                        \
        thrown.willRaise();                                                                        \
        throw thrown;                                                                              \
    }                                                                                              \
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
