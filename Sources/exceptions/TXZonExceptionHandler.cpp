#include "exceptions/TXZonExceptionHandler.h"

#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"

#include <atomic>
#include <mutex>
#include <unistd.h>

namespace zon {

ZON_DEFINE_CLASS(TXZonExceptionHandler, "TXZonExceptionHandler")

void TXZonExceptionHandler::exportMethods(Class& cls)
{
    cls.exportMethod(
        "exceptionHandler:shouldLogException:mask:", &TXZonExceptionHandler::exceptionHandler_shouldLogException_mask);
}

TXZonExceptionHandler* TXZonExceptionHandler::sharedInstance()
{
    static std::atomic<TXZonExceptionHandler*> shared { nullptr };
    static std::mutex creation;
    if (auto* instance = shared.load(std::memory_order_acquire))
        return instance;
    std::lock_guard lock(creation);
    if (auto* instance = shared.load(std::memory_order_relaxed))
        return instance;
    auto* instance = makeObject<TXZonExceptionHandler>().leakRef();
    instance->makeImmortal();
    shared.store(instance, std::memory_order_release);
    return instance;
}

bool TXZonExceptionHandler::exceptionHandler_shouldLogException_mask(
    ExceptionHandler*, Exception* exception, unsigned long)
{
    Exception::printStackTrace(exception);
    return true;
}

} // namespace zon

__attribute__((noinline)) void ZonAssertionBreak(void)
{
    ::sleep(0);
    asm volatile("");
}

__attribute__((noinline)) void ZonErrorBreak(void)
{
    ::sleep(0);
    asm volatile("");
}
