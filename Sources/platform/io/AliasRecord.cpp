#include "platform/io/AliasRecordInternal.h"

#include "platform/io/BigEndianBytesInternal.h"

#include <algorithm>

namespace zon {

namespace {

constexpr uint16_t aliasVersion = 2;
constexpr size_t volumeNameField = 28; // Str27: a length byte and 27 bytes
constexpr size_t fileNameField = 64;   // Str63
// Unix time of 1904-01-01 00:00:00 UTC.
constexpr int64_t epoch1904 = -2082844800;

class Writer {
public:
    void u16(uint16_t value)
    {
        bytes_.resize(bytes_.size() + 2);
        bigEndian::store16(bytes_, bytes_.size() - 2, value);
    }
    void u32(uint32_t value) { bigEndian::append32(bytes_, value); }
    void pascalString(const std::string& text, size_t fieldSize)
    {
        const size_t length = std::min(text.size(), fieldSize - 1);
        bytes_.push_back(uint8_t(length));
        bytes_.insert(bytes_.end(), text.begin(), text.begin() + length);
        bytes_.resize(bytes_.size() + fieldSize - 1 - length);
    }
    void extra(int16_t tag, std::string_view data)
    {
        const size_t length = std::min(data.size(), size_t(UINT16_MAX));
        u16(uint16_t(tag));
        u16(uint16_t(length));
        bytes_.insert(bytes_.end(), data.begin(), data.begin() + length);
        if (length % 2)
            bytes_.push_back(0);
    }
    void zeros(size_t count) { bytes_.resize(bytes_.size() + count); }
    void patchU16(size_t offset, uint16_t value) { bigEndian::store16(bytes_, offset, value); }
    std::vector<uint8_t> take() { return std::move(bytes_); }
    size_t size() const { return bytes_.size(); }

private:
    std::vector<uint8_t> bytes_;
};

class Reader {
public:
    explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    uint16_t u16(size_t offset) const { return bigEndian::load16(bytes_, offset); }
    uint32_t u32(size_t offset) const { return bigEndian::load32(bytes_, offset); }
    std::optional<std::string> pascalString(size_t offset, size_t fieldSize) const
    {
        const size_t length = bytes_[offset];
        if (length >= fieldSize)
            return std::nullopt;
        return text(offset + 1, length);
    }
    std::string text(size_t offset, size_t length) const
    {
        return std::string(reinterpret_cast<const char*>(bytes_.data()) + offset, length);
    }

private:
    std::span<const uint8_t> bytes_;
};

// A name extra: its length in UTF-16 units, then the units, big-endian.
std::string encodeUnicodeName(const std::u16string& name)
{
    const size_t length = std::min(name.size(), size_t(UINT16_MAX / 2 - 1));
    std::string bytes {char(length >> 8), char(length)};
    for (size_t i = 0; i < length; ++i) {
        bytes.push_back(char(name[i] >> 8));
        bytes.push_back(char(name[i]));
    }
    return bytes;
}

std::optional<std::u16string> decodeUnicodeName(std::string_view bytes)
{
    if (bytes.size() < 2)
        return std::nullopt;
    const auto byteAt = [&](size_t i) { return uint8_t(bytes[i]); };
    const size_t length = size_t(byteAt(0)) << 8 | byteAt(1);
    if (2 + 2 * length > bytes.size())
        return std::nullopt;
    std::u16string name;
    for (size_t i = 0; i < length; ++i)
        name.push_back(char16_t(byteAt(2 + 2 * i) << 8 | byteAt(3 + 2 * i)));
    return name;
}

// Stores one known extra in the record; false when its bytes are malformed.
bool takeKnownExtra(AliasRecord& record, int16_t tag, std::string bytes)
{
    switch (tag) {
    case aliasTagParentName: record.parentName = std::move(bytes); return true;
    case aliasTagAbsolutePath: record.absolutePath = std::move(bytes); return true;
    case aliasTagPOSIXPath: record.posixPath = std::move(bytes); return true;
    case aliasTagVolumeMountPoint: record.volumeMountPoint = std::move(bytes); return true;
    case aliasTagUnicodeFileName:
        record.unicodeFileName = decodeUnicodeName(bytes);
        return record.unicodeFileName.has_value();
    case aliasTagUnicodeVolumeName:
        record.unicodeVolumeName = decodeUnicodeName(bytes);
        return record.unicodeVolumeName.has_value();
    default:
        record.otherExtras.push_back({tag, std::move(bytes)});
        return true;
    }
}

} // namespace

std::vector<uint8_t> encodeAliasRecord(const AliasRecord& record)
{
    Writer out;
    out.u32(record.userType);
    out.u16(0); // the record size, patched below
    out.u16(aliasVersion);
    out.u16(uint16_t(record.kind));
    out.pascalString(record.volumeName, volumeNameField);
    out.u32(record.volumeCreationDate);
    out.u16(record.volumeSignature);
    out.u16(record.volumeType);
    out.u32(record.parentID);
    out.pascalString(record.fileName, fileNameField);
    out.u32(record.fileID);
    out.u32(record.fileCreationDate);
    out.u32(record.type);
    out.u32(record.creator);
    out.u16(uint16_t(record.levelsFrom));
    out.u16(uint16_t(record.levelsTo));
    out.u32(record.volumeAttributes);
    out.u16(record.volumeFileSystemID);
    out.zeros(10);

    // Extras in the order of their tags, as the original writes them.
    if (record.parentName)
        out.extra(aliasTagParentName, *record.parentName);
    if (record.absolutePath)
        out.extra(aliasTagAbsolutePath, *record.absolutePath);
    if (record.unicodeFileName)
        out.extra(aliasTagUnicodeFileName, encodeUnicodeName(*record.unicodeFileName));
    if (record.unicodeVolumeName)
        out.extra(aliasTagUnicodeVolumeName, encodeUnicodeName(*record.unicodeVolumeName));
    if (record.posixPath)
        out.extra(aliasTagPOSIXPath, *record.posixPath);
    if (record.volumeMountPoint)
        out.extra(aliasTagVolumeMountPoint, *record.volumeMountPoint);
    for (const AliasExtra& extra : record.otherExtras)
        out.extra(extra.tag, extra.bytes);
    out.u16(uint16_t(aliasTagEnd));
    out.u16(0);

    // The size field holds 16 bits; a longer record (only possible with huge extras) says 0xFFFF.
    out.patchU16(4, uint16_t(std::min(out.size(), size_t(UINT16_MAX))));
    return out.take();
}

std::optional<AliasRecord> decodeAliasRecord(std::span<const uint8_t> bytes)
{
    if (bytes.size() < aliasFixedPartSize)
        return std::nullopt;
    const Reader in(bytes);
    const size_t recordSize = in.u16(4);
    if (in.u16(6) != aliasVersion || recordSize < aliasFixedPartSize || recordSize > bytes.size())
        return std::nullopt;
    AliasRecord record;
    record.userType = in.u32(0);
    record.kind = AliasKind(in.u16(8));
    auto volumeName = in.pascalString(10, volumeNameField);
    auto fileName = in.pascalString(50, fileNameField);
    if (!volumeName || !fileName)
        return std::nullopt;
    record.volumeName = std::move(*volumeName);
    record.volumeCreationDate = in.u32(38);
    record.volumeSignature = in.u16(42);
    record.volumeType = in.u16(44);
    record.parentID = in.u32(46);
    record.fileName = std::move(*fileName);
    record.fileID = in.u32(114);
    record.fileCreationDate = in.u32(118);
    record.type = in.u32(122);
    record.creator = in.u32(126);
    record.levelsFrom = int16_t(in.u16(130));
    record.levelsTo = int16_t(in.u16(132));
    record.volumeAttributes = in.u32(134);
    record.volumeFileSystemID = in.u16(138);

    size_t offset = aliasFixedPartSize;
    while (offset + 4 <= recordSize) {
        const auto tag = int16_t(in.u16(offset));
        const size_t length = in.u16(offset + 2);
        offset += 4;
        if (tag == aliasTagEnd)
            return record;
        if (offset + length > recordSize)
            return std::nullopt;
        if (!takeKnownExtra(record, tag, in.text(offset, length)))
            return std::nullopt;
        offset += length + length % 2;
    }
    // Records without an end tag are accepted when the extras fill them exactly.
    if (offset != recordSize && offset != recordSize + 1)
        return std::nullopt;
    return record;
}

uint32_t aliasDateFromUnixTime(int64_t seconds)
{
    const int64_t since1904 = seconds - epoch1904;
    return since1904 < 0 || since1904 > int64_t(UINT32_MAX) ? 0 : uint32_t(since1904);
}

} // namespace zon
