#include "extensions/fileSystem/ZonAlias.h"

#include "extensions/fileSystem/ZonResourceFork.h"
#include "platform/io/AliasLocatorInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

const int16_t aliasRecordID = 0;
const uint32_t finderCreatorCode = 0x4D414353; // 'MACS'

namespace zon {

ZON_DEFINE_CLASS(ZonAlias, "ZonAlias")

namespace {

constexpr uint32_t aliasResourceType = 0x616C6973; // 'alis'
constexpr uint32_t iconResourceType = 0x69636E73;  // 'icns'
constexpr int16_t customIconResourceID = -16455;
constexpr uint16_t isAliasFlag = 0x8000;
constexpr uint16_t hasCustomIconFlag = 0x0400;

std::optional<std::string> pathOfURL(const URL* url)
{
    FSRef reference;
    if (!url || !url->getFSRef(&reference))
        return std::nullopt;
    return pathOfFSRef(reference);
}

Ref<URL> fileURLOrNil(const String* path) { return path ? URL::fileURLWithPath(path) : nullptr; }

} // namespace

ZonAlias::ZonAlias(std::optional<std::vector<uint8_t>> aliasHandle) : aliasHandle_(std::move(aliasHandle)) {}

Ref<Data> ZonAlias::aliasDataForURL_fromURL(const URL* target, const URL* from)
{
    const auto targetPath = pathOfURL(target);
    const auto fromPath = pathOfURL(from);
    if (!targetPath || (from && !fromPath))
        return nullptr;
    const auto record = makeAliasRecord(*targetPath, fromPath ? &*fromPath : nullptr);
    return record ? Data::dataWithBytes(encodeAliasRecord(*record)) : nullptr;
}

Ref<ZonAlias> ZonAlias::initWithPath(const String* path) { return initWithPath_fromPath(path, nullptr); }

Ref<ZonAlias> ZonAlias::initWithPath_fromPath(const String* path, const String* fromPath)
{
    return initWithAliasHandleData(aliasDataForURL_fromURL(fileURLOrNil(path), fileURLOrNil(fromPath)));
}

Ref<ZonAlias> ZonAlias::initWithAliasHandleData(const Data* data)
{
    if (!data || data->length() == 0)
        return makeObject<ZonAlias>(std::nullopt);
    const auto* bytes = static_cast<const uint8_t*>(data->bytes());
    return makeObject<ZonAlias>(std::vector<uint8_t>(bytes, bytes + data->length()));
}

bool ZonAlias::getFSRef(FSRef* reference) const
{
    if (!aliasHandle_)
        return false;
    const auto record = decodeAliasRecord(*aliasHandle_);
    const auto path = record ? resolveAliasRecord(*record, nullptr) : std::nullopt;
    const auto resolved = path ? makeFSRef(*path) : std::nullopt;
    if (resolved && reference)
        *reference = *resolved;
    return resolved.has_value();
}

Ref<URL> ZonAlias::url() const
{
    FSRef reference;
    return getFSRef(&reference) ? URL::URLWithFSRef(&reference) : nullptr;
}

Ref<String> ZonAlias::path() const
{
    FSRef reference;
    return getFSRef(&reference) ? String::stringWithFSRef(&reference) : nullptr;
}

Ref<Data> ZonAlias::aliasData() const
{
    return aliasHandle_ ? Data::dataWithBytes(*aliasHandle_) : Data::data();
}

bool ZonAlias::writeAliasToPath_error(const String* path, Ref<Error>* error) const
{
    return writeAliasToPath_iconData_error(path, nullptr, error);
}

bool ZonAlias::writeAliasToPath_iconData_error(const String* path, const Data* iconData, Ref<Error>*) const
{
    Ref<ZonResourceFork> fork = ZonResourceFork::resourceForkForWritingAtPath(path);
    const bool added = fork->addData_type_resID_name(aliasData(), aliasResourceType, aliasRecordID, String::stringWithUTF8String("ZON Alias"));

    // Alias files to special items say what they point at in their type, with the creator
    // 'MACS'; one to a plain file takes the file's own type and creator.
    uint32_t type = 0;
    uint32_t creator = 0;
    Ref<URL> target = url();
    if (target)
        target->getFinderInfoFlags_type_creator(nullptr, &type, &creator);
    if (const uint32_t aliasType = target ? target->aliasType() : 0) {
        type = aliasType;
        creator = finderCreatorCode;
    }

    // With icon data the custom-icon flag is set, without it cleared; the flags are not set when
    // the icon resource could not be added.
    const bool iconAdded = iconData && fork->addData_type_resID_name(iconData, iconResourceType, customIconResourceID, String::string());
    Ref<URL> aliasFile = fileURLOrNil(path);
    if (aliasFile && (!iconData || iconAdded)) {
        const uint16_t flags = iconData ? isAliasFlag | hasCustomIconFlag : isAliasFlag;
        aliasFile->setFinderInfoFlags_mask_type_creator(flags, isAliasFlag | hasCustomIconFlag, type, creator);
    }
    fork->closeFile();
    return added;
}

} // namespace zon

using namespace zon;

ZonAlias* ZonAliasCreateWithPath(const String* path, const String* fromPath)
{
    AutoreleasePool pool;
    return ZonAlias::initWithPath_fromPath(path, fromPath).leakRef();
}

void ZonAliasRelease(ZonAlias* alias)
{
    if (alias)
        alias->release();
}

bool ZonAliasWriteToFile(ZonAlias* alias, const String* path, const Data* iconData, Error** error)
{
    AutoreleasePool pool;
    Ref<Error> failure;
    const bool written = alias && alias->writeAliasToPath_iconData_error(path, iconData, &failure);
    if (!written && error && failure)
        *error = failure.leakRef();
    return written;
}

URL* ZonAliasCopyURL(ZonAlias* alias)
{
    AutoreleasePool pool;
    return alias ? alias->url().leakRef() : nullptr;
}

String* ZonAliasCopyPath(ZonAlias* alias)
{
    AutoreleasePool pool;
    return alias ? alias->path().leakRef() : nullptr;
}
