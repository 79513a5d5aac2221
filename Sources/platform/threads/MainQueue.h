#pragma once

#include "platform/Export.h"

#include <functional>

namespace zon {

// Work for the main thread: blocks run on the main thread's run loop in the common modes, one at a
// time, in the order they were queued.
class ZON_EXPORT MainQueue {
public:
    using Block = std::function<void()>;

    // Queues block and returns at once; from any thread.
    static void async(Block block);
    // Queues block and waits until it ran; on the main thread it runs at once.
    static void sync(Block block);
};

} // namespace zon
