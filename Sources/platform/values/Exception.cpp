#include "platform/values/Exception.h"

#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/runtime/Class.h"
#include "platform/values/Dictionary.h"

namespace zon {

ZON_DEFINE_CLASS(Exception, "NSException")

ZON_STRING_CONSTANT(NSGenericException, "NSGenericException");
ZON_STRING_CONSTANT(NSInternalInconsistencyException, "NSInternalInconsistencyException");
ZON_STRING_CONSTANT(NSInvalidArgumentException, "NSInvalidArgumentException");
ZON_STRING_CONSTANT(NSRangeException, "NSRangeException");
ZON_STRING_CONSTANT(NSMallocException, "NSMallocException");

Exception::Exception(Ref<String> name, Ref<String> reason, Ref<Dictionary> userInfo)
    : name_(std::move(name))
    , reason_(std::move(reason))
    , userInfo_(std::move(userInfo))
{
}

Exception::Exception(const Exception& other)
    : Object(other)
    , std::exception(other)
    , name_(other.name_)
    , reason_(other.reason_)
    , userInfo_(other.userInfo_)
{
}

Exception::~Exception() = default;

Ref<Exception> Exception::exceptionWithName_reason_userInfo(String* name, String* reason, Dictionary* userInfo)
{
    return makeObject<Exception>(Ref(name), Ref(reason), Ref(userInfo));
}

void Exception::raise(String* name, String* reason)
{
    exceptionWithName_reason_userInfo(name, reason, nullptr)->raise();
    __builtin_unreachable(); // raise() always throws, though the compiler cannot see it through the virtual call
}

const char* Exception::what() const noexcept
{
    try {
        if (what_.empty())
            what_ = (name_ ? name_->UTF8String() : std::string("(null)")) + ": "
                + (reason_ ? reason_->UTF8String() : std::string("(null)"));
    } catch (...) {
        return "exception";
    }
    return what_.c_str();
}

Ref<String> Exception::description() const { return reason_ ? reason_ : Ref<String>(ZSTR("(null)")); }

void Exception::willRaise() { ExceptionHandler::exceptionWillRaise(*this); }

void setExceptionUserInfo(Exception& exception, Ref<Dictionary> userInfo) { exception.userInfo_ = std::move(userInfo); }

Ref<Object> Exception::copy() const { return adoptRef(new Exception(*this)); }

void raisePlatformException(String* name, std::string_view reason)
{
    Exception::raise(name, String::stringWithUTF8String(reason));
}

} // namespace zon
