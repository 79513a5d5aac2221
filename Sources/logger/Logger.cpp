#include "Logger.h"

#include "Configuration.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <unistd.h>

namespace zon::logger {

// Every record reaches write() until the environment has been read; write() then lowers it.
std::atomic<int> gMaximumThreshold {INT_MAX};

namespace {

using SinkList = std::vector<std::shared_ptr<Sink>>;

// The sink list is copied on change and read through a shared snapshot, so that a write holds
// the lock only to take the snapshot and sinks run without it. The state is never destroyed:
// records logged from static destructors still find it.
struct State {
    std::mutex lock;
    std::shared_ptr<const SinkList> sinks = std::make_shared<const SinkList>();
    std::once_flag configured;
};

State& state()
{
    static State* const instance = new State;
    return *instance;
}

int maximumThreshold(const SinkList& sinks)
{
    int maximum = INT_MIN;
    for (auto& sink : sinks)
        maximum = std::max(maximum, sink->threshold());
    return maximum;
}

// Callers hold the lock.
void replaceSinks(State& s, SinkList sinks)
{
    gMaximumThreshold.store(maximumThreshold(sinks), std::memory_order_relaxed);
    s.sinks = std::make_shared<const SinkList>(std::move(sinks));
}

State& configuredState()
{
    State& s = state();
    std::call_once(s.configured, [&s] {
        SinkList initial = makeSinks(configurationFromEnvironment(::getenv));
        std::lock_guard guard(s.lock);
        replaceSinks(s, std::move(initial));
        std::atexit([] { flush(); });
    });
    return s;
}

std::shared_ptr<const SinkList> snapshot(State& s)
{
    std::lock_guard guard(s.lock);
    return s.sinks;
}

int currentThreadId() noexcept
{
    thread_local const int id = int(gettid());
    return id;
}

} // namespace

Sink::~Sink() = default;

void Sink::flush() noexcept {}

void Sink::setThreshold(int level)
{
    threshold_.store(level, std::memory_order_relaxed);
    thresholdsChanged();
}

void write(const Record& record) noexcept
{
    try {
        State& s = configuredState();
        if (!isEnabled(record.level))
            return;
        Record stamped = record;
        stamped.time = std::chrono::system_clock::now();
        stamped.thread = currentThreadId();
        auto current = snapshot(s); // keeps the list alive while the sinks run
        for (auto& sink : *current) {
            if (record.level <= sink->threshold())
                sink->write(stamped);
        }
    } catch (...) {
        // Logging never fails its caller: a record that cannot be delivered is dropped.
    }
}

void flush() noexcept
{
    try {
        for (auto& sink : *snapshot(configuredState()))
            sink->flush();
    } catch (...) {
    }
}

void addSink(std::shared_ptr<Sink> sink)
{
    if (!sink)
        return;
    State& s = configuredState();
    std::lock_guard guard(s.lock);
    SinkList sinks = *s.sinks;
    if (std::find(sinks.begin(), sinks.end(), sink) == sinks.end())
        sinks.push_back(std::move(sink));
    replaceSinks(s, std::move(sinks));
}

void removeSink(const std::shared_ptr<Sink>& sink)
{
    State& s = configuredState();
    std::lock_guard guard(s.lock);
    SinkList sinks = *s.sinks;
    std::erase(sinks, sink);
    replaceSinks(s, std::move(sinks));
}

std::vector<std::shared_ptr<Sink>> sinks()
{
    return *snapshot(configuredState());
}

void thresholdsChanged()
{
    State& s = configuredState();
    std::lock_guard guard(s.lock);
    gMaximumThreshold.store(maximumThreshold(*s.sinks), std::memory_order_relaxed);
}

} // namespace zon::logger
