// Reads arbitrary bytes as an alias record. What is read must write out again and read back as
// the same record: the reader accepts nothing the writer cannot reproduce.

#include "FuzzSupport.h"

#include "platform/io/AliasRecordInternal.h"

#include <cstdint>
#include <span>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto record = decodeAliasRecord(std::span(data, size));
    if (!record)
        return 0;
    const std::vector<uint8_t> written = encodeAliasRecord(*record);
    const auto again = decodeAliasRecord(written);
    zon::fuzz::check(again.has_value());
    zon::fuzz::check(encodeAliasRecord(*again) == written);
    return 0;
}
