#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class Exception;
class ExceptionHandler;

// The delegate of the process's exception handler (Exception::installZonExceptionHandler sets
// it): each exception the handler reports is written to the log with its stack
// (Exception::printStackTrace), and the handler's own report follows. One shared instance, made
// once under a lock; its callback may run on several threads at once.
class ZON_EXPORT TXZonExceptionHandler final : public Object {
    ZON_OBJECT(TXZonExceptionHandler, Object)
public:
    static TXZonExceptionHandler* sharedInstance();
    // Exported as "exceptionHandler:shouldLogException:mask:"; answers true.
    bool exceptionHandler_shouldLogException_mask(ExceptionHandler* handler, Exception* exception, unsigned long mask);
    static void exportMethods(Class& cls);

private:
    TXZonExceptionHandler() = default;
};

} // namespace zon

// Break-point anchors: each sleeps for 0 seconds and returns.
extern "C" {
ZON_EXPORT void ZonAssertionBreak(void);
ZON_EXPORT void ZonErrorBreak(void);
}
