// Weak references, key-value coding and key-value observing of the object runtime.

#include "platform/runtime/Class.h"
#include "platform/runtime/KeyValueCoding.h"
#include "platform/runtime/WeakRef.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include "support/CountedObject.h"
#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class Track : public Object {
    ZON_OBJECT(Track, Object)
public:
    static Ref<Track> track() { return makeObject<Track>(); }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("title", &Track::title);
        cls.exportMethod("setTitle:", &Track::setTitle);
        cls.exportMethod("rating", &Track::rating);
        cls.exportMethod("setRating:", &Track::setRating);
    }
    String* title() const { return title_.get(); }
    void setTitle(String* title)
    {
        willChangeValueForKey(str("title"));
        title_ = title;
        didChangeValueForKey(str("title"));
    }
    int rating() const { return rating_; }
    void setRating(int rating) { rating_ = rating; }

private:
    Ref<String> title_;
    int rating_ = 0;
};
ZON_DEFINE_CLASS(Track, "Track")

// Records every change it is sent, as "key: change description".
class Watcher : public Object {
    ZON_OBJECT(Watcher, Object)
public:
    static Ref<Watcher> watcher() { return makeObject<Watcher>(); }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("observeValueForKeyPath:ofObject:change:context:", &Watcher::observe);
    }
    void observe(String* keyPath, Object* object, Dictionary* change, Object* context)
    {
        seen.push_back(utf8(keyPath) + " " + describe(change, NSKeyValueChangeOldKey) + "->"
            + describe(change, NSKeyValueChangeNewKey) + (change->objectForKey(NSKeyValueChangeNotificationIsPriorKey) ? " prior" : "")
            + (context ? " " + utf8(context->description().get()) : ""));
        lastObject = object;
        kind = change->objectForKey(NSKeyValueChangeKindKey);
    }
    std::vector<std::string> seen;
    Object* lastObject = nullptr;
    Ref<Object> kind;

private:
    static std::string describe(Dictionary* change, String* key)
    {
        Object* value = change->objectForKey(key);
        return value ? utf8(value->description().get()) : "-";
    }
};
ZON_DEFINE_CLASS(Watcher, "Watcher")

TEST(WeakRef, ReadsNilOnceTheObjectIsGoneAndEqualsOnlyReferencesToTheSameObject)
{
    WeakRef<CountedObject> weak;
    WeakRef<CountedObject> other;
    {
        auto object = makeObject<CountedObject>();
        weak = WeakRef<CountedObject>(object);
        other = WeakRef<CountedObject>(object.get());
        EXPECT_EQ(weak.load().get(), object.get());
        EXPECT_EQ(object->retainCount(), 1u) << "the flag bit is not part of the count";
        EXPECT_TRUE(weak == other);
        EXPECT_FALSE(weak == WeakRef<CountedObject>(makeObject<CountedObject>()));
    }
    EXPECT_EQ(CountedObject::alive, 0);
    EXPECT_EQ(weak.load(), nullptr);
    EXPECT_TRUE(weak == other) << "made from the same object, still equal after it died";
    EXPECT_FALSE(weak.empty());

    // A new object at the same address is not the dead one.
    auto next = makeObject<CountedObject>();
    EXPECT_FALSE(weak == WeakRef<CountedObject>(next));
    EXPECT_TRUE(WeakRef<CountedObject>().empty());
}

TEST(WeakRef, LoadsRacingTheLastReleaseNeverSeeAFreedObject)
{
    // Under ThreadSanitizer and AddressSanitizer this catches a load that retains an object the
    // releasing thread is already destroying.
    for (int round = 0; round < 200; ++round) {
        auto object = makeObject<CountedObject>();
        WeakRef<CountedObject> weak(object);
        std::atomic<bool> go {false};
        std::thread loader([&] {
            while (!go.load()) { }
            for (int i = 0; i < 50; ++i) {
                if (Ref<CountedObject> loaded = weak.load()) {
                    EXPECT_GE(loaded->retainCount(), 1u);
                }
            }
        });
        go = true;
        object = nullptr;
        loader.join();
        EXPECT_EQ(weak.load(), nullptr);
    }
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST(KeyValueCoding, GettersAndSettersAreFoundByNameWithScalarsBoxed)
{
    auto track = Track::track();
    track->setValue_forKey(str("Intro"), str("title"));
    track->setValue_forKey(Number::numberWithInt(4), str("rating"));
    EXPECT_EQ(utf8(dynamicCast<String>(track->valueForKey(str("title")).get())), "Intro");
    EXPECT_EQ(track->rating(), 4);
    auto rating = dynamicCast<Number>(track->valueForKey(str("rating")));
    ASSERT_TRUE(rating);
    EXPECT_EQ(rating->intValue(), 4);
}

TEST(KeyValueCoding, UnknownKeysAndNilScalarsRaiseWithThePlatformTexts)
{
    auto track = Track::track();
    EXPECT_THAT(raisedReason(NSUndefinedKeyException, [&] { track->valueForKey(str("artist")); }),
        ::testing::MatchesRegex("\\[<Track 0x[0-9a-f]+> valueForUndefinedKey:\\]: this class is not key value "
                                "coding-compliant for the key artist\\."));
    EXPECT_THAT(raisedReason(NSUndefinedKeyException, [&] { track->setValue_forKey(str("x"), str("artist")); }),
        HasSubstr("setValue:forUndefinedKey:]: this class is not key value coding-compliant for the key artist."));
    EXPECT_THAT(raisedReason(NSInvalidArgumentException, [&] { track->setValue_forKey(nullptr, str("rating")); }),
        HasSubstr("setNilValueForKey]: could not set nil as the value for the key rating."));
    EXPECT_EQ(utf8(NSUndefinedKeyException), "NSUnknownKeyException");
    try {
        track->valueForKey(str("artist"));
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.userInfo()->objectForKey(NSTargetObjectUserInfoKey), track.get());
        EXPECT_EQ(utf8(dynamicCast<String>(exception.userInfo()->objectForKey(NSUnknownUserInfoKey))), "artist");
    }
}

TEST(KeyValueObserving, DidChangeSendsOldAndNewAsTheOptionsAsk)
{
    auto track = Track::track();
    auto both = Watcher::watcher();
    auto newOnly = Watcher::watcher();
    auto prior = Watcher::watcher();
    auto context = str("ctx"); // contexts are told apart by identity
    track->addObserver_forKeyPath_options_context(
        both, str("title"), NSKeyValueObservingOptionNew | NSKeyValueObservingOptionOld, context);
    track->addObserver_forKeyPath_options_context(newOnly, str("title"), NSKeyValueObservingOptionNew, nullptr);
    track->addObserver_forKeyPath_options_context(prior, str("title"),
        NSKeyValueObservingOptionOld | NSKeyValueObservingOptionPrior | NSKeyValueObservingOptionInitial, nullptr);

    track->setTitle(str("A"));
    track->setTitle(nullptr);
    EXPECT_THAT(both->seen, ElementsAre("title <null>->A ctx", "title A-><null> ctx"));
    EXPECT_THAT(newOnly->seen, ElementsAre("title -->A", "title --><null>"));
    EXPECT_THAT(prior->seen, ElementsAre("title -->-", "title <null>->- prior", "title <null>->-", "title A->- prior", "title A->-"));
    EXPECT_EQ(both->lastObject, track.get());
    ASSERT_TRUE(both->kind);
    EXPECT_TRUE(both->kind->isEqual(Number::numberWithInt(1)));

    // Other keys and other objects are not reported; a removed observer hears nothing more.
    track->willChangeValueForKey(str("rating"));
    track->didChangeValueForKey(str("rating"));
    Track::track()->setTitle(str("B"));
    track->removeObserver_forKeyPath(newOnly, str("title"));
    track->setTitle(str("C"));
    EXPECT_EQ(newOnly->seen.size(), 2u);
    EXPECT_EQ(both->seen.size(), 3u);
    track->removeObserver_forKeyPath_context(both, str("title"), context);
    track->removeObserver_forKeyPath(prior, str("title"));
}

TEST(KeyValueObserving, NestedChangesOfOneKeyPairUpInnermostFirst)
{
    auto track = Track::track();
    auto watcher = Watcher::watcher();
    track->addObserver_forKeyPath_options_context(
        watcher, str("title"), NSKeyValueObservingOptionNew | NSKeyValueObservingOptionOld, nullptr);
    track->willChangeValueForKey(str("title"));
    track->setTitle(str("inner"));
    track->didChangeValueForKey(str("title"));
    EXPECT_THAT(watcher->seen, ElementsAre("title <null>->inner", "title <null>->inner"));
    track->removeObserver_forKeyPath(watcher, str("title"));
}

TEST(KeyValueObserving, RemovingAnUnregisteredObserverRaises)
{
    auto track = Track::track();
    auto watcher = Watcher::watcher();
    EXPECT_THAT(raisedReason(NSRangeException, [&] { track->removeObserver_forKeyPath(watcher, str("title")); }),
        ::testing::MatchesRegex("Cannot remove an observer <Watcher 0x[0-9a-f]+> for the key path \"title\" from "
                                "<Track 0x[0-9a-f]+> because it is not registered as an observer\\."));
    track->addObserver_forKeyPath_options_context(watcher, str("title"), 0, str("one"));
    EXPECT_THAT(raisedReason(NSRangeException, [&] { track->removeObserver_forKeyPath_context(watcher, str("title"), str("two")); }),
        HasSubstr("because it is not registered as an observer."));
    track->removeObserver_forKeyPath(watcher, str("title"));
}

TEST(KeyValueObserving, DeadObserversAreSkippedAndDeadObservedObjectsReportTheirObservers)
{
    LogCapture capture;
    auto track = Track::track();
    {
        auto watcher = Watcher::watcher();
        track->addObserver_forKeyPath_options_context(watcher, str("title"), NSKeyValueObservingOptionNew, nullptr);
    }
    track->setTitle(str("nobody listens")); // would call through a dangling pointer if kept raw

    auto watcher = Watcher::watcher();
    track->addObserver_forKeyPath_options_context(watcher, str("title"), NSKeyValueObservingOptionNew, nullptr);
    track = nullptr;
    EXPECT_THAT(capture.records(),
        ContainsLine(logger::kLevelError,
            ::testing::MatchesRegex("An instance 0x[0-9a-f]+ of class Track was deallocated while key value "
                                    "observers were still registered with it; 2 registrations were removed")));
}

} // namespace
