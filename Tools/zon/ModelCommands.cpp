// zon observe and zon store: the observer center and the dictionary store at work.

#include "Commands.h"

#include "CommandSupport.h"

#include "genericObjects/TXZonDictionaryStore.h"
#include "genericObjects/TXZonObserver.h"
#include "genericObjects/TXZonObserverCenter.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/KeyValueCoding.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zon::tool {
namespace {

using Clock = std::chrono::steady_clock;

// A worker thread running its run loop, for as long as the command runs.
struct Worker {
    Ref<Thread> thread = Thread::detachRunloopThread();
    explicit Worker(const std::string& name) { thread->setName(String::stringWithUTF8String(name)); }
    ~Worker()
    {
        thread->cancel();
        thread->waitUntilFinished(std::chrono::seconds(10));
    }
    void run(std::function<void()> block) { thread->runLoop()->performBlockAndWait({NSDefaultRunLoopMode}, std::move(block)); }
};

std::vector<std::unique_ptr<Worker>> startWorkers(int count, const char* prefix)
{
    std::vector<std::unique_ptr<Worker>> workers;
    for (int i = 0; i < count; ++i)
        workers.push_back(std::make_unique<Worker>(prefix + std::to_string(i + 1)));
    return workers;
}

// Runs the main thread's loop until done() holds.
void runMainLoopUntil(const std::function<bool()>& done)
{
    while (!done())
        RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.01, true);
}

std::string describe(const Object* object) { return object ? object->description()->UTF8String() : "nil"; }

// ---- zon observe bench

class Tally : public Object {
    ZON_OBJECT(Tally, Object)
public:
    static std::atomic<long> calls;
    static void exportMethods(Class& cls) { cls.exportMethod("tick:", &Tally::tick); }
    void tick(Object*) { calls.fetch_add(1, std::memory_order_relaxed); }
};
std::atomic<long> Tally::calls {0};
ZON_DEFINE_CLASS(Tally, "ZonToolTally")

struct BenchOptions {
    int observers = 1000;
    int threads = 4;
    int broadcasts = 100;
};

void observeBench(const BenchOptions& options)
{
    auto workers = startWorkers(options.threads, "observer-");
    auto center = TXZonObserverCenter::observerCenter();
    std::vector<Ref<Tally>> tallies;
    for (int i = 0; i < options.observers; ++i) {
        tallies.push_back(makeObject<Tally>());
        center->addZonObserver(TXZonObserver::observerForDelegate_withThread(tallies.back(), workers[i % options.threads]->thread));
    }
    const SEL tick = selector("tick:");
    auto argument = Array::arrayWithObject(Number::numberWithInt(1));
    Tally::calls = 0;
    const auto start = Clock::now();
    for (int b = 0; b < options.broadcasts; ++b) {
        AutoreleasePool pool;
        center->notifyObserversWithSelector_objects(tick, argument);
    }
    const auto dispatched = Clock::now();
    const long expected = static_cast<long>(options.observers) * options.broadcasts;
    runMainLoopUntil([&] { return Tally::calls.load() >= expected; });
    const auto delivered = Clock::now();

    const double dispatchNs = std::chrono::duration<double, std::nano>(dispatched - start).count();
    const double totalNs = std::chrono::duration<double, std::nano>(delivered - start).count();
    std::printf("%d observers on %d threads, %d broadcasts: %ld calls\n", options.observers, options.threads,
        options.broadcasts, expected);
    std::printf("on the dispatch thread: %.1f ms (%.0f ns per observer call queued)\n", dispatchNs / 1e6, dispatchNs / expected);
    std::printf("until every call ran:   %.1f ms (%.0f ns per call)\n", totalNs / 1e6, totalNs / expected);
}

// ---- zon store demo

// Everything the demo's parties report, printed by the main thread in the order it happened.
struct Journal {
    std::mutex mutex;
    std::vector<std::string> lines;
    void add(const std::string& line)
    {
        std::lock_guard lock(mutex);
        lines.push_back("  [" + Thread::currentThread()->name()->UTF8String() + "] " + line);
    }
    void print()
    {
        std::lock_guard lock(mutex);
        for (const auto& line : lines)
            std::cout << line << '\n';
        lines.clear();
        std::cout.flush();
    }
};
Journal journal;

class PlayerLogic : public Object {
    ZON_OBJECT(PlayerLogic, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("volumeWillChange:", &PlayerLogic::volumeWillChange);
        cls.exportMethod("volumeDidChangeFrom:to:", &PlayerLogic::volumeDidChange);
        cls.exportMethod("titleDidChange", &PlayerLogic::titleDidChange);
    }
    void volumeWillChange(Object* old) { journal.add("pre-setter hook: volume leaves " + describe(old)); }
    void volumeDidChange(Object* old, Object* value)
    {
        journal.add("post-setter hook: volume " + describe(old) + " -> " + describe(value));
    }
    void titleDidChange() { journal.add("post-setter hook: the title changed"); }
};
ZON_DEFINE_CLASS(PlayerLogic, "PlayerLogic")

class PlayerView : public Object {
    ZON_OBJECT(PlayerView, Object)
public:
    static std::atomic<int> events;
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("dictionaryStore:willChangeAttribute:from:", &PlayerView::willChange);
        cls.exportMethod("dictionaryStore:didChangeAttribute:to:", &PlayerView::didChange);
        cls.exportMethod("observeValueForKeyPath:ofObject:change:context:", &PlayerView::observe);
    }
    void willChange(TXZonDictionaryStore*, String* identifier, Object* old)
    {
        journal.add("observer: will change " + describe(identifier) + " from " + describe(old));
        ++events;
    }
    void didChange(TXZonDictionaryStore*, String* identifier, Object* value)
    {
        journal.add("observer: did change " + describe(identifier) + " to " + describe(value));
        ++events;
    }
    void observe(String* key, Object* store, Dictionary* change, Object*)
    {
        journal.add("binding mirror: " + describe(key) + " " + describe(change->objectForKey(NSKeyValueChangeOldKey)) + " -> "
            + describe(change->objectForKey(NSKeyValueChangeNewKey)) + " (valueForKey: "
            + describe(store->valueForKey(key)) + ")");
        ++events;
    }
};
std::atomic<int> PlayerView::events {0};
ZON_DEFINE_CLASS(PlayerView, "PlayerView")

void storeDemo()
{
    Thread::mainThread()->setName(ZSTR("main"));
    auto logic = makeObject<PlayerLogic>();
    auto store = TXZonDictionaryStore::threadSafeStoreWithOptionalLogicDelegate(logic);
    store->registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
        ZSTR("volume"), Number::numberWithInt(5), nullptr, selector("volumeWillChange:"), selector("volumeDidChangeFrom:to:"));
    store->registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
        ZSTR("title"), ZSTR("Untitled"), nullptr, nullptr, selector("titleDidChange"));
    std::cout << "A thread-safe store: volume (default 5, two hooks) and title (default \"Untitled\", one hook)\n";

    auto view = makeObject<PlayerView>();
    store->addChangeObserver(view); // called on the main thread
    const unsigned long options = NSKeyValueObservingOptionOld | NSKeyValueObservingOptionNew;
    store->addObserver_forKeyPath_options_context(view, ZSTR("volume"), options, nullptr);
    store->addObserver_forKeyPath_options_context(view, ZSTR("title"), options, nullptr);

    auto workers = startWorkers(2, "writer-");
    // Each write: hooks at once on the writing thread; the observer's calls and the mirror's
    // key-value observing follow on the main thread when its loop runs.
    auto write = [&](Worker& worker, Object* value, String* identifier, int expectedEvents) {
        std::cout << "\n" << worker.thread->name()->UTF8String() << " sets " << identifier->UTF8String() << " to "
                  << describe(value) << "\n";
        PlayerView::events = 0;
        worker.run([&] {
            store->setAttribute_forIdentifer(value, identifier);
            journal.add("write returned; valueForKey on main still reads the old value until the mirror runs");
        });
        journal.print();
        runMainLoopUntil([&] { return PlayerView::events >= expectedEvents; });
        journal.print();
    };
    write(*workers[0], Number::numberWithInt(7), ZSTR("volume"), 3);
    write(*workers[1], ZSTR("Morning Walk"), ZSTR("title"), 3);

    std::cout << "\nA string for the number attribute: the type check warns and stores it all the same\n";
    write(*workers[0], ZSTR("loud"), ZSTR("volume"), 3);
    std::cout << "\nnil with nil-to-default on: the default comes back\n";
    write(*workers[1], nullptr, ZSTR("volume"), 3);
    std::cout << "\nAn unregistered identifier: nothing is stored, but observers hear of it\n";
    write(*workers[0], Number::yes(), ZSTR("shuffle"), 2);

    std::cout << "\nattributes: " << describe(store->attributes()) << "\n";
    store->removeObserver_forKeyPath(view, ZSTR("volume"));
    store->removeObserver_forKeyPath(view, ZSTR("title"));
    store->removeChangeObserver(view);
}

} // namespace

void addModelCommands(CLI::App& app)
{
    auto* observe = app.add_subcommand("observe", "The observer center");
    observe->require_subcommand(1);
    auto options = std::make_shared<BenchOptions>();
    auto* bench = observe->add_subcommand("bench", "Broadcast to observers on worker threads and time it");
    bench->add_option("--observers", options->observers, "observers to register")->check(wholeNumberFrom(1, 1000000));
    bench->add_option("--threads", options->threads, "worker threads they are spread over")->check(wholeNumberFrom(1, 64));
    bench->add_option("--broadcasts", options->broadcasts, "broadcasts to send")->check(wholeNumberFrom(1, 1000000));
    bench->callback([options] { observeBench(*options); });

    auto* store = app.add_subcommand("store", "The dictionary store");
    store->require_subcommand(1);
    store->add_subcommand("demo", "Two threads write a store while the main thread shows what follows")->callback(storeDemo);
}

} // namespace zon::tool
