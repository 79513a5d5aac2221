#pragma once

#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstdint>

namespace zon {

// The suite's exception family: a platform exception with a type, an error
// type, an error code and a status code, a context that grows while the
// exception travels (it also holds the underlying errors), and conversions to
// and from errors.
//
// Every constructor makes an instance of the class it is called on, so
// TXZonBasePipeClosedException::exceptionWithReason(r) is a pipe-closed
// exception, caught by `catch (TXZonBasePipeException&)` and `catch
// (TXZonBaseException&)`. Making one logs a level-1 "created" line, raised or
// not. raise() throws a copy that shares the internal context: a handler that
// adds context and rethrows (`throw;`) keeps what it added. No locking: an
// exception is built and filled by one thread.
class ZON_EXPORT TXZonBaseExceptionFields : public Exception {
public:
    uint32_t type() const { return type_; }
    void setType(uint32_t type) { type_ = type; }
    uint32_t errorCode() const { return errorCode_; }
    void setErrorCode(uint32_t errorCode) { errorCode_ = errorCode; }
    uint32_t webSLStatusCode() const { return webSLStatusCode_; }
    void setWebSLStatusCode(uint32_t code) { webSLStatusCode_ = code; }
    MutableDictionary* internalContext() const { return internalContext_.get(); }
    void setInternalContext(MutableDictionary* context) { internalContext_ = Ref(context); }
    uint32_t errorType() const { return errorType_; }
    void setErrorType(int32_t errorType) { errorType_ = static_cast<uint32_t>(errorType); }
    Dictionary* additionalInfo() const { return additionalInfo_.get(); }
    void setAdditionalInfo(Dictionary* info) { additionalInfo_ = Ref(info); }

    // An immutable copy of the internal context (empty without one),
    // "underlyingErrors" included.
    Ref<Dictionary> context() const;
    // Merges the entries in, later values replacing earlier ones; nil adds
    // nothing.
    void addContextInformation(Dictionary* context);
    Ref<Array> underlyingErrors() const;
    void addUnderlyingError(Error* error);
    // Appends every element to the existing list; it does not replace it.
    void setUnderlyingErrors(Array* errors);

    // Name as domain, type as code, errorCode as system code, the reason as
    // description, the user info plus the context under
    // "ZonUserInfoAdditionalContext". A nil reason raises
    // NSInvalidArgumentException.
    Ref<Error> error() const;
    // "<reason> type: <errorType> errno: <errorCode>".
    Ref<String> description() const override;

protected:
    TXZonBaseExceptionFields(Ref<String> name, Ref<String> reason, Ref<Dictionary> userInfo)
        : Exception(std::move(name), std::move(reason), std::move(userInfo))
    {
    }
    // The end of every constructor: logs the "created" line, gives the exception
    // its empty context and sets the three numbers.
    void didInitialize(uint32_t type, int32_t errorType, uint32_t errorCode);
    // The context an error carries under "ZonUserInfoAdditionalContext", added
    // when present.
    void adoptContextOfError(Error* error);

private:
    MutableArray* underlyingErrorList(); // made on first use

    uint32_t type_ = 0;
    uint32_t errorCode_ = 0;
    uint32_t webSLStatusCode_ = 0;
    Ref<MutableDictionary> internalContext_;
    uint32_t errorType_ = 0;
    Ref<Dictionary> additionalInfo_;
};

// The name that exceptionWithReason_errorType_userInfo and the two constructors
// built on it give, whatever class they are called on.
ZON_EXPORT extern String* const TXZonBaseExceptionName;
ZON_EXPORT extern String* const kZonExceptionUnderlyingErrors;

// The constructors and raise operations of the family, each making a Self.
template <class Self, class Base> class TXZonExceptionConstructors : public Base {
public:
    static Ref<Self> exceptionWithName_reason_type_errorCode_userInfo(
        String* name, String* reason, uint32_t type, uint32_t errorCode, Dictionary* userInfo)
    {
        return make(name, reason, userInfo, type, static_cast<int32_t>(type), errorCode);
    }
    static Ref<Self> exceptionWithName_reason(String* name, String* reason)
    {
        return make(name, reason, nullptr, 0, 0, 0);
    }
    static Ref<Self> exception() { return make(className(), ZSTR("Unknown Reason"), nullptr, 0, 0, 0); }
    static Ref<Self> exceptionWithReason(String* reason) { return make(className(), reason, nullptr, 0, 0, 0); }
    static Ref<Self> exceptionWithReason_type(String* reason, uint32_t type)
    {
        return make(className(), reason, nullptr, type, static_cast<int32_t>(type), 0);
    }
    // The error code is not passed on.
    static Ref<Self> exceptionWithReason_type_errorCode(String* reason, uint32_t type, uint32_t /*errorCode*/)
    {
        return exceptionWithReason_type(reason, type);
    }
    // Neither the error code nor the user info is passed on.
    static Ref<Self> exceptionWithReason_type_errorCode_userInfo(
        String* reason, uint32_t type, uint32_t /*errorCode*/, Dictionary* /*userInfo*/)
    {
        return exceptionWithReason_type(reason, type);
    }
    static Ref<Self> exceptionWithName_reason_errorType_errorCode_userInfo(
        String* name, String* reason, int32_t errorType, uint32_t errorCode, Dictionary* userInfo)
    {
        return make(name, reason, userInfo, 0, errorType, errorCode);
    }
    static Ref<Self> exceptionWithName_reason_errorType_errorCode(
        String* name, String* reason, int32_t errorType, uint32_t errorCode)
    {
        return make(name, reason, nullptr, 0, errorType, errorCode);
    }
    static Ref<Self> exceptionWithReason_errorType_errorCode(String* reason, int32_t errorType, uint32_t errorCode)
    {
        return make(className(), reason, nullptr, 0, errorType, errorCode);
    }
    static Ref<Self> exceptionWithErrorType_errorCode(int32_t errorType, uint32_t errorCode)
    {
        return make(className(), ZSTR(""), nullptr, 0, errorType, errorCode);
    }
    // Named "TXZonBaseException" also when called on a subclass.
    static Ref<Self> exceptionWithReason_errorType_userInfo(String* reason, int32_t errorType, Dictionary* userInfo)
    {
        return make(TXZonBaseExceptionName, reason, userInfo, 0, errorType, 0);
    }
    static Ref<Self> exceptionWithReason_errorType(String* reason, int32_t errorType)
    {
        return exceptionWithReason_errorType_userInfo(reason, errorType, nullptr);
    }
    static Ref<Self> exceptionWithReason_userInfo(String* reason, Dictionary* userInfo)
    {
        return exceptionWithReason_errorType_userInfo(reason, 0, userInfo);
    }
    // Name: the domain; reason: the error's description; the error's user info;
    // errorType: its code; errorCode: its system code; its
    // "ZonUserInfoAdditionalContext" joins the context.
    static Ref<Self> exceptionOfType_withError(uint32_t type, Error* error)
    {
        auto made = make(error->domain(), error->description().get(), error->userInfo(), type,
            static_cast<int32_t>(error->zonErrorCode()), static_cast<uint32_t>(error->systemErrorCode()));
        made->adoptContextOfError(error);
        return made;
    }
    static Ref<Self> exceptionWithError(Error* error)
    {
        return exceptionOfType_withError(static_cast<uint32_t>(error->zonErrorCode()), error);
    }

    [[noreturn]] static void raiseException() { raiseWithContext(exception(), nullptr); }
    [[noreturn]] static void raiseExceptionWithReason(String* reason)
    {
        raiseWithContext(exceptionWithReason(reason), nullptr);
    }
    [[noreturn]] static void raiseExceptionWithReason_type(String* reason, uint32_t type)
    {
        raiseWithContext(exceptionWithReason_type(reason, type), nullptr);
    }
    [[noreturn]] static void raiseExceptionWithReason_type_context(String* reason, uint32_t type, Dictionary* context)
    {
        raiseWithContext(exceptionWithReason_type(reason, type), context);
    }
    [[noreturn]] static void raiseExceptionWithReason_type_errorCode(String* reason, uint32_t type, uint32_t errorCode)
    {
        raiseWithContext(exceptionWithReason_type_errorCode(reason, type, errorCode), nullptr);
    }
    [[noreturn]] static void raiseExceptionWithReason_type_errorCode_context(
        String* reason, uint32_t type, uint32_t errorCode, Dictionary* context)
    {
        raiseWithContext(exceptionWithReason_type_errorCode(reason, type, errorCode), context);
    }
    [[noreturn]] static void raiseExceptionOfType_withError(uint32_t type, Error* error)
    {
        raiseWithContext(exceptionOfType_withError(type, error), nullptr);
    }
    [[noreturn]] static void raiseExceptionOfType_withError_context(uint32_t type, Error* error, Dictionary* context)
    {
        raiseWithContext(exceptionOfType_withError(type, error), context);
    }
    [[noreturn]] static void raiseExceptionWithReason_errorType(String* reason, int32_t errorType)
    {
        raiseWithContext(exceptionWithReason_errorType(reason, errorType), nullptr);
    }

protected:
    using Base::Base;

private:
    static String* className()
    {
        static Ref<String> const name = String::stringWithUTF8String(Self::staticClass()->name());
        return name.get();
    }
    static Ref<Self> make(
        String* name, String* reason, Dictionary* userInfo, uint32_t type, int32_t errorType, uint32_t errorCode)
    {
        auto made = makeObject<Self>(Ref(name), Ref(reason), Ref(userInfo));
        made->didInitialize(type, errorType, errorCode);
        return made;
    }
    [[noreturn]] static void raiseWithContext(const Ref<Self>& exception, Dictionary* context)
    {
        if (context)
            exception->addContextInformation(context);
        exception->raise();
        __builtin_unreachable();
    }
};

class ZON_EXPORT TXZonBaseException : public TXZonExceptionConstructors<TXZonBaseException, TXZonBaseExceptionFields> {
    ZON_EXCEPTION(TXZonBaseException, Exception)
    using TXZonExceptionConstructors::TXZonExceptionConstructors;
};

// Failure to establish a connection.
class ZON_EXPORT TXZonBaseConnectException
    : public TXZonExceptionConstructors<TXZonBaseConnectException, TXZonBaseException> {
    ZON_EXCEPTION(TXZonBaseConnectException, TXZonBaseException)
    using TXZonExceptionConstructors::TXZonExceptionConstructors;
};

// Failures on an established pipe (data channel).
class ZON_EXPORT TXZonBasePipeException
    : public TXZonExceptionConstructors<TXZonBasePipeException, TXZonBaseException> {
    ZON_EXCEPTION(TXZonBasePipeException, TXZonBaseException)
    using TXZonExceptionConstructors::TXZonExceptionConstructors;
};

// The pipe was closed by the other side.
class ZON_EXPORT TXZonBasePipeClosedException
    : public TXZonExceptionConstructors<TXZonBasePipeClosedException, TXZonBasePipeException> {
    ZON_EXCEPTION(TXZonBasePipeClosedException, TXZonBasePipeException)
    using TXZonExceptionConstructors::TXZonExceptionConstructors;
};

// Failure while disconnecting.
class ZON_EXPORT TXZonBaseDisconnectException
    : public TXZonExceptionConstructors<TXZonBaseDisconnectException, TXZonBasePipeException> {
    ZON_EXCEPTION(TXZonBaseDisconnectException, TXZonBasePipeException)
    using TXZonExceptionConstructors::TXZonExceptionConstructors;
};

} // namespace zon
