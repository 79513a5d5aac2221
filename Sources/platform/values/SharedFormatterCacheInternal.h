#pragma once

// One process-wide table of ICU formatters per kind, keyed by the formatter's settings and locale.
// Building an ICU formatter costs microseconds, using one a fraction of that, so a formatter is
// built the first time its combination is asked for and then shared by every formatter object and
// thread that asks again. The table is bounded: past kCapacity entries it starts over, and the
// entries still in use live on through their shared pointers. Each thread remembers its last
// answer, so a thread that keeps asking for one combination takes no lock and hashes nothing.

#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace zon {

template <class Key, class Value, class KeyHash>
class SharedFormatterCache {
public:
    static constexpr size_t kCapacity = 64;

    // The formatter for key, made by make() (returning std::unique_ptr<Value>, or null when ICU
    // refuses) when the table has none; null when make() fails (failures are not kept). The
    // answer stays valid until the calling thread's next get.
    template <class Make>
    Value* get(const Key& key, Make&& make)
    {
        thread_local LastAnswer last;
        if (last.cache != this || !(last.key == key)) {
            auto value = lookUp(key, std::forward<Make>(make));
            if (!value)
                return nullptr;
            last = {this, key, std::move(value)};
        }
        return last.value.get();
    }

private:
    struct LastAnswer {
        const SharedFormatterCache* cache = nullptr;
        Key key {};
        std::shared_ptr<Value> value;
    };

    template <class Make>
    std::shared_ptr<Value> lookUp(const Key& key, Make&& make)
    {
        {
            std::lock_guard lock(mutex_);
            if (auto found = table_.find(key); found != table_.end())
                return found->second;
        }
        // Built outside the lock: two threads asking at once for a new combination may both
        // build it, and the first one stored wins.
        std::shared_ptr<Value> made(make());
        if (!made)
            return nullptr;
        std::lock_guard lock(mutex_);
        if (table_.size() >= kCapacity)
            table_.clear();
        return table_.try_emplace(key, std::move(made)).first->second;
    }

    std::mutex mutex_;
    std::unordered_map<Key, std::shared_ptr<Value>, KeyHash> table_;
};

} // namespace zon
