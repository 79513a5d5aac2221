#include "platform/threads/MainQueue.h"

#include "platform/threads/RunLoop.h"

namespace zon {

void MainQueue::async(Block block) { RunLoop::mainRunLoop()->performBlock({NSRunLoopCommonModes}, std::move(block)); }

void MainQueue::sync(Block block) { RunLoop::mainRunLoop()->performBlockAndWait({NSRunLoopCommonModes}, std::move(block)); }

} // namespace zon
