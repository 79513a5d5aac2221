#include "platform/values/ObjectTable.h"

#include "platform/runtime/ReleaseBatchInternal.h"
#include "platform/values/Exception.h"

#include <algorithm>
#include <bit>

namespace zon::detail {

namespace {

constexpr size_t kMinimumSlots = 8;

// Slots for count entries at a load factor of at most one half.
size_t slotCountFor(size_t count) { return std::bit_ceil(std::max(kMinimumSlots, count * 2)); }

} // namespace

ObjectTable::~ObjectTable()
{
    if (entries_.size() * 2 < ReleaseBatch::kManyObjects)
        return;
    ReleaseBatch batch;
    for (Entry& entry : entries_) {
        batch.add(std::move(entry.key));
        batch.add(std::move(entry.value));
    }
    std::vector<Entry>().swap(entries_);
}

size_t ObjectTable::hashOf(const Object* key)
{
    // Objects hash in many ways (addresses, counts, string hashes); mix so the low bits vary.
    uint64_t h = key->hash();
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdULL;
    h ^= h >> 33;
    return static_cast<size_t>(h);
}

void ObjectTable::reserve(size_t count)
{
    entries_.reserve(count);
    if (count > kLinearEntries && slotCountFor(count) > slots_.size())
        rebuild(slotCountFor(count));
}

const ObjectTable::Entry* ObjectTable::find(const Object* key, size_t hash) const
{
    if (slots_.empty())
        return findLinear(key, hash);
    const size_t mask = slots_.size() - 1;
    for (size_t i = slotFor(hash);; i = (i + 1) & mask) {
        const uint32_t slot = slots_[i];
        if (slot == kEmpty)
            return nullptr;
        if (slot == kDeleted)
            continue;
        const Entry& entry = entries_[slot - 2];
        if (entry.hash == hash && (entry.key.get() == key || entry.key->isEqual(key)))
            return &entry;
    }
}

void ObjectTable::append(Ref<Object> key, size_t hash, Ref<Object> value)
{
    if (entries_.size() + 2 >= UINT32_MAX)
        raisePlatformException(NSMallocException, "*** collection too large");
    if (slots_.empty()) {
        // Without an index until the entries fill the linear range: then holes are squeezed out
        // first, and an index is built only if the live entries still fill it.
        if (entries_.size() >= kLinearEntries) {
            std::erase_if(entries_, [](const Entry& entry) { return !entry.key; });
            if (live_ >= kLinearEntries)
                rebuild(slotCountFor(live_ + 1));
        }
    } else if ((live_ + deletedSlots_ + 1) * 2 > slots_.size()) {
        rebuild(slotCountFor(live_ + 1));
    }
    if (!slots_.empty()) {
        const size_t mask = slots_.size() - 1;
        size_t i = slotFor(hash);
        while (slots_[i] > kDeleted)
            i = (i + 1) & mask;
        if (slots_[i] == kDeleted)
            --deletedSlots_;
        slots_[i] = static_cast<uint32_t>(entries_.size() + 2);
    }
    entries_.push_back(Entry {std::move(key), std::move(value), hash});
    ++live_;
}

bool ObjectTable::remove(const Object* key)
{
    if (!key || entries_.empty())
        return false;
    const size_t hash = hashOf(key);
    if (slots_.empty()) {
        Entry* entry = const_cast<Entry*>(findLinear(key, hash));
        if (!entry)
            return false;
        --live_;
        Ref<Object> oldKey = std::move(entry->key);
        Ref<Object> oldValue = std::move(entry->value);
        if (live_ == 0)
            clear();
        return true;
    }
    const size_t mask = slots_.size() - 1;
    for (size_t i = slotFor(hash);; i = (i + 1) & mask) {
        const uint32_t slot = slots_[i];
        if (slot == kEmpty)
            return false;
        if (slot == kDeleted)
            continue;
        Entry& entry = entries_[slot - 2];
        if (entry.hash != hash || !(entry.key.get() == key || entry.key->isEqual(key)))
            continue;
        slots_[i] = kDeleted;
        ++deletedSlots_;
        --live_;
        // Release after the table is consistent: the release may run arbitrary destructors.
        Ref<Object> oldKey = std::move(entry.key);
        Ref<Object> oldValue = std::move(entry.value);
        if (live_ == 0)
            clear();
        else if (entries_.size() > 2 * live_ + kMinimumSlots)
            compact();
        return true;
    }
}

void ObjectTable::clear()
{
    std::vector<Entry> old;
    old.swap(entries_);
    slots_.clear();
    live_ = 0;
    deletedSlots_ = 0;
}

const ObjectTable::Entry* ObjectTable::findLinear(const Object* key, size_t hash) const
{
    for (const Entry& entry : entries_) {
        if (entry.hash == hash && entry.key && (entry.key.get() == key || entry.key->isEqual(key)))
            return &entry;
    }
    return nullptr;
}

void ObjectTable::compact()
{
    if (live_ > kLinearEntries) {
        rebuild(slotCountFor(live_));
        return;
    }
    std::erase_if(entries_, [](const Entry& entry) { return !entry.key; });
    slots_.clear();
    deletedSlots_ = 0;
}

void ObjectTable::rebuild(size_t slotCount)
{
    if (entries_.size() != live_)
        std::erase_if(entries_, [](const Entry& entry) { return !entry.key; });
    slots_.assign(slotCount, kEmpty);
    deletedSlots_ = 0;
    const size_t mask = slotCount - 1;
    for (size_t position = 0; position < entries_.size(); ++position) {
        size_t i = slotFor(entries_[position].hash);
        while (slots_[i] != kEmpty)
            i = (i + 1) & mask;
        slots_[i] = static_cast<uint32_t>(position + 2);
    }
}

} // namespace zon::detail
