#pragma once

#include "platform/runtime/Object.h"

#include <cstdint>

namespace zon {

class Data;
class String;

// A minimal writer of resources into a file's resource fork. Resources reach the disk when the
// fork is closed (closeFile, or the object's end); there is no separate write call.
class ZON_EXPORT ZonResourceFork : public Object {
    ZON_OBJECT(ZonResourceFork, Object)
public:
    // Autoreleased, opened for writing.
    static ZonResourceFork* resourceForkForWritingAtPath(const String* path);
    static Ref<ZonResourceFork> initForWritingAtPath(const String* path);
    // permission: 1 read, 2 write, 3 read-write. With write permission the file is created first
    // when needed; the create step is given the name's UTF-8 byte count as its length, so a new
    // file with a non-ASCII name is not created and the fork stays unopened.
    static Ref<ZonResourceFork> initWithPermission_atPath(int permission, const String* path);

    // Adds one resource to the fork's file; the name goes in as Mac Roman, at most 255
    // characters. Always YES, as in the original, even when nothing could be added.
    bool addData_type_resID_name(const Data* data, uint32_t type, int16_t resID, const String* name);
    // Closes the resource file when one is open (reference 1 or more), writing its resources.
    void closeFile();

    int16_t fileReference() const { return fileReference_; }

    ~ZonResourceFork() override;

protected:
    ZonResourceFork() = default;

private:
    int16_t fileReference_ = 0;
};

} // namespace zon
