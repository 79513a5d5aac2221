#include "platform/io/ResourceFile.h"

#include "platform/io/BigEndianBytesInternal.h"

#include <algorithm>
#include <cstdio>

namespace zon {

using namespace bigEndian;

namespace {

// Offsets of the layout: the header, the map's own header (a copy of the file header, the next
// map handle, the file reference, the attributes, then the offsets of the type and name lists),
// one type-list entry (type, count - 1, reference list offset) and one reference (ID, name offset,
// attributes and a 24-bit data offset, a handle).
constexpr size_t kHeaderSize = 16;
constexpr size_t kDataStart = 256;
constexpr size_t kMapHeaderSize = 28;
constexpr size_t kTypeEntrySize = 8;
constexpr size_t kReferenceSize = 12;
constexpr uint16_t kNoName = 0xFFFF;

bool inside(size_t size, uint64_t offset, uint64_t length) { return offset <= size && length <= size - offset; }

struct Reader {
    std::span<const uint8_t> bytes;
    std::span<const uint8_t> data;
    std::span<const uint8_t> map;

    std::optional<Resource> reference(uint32_t type, size_t at, size_t nameList) const
    {
        Resource resource;
        resource.type = type;
        resource.id = static_cast<int16_t>(load16(map, at));
        const uint16_t nameOffset = load16(map, at + 2);
        resource.attributes = map[at + 4];
        const uint32_t dataOffset = load24(map, at + 5);
        if (nameOffset != kNoName) {
            const uint64_t nameAt = uint64_t(nameList) + nameOffset;
            if (!inside(map.size(), nameAt, 1) || !inside(map.size(), nameAt + 1, map[nameAt]))
                return std::nullopt;
            resource.name.emplace(reinterpret_cast<const char*>(&map[nameAt + 1]), map[nameAt]);
        }
        if (!inside(data.size(), dataOffset, 4))
            return std::nullopt;
        const uint32_t length = load32(data, dataOffset);
        if (!inside(data.size(), uint64_t(dataOffset) + 4, length))
            return std::nullopt;
        const auto body = data.subspan(dataOffset + 4, length);
        resource.data.assign(body.begin(), body.end());
        return resource;
    }
};

} // namespace

std::optional<std::vector<Resource>> decodeResourceFile(std::span<const uint8_t> bytes)
{
    if (bytes.size() < kHeaderSize)
        return std::nullopt;
    const uint32_t dataOffset = load32(bytes, 0), mapOffset = load32(bytes, 4);
    const uint32_t dataLength = load32(bytes, 8), mapLength = load32(bytes, 12);
    if (!inside(bytes.size(), dataOffset, dataLength) || !inside(bytes.size(), mapOffset, mapLength)
        || mapLength < kMapHeaderSize + 2)
        return std::nullopt;
    Reader reader {bytes, bytes.subspan(dataOffset, dataLength), bytes.subspan(mapOffset, mapLength)};
    const auto& map = reader.map;
    const size_t typeList = load16(map, 24), nameList = load16(map, 26);
    if (!inside(map.size(), typeList, 2))
        return std::nullopt;
    // The count is stored less one, so an empty list says 0xFFFF.
    const size_t typeCount = (load16(map, typeList) + 1) & 0xFFFF;
    if (!inside(map.size(), typeList + 2, typeCount * kTypeEntrySize))
        return std::nullopt;
    std::vector<Resource> resources;
    for (size_t t = 0; t < typeCount; ++t) {
        const size_t entry = typeList + 2 + t * kTypeEntrySize;
        const uint32_t type = load32(map, entry);
        const size_t count = size_t(load16(map, entry + 4)) + 1;
        const size_t references = typeList + load16(map, entry + 6);
        if (!inside(map.size(), references, count * kReferenceSize))
            return std::nullopt;
        for (size_t r = 0; r < count; ++r) {
            auto resource = reader.reference(type, references + r * kReferenceSize, nameList);
            if (!resource)
                return std::nullopt;
            resources.push_back(std::move(*resource));
        }
    }
    return resources;
}

std::vector<uint8_t> encodeResourceFile(const std::vector<Resource>& resources)
{
    // Types in the order of their first resource; each type's resources in their own order.
    std::vector<uint32_t> types;
    for (const auto& resource : resources)
        if (std::find(types.begin(), types.end(), resource.type) == types.end())
            types.push_back(resource.type);

    std::vector<uint8_t> out(kDataStart, 0);
    std::vector<uint32_t> dataOffsets;
    for (const auto& resource : resources) {
        dataOffsets.push_back(static_cast<uint32_t>(out.size() - kDataStart));
        append32(out, static_cast<uint32_t>(resource.data.size()));
        out.insert(out.end(), resource.data.begin(), resource.data.end());
    }
    const size_t mapOffset = out.size();
    const size_t typeList = kMapHeaderSize;
    const size_t referenceStart = typeList + 2 + types.size() * kTypeEntrySize;
    const size_t nameList = referenceStart + resources.size() * kReferenceSize;
    std::vector<uint8_t> map(nameList, 0);
    store16(map, 24, static_cast<uint16_t>(typeList));
    store16(map, 26, static_cast<uint16_t>(nameList));
    store16(map, typeList, static_cast<uint16_t>(types.size() - 1));
    std::vector<uint8_t> names;
    size_t reference = referenceStart;
    for (size_t t = 0; t < types.size(); ++t) {
        const size_t entry = typeList + 2 + t * kTypeEntrySize;
        const auto count = std::count_if(resources.begin(), resources.end(), [&](const Resource& r) { return r.type == types[t]; });
        store32(map, entry, types[t]);
        store16(map, entry + 4, static_cast<uint16_t>(count - 1));
        store16(map, entry + 6, static_cast<uint16_t>(reference - typeList));
        for (size_t i = 0; i < resources.size(); ++i) {
            const Resource& resource = resources[i];
            if (resource.type != types[t])
                continue;
            store16(map, reference, static_cast<uint16_t>(resource.id));
            if (resource.name) {
                store16(map, reference + 2, static_cast<uint16_t>(names.size()));
                const size_t length = std::min<size_t>(resource.name->size(), 255);
                names.push_back(static_cast<uint8_t>(length));
                names.insert(names.end(), resource.name->begin(), resource.name->begin() + length);
            } else {
                store16(map, reference + 2, kNoName);
            }
            map[reference + 4] = resource.attributes;
            store24(map, reference + 5, dataOffsets[i]);
            reference += kReferenceSize;
        }
    }
    map.insert(map.end(), names.begin(), names.end());
    out.insert(out.end(), map.begin(), map.end());

    const uint32_t header[4] = {uint32_t(kDataStart), uint32_t(mapOffset), uint32_t(mapOffset - kDataStart), uint32_t(map.size())};
    for (size_t i = 0; i < 4; ++i) {
        store32(out, i * 4, header[i]);
        store32(out, mapOffset + i * 4, header[i]);
    }
    return out;
}

std::string fourCharCodeText(uint32_t code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = static_cast<unsigned char>(code >> shift);
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            text.push_back(static_cast<char>(c));
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            text.append(escaped);
        }
    }
    return text;
}

} // namespace zon
