#include "platform/runtime/Selector.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

namespace zon {

namespace {

struct SelectorTable {
    std::shared_mutex mutex;
    std::unordered_map<std::string_view, std::unique_ptr<Selector>> byName;
};

SelectorTable& table()
{
    static auto* instance = new SelectorTable; // never destroyed: selectors outlive every static
    return *instance;
}

} // namespace

Selector::Selector(std::string name)
    : name_(std::move(name))
    , argumentCount_(static_cast<unsigned>(std::count(name_.begin(), name_.end(), ':')))
{
}

const Selector* Selector::named(std::string_view name)
{
    auto& t = table();
    {
        std::shared_lock lock(t.mutex);
        if (auto it = t.byName.find(name); it != t.byName.end())
            return it->second.get();
    }
    std::unique_lock lock(t.mutex);
    if (auto it = t.byName.find(name); it != t.byName.end())
        return it->second.get();
    std::unique_ptr<Selector> created(new Selector(std::string(name)));
    const Selector* result = created.get();
    t.byName.emplace(result->name(), std::move(created));
    return result;
}

} // namespace zon
