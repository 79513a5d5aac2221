#include "exceptions/TXZonBaseException.h"

#include "extensions/NSError+ZonExtensions.h"
#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"

namespace zon {

ZON_DEFINE_CLASS(TXZonBaseException, "TXZonBaseException")
ZON_DEFINE_CLASS(TXZonBaseConnectException, "TXZonBaseConnectException")
ZON_DEFINE_CLASS(TXZonBasePipeException, "TXZonBasePipeException")
ZON_DEFINE_CLASS(TXZonBasePipeClosedException, "TXZonBasePipeClosedException")
ZON_DEFINE_CLASS(TXZonBaseDisconnectException, "TXZonBaseDisconnectException")

ZON_STRING_CONSTANT(TXZonBaseExceptionName, "TXZonBaseException");
ZON_STRING_CONSTANT(kZonExceptionUnderlyingErrors, "underlyingErrors");

void TXZonBaseExceptionFields::didInitialize(uint32_t type, int32_t errorType, uint32_t errorCode)
{
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Exception %s -- %@ (%@) created",
        objectClass()->name().c_str(), name(), reason());
    internalContext_ = MutableDictionary::dictionary();
    type_ = type;
    errorType_ = static_cast<uint32_t>(errorType);
    errorCode_ = errorCode;
}

void TXZonBaseExceptionFields::adoptContextOfError(Error* error)
{
    if (Dictionary* userInfo = error->userInfo())
        addContextInformation(userInfo->objectForKey<Dictionary>(TXZonErrorAdditionalContextInfoKey));
}

Ref<Dictionary> TXZonBaseExceptionFields::context() const
{
    if (!internalContext_)
        return Dictionary::dictionary();
    return Dictionary::dictionaryWithDictionary(internalContext_.get());
}

void TXZonBaseExceptionFields::addContextInformation(Dictionary* context)
{
    if (!internalContext_)
        internalContext_ = MutableDictionary::dictionary();
    if (context)
        internalContext_->addEntriesFromDictionary(context);
}

MutableArray* TXZonBaseExceptionFields::underlyingErrorList()
{
    if (!internalContext_)
        internalContext_ = MutableDictionary::dictionary();
    auto* list = internalContext_->objectForKey<MutableArray>(kZonExceptionUnderlyingErrors);
    if (!list) {
        auto made = MutableArray::array();
        internalContext_->setObject_forKey(made.get(), kZonExceptionUnderlyingErrors);
        list = made.get();
    }
    return list;
}

Ref<Array> TXZonBaseExceptionFields::underlyingErrors() const
{
    Array* list = internalContext_ ? internalContext_->objectForKey<Array>(kZonExceptionUnderlyingErrors) : nullptr;
    return list ? Array::arrayWithArray(list) : Array::array();
}

void TXZonBaseExceptionFields::addUnderlyingError(Error* error) { underlyingErrorList()->addObject(error); }

void TXZonBaseExceptionFields::setUnderlyingErrors(Array* errors)
{
    underlyingErrorList()->addObjectsFromArray(errors);
}

Ref<Error> TXZonBaseExceptionFields::error() const
{
    auto entries
        = userInfo() ? MutableDictionary::dictionaryWithDictionary(userInfo()) : MutableDictionary::dictionary();
    entries->setObject_forKey(context().get(), TXZonErrorAdditionalContextInfoKey);
    return Error::errorWithDomain_zonCode_systemCode_description_userInfo(name(), static_cast<int>(type_),
        static_cast<int>(errorCode_), reason(), Dictionary::dictionaryWithDictionary(entries.get()).get());
}

Ref<String> TXZonBaseExceptionFields::description() const
{
    return String::stringWithFormat(
        "%@ type: %d errno: %d", Exception::description(), static_cast<int>(errorType_), static_cast<int>(errorCode_));
}

} // namespace zon
