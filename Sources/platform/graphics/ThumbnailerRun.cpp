#include "platform/graphics/ThumbnailerRunInternal.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/ImageScalingInternal.h"
#include "platform/graphics/ThumbnailerFilesInternal.h"
#include "platform/io/ApplicationSearchInternal.h"
#include "platform/io/FileManager.h"
#include "platform/io/PathTextInternal.h"
#include "platform/io/StandardFolders.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/values/String.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <thread>

namespace zon {

namespace {

std::atomic<int64_t> testTimeoutMilliseconds {0};

std::chrono::milliseconds thumbnailerTimeout()
{
    const int64_t shortened = testTimeoutMilliseconds.load(std::memory_order_relaxed);
    return shortened > 0 ? std::chrono::milliseconds(shortened) : kThumbnailerTimeout;
}

// A folder of our own for one run, removed with whatever the thumbnailer left in it.
class PrivateRunFolder {
public:
    PrivateRunFolder()
    {
        if (Ref<String> temporary = NSTemporaryDirectory())
            if (auto made = makeTemporaryDirectory(temporary->UTF8String() + "zon-thumbnailer-XXXXXX"))
                path_ = std::move(made.value());
    }
    ~PrivateRunFolder()
    {
        if (!path_.empty())
            FileManager::defaultManager()->removeItemAtPath_error(String::stringWithUTF8String(path_).get(), nullptr);
    }
    PrivateRunFolder(const PrivateRunFolder&) = delete;
    PrivateRunFolder& operator=(const PrivateRunFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Waits for the child until the deadline, then kills its process group and reaps it. True when
// it ended by itself with status 0.
bool finishedInTime(pid_t child)
{
    const auto deadline = std::chrono::steady_clock::now() + thumbnailerTimeout();
    auto pause = std::chrono::milliseconds(1);
    while (std::chrono::steady_clock::now() < deadline) {
        auto ended = reapIfEnded(child);
        if (!ended)
            return false;
        if (ended.value())
            return WIFEXITED(*ended.value()) && WEXITSTATUS(*ended.value()) == 0;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(20));
    }
    (void)signalProcessGroup(child, SIGKILL);
    (void)waitForProcess(child);
    return false;
}

} // namespace

void setThumbnailerTimeoutForTesting(std::chrono::milliseconds timeout)
{
    testTimeoutMilliseconds.store(timeout.count(), std::memory_order_relaxed);
}

Ref<CGImage> runThumbnailer(const Thumbnailer& thumbnailer, const std::string& path, const std::string& uri,
    uint32_t size, uint32_t maxWidth, uint32_t maxHeight)
{
    PrivateRunFolder folder;
    if (folder.path().empty())
        return nullptr;
    const std::string output = joinedPath(folder.path(), "thumbnail.png");
    auto arguments = thumbnailerArguments(thumbnailer, {uri, path, output, size});
    if (!arguments)
        return nullptr;
    std::optional<std::string> program = programOnSearchPath(arguments->front());
    if (!program)
        return nullptr;
    arguments->front() = *program;
    auto nothing = openFile("/dev/null", O_RDWR | O_CLOEXEC);
    if (!nothing)
        return nullptr;
    const int null = nothing.value().get();
    auto child = spawnConfinedProcess(*arguments, {null, null, null},
        {folder.path(), kThumbnailerAddressSpaceBytes, kThumbnailerCPUSeconds, true});
    if (!child || !finishedInTime(child.value()))
        return nullptr;
    auto file = openForReading(output, ReadableKinds::regularFiles);
    if (!file)
        return nullptr;
    std::vector<uint8_t> png;
    if (!appendToEnd(file.value().get(), png, kMaxThumbnailerOutputBytes))
        return nullptr;
    Ref<CGImage> image = decodePNGData(png, maxWidth, maxHeight).image;
    return image ? imageScaledToFit(image.get(), maxWidth, maxHeight) : nullptr;
}

} // namespace zon
