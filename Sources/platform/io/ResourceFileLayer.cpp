#include "platform/io/ResourceFileLayer.h"

#include "platform/io/FinderMetadataStore.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/UTF.h"

#include <map>
#include <mutex>

namespace zon::resourceFiles {

namespace {

struct OpenFile {
    std::string path;
    int8_t permission = 0;
    std::vector<Resource> resources;
    bool changed = false;
};

// The open files of the process and the current one, as the original keeps them per process.
struct Table {
    std::mutex lock;
    std::map<ResFileRefNum, OpenFile> files;
    ResFileRefNum current = 0;
    ResFileRefNum lastNumber = 0;

    // The next free number after the last one handed out, so a stale number of a closed file
    // does not name a newly opened one at once.
    ResFileRefNum freeNumber()
    {
        for (int tries = 0; tries < INT16_MAX; ++tries) {
            lastNumber = lastNumber == INT16_MAX ? 1 : static_cast<ResFileRefNum>(lastNumber + 1);
            if (!files.contains(lastNumber))
                return lastNumber;
        }
        return -1;
    }
};

Table& table()
{
    static Table* const instance = new Table;
    return *instance;
}

bool canWrite(int8_t permission) { return (permission & (fsWrPerm | 4)) != 0; }

} // namespace

OSErr createResFile(const std::string& parentPath, size_t nameLength, std::u16string_view name)
{
    std::u16string units(nameLength, u'\0');
    name.copy(units.data(), std::min(nameLength, name.size()));
    if (units.empty() || units.find_first_of(std::u16string_view(u"/\0", 2)) != std::u16string::npos)
        return bdNamErr;
    auto parent = pathStatus(parentPath.empty() ? std::string(".") : parentPath);
    if (parentPath.empty() || !parent || !S_ISDIR(parent.value().st_mode))
        return fnfErr;
    const std::string path = parentPath + "/" + utf::utf16ToUTF8(units);
    if (pathStatus(path)) {
        if (!readResourceFork(path).empty())
            return dupFNErr;
    } else if (!openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0666)) {
        return ioErr;
    }
    return writeResourceFork(path, encodeResourceFile({})) ? noErr : ioErr;
}

ResFileRefNum openResFile(const std::string& path, int8_t permission)
{
    if (!pathStatus(path))
        return -1;
    const std::vector<uint8_t> fork = readResourceFork(path);
    auto resources = decodeResourceFile(fork);
    if (!resources)
        return -1;
    Table& files = table();
    std::lock_guard guard(files.lock);
    const ResFileRefNum number = files.freeNumber();
    if (number < 0)
        return -1;
    files.files[number] = OpenFile {path, permission, std::move(*resources), false};
    files.current = number;
    return number;
}

ResFileRefNum curResFile()
{
    Table& files = table();
    std::lock_guard guard(files.lock);
    return files.current;
}

void useResFile(ResFileRefNum file)
{
    Table& files = table();
    std::lock_guard guard(files.lock);
    if (files.files.contains(file))
        files.current = file;
}

OSErr addResource(std::span<const uint8_t> data, uint32_t type, int16_t id, std::string_view pascalName)
{
    Table& files = table();
    std::lock_guard guard(files.lock);
    auto open = files.files.find(files.current);
    if (open == files.files.end())
        return resFNotFound;
    if (!canWrite(open->second.permission))
        return wrPermErr;
    Resource resource {type, id, 0, std::nullopt, {data.begin(), data.end()}};
    if (!pascalName.empty())
        resource.name.emplace(pascalName.substr(0, 255));
    open->second.resources.push_back(std::move(resource));
    open->second.changed = true;
    return noErr;
}

std::optional<std::vector<Resource>> resourcesOf(ResFileRefNum file)
{
    Table& files = table();
    std::lock_guard guard(files.lock);
    auto open = files.files.find(file);
    if (open == files.files.end())
        return std::nullopt;
    return open->second.resources;
}

OSErr closeResFile(ResFileRefNum file)
{
    OpenFile closing;
    {
        Table& files = table();
        std::lock_guard guard(files.lock);
        auto open = files.files.find(file);
        if (open == files.files.end())
            return resFNotFound;
        closing = std::move(open->second);
        files.files.erase(open);
        if (files.current == file)
            files.current = files.files.empty() ? 0 : files.files.rbegin()->first;
    }
    if (!closing.changed)
        return noErr;
    return writeResourceFork(closing.path, encodeResourceFile(closing.resources)) ? noErr : ioErr;
}

} // namespace zon::resourceFiles
