#include "genericObjects/TXZonDictionaryStore.h"
#include "genericObjects/TXZonObserver.h"
#include "genericObjects/TXZonObserverCenter.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/KeyValueCoding.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/MutableString.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/RunLoopWorker.h"
#include "support/Values.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

std::string text(Object* object) { return object ? utf8(object->description().get()) : "nil"; }

// One journal of everything that happens during writes, in the order it happened.
struct Journal {
    std::mutex mutex;
    std::vector<std::string> entries;
    void add(std::string entry)
    {
        std::lock_guard lock(mutex);
        entries.push_back(std::move(entry));
    }
    std::vector<std::string> take()
    {
        std::lock_guard lock(mutex);
        return std::exchange(entries, {});
    }
    size_t size()
    {
        std::lock_guard lock(mutex);
        return entries.size();
    }
};

// A logic delegate with hooks of zero to three parameters.
class Logic : public Object {
    ZON_OBJECT(Logic, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("noArguments", &Logic::none);
        cls.exportMethod("oldOnly:", &Logic::one);
        cls.exportMethod("old:new:", &Logic::two);
        cls.exportMethod("old:new:extra:", &Logic::three);
    }
    Journal* journal = nullptr;
    std::vector<std::string> storedDuringHook;
    Ref<TXZonDictionaryStore> store;

    void none() { note("hook()"); }
    void one(Object* old) { note("hook(" + text(old) + ")"); }
    void two(Object* old, Object* value) { note("hook(" + text(old) + ", " + text(value) + ")"); }
    void three(Object*, Object*, Object*) { note("never"); }

private:
    void note(std::string entry)
    {
        if (store)
            storedDuringHook.push_back(text(store->attributeForIdentifier(str("volume"))));
        journal->add(std::move(entry));
    }
};
ZON_DEFINE_CLASS(Logic, "Logic")

// A change observer recording will/did calls and the key-value observing of the mirror.
class Observer : public Object {
    ZON_OBJECT(Observer, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("dictionaryStore:willChangeAttribute:from:", &Observer::will);
        cls.exportMethod("dictionaryStore:didChangeAttribute:to:", &Observer::did);
        cls.exportMethod("observeValueForKeyPath:ofObject:change:context:", &Observer::observe);
    }
    Journal* journal = nullptr;
    std::atomic<int> calls {0};
    void will(TXZonDictionaryStore*, String* identifier, Object* old)
    {
        journal->add("will " + utf8(identifier) + " from " + text(old));
        ++calls;
    }
    void did(TXZonDictionaryStore*, String* identifier, Object* value)
    {
        journal->add("did " + utf8(identifier) + " to " + text(value));
        ++calls;
    }
    void observe(String* key, Object*, Dictionary* change, Object*)
    {
        journal->add("kvo " + utf8(key) + " " + text(change->objectForKey(NSKeyValueChangeOldKey)) + " -> "
            + text(change->objectForKey(NSKeyValueChangeNewKey)));
        ++calls;
    }
};
ZON_DEFINE_CLASS(Observer, "Observer")

// Lets the main queue run what writes queued for it.
void drainMainQueue() { RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.05, false); }

} // namespace

TEST(TXZonDictionaryStore, RegistrationBuildsTheRecordAndASecondRegistrationReplacesIt)
{
    LogCapture capture;
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(nullptr);
    EXPECT_FALSE(store->isThreadSafe());
    EXPECT_TRUE(store->nilToDefault());
    store->registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
        str("volume"), Number::numberWithInt(5), nullptr, selector("oldOnly:"), selector("old:new:"));
    store->registerAttributeWithIdentifier_defaultValue(str("title"), nullptr);

    auto* record = store->_store()->objectForKey<Dictionary>(str("volume"));
    ASSERT_TRUE(record);
    EXPECT_EQ(text(record->objectForKey(str("name"))), "volume");
    EXPECT_TRUE(record->objectForKey(str("lock")));
    EXPECT_EQ(dynamicCast<Value>(record->objectForKey(str("valueType")))->classValue(), Number::staticClass());
    EXPECT_EQ(dynamicCast<Value>(record->objectForKey(str("prelogicSetter")))->selectorValue(), selector("oldOnly:"));
    EXPECT_EQ(dynamicCast<Value>(record->objectForKey(str("postlogicSetter")))->selectorValue(), selector("old:new:"));
    for (const char* key : {"defaultValue", "value", "bindingValue"})
        EXPECT_EQ(text(record->objectForKey(str(key))), "5") << key;
    auto* untyped = store->_store()->objectForKey<Dictionary>(str("title"));
    EXPECT_EQ(untyped->count(), 2u) << "name and lock only";

    EXPECT_TRUE(store->hasAttritbuteForIdentifier(str("title")));
    EXPECT_FALSE(store->hasAttritbuteForIdentifier(str("missing")));
    EXPECT_EQ(text(store->attributes()), "{\n    volume = 5;\n}") << "attributes without a value are left out";

    store->registerAttributeWithIdentifier_defaultValue(str("volume"), Number::numberWithInt(9));
    EXPECT_THAT(capture.records(), ContainsLine(logger::kLevelWarning, "Identifier: volume already exists, will be destroyed"));
    EXPECT_EQ(text(store->attributeForIdentifier(str("volume"))), "9");
    EXPECT_THAT(text(store->description()), ::testing::MatchesRegex("<TXZonDictionaryStore: 0x[0-9a-f]+> -- \\{\n(.|\n)*"));
    drainMainQueue();
}

TEST(TXZonDictionaryStore, TheTypeCheckOnlyWarnsAndKnowsTheNumberAndStringFamilies)
{
    LogCapture capture;
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(nullptr);
    store->registerAttributeWithIdentifier_defaultValue(str("count"), Number::numberWithInt(5));
    store->registerAttributeWithIdentifier_defaultValue(str("flag"), Number::yes());
    store->registerAttributeWithIdentifier_defaultValue(str("name"), MutableString::stringWithString(str("draft")));

    store->setAttribute_forIdentifer(Number::no(), str("count"));
    store->setAttribute_forIdentifer(Number::numberWithInt(1), str("flag"));
    store->setAttribute_forIdentifer(str("plain"), str("name"));
    EXPECT_THAT(capture.records(), Not(ContainsLine(logger::kLevelWarning, ::testing::HasSubstr("Unable to set"))));

    store->setAttribute_forIdentifer(str("many"), str("count"));
    EXPECT_THAT(capture.records(),
        ContainsLine(logger::kLevelWarning, "Unable to set count to many as it is not of type NSNumber, it is type NSString"));
    EXPECT_EQ(text(store->attributeForIdentifier(str("count"))), "many") << "stored all the same";

    const size_t before = capture.records().size();
    store->setAttribute_forIdentifer_withOptionalLogic_typeSafety(str("x"), str("count"), true, false);
    store->resetAttributeForIdentifier(str("name"));
    EXPECT_EQ(capture.records().size(), before) << "no type check without type safety, so none on reset";
    EXPECT_EQ(text(store->attributeForIdentifier(str("name"))), "draft");
    drainMainQueue();
}

TEST(TXZonDictionaryStore, NilWritesTheDefaultOrRemovesTheValue)
{
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(nullptr);
    store->registerAttributeWithIdentifier_defaultValue(str("volume"), Number::numberWithInt(5));
    store->setAttribute_forIdentifer(Number::numberWithInt(7), str("volume"));
    store->setAttribute_forIdentifer(nullptr, str("volume"));
    EXPECT_EQ(text(store->attributeForIdentifier(str("volume"))), "5");
    store->setNilToDefault(false);
    store->setAttribute_forIdentifer(nullptr, str("volume"));
    EXPECT_EQ(store->attributeForIdentifier(str("volume")), nullptr);
    EXPECT_EQ(store->attributes()->count(), 0u);

    store->loadAttributes(Dictionary::dictionaryWithObjectsAndKeys({{str("volume"), Number::numberWithInt(3)}}));
    EXPECT_EQ(text(store->attributeForIdentifier(str("volume"))), "3");
    store->loadAttributes(nullptr);
    drainMainQueue();
}

TEST(TXZonDictionaryStore, AWriteRunsWillPreStorePostDidAndTheMirrorFollowsOnTheMainQueue)
{
    Journal journal;
    auto logic = makeObject<Logic>();
    logic->journal = &journal;
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(logic);
    logic->store = store;
    store->registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
        str("volume"), Number::numberWithInt(5), nullptr, selector("oldOnly:"), selector("old:new:"));
    auto observer = makeObject<Observer>();
    observer->journal = &journal;
    store->addChangeObserver(observer); // called on this, the main, thread
    store->addObserver_forKeyPath_options_context(
        observer, str("volume"), NSKeyValueObservingOptionOld | NSKeyValueObservingOptionNew, nullptr);

    RunLoopWorker worker;
    worker.runAndWait([&] { store->setAttribute_forIdentifer(Number::numberWithInt(8), str("volume")); });
    // The hooks ran on the writing thread around the store; the rest waits for the main loop.
    EXPECT_THAT(journal.take(), ElementsAre("hook(5)", "hook(5, 8)"));
    EXPECT_THAT(logic->storedDuringHook, ElementsAre("5", "8"));
    EXPECT_EQ(text(store->valueForKey(str("volume"))), "5") << "the mirror lags until the main queue runs";
    EXPECT_EQ(text(store->attributeForIdentifier(str("volume"))), "8");

    ASSERT_TRUE(runLoopUntil([&] { return observer->calls == 3; }));
    EXPECT_THAT(journal.take(), ElementsAre("kvo volume 5 -> 8", "will volume from 5", "did volume to 8"));
    EXPECT_EQ(text(store->valueForKey(str("volume"))), "8");

    // Without optional logic the hooks stay quiet; nil reaches observers as a short list.
    store->setNilToDefault(false);
    store->setAttribute_forIdentifer_withOptionalLogic(nullptr, str("volume"), false);
    ASSERT_TRUE(runLoopUntil([&] { return observer->calls == 6; }));
    EXPECT_THAT(journal.take(), ElementsAre("will volume from 8", "kvo volume 8 -> <null>", "did volume to nil"));
    EXPECT_EQ(store->valueForKey(str("volume")), nullptr);
    store->removeObserver_forKeyPath(observer, str("volume"));
    store->removeChangeObserver(observer);
}

TEST(TXZonDictionaryStore, HooksGetAsManyArgumentsAsTheirMethodsTakeAndMoreThanTwoFail)
{
    Journal journal;
    auto logic = makeObject<Logic>();
    logic->journal = &journal;
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(logic);
    auto hooked = [&](const char* pre, const char* post) {
        store->registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
            str("a"), nullptr, nullptr, pre ? selector(pre) : nullptr, post ? selector(post) : nullptr);
    };
    hooked("noArguments", "old:new:");
    store->setAttribute_forIdentifer(str("x"), str("a"));
    EXPECT_THAT(journal.take(), ElementsAre("hook()", "hook(<null>, x)")) << "nil goes as the null marker";

    hooked("old:new:extra:", nullptr);
    EXPECT_EQ(inconsistencyReason([&] { store->setAttribute_forIdentifer(str("y"), str("a")); }),
        "Performing selector with incorrect argument count, expected: 3, recieved: 2");
    EXPECT_EQ(store->attributeForIdentifier(str("a")), nullptr) << "a failing pre-hook stops the write before the store";

    hooked(nullptr, "old:new:extra:");
    EXPECT_THAT(inconsistencyReason([&] { store->setAttribute_forIdentifer(str("z"), str("a")); }), ::testing::HasSubstr("expected: 3"));
    EXPECT_EQ(text(store->attributeForIdentifier(str("a"))), "z") << "a failing post-hook comes after the store";

    logic = nullptr; // a logic delegate that is gone runs no hooks
    hooked("noArguments", nullptr);
    store->setAttribute_forIdentifer(str("w"), str("a"));
    EXPECT_THAT(journal.take(), IsEmpty());
    drainMainQueue();
}

TEST(TXZonDictionaryStore, AnUnregisteredWriteStoresNothingButStillNotifiesAndMirrors)
{
    LogCapture capture;
    Journal journal;
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(nullptr);
    auto observer = makeObject<Observer>();
    observer->journal = &journal;
    store->addChangeObserver(TXZonObserver::mainThreadObserverForDelegate(observer));
    store->setAttribute_forIdentifer(str("loud"), str("ghost"));
    EXPECT_THAT(capture.records(), ContainsLine(logger::kLevelError, "Setting Attribute: ghost to loud when not registered"));
    ASSERT_TRUE(runLoopUntil([&] { return observer->calls == 2; }));
    EXPECT_THAT(journal.take(), ElementsAre("will ghost from nil", "did ghost to loud"));
    EXPECT_EQ(store->attributeForIdentifier(str("ghost")), nullptr);
    EXPECT_EQ(store->valueForKey(str("ghost")), nullptr);
}

TEST(TXZonDictionaryStore, TheBindingInterfaceAssertsTheMainThread)
{
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(nullptr);
    store->registerAttributeWithIdentifier_defaultValue(str("volume"), Number::numberWithInt(5));
    RunLoopWorker worker;
    std::vector<std::string> reasons;
    worker.runAndWait([&] {
        reasons.push_back(inconsistencyReason([&] { store->valueForKey(str("volume")); }));
        reasons.push_back(inconsistencyReason([&] { store->setValue_forKey(Number::numberWithInt(1), str("volume")); }));
        reasons.push_back(inconsistencyReason([&] { store->setBindingValue_forKey(Number::numberWithInt(1), str("volume")); }));
    });
    EXPECT_THAT(reasons, ::testing::Each(std::string("Not on main thread calling valueForKey")));

    store->setValue_forKey(Number::numberWithInt(6), str("volume"));
    EXPECT_EQ(text(store->attributeForIdentifier(str("volume"))), "6");
    store->setBindingValue_forKey(Null::null(), str("volume"));
    EXPECT_EQ(store->valueForKey(str("volume")), nullptr);
    drainMainQueue();
}

TEST(TXZonDictionaryStore, AThreadSafeStoreTakesWritesFromEightThreads)
{
    auto store = TXZonDictionaryStore::threadSafeStoreWithOptionalLogicDelegate(nullptr);
    EXPECT_TRUE(store->isThreadSafe());
    store->registerAttributeWithIdentifier_defaultValue(str("a"), Number::numberWithInt(0));
    store->registerAttributeWithIdentifier_defaultValue(str("b"), Number::numberWithInt(0));
    constexpr int kThreads = 8;
    constexpr int kWrites = 300;
    std::atomic<int> finished {0};
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([&, t] {
            AutoreleasePool pool;
            String* key = t % 2 ? ZSTR("a") : ZSTR("b");
            for (int i = 0; i < kWrites; ++i) {
                store->setAttribute_forIdentifer(Number::numberWithInt(t * kWrites + i), key);
                EXPECT_TRUE(store->attributeForIdentifier(key));
            }
            ++finished;
        });
    }
    // The main loop runs the mirror tasks meanwhile, reading and writing the same records.
    EXPECT_TRUE(runLoopUntil([&] {
        (void)store->valueForKey(ZSTR("a"));
        return finished == kThreads;
    }));
    for (auto& writer : writers)
        writer.join();
    drainMainQueue();
    EXPECT_EQ(store->attributes()->count(), 2u);
}

TEST(TXZonDictionaryStore, AnObserverOnAnotherThreadGetsWillThenDidForEveryWriteInOrder)
{
    Journal journal;
    auto store = TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(nullptr);
    store->registerAttributeWithIdentifier_defaultValue(str("n"), Number::numberWithInt(0));
    RunLoopWorker worker;
    auto observer = makeObject<Observer>();
    observer->journal = &journal;
    store->addChangeObserver(TXZonObserver::observerForDelegate_withThread(observer, worker.thread));
    std::vector<std::string> expected;
    for (int i = 1; i <= 50; ++i) {
        store->setAttribute_forIdentifer(Number::numberWithInt(i), str("n"));
        expected.push_back("will n from " + std::to_string(i - 1));
        expected.push_back("did n to " + std::to_string(i));
    }
    ASSERT_TRUE(runLoopUntil([&] { return observer->calls == 100; }));
    EXPECT_EQ(journal.take(), expected);
}
