#pragma once

#include "platform/runtime/Object.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace zon::detail {

// The insertion-ordered hash table under Dictionary and Set: entries in a vector in the order
// they were added, an open-addressing index of positions over it (hash + isEqual). Removing an
// entry leaves a hole that iteration skips; holes are squeezed out once they outnumber the live
// entries, so lookups stay O(1) and removals keep the order of the others. Tables of a few entries
// keep no index: comparing a handful of hashes in a row is as fast as probing, and saves one
// allocation per table (documents hold many small dictionaries).
class ZON_EXPORT ObjectTable {
public:
    struct Entry {
        Ref<Object> key; // null in a hole
        Ref<Object> value;
        size_t hash;
    };

    class Iterator {
    public:
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        Iterator() = default;
        Iterator(const Entry* at, const Entry* end) : at_(at), end_(end) { skipHoles(); }
        const Entry& operator*() const { return *at_; }
        const Entry* operator->() const { return at_; }
        Iterator& operator++()
        {
            ++at_;
            skipHoles();
            return *this;
        }
        Iterator operator++(int)
        {
            Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator& other) const { return at_ == other.at_; }

    private:
        void skipHoles()
        {
            while (at_ != end_ && !at_->key)
                ++at_;
        }
        const Entry* at_ = nullptr;
        const Entry* end_ = nullptr;
    };

    // The hash the table files key under (the object's hash, mixed).
    static size_t hashOf(const Object* key);

    ObjectTable() = default;
    ObjectTable(const ObjectTable&) = default;
    ObjectTable(ObjectTable&&) noexcept = default;
    ObjectTable& operator=(const ObjectTable&) = default;
    ObjectTable& operator=(ObjectTable&&) noexcept = default;
    ~ObjectTable();

    size_t count() const { return live_; }
    void reserve(size_t count);
    // The entry of the key equal to key, or null; key must not be null.
    const Entry* find(const Object* key, size_t hash) const;
    Entry* find(const Object* key, size_t hash)
    {
        return const_cast<Entry*>(static_cast<const ObjectTable*>(this)->find(key, hash));
    }
    // A small table is first scanned for the key object itself: lookups under shared constant
    // keys (record fields, option names) then hash nothing (ObserverBenchmarks, BM_StoreRead).
    const Entry* find(const Object* key) const
    {
        if (slots_.empty()) {
            for (const Entry& entry : entries_) {
                if (entry.key.get() == key)
                    return &entry;
            }
        }
        return find(key, hashOf(key));
    }
    // Adds an entry; the caller has checked that no equal key is present.
    void append(Ref<Object> key, size_t hash, Ref<Object> value);
    // Answers whether an entry was removed.
    bool remove(const Object* key);
    void clear();

    Iterator begin() const { return Iterator(entries_.data(), entries_.data() + entries_.size()); }
    Iterator end() const
    {
        const Entry* last = entries_.data() + entries_.size();
        return Iterator(last, last);
    }

private:
    static constexpr uint32_t kEmpty = 0;
    static constexpr uint32_t kDeleted = 1; // slot values above this are position + 2
    // Up to this many entries (holes included) the table is searched without an index.
    static constexpr size_t kLinearEntries = 8;

    size_t slotFor(size_t hash) const { return hash & (slots_.size() - 1); }
    const Entry* findLinear(const Object* key, size_t hash) const;
    void rebuild(size_t slotCount);
    void compact();

    std::vector<Entry> entries_;
    std::vector<uint32_t> slots_;
    size_t live_ = 0;
    size_t deletedSlots_ = 0;
};

// Walks a table's live entries and yields what Project makes of each: the key for a set, the key
// and the value for a dictionary.
template <class Project>
class ProjectingIterator {
public:
    using value_type = decltype(Project {}(std::declval<const ObjectTable::Entry&>()));
    using difference_type = std::ptrdiff_t;
    ProjectingIterator() = default;
    explicit ProjectingIterator(ObjectTable::Iterator at) : at_(at) {}
    value_type operator*() const { return Project {}(*at_); }
    ProjectingIterator& operator++()
    {
        ++at_;
        return *this;
    }
    ProjectingIterator operator++(int)
    {
        ProjectingIterator before = *this;
        ++at_;
        return before;
    }
    bool operator==(const ProjectingIterator&) const = default;

private:
    ObjectTable::Iterator at_;
};

} // namespace zon::detail
