#pragma once

#include "platform/Export.h"

#include <string>
#include <string_view>

namespace zon {

// A method name, interned: two selectors with the same text are the same pointer, so selectors
// compare and hash by address. The text keeps its colons ("ipcService:didRecvString:").
class ZON_EXPORT Selector {
public:
    // Interns the text; safe from any thread. Hot paths keep the result in a static.
    static const Selector* named(std::string_view name);

    const std::string& name() const { return name_; }
    // The number of colons: how many object arguments a call under this name takes.
    unsigned argumentCount() const { return argumentCount_; }

private:
    explicit Selector(std::string name);

    std::string name_;
    unsigned argumentCount_;
};

using SEL = const Selector*;

inline SEL selector(std::string_view name) { return Selector::named(name); }

} // namespace zon
