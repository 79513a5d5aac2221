#pragma once

#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstddef>
#include <exception>
#include <string>

// What the keyed archiver writes and the unarchiver reads: the layout's keys and names, and the
// limits both sides keep, so that whatever the archiver writes reads back.
namespace zon::keyed_archive {

inline constexpr long kVersion = 100000;

// Entries of `$objects` (the "$null" marker included). An archive's text spends at least a few
// dozen bytes per entry, so this admits archives of tens of megabytes.
inline constexpr size_t kMaxObjectCount = size_t {1} << 20;
// Objects inside objects: each level is a few C++ frames of the coder and of the objects' own
// encodeWithCoder:/initWithCoder:, so this bounds the stack the coders use.
inline constexpr size_t kMaxNestingDepth = 256;

inline String* archiverName() { return ZSTR("NSKeyedArchiver"); }
inline String* nullMarker() { return ZSTR("$null"); }
inline String* rootKey() { return ZSTR("root"); }

inline String* archiverKey() { return ZSTR("$archiver"); }
inline String* versionKey() { return ZSTR("$version"); }
inline String* objectsKey() { return ZSTR("$objects"); }
inline String* topKey() { return ZSTR("$top"); }

inline String* classKey() { return ZSTR("$class"); }
inline String* classNameKey() { return ZSTR("$classname"); }
inline String* classesKey() { return ZSTR("$classes"); }
inline String* uidKey() { return ZSTR("CF$UID"); }

// The keys under which the property-list values keep their contents.
inline String* nsObjectsKey() { return ZSTR("NS.objects"); }
inline String* nsKeysKey() { return ZSTR("NS.keys"); }
inline String* nsTimeKey() { return ZSTR("NS.time"); }
inline String* nsStringKey() { return ZSTR("NS.string"); }
inline String* nsDataKey() { return ZSTR("NS.data"); }

// Restores a coder's member when a scope ends, also when an exception leaves it.
template <class T>
class Restore {
public:
    Restore(T& slot, T value) : slot_(slot), saved_(slot) { slot_ = value; }
    ~Restore() { slot_ = saved_; }
    Restore(const Restore&) = delete;
    Restore& operator=(const Restore&) = delete;

private:
    T& slot_;
    T saved_;
};

// Runs body and answers its result; an exception it raises becomes nil and an error in
// NSCocoaErrorDomain with code. The coder's own failures (exceptions named ownFailure) carry
// their message as the reason; any other exception is named in the message.
template <class Body>
auto resultOrError(Body&& body, String* ownFailure, long code, const char* activity, Ref<Error>* error)
    -> decltype(body())
{
    std::string message;
    try {
        return body();
    } catch (const Exception& exception) {
        message = exception.reason() ? exception.reason()->UTF8String() : std::string();
        if (!exception.name() || !exception.name()->isEqualToString(ownFailure))
            message = std::string("Exception while ") + activity + ": "
                + (exception.name() ? exception.name()->UTF8String() : std::string("(null)")) + ": " + message;
    } catch (const std::exception& exception) {
        message = std::string("Exception while ") + activity + ": " + exception.what();
    }
    if (error)
        *error = Error::errorWithDomain_code_description(NSCocoaErrorDomain, static_cast<int>(code),
            String::stringWithUTF8String(message));
    return nullptr;
}

} // namespace zon::keyed_archive
