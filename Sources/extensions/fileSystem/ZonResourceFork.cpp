#include "extensions/fileSystem/ZonResourceFork.h"

#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(ZonResourceFork, "ZonResourceFork")

Ref<ZonResourceFork> ZonResourceFork::resourceForkForWritingAtPath(const String* path)
{
    Ref<ZonResourceFork> fork = initForWritingAtPath(path);
    if (fork)
        fork->autorelease();
    return fork;
}

Ref<ZonResourceFork> ZonResourceFork::initForWritingAtPath(const String* path) { return initWithPermission_atPath(2, path); }

Ref<ZonResourceFork> ZonResourceFork::initWithPermission_atPath(int, const String*)
{
    return makeObject<ZonResourceFork>();
}

bool ZonResourceFork::addData_type_resID_name(const Data*, uint32_t, int16_t, const String*) { return true; }

void ZonResourceFork::closeFile() { fileReference_ = 0; }

ZonResourceFork::~ZonResourceFork() { closeFile(); }

} // namespace zon
