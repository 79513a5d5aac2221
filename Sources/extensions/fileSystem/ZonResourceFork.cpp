#include "extensions/fileSystem/ZonResourceFork.h"

#include "platform/io/ResourceFileLayer.h"
#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/MacRomanInternal.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <algorithm>

namespace zon {

ZON_DEFINE_CLASS(ZonResourceFork, "ZonResourceFork")

namespace {

// The create step copies at most this many units of the name.
constexpr size_t kNameBufferUnits = 1024;
constexpr size_t kPascalStringMax = 255;

// The name as Mac Roman bytes, cut to 255; empty when a character has no Mac Roman form (the
// original's conversion then fails and the resource goes in without a name).
std::string pascalName(const String* name)
{
    if (!name || !name->length())
        return {};
    std::optional<std::string> bytes = exactMacRomanFromUTF16(name->view());
    if (!bytes)
        return {};
    bytes->resize(std::min(bytes->size(), kPascalStringMax));
    return *bytes;
}

} // namespace

ZonResourceFork* ZonResourceFork::resourceForkForWritingAtPath(const String* path)
{
    Ref<ZonResourceFork> fork = initForWritingAtPath(path);
    return fork ? static_cast<ZonResourceFork*>(fork.leakRef()->autorelease()) : nullptr;
}

Ref<ZonResourceFork> ZonResourceFork::initForWritingAtPath(const String* path) { return initWithPermission_atPath(2, path); }

Ref<ZonResourceFork> ZonResourceFork::initWithPermission_atPath(int permission, const String* path)
{
    Ref<ZonResourceFork> fork = makeObject<ZonResourceFork>();
    if (!path)
        return fork;
    if (permission & 6) {
        // The create step gets the UTF-8 byte count as the name's length, as the original does:
        // for a non-ASCII name that runs past the name's UTF-16 units.
        Ref<String> name = path->lastPathComponent();
        const size_t utf8Length = utf::utf8LengthOfUTF16(name->view());
        if (utf8Length < kNameBufferUnits) {
            Ref<String> parent = path->stringByDeletingLastPathComponent();
            (void)resourceFiles::createResFile(parent->UTF8String(), utf8Length, name->view());
        }
    }
    fork->fileReference_ = resourceFiles::openResFile(path->UTF8String(), static_cast<int8_t>(permission));
    return fork;
}

bool ZonResourceFork::addData_type_resID_name(const Data* data, uint32_t type, int16_t resID, const String* name)
{
    const resourceFiles::ResFileRefNum previous = resourceFiles::curResFile();
    resourceFiles::useResFile(fileReference_);
    const auto* bytes = data ? static_cast<const uint8_t*>(data->bytes()) : nullptr;
    (void)resourceFiles::addResource({bytes, data ? data->length() : 0}, type, resID, pascalName(name));
    resourceFiles::useResFile(previous);
    return true;
}

void ZonResourceFork::closeFile()
{
    if (fileReference_ >= 1)
        (void)resourceFiles::closeResFile(fileReference_);
    fileReference_ = 0;
}

ZonResourceFork::~ZonResourceFork() { closeFile(); }

} // namespace zon
