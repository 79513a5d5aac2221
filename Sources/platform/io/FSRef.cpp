#include "platform/io/FSRef.h"

#include "platform/system/FileCallsInternal.h"

#include <deque>
#include <mutex>
#include <unordered_map>

namespace zon {

namespace {

// Paths are interned once and kept for the life of the process, so a reference stays small and
// plain. A program refers to a bounded set of paths; the table does not shrink.
class PathTable {
public:
    uint32_t intern(std::string path)
    {
        std::lock_guard hold(lock_);
        auto [it, added] = indexes_.try_emplace(std::move(path), uint32_t(paths_.size() + 1));
        if (added)
            paths_.push_back(&it->first);
        return it->second;
    }
    std::optional<std::string> path(uint32_t index)
    {
        std::lock_guard hold(lock_);
        if (index == 0 || index > paths_.size())
            return std::nullopt;
        return *paths_[index - 1];
    }

private:
    std::mutex lock_;
    std::unordered_map<std::string, uint32_t> indexes_;
    std::deque<const std::string*> paths_; // keys of indexes_, which never move
};

PathTable& pathTable()
{
    static PathTable table;
    return table;
}

} // namespace

std::optional<FSRef> makeFSRef(const std::string& path)
{
    if (path.empty())
        return std::nullopt;
    auto status = pathStatus(path);
    auto absolute = absolutePath(path);
    if (!status || !absolute)
        return std::nullopt;
    FSRef reference;
    reference.device = status.value().st_dev;
    reference.inode = status.value().st_ino;
    reference.pathIndex = pathTable().intern(std::move(*absolute));
    return reference;
}

std::optional<std::string> pathOfFSRef(const FSRef& reference)
{
    auto path = pathTable().path(reference.pathIndex);
    if (!path)
        return std::nullopt;
    auto status = pathStatus(*path);
    if (!status || status.value().st_dev != reference.device || status.value().st_ino != reference.inode)
        return std::nullopt;
    return path;
}

} // namespace zon
