// NSString(ZonExtensions): a trailing NUL dropped, the 64-bit hash and ordering files by their
// modification times.

#include "platform/system/FileCallsInternal.h"
#include "platform/values/String.h"

namespace zon {

Ref<String> String::stringByDeletingNilTerminator() const
{
    std::string bytes = UTF8String();
    if (!bytes.empty() && bytes.back() == '\0')
        bytes.pop_back();
    return String::stringWithUTF8String(bytes);
}

uint64_t String::hash64() const { return uint64_t(uint32_t(hash())); }

ComparisonResult String::compareByFileModificationDate(const String* otherPath) const
{
    if (!otherPath)
        return NSOrderedSame;
    auto mine = modificationTime(UTF8String());
    auto theirs = modificationTime(otherPath->UTF8String());
    if (!mine || !theirs)
        return NSOrderedSame;
    const timespec a = mine.value();
    const timespec b = theirs.value();
    const bool notLater = a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec <= b.tv_nsec);
    return notLater ? NSOrderedAscending : NSOrderedDescending;
}

} // namespace zon
