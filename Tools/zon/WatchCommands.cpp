#include "CommandSupport.h"
#include "Commands.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/String.h"
#include "systemManagement/fileManagement/TXZonFileMonitor.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>

namespace zon::tool {
namespace {

// The local wall-clock time to the millisecond: "14:03:07.412".
std::string timeOfDay()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local {};
    ::localtime_r(&seconds, &local);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec, int(millis));
    return text;
}

struct WatchOptions {
    std::string file;
    bool verbose = false;
    int count = 0;        // stop after this many notifications; 0: never
    double seconds = 0.0; // stop after this long; 0: never
};

void watchFile(const WatchOptions& options)
{
    AutoreleasePool pool;
    auto monitor = TXZonFileMonitor::monitorForFile(String::stringWithUTF8String(options.file).get());
    if (options.verbose)
        std::cout << timeOfDay() << " watching " << options.file << " by "
                  << monitor->eventStreamDescription()->UTF8String() << std::endl;
    int notifications = 0;
    RunLoop* loop = RunLoop::mainRunLoop();
    monitor->setFileChangedBlock([&] {
        std::cout << timeOfDay() << " changed " << options.file << std::endl;
        if (options.count && ++notifications >= options.count)
            loop->stop();
    });
    const auto limit = options.seconds > 0 ? std::chrono::duration<double>(options.seconds)
                                           : std::chrono::duration<double>(std::chrono::hours(24 * 365));
    loop->runInMode(NSDefaultRunLoopMode, std::chrono::duration_cast<std::chrono::nanoseconds>(limit), false);
}

} // namespace

void addWatchCommands(CLI::App& app)
{
    auto* watch = fileSystemGroup(app)->add_subcommand(
        "watch", "print each change of FILE with its time, as the file monitor reports it (3 s window)");
    auto options = std::make_shared<WatchOptions>();
    watch->add_option("FILE", options->file, "the file to watch (it need not exist yet)")->required()->check(validUTF8());
    watch->add_flag("--verbose", options->verbose, "say whether the folder is watched by inotify or by polling, and why");
    watch->add_option("--count", options->count, "stop after N notifications");
    watch->add_option("--seconds", options->seconds, "stop after this many seconds");
    watch->callback([options] { watchFile(*options); });
}

} // namespace zon::tool
