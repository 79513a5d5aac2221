#include "platform/runtime/WeakRef.h"

#include "platform/runtime/ObjectSideTablesInternal.h"

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace zon {

namespace detail {

struct WeakEntry {
    std::atomic<uint32_t> references {1};
    const Object* object; // under its shard's mutex; null once the object died
    size_t shard;
};

} // namespace detail

namespace {

using detail::WeakEntry;

// The table is split by address so that threads loading unrelated references rarely meet.
struct WeakShard {
    std::mutex mutex;
    std::unordered_map<const Object*, WeakEntry*> entries;
};

constexpr size_t kShardCount = 32;

std::array<WeakShard, kShardCount>& shards()
{
    // Never destroyed: objects may die during static destruction.
    static auto* const table = new std::array<WeakShard, kShardCount>();
    return *table;
}

size_t shardOf(const Object* object) { return (std::hash<const void*>()(object) >> 4) % kShardCount; }

} // namespace

namespace detail {

WeakEntry* weakEntryOf(const Object* object)
{
    const size_t index = shardOf(object);
    WeakShard& shard = shards()[index];
    std::lock_guard lock(shard.mutex);
    if (auto found = shard.entries.find(object); found != shard.entries.end()) {
        found->second->references.fetch_add(1, std::memory_order_relaxed);
        return found->second;
    }
    auto entry = std::make_unique<WeakEntry>();
    entry->object = object;
    entry->shard = index;
    shard.entries.emplace(object, entry.get());
    ObjectSideTables::mark(object);
    return entry.release();
}

void retainWeakEntry(WeakEntry* entry) noexcept { entry->references.fetch_add(1, std::memory_order_relaxed); }

void releaseWeakEntry(WeakEntry* entry) noexcept
{
    // Under the lock, so that weakEntryOf cannot hand out an entry whose count just reached zero.
    WeakShard& shard = shards()[entry->shard];
    {
        std::lock_guard lock(shard.mutex);
        if (entry->references.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        if (entry->object)
            shard.entries.erase(entry->object);
    }
    delete entry;
}

Object* loadWeakEntry(WeakEntry* entry) noexcept
{
    WeakShard& shard = shards()[entry->shard];
    std::lock_guard lock(shard.mutex);
    const Object* object = entry->object;
    if (!object || !ObjectSideTables::tryRetain(object))
        return nullptr;
    return const_cast<Object*>(object);
}

} // namespace detail

void ObjectSideTables::clearWeakReferences(const Object* object) noexcept
{
    WeakShard& shard = shards()[shardOf(object)];
    std::lock_guard lock(shard.mutex);
    auto found = shard.entries.find(object);
    if (found == shard.entries.end())
        return;
    found->second->object = nullptr;
    shard.entries.erase(found);
}

void ObjectSideTables::objectWillDie(const Object* object) noexcept
{
    clearWeakReferences(object);
    clearKeyValueObservers(object);
}

} // namespace zon
