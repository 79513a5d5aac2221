#include "platform/io/VolumesInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <charconv>
#include <mutex>
#include <sys/sysmacros.h>
#include <unordered_map>

namespace zon {

namespace {

constexpr int16_t firstVolumeRefNum = -100;
constexpr size_t mountInfoCap = 16 << 20;

// mountinfo escapes space, tab, newline and backslash as three octal digits.
std::string decodeOctalEscapes(std::string_view field)
{
    std::string out;
    out.reserve(field.size());
    for (size_t i = 0; i < field.size(); ++i) {
        const bool escape = field[i] == '\\' && i + 3 < field.size()
            && field.substr(i + 1, 3).find_first_not_of("01234567") == std::string_view::npos;
        if (escape) {
            out.push_back(char((field[i + 1] - '0') << 6 | (field[i + 2] - '0') << 3 | (field[i + 3] - '0')));
            i += 3;
        } else {
            out.push_back(field[i]);
        }
    }
    return out;
}

std::vector<std::string_view> splitFields(std::string_view line)
{
    std::vector<std::string_view> fields;
    size_t start = 0;
    while (start < line.size()) {
        const size_t end = std::min(line.find(' ', start), line.size());
        if (end > start)
            fields.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return fields;
}

std::optional<dev_t> parseDevice(std::string_view field)
{
    unsigned int major = 0;
    unsigned int minor = 0;
    const char* end = field.data() + field.size();
    const auto [colon, majorError] = std::from_chars(field.data(), end, major);
    if (majorError != std::errc() || colon == end || *colon != ':')
        return std::nullopt;
    const auto [rest, minorError] = std::from_chars(colon + 1, end, minor);
    if (minorError != std::errc() || rest != end)
        return std::nullopt;
    return makedev(major, minor);
}

// Line: id parent major:minor root mountpoint options [optional fields...] - type source superoptions
std::optional<MountEntry> parseMountLine(std::string_view line)
{
    const std::vector<std::string_view> fields = splitFields(line);
    size_t separator = 6;
    while (separator < fields.size() && fields[separator] != "-")
        ++separator;
    if (separator + 2 >= fields.size())
        return std::nullopt;
    const auto device = parseDevice(fields[2]);
    if (!device)
        return std::nullopt;
    return MountEntry {*device, decodeOctalEscapes(fields[3]), decodeOctalEscapes(fields[4]),
        decodeOctalEscapes(fields[separator + 1]), decodeOctalEscapes(fields[separator + 2])};
}

bool isWithin(std::string_view path, std::string_view folder)
{
    if (folder == "/")
        return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// The process's table of volume numbers; a device gets the next free number on first sight.
class VolumeNumbers {
public:
    int16_t numberFor(dev_t device)
    {
        std::lock_guard hold(lock_);
        auto [it, added] = numbers_.try_emplace(device, int16_t(firstVolumeRefNum - int(devices_.size())));
        if (added)
            devices_.push_back(device);
        return it->second;
    }
    std::optional<dev_t> deviceFor(int16_t number)
    {
        std::lock_guard hold(lock_);
        const int index = firstVolumeRefNum - number;
        if (index < 0 || size_t(index) >= devices_.size())
            return std::nullopt;
        return devices_[size_t(index)];
    }

private:
    std::mutex lock_;
    std::unordered_map<dev_t, int16_t> numbers_;
    std::vector<dev_t> devices_;
};

VolumeNumbers& volumeNumbers()
{
    static VolumeNumbers numbers;
    return numbers;
}

} // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text)
{
    std::vector<MountEntry> mounts;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        if (auto entry = parseMountLine(text.substr(0, end)))
            mounts.push_back(std::move(*entry));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return mounts;
}

std::vector<MountEntry> currentMounts()
{
    auto file = openFile("/proc/self/mountinfo", O_RDONLY);
    if (!file)
        return {};
    auto text = readToEnd(file.value().get(), mountInfoCap);
    return text ? parseMountInfo(text.value()) : std::vector<MountEntry>();
}

std::optional<MountEntry> mountContaining(const std::vector<MountEntry>& mounts, std::string_view path)
{
    const MountEntry* best = nullptr;
    // A later mount on the same point covers an earlier one, hence >=.
    for (const MountEntry& mount : mounts) {
        if (isWithin(path, mount.mountPoint) && (!best || mount.mountPoint.size() >= best->mountPoint.size()))
            best = &mount;
    }
    return best ? std::optional<MountEntry>(*best) : std::nullopt;
}

std::string volumeNameOfMountPoint(std::string_view mountPoint)
{
    while (mountPoint.size() > 1 && mountPoint.ends_with('/'))
        mountPoint.remove_suffix(1);
    const size_t slash = mountPoint.rfind('/');
    if (mountPoint.size() <= 1 || slash == std::string_view::npos)
        return "/";
    return std::string(mountPoint.substr(slash + 1));
}

int16_t volumeRefNumForDevice(dev_t device) { return volumeNumbers().numberFor(device); }

std::optional<dev_t> deviceForVolumeRefNum(int16_t refNum) { return volumeNumbers().deviceFor(refNum); }

std::optional<std::string> mountPointForVolumeRefNum(int16_t refNum)
{
    const auto device = deviceForVolumeRefNum(refNum);
    if (!device)
        return std::nullopt;
    const MountEntry* found = nullptr;
    const std::vector<MountEntry> mounts = currentMounts();
    for (const MountEntry& mount : mounts) {
        if (mount.device != *device)
            continue;
        if (mount.root == "/")
            return mount.mountPoint;
        if (!found)
            found = &mount;
    }
    return found ? std::optional<std::string>(found->mountPoint) : std::nullopt;
}

int16_t volumeRefNumOfPath(const std::string& path)
{
    auto status = pathStatus(path);
    return status ? volumeRefNumForDevice(status.value().st_dev) : 0;
}

} // namespace zon
