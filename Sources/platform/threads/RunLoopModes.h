#pragma once

// Run-loop mode names, interned to small numbers so that matching a block, timer or source to the
// running mode compares integers. Internal to the threads layer.

#include "platform/runtime/Ref.h"

#include <cstdint>
#include <span>
#include <vector>

namespace zon {

class String;

namespace runloop_detail {

using ModeId = uint32_t;
inline constexpr ModeId kCommonModes = 0;
inline constexpr ModeId kDefaultMode = 1;

// The number of a mode name; the same text always gives the same number. Nil gives nothing.
bool internMode(String* name, ModeId& id);
// The name of an interned mode.
String* modeName(ModeId id);

// A small set of modes; most items are in one or two, which need no allocation.
class ModeSet {
public:
    ModeSet() = default;
    explicit ModeSet(std::span<String* const> names);
    explicit ModeSet(ModeId id) { add(id); }

    void add(ModeId id);
    bool contains(ModeId id) const;
    bool empty() const { return count_ == 0; }
    template <class F>
    void forEach(F&& f) const
    {
        for (uint32_t i = 0; i < count_ && i < kInline; ++i)
            f(inline_[i]);
        for (ModeId id : more_)
            f(id);
    }

private:
    static constexpr uint32_t kInline = 2;
    uint32_t count_ = 0;
    ModeId inline_[kInline] {};
    std::vector<ModeId> more_;
};

} // namespace runloop_detail
} // namespace zon
