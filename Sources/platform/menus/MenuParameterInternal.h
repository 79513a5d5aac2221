#pragma once

#include "platform/values/AssertionHandler.h"

namespace zon {

// Refuses a nil parameter of a menu operation through the assertion handler, which names the
// receiver's method ("-[NSMenu insertItem:atIndex:]"); receiver is the class for class operations.
inline void requireParameter(const void* value, const Object* receiver, const char* method, const char* parameter,
    const char* file, long line)
{
    if (!value) [[unlikely]]
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector(method), receiver, file,
            line, "Invalid parameter not satisfying: %s != nil", parameter);
}

} // namespace zon
