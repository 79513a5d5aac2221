#pragma once

// ZonAlias: an alias record in memory that resolves to the item it stands for and writes itself
// out as an alias file (the record as an 'alis' resource, with the Finder flags and codes of an
// alias). The C functions below wrap it for clients written against the C-level types.

#include "platform/io/FSRef.h"
#include "platform/runtime/Object.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace zon {

class Data;
class Error;
class String;
class URL;

class ZON_EXPORT ZonAlias : public Object {
    ZON_OBJECT(ZonAlias, Object)
public:
    // The record's bytes for target, made relative to from when given; nil when either item
    // cannot be referenced.
    static Ref<Data> aliasDataForURL_fromURL(const URL* target, const URL* from);
    static Ref<ZonAlias> initWithPath(const String* path);
    static Ref<ZonAlias> initWithPath_fromPath(const String* path, const String* fromPath);
    // An alias holding a copy of data; nil or empty data gives an alias without a record.
    static Ref<ZonAlias> initWithAliasHandleData(const Data* data);

    // Resolves the record (no "from" item, no user interaction); NO without a record or when the
    // item cannot be found.
    bool getFSRef(FSRef* reference) const;
    Ref<URL> url() const;
    Ref<String> path() const;
    // The record's bytes; empty data for an alias without a record.
    Ref<Data> aliasData() const;

    // Writes an alias file at path. Always YES, whatever could be written, and error is never
    // written: the operation's result is that of adding the record resource, which cannot fail.
    bool writeAliasToPath_error(const String* path, Ref<Error>* error) const;
    bool writeAliasToPath_iconData_error(const String* path, const Data* iconData, Ref<Error>* error) const;

protected:
    explicit ZonAlias(std::optional<std::vector<uint8_t>> aliasHandle);

private:
    std::optional<std::vector<uint8_t>> aliasHandle_;
};

} // namespace zon

extern "C" {

// The resource ID under which an alias file keeps its record.
ZON_EXPORT extern const int16_t aliasRecordID;
// The creator code ('MACS') of alias files to special items (folders, applications, disks).
ZON_EXPORT extern const uint32_t finderCreatorCode;

// Each runs in its own autorelease pool. Create and Copy hand back one reference the caller owns
// (give it up with release()); null when there is nothing.
ZON_EXPORT zon::ZonAlias* ZonAliasCreateWithPath(const zon::String* path, const zon::String* fromPath);
ZON_EXPORT void ZonAliasRelease(zon::ZonAlias* alias);
// On failure the error, if any, is stored retained through error (when given).
ZON_EXPORT bool ZonAliasWriteToFile(zon::ZonAlias* alias, const zon::String* path, const zon::Data* iconData, zon::Error** error);
ZON_EXPORT zon::URL* ZonAliasCopyURL(zon::ZonAlias* alias);
ZON_EXPORT zon::String* ZonAliasCopyPath(zon::ZonAlias* alias);

} // extern "C"
