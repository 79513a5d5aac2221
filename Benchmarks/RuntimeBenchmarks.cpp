// The object runtime against what a C++ user would write instead: making and dropping an object
// (std::make_shared), copying an owning pointer (std::shared_ptr), a call by selector (a virtual
// call and a std::function call), and a dictionary lookup (std::unordered_map).

#include "RatioReporter.h"

#include "platform/runtime/Class.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>

using namespace zon;

namespace {

class Counter : public Object {
    ZON_OBJECT(Counter, Object)
public:
    static Ref<Counter> counter() { return makeObject<Counter>(); }
    static void exportMethods(Class& cls) { cls.exportMethod("bump:", &Counter::bump); }
    void bump(Object*) { ++count; }
    long count = 0;
};
ZON_DEFINE_CLASS(Counter, "BenchmarkCounter")

struct PlainCounter {
    virtual ~PlainCounter() = default;
    virtual void bump(void*) { ++count; }
    long count = 0;
};

void BM_MakeAndReleaseObject(benchmark::State& state)
{
    for (auto _ : state) {
        Ref<Counter> counter = Counter::counter();
        benchmark::DoNotOptimize(counter.get());
    }
}

void BM_MakeAndReleaseSharedPtr(benchmark::State& state)
{
    for (auto _ : state) {
        auto counter = std::make_shared<PlainCounter>();
        benchmark::DoNotOptimize(counter.get());
    }
}

void BM_CopyRef(benchmark::State& state)
{
    Ref<Counter> counter = Counter::counter();
    for (auto _ : state) {
        Ref<Counter> copy = counter;
        benchmark::DoNotOptimize(copy.get());
    }
}

void BM_CopySharedPtr(benchmark::State& state)
{
    auto counter = std::make_shared<PlainCounter>();
    for (auto _ : state) {
        auto copy = counter;
        benchmark::DoNotOptimize(copy.get());
    }
}

void BM_PerformSelector(benchmark::State& state)
{
    Ref<Counter> counter = Counter::counter();
    static const SEL bump = selector("bump:");
    for (auto _ : state)
        counter->performSelector(bump, nullptr);
    benchmark::DoNotOptimize(counter->count);
}

void BM_StdFunctionCall(benchmark::State& state)
{
    PlainCounter counter;
    std::function<void(void*)> call = [&](void* argument) { counter.bump(argument); };
    benchmark::DoNotOptimize(call);
    for (auto _ : state)
        call(nullptr);
    benchmark::DoNotOptimize(counter.count);
}

constexpr int kKeys = 1000;

// The suite's processes all run several threads. libstdc++ counts shared_ptr references without
// atomics while a process has only ever had one thread, so start one to compare like with like.
const bool processHasRunAThread = [] {
    std::thread([] {}).join();
    return true;
}();

void BM_DictionaryLookup(benchmark::State& state)
{
    auto dictionary = MutableDictionary::dictionary();
    std::vector<Ref<String>> keys;
    for (int i = 0; i < kKeys; ++i) {
        keys.push_back(String::stringWithUTF8String("key number " + std::to_string(i)));
        dictionary->setObject_forKey(Number::numberWithInt(i), keys.back());
    }
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(dictionary->objectForKey(keys[i++ % kKeys]));
}

void BM_UnorderedMapLookup(benchmark::State& state)
{
    std::unordered_map<std::u16string, int> map;
    std::vector<std::u16string> keys;
    for (int i = 0; i < kKeys; ++i) {
        std::string key = "key number " + std::to_string(i);
        keys.emplace_back(key.begin(), key.end());
        map.emplace(keys.back(), i);
    }
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(map.find(keys[i++ % kKeys]));
}

BENCHMARK(BM_MakeAndReleaseObject);
BENCHMARK(BM_MakeAndReleaseSharedPtr);
BENCHMARK(BM_CopyRef);
BENCHMARK(BM_CopySharedPtr);
BENCHMARK(BM_PerformSelector);
BENCHMARK(BM_StdFunctionCall);
BENCHMARK(BM_DictionaryLookup);
BENCHMARK(BM_UnorderedMapLookup);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv, "Speed-up over the standard alternative (above 1: ours is faster):",
        {
            {"BM_MakeAndReleaseObject", "BM_MakeAndReleaseSharedPtr"},
            {"BM_CopyRef", "BM_CopySharedPtr"},
            {"BM_PerformSelector", "BM_StdFunctionCall"},
            {"BM_DictionaryLookup", "BM_UnorderedMapLookup"},
        });
}
