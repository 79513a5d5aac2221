#include "platform/threads/Thread.h"

#include "platform/diagnostics/StackTrace.h"
#include "platform/values/Array.h"
#include "platform/values/String.h"

#include <cstdlib>
#include <execinfo.h>

namespace zon {

Ref<Array> Thread::getCurrentCallstackSymbols()
{
    void* frames[kMaximumStackFrames];
    const int count = ::backtrace(frames, static_cast<int>(kMaximumStackFrames));
    char** symbols = ::backtrace_symbols(frames, count);
    if (!symbols)
        return Array::array();
    auto lines = MutableArray::arrayWithCapacity(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        if (auto line = String::stringWithUTF8String(symbols[i]))
            lines->addObject(line.get());
    std::free(symbols);
    return Array::arrayWithArray(lines.get());
}

} // namespace zon
