#include "platform/threads/RunLoopModes.h"

#include "platform/threads/RunLoop.h"
#include "platform/values/String.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>

namespace zon {

ZON_STRING_CONSTANT(NSDefaultRunLoopMode, "kCFRunLoopDefaultMode");
ZON_STRING_CONSTANT(NSRunLoopCommonModes, "kCFRunLoopCommonModes");

namespace runloop_detail {

namespace {

struct TextHash {
    using is_transparent = void;
    size_t operator()(std::u16string_view text) const { return std::hash<std::u16string_view>()(text); }
};

class ModeRegistry {
public:
    ModeRegistry()
    {
        names_.push_back(Ref(NSRunLoopCommonModes));
        names_.push_back(Ref(NSDefaultRunLoopMode));
        ids_.emplace(NSRunLoopCommonModes->view(), kCommonModes);
        ids_.emplace(NSDefaultRunLoopMode->view(), kDefaultMode);
    }

    ModeId intern(String* name)
    {
        {
            std::shared_lock lock(mutex_);
            if (auto it = ids_.find(name->view()); it != ids_.end())
                return it->second;
        }
        std::unique_lock lock(mutex_);
        auto [it, added] = ids_.try_emplace(std::u16string(name->view()), static_cast<ModeId>(names_.size()));
        if (added)
            names_.push_back(staticRefCast<String>(name->copy()));
        return it->second;
    }

    String* name(ModeId id)
    {
        std::shared_lock lock(mutex_);
        return names_[id].get();
    }

private:
    std::shared_mutex mutex_;
    std::unordered_map<std::u16string, ModeId, TextHash, std::equal_to<>> ids_;
    std::deque<Ref<String>> names_; // never shrinks, so a name stays valid
};

ModeRegistry& registry()
{
    static ModeRegistry* const instance = new ModeRegistry; // used until the process ends
    return *instance;
}

} // namespace

bool internMode(String* name, ModeId& id)
{
    if (!name)
        return false;
    // The two well-known names skip the registry.
    if (name == NSDefaultRunLoopMode)
        id = kDefaultMode;
    else if (name == NSRunLoopCommonModes)
        id = kCommonModes;
    else
        id = registry().intern(name);
    return true;
}

String* modeName(ModeId id)
{
    if (id == kDefaultMode)
        return NSDefaultRunLoopMode;
    if (id == kCommonModes)
        return NSRunLoopCommonModes;
    return registry().name(id);
}

ModeSet::ModeSet(std::span<String* const> names)
{
    for (String* name : names) {
        ModeId id;
        if (internMode(name, id))
            add(id);
    }
}

void ModeSet::add(ModeId id)
{
    if (contains(id))
        return;
    if (count_ < kInline)
        inline_[count_] = id;
    else
        more_.push_back(id);
    ++count_;
}

bool ModeSet::contains(ModeId id) const
{
    for (uint32_t i = 0; i < count_ && i < kInline; ++i) {
        if (inline_[i] == id)
            return true;
    }
    return std::find(more_.begin(), more_.end(), id) != more_.end();
}

} // namespace runloop_detail
} // namespace zon
