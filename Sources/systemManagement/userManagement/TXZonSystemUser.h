#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class Array;

// The user accounts of the machine, by their home folders.
class ZON_EXPORT TXZonSystemUser final : public Object {
    ZON_OBJECT(TXZonSystemUser, Object)
public:
    // The names in "/home/" in listing order, except "Shared", "lost+found" and names that begin
    // with "."; an empty array, and the level-1 line "Unable to find users due to %@" with the
    // error, when the folder cannot be read.
    static Ref<Array> listOfUsers();

private:
    TXZonSystemUser() = default;
};

} // namespace zon
