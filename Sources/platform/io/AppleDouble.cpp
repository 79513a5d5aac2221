#include "platform/io/AppleDoubleInternal.h"

#include "platform/io/BigEndianBytesInternal.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace zon::appleDouble {

using namespace bigEndian;

namespace {

constexpr uint32_t kMagic = 0x00051607;
constexpr uint32_t kVersion2 = 0x00020000;
constexpr size_t kHeaderSize = 26;
constexpr size_t kEntrySize = 12;
constexpr std::string_view kNetatalkFiller = "Netatalk        ";
constexpr std::string_view kMacFiller = "Mac OS X        ";
constexpr std::string_view kBlankForkText = "This resource fork intentionally left blank";
constexpr size_t kBlankForkSize = 286;
constexpr size_t kBlankForkTextOffset = 16;

struct EntryPlace {
    uint32_t id;
    uint32_t offset;
    uint32_t length;
};

// netatalk's layout of its metadata attribute: Finder information, comment, file dates, AFP
// file information, then its private device, inode, sync and ID entries.
constexpr EntryPlace kNetatalkEntries[] = {
    {kFinderInfoEntry, 122, 32}, {4, 154, 200}, {8, 354, 16}, {14, 370, 4},
    {0x80444556, 374, 8}, {0x80494E4F, 382, 8}, {0x8053594E, 390, 8}, {0x8053567E, 398, 4},
};

std::vector<uint8_t> header(std::string_view filler, std::span<const EntryPlace> entries, size_t size)
{
    std::vector<uint8_t> out(size, 0);
    store32(out, 0, kMagic);
    store32(out, 4, kVersion2);
    std::memcpy(&out[8], filler.data(), filler.size());
    store16(out, 24, static_cast<uint16_t>(entries.size()));
    for (size_t i = 0; i < entries.size(); ++i) {
        store32(out, kHeaderSize + i * kEntrySize, entries[i].id);
        store32(out, kHeaderSize + i * kEntrySize + 4, entries[i].offset);
        store32(out, kHeaderSize + i * kEntrySize + 8, entries[i].length);
    }
    return out;
}

} // namespace

std::optional<Entries> parse(std::span<const uint8_t> bytes)
{
    if (bytes.size() < kHeaderSize || load32(bytes, 0) != kMagic || load32(bytes, 4) != kVersion2)
        return std::nullopt;
    const size_t count = load16(bytes, 24);
    if (bytes.size() - kHeaderSize < count * kEntrySize)
        return std::nullopt;
    Entries entries;
    for (size_t i = 0; i < count; ++i) {
        const size_t at = kHeaderSize + i * kEntrySize;
        const uint32_t id = load32(bytes, at), offset = load32(bytes, at + 4), length = load32(bytes, at + 8);
        if (offset > bytes.size() || length > bytes.size() - offset)
            return std::nullopt;
        const auto body = bytes.subspan(offset, length);
        if (id == kFinderInfoEntry) {
            FinderInfoBytes info {};
            std::copy_n(body.begin(), std::min(body.size(), info.size()), info.begin());
            entries.finderInfo = info;
        } else if (id == kResourceForkEntry) {
            entries.resourceFork = body;
        }
    }
    return entries;
}

std::vector<uint8_t> encodeNetatalkMetadata(const FinderInfoBytes& info, std::span<const uint8_t> previous)
{
    const bool keep = previous.size() == kNetatalkMetadataSize && parse(previous)
        && load32(previous, kHeaderSize) == kFinderInfoEntry && load32(previous, kHeaderSize + 4) == kNetatalkFinderInfoOffset;
    std::vector<uint8_t> out = keep ? std::vector<uint8_t>(previous.begin(), previous.end())
                                    : header(kNetatalkFiller, kNetatalkEntries, kNetatalkMetadataSize);
    std::copy(info.begin(), info.end(), out.begin() + kNetatalkFinderInfoOffset);
    return out;
}

std::vector<uint8_t> encodeSidecar(const FinderInfoBytes& info, std::span<const uint8_t> resourceFork)
{
    const EntryPlace entries[] = {
        {kFinderInfoEntry, uint32_t(kSidecarFinderInfoOffset), uint32_t(info.size())},
        {kResourceForkEntry, uint32_t(kSidecarResourceForkOffset), uint32_t(resourceFork.size())},
    };
    std::vector<uint8_t> out = header(kMacFiller, entries, kSidecarResourceForkOffset + resourceFork.size());
    std::copy(info.begin(), info.end(), out.begin() + kSidecarFinderInfoOffset);
    std::copy(resourceFork.begin(), resourceFork.end(), out.begin() + kSidecarResourceForkOffset);
    return out;
}

bool isBlankResourceFork(std::span<const uint8_t> fork)
{
    return fork.size() == kBlankForkSize
        && std::equal(kBlankForkText.begin(), kBlankForkText.end(), fork.begin() + kBlankForkTextOffset);
}

} // namespace zon::appleDouble
