#include "platform/io/FinderMetadataStore.h"

#include "platform/io/AppleDoubleInternal.h"
#include "platform/system/ExtendedAttributeCallsInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/RandomCallsInternal.h"

#include <algorithm>
#include <cstdio>

namespace zon {

namespace {

constexpr const char* kNetatalkMetadata = "user.org.netatalk.Metadata";
constexpr const char* kNetatalkResourceFork = "user.org.netatalk.ResourceFork";
constexpr const char* kAppleFinderInfo = "user.com.apple.FinderInfo";
constexpr const char* kAppleResourceFork = "user.com.apple.ResourceFork";
// Nothing larger is read from a sidecar or an attribute: a resource fork of the original
// platform stays far below it, and a hostile file cannot make us allocate more.
constexpr size_t kReadCap = 16 << 20;

// "dir/._name" for "dir/name"; the path's trailing slashes are ignored.
std::string sidecarPath(const std::string& path)
{
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/')
        trimmed.pop_back();
    const size_t slash = trimmed.rfind('/');
    if (slash == std::string::npos)
        return "._" + trimmed;
    return trimmed.substr(0, slash + 1) + "._" + trimmed.substr(slash + 1);
}

// The whole value of an attribute; nullopt when there is none (or it is larger than the cap).
std::optional<std::vector<uint8_t>> readAttribute(const std::string& path, const char* name)
{
    // Most values (the 402-byte metadata, 32-byte Finder information) fit the first try.
    std::vector<uint8_t> value(512);
    for (;;) {
        auto n = getExtendedAttribute(path, name, value);
        if (n) {
            value.resize(n.value());
            return value;
        }
        if (n.code() != ERANGE)
            return std::nullopt;
        auto size = extendedAttributeSize(path, name);
        if (!size || size.value() > kReadCap)
            return std::nullopt;
        value.resize(size.value() + 1);
    }
}

std::optional<std::vector<uint8_t>> readSidecar(const std::string& path)
{
    auto fd = openForReading(sidecarPath(path), ReadableKinds::regularFiles);
    if (!fd)
        return std::nullopt;
    std::vector<uint8_t> bytes;
    if (!appendToEnd(fd.value().get(), bytes, kReadCap))
        return std::nullopt;
    return bytes;
}

// Writes the sidecar whole: a temporary file beside it, renamed over it.
bool writeSidecar(const std::string& path, std::span<const uint8_t> bytes)
{
    const std::string target = sidecarPath(path);
    uint8_t random[6];
    if (!fillRandomBytes(random))
        return false;
    std::string temporary = target + ".";
    for (uint8_t byte : random) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", byte);
        temporary += hex;
    }
    auto fd = openFile(temporary, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (!fd)
        return false;
    if (!writeAll(fd.value().get(), bytes) || !renameFile(temporary, target)) {
        (void)removeFile(temporary);
        return false;
    }
    return true;
}

std::vector<uint8_t> nonBlank(std::span<const uint8_t> fork)
{
    if (appleDouble::isBlankResourceFork(fork))
        return {};
    return {fork.begin(), fork.end()};
}

} // namespace

std::optional<FinderInfoBytes> readFinderInfo(const std::string& path)
{
    if (auto metadata = readAttribute(path, kNetatalkMetadata))
        if (auto entries = appleDouble::parse(*metadata); entries && entries->finderInfo)
            return entries->finderInfo;
    if (auto sidecar = readSidecar(path))
        if (auto entries = appleDouble::parse(*sidecar); entries && entries->finderInfo)
            return entries->finderInfo;
    if (auto info = readAttribute(path, kAppleFinderInfo); info && info->size() >= sizeof(FinderInfoBytes)) {
        FinderInfoBytes bytes;
        std::copy_n(info->begin(), bytes.size(), bytes.begin());
        return bytes;
    }
    return std::nullopt;
}

bool writeFinderInfo(const std::string& path, const FinderInfoBytes& info)
{
    if (!pathStatus(path))
        return false;
    const auto previous = readAttribute(path, kNetatalkMetadata);
    const auto metadata = appleDouble::encodeNetatalkMetadata(info, previous ? *previous : std::vector<uint8_t> {});
    const bool attributeWritten = setExtendedAttribute(path, kNetatalkMetadata, metadata).ok();
    const std::vector<uint8_t> fork = readResourceFork(path);
    const bool sidecarWritten = writeSidecar(path, appleDouble::encodeSidecar(info, fork));
    return attributeWritten || sidecarWritten;
}

std::vector<uint8_t> readResourceFork(const std::string& path)
{
    if (auto sidecar = readSidecar(path))
        if (auto entries = appleDouble::parse(*sidecar); entries && entries->resourceFork)
            if (auto fork = nonBlank(*entries->resourceFork); !fork.empty())
                return fork;
    for (const char* name : {kNetatalkResourceFork, kAppleResourceFork})
        if (auto fork = readAttribute(path, name))
            if (auto kept = nonBlank(*fork); !kept.empty())
                return kept;
    return {};
}

bool writeResourceFork(const std::string& path, std::span<const uint8_t> fork)
{
    if (!pathStatus(path))
        return false;
    const FinderInfoBytes info = readFinderInfo(path).value_or(FinderInfoBytes {});
    return writeSidecar(path, appleDouble::encodeSidecar(info, fork));
}

} // namespace zon
