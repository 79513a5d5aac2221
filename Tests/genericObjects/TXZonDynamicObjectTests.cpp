#include "genericObjects/DynamicPropertyTable.h"
#include "genericObjects/TXZonDynamicObject.h"
#include "platform/io/Coder.h"
#include "platform/io/KeyedArchiver.h"
#include "platform/io/KeyedUnarchiver.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/MutableString.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/threads/Lock.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace zon::test {

// A song: typed properties with a default, hooks, a container, a name that starts upper-case,
// a property without "Class", a value that cannot be archived, and names past ASCII.
class TestSong final : public TXZonDynamicObject {
    ZON_OBJECT(TestSong, TXZonDynamicObject)
public:
    static Ref<TestSong> song() { return create<TestSong>(); }
    static void exportMethods(Class& cls)
    {
        registerInstanceFactory<TestSong>(cls);
        cls.exportMethod("nameWillChange:", &TestSong::nameWillChange);
        cls.exportMethod("nameDidChange:", &TestSong::nameDidChange);
        cls.exportMethod("tagsAdded:", &TestSong::tagsAdded);
        cls.exportMethod("tagsRemoved:", &TestSong::tagsRemoved);
    }
    Ref<Dictionary> objcAttributes() const override
    {
        return DynamicPropertyTable()
            .property("name", String::staticClass()).preSetter("nameWillChange:").postSetter("nameDidChange:")
            .property("count", Number::staticClass()).defaultValue(Number::numberWithInt(7).get())
            .property("URL", String::staticClass())
            .property("tags", Array::staticClass()).container(String::staticClass())
            .postAdd("tagsAdded:").postRemove("tagsRemoved:")
            .property("untyped", nullptr).context(ZSTR("for tools"))
            .property("helper", Object::staticClass()).defaultValue(ZSTR("none"))
            .property("é", String::staticClass())
            .property("été", String::staticClass())
            .table();
    }

    std::vector<std::string> calls;

private:
    TestSong() = default;
    std::string current() { return utf8(dynamicCast<String>(valueForPropertyName(ZSTR("name")).get())); }
    void nameWillChange(Object* name) { calls.push_back("will " + utf8(dynamicCast<String>(name)) + " was " + current()); }
    void nameDidChange(Object* name) { calls.push_back("did " + utf8(dynamicCast<String>(name)) + " is " + current()); }
    void tagsAdded(Object* tags) { calls.push_back("added " + std::to_string(static_cast<Array*>(tags)->count())); }
    void tagsRemoved(Object* tags) { calls.push_back("removed " + std::to_string(static_cast<Array*>(tags)->count())); }
};
ZON_DEFINE_CLASS(TestSong, "TestSong")

// A second table on another class, and one accessor written by hand.
class TestAlbum final : public TXZonDynamicObject {
    ZON_OBJECT(TestAlbum, TXZonDynamicObject)
public:
    static Ref<TestAlbum> album() { return create<TestAlbum>(); }
    static void exportMethods(Class& cls)
    {
        registerInstanceFactory<TestAlbum>(cls);
        cls.exportMethod("title", &TestAlbum::title);
    }
    Ref<Dictionary> objcAttributes() const override
    {
        return DynamicPropertyTable()
            .property("title", String::staticClass())
            .property("year", Number::staticClass())
            .table();
    }

private:
    TestAlbum() = default;
    Ref<String> title() { return str("by hand"); }
};
ZON_DEFINE_CLASS(TestAlbum, "TestAlbum")

// The keyed coder as a dictionary, standing in for the archiver.
class DictionaryCoder final : public Coder {
    ZON_OBJECT(DictionaryCoder, Coder)
public:
    static Ref<DictionaryCoder> coder() { return makeObject<DictionaryCoder>(); }
    void encodeObject_forKey(Object* object, String* key) override { values->setObject_forKey(object, key); }
    Ref<Object> decodeObjectForKey(String* key) override { return values->objectForKey(key); }
    bool containsValueForKey(String* key) const override { return values->objectForKey(key); }

    Ref<MutableDictionary> values = MutableDictionary::dictionary();

private:
    DictionaryCoder() = default;
};
ZON_DEFINE_CLASS(DictionaryCoder, "DictionaryCoder")

namespace {

Ref<Object> get(Object* object, std::string_view getter) { return object->performSelector(selector(getter)); }
void set(Object* object, std::string_view setter, Object* value) { object->performSelector(selector(setter), value); }
std::string text(const Ref<Object>& value) { return value ? utf8(value->description().get()) : "(nil)"; }

} // namespace

TEST(TXZonDynamicObject, KeyConstantsKeepTheStoredSpellings)
{
    EXPECT_EQ(utf8(ZonDynamicPropertyPreSetterKey), "BuisnessSetterPre");
    EXPECT_EQ(utf8(ZonDynamicPropertyPostSetterKey), "BuisnessSetterPost");
    EXPECT_EQ(utf8(ZonDynamicPropertyPostAddSelectorKey), "BuisnessPostAdd");
    EXPECT_EQ(utf8(ZonDynamicPropertyPostRemoveSelectorKey), "BuisnessPostRemove");
    EXPECT_EQ(utf8(ZonDynamicPropertyDefaultVarValueKey), "DefaultValue");
    EXPECT_EQ(utf8(ZonDynamicPropertyContainedClassKey), "ContainedClass");
    EXPECT_EQ(utf8(ZonDynamicPropertyVariableAccessReadOnly), "ReadOnlyAccess");
    EXPECT_EQ(utf8(ZonDynamicPropertyVariableAccessStandard), "StandardAccess");
}

TEST(TXZonDynamicObject, GeneratedAccessorsReadAndWriteTheRecordsValue)
{
    auto song = TestSong::song();
    set(song.get(), "setName:", str("Blue"));
    EXPECT_EQ(text(get(song.get(), "name")), "Blue");
    set(song.get(), "setCount:", Number::numberWithInt(3).get());
    EXPECT_EQ(text(song->valueForPropertyName(ZSTR("count"))), "3");
    auto* record = song->zonObjcAttributes()->objectForKey<Dictionary>(ZSTR("name"));
    EXPECT_EQ(text(record->objectForKey(ZonDynamicPropertyVarValueKey)), "Blue");

    EXPECT_EQ(text(song->allProperties()), text(Array::arrayWithObjects(
        {ZSTR("name"), ZSTR("count"), ZSTR("URL"), ZSTR("tags"), ZSTR("untyped"), ZSTR("helper"), ZSTR("é"), ZSTR("été")})));
    EXPECT_EQ(text(song->contextForPropertyName(ZSTR("untyped"))), "for tools");
    EXPECT_EQ(text(song->contextForPropertyName(ZSTR("name"))), "(nil)");
}

TEST(TXZonDynamicObject, UnknownPropertiesAndTheGenericAccessorsByNameRaise)
{
    auto song = TestSong::song();
    EXPECT_EQ(inconsistencyReason([&] { song->valueForPropertyName(ZSTR("missing")); }), "Property 'missing' does not exist");
    EXPECT_EQ(inconsistencyReason([&] { song->setValue_forPropertyName(ZSTR("x"), ZSTR("missing")); }),
        "Property 'missing' does not exist");
    EXPECT_EQ(inconsistencyReason([&] { song->removeObjects_fromContainerWithPropertyName(Array::array().get(), nullptr); }),
        "Property '(null)' does not exist");
    // Called by their own names, the generic accessors look for properties of those names.
    EXPECT_EQ(inconsistencyReason([&] { get(song.get(), "objectProperty"); }), "Property 'objectProperty' does not exist");
    EXPECT_EQ(inconsistencyReason([&] { set(song.get(), "setObjectProperty:", ZSTR("x")); }),
        "Property 'objectProperty' does not exist");
}

TEST(TXZonDynamicObject, SetterNamesMapBackLetterByLetter)
{
    auto song = TestSong::song();
    // The setter of URL lower-cases its first letter back into uRL.
    EXPECT_TRUE(song->respondsToSelector(selector("setURL:")));
    EXPECT_EQ(inconsistencyReason([&] { set(song.get(), "setURL:", ZSTR("http://x")); }), "Property 'uRL' does not exist");
    song->setValue_forPropertyName(ZSTR("http://x"), ZSTR("URL"));
    EXPECT_EQ(text(get(song.get(), "URL")), "http://x");

    // The cut counts UTF-8 bytes in a string of UTF-16 units: one extra byte keeps the colon,
    // two run past the end.
    EXPECT_EQ(inconsistencyReason([&] { set(song.get(), "setÉ:", ZSTR("x")); }), "Property 'é:' does not exist");
    EXPECT_EQ(raisedReason(NSRangeException, [&] { set(song.get(), "setÉté:", ZSTR("x")); }),
        "-[NSString substringToIndex:]: Index 8 out of bounds; string length 7");
    song->setValue_forPropertyName(ZSTR("summer"), ZSTR("été"));
    EXPECT_EQ(text(get(song.get(), "été")), "summer");
}

TEST(TXZonDynamicObject, NilStoresTheDefaultAndTheNullMarkerWithoutOneRemovesTheValue)
{
    auto song = TestSong::song();
    song->setValue_forPropertyName(Number::numberWithInt(1).get(), ZSTR("count"));
    song->setValue_forPropertyName(nullptr, ZSTR("count"));
    EXPECT_EQ(text(song->valueForPropertyName(ZSTR("count"))), "7");
    // With a default, the null marker is stored as it is.
    song->setValue_forPropertyName(Null::null(), ZSTR("count"));
    EXPECT_EQ(song->valueForPropertyName(ZSTR("count")).get(), Null::null());

    song->setValue_forPropertyName_withSetterLogic(ZSTR("x"), ZSTR("name"), false);
    song->setValue_forPropertyName_withSetterLogic(Null::null(), ZSTR("name"), false);
    EXPECT_EQ(song->valueForPropertyName(ZSTR("name")).get(), nullptr);
    EXPECT_EQ(song->zonObjcAttributes()->objectForKey<Dictionary>(ZSTR("name"))->objectForKey(ZonDynamicPropertyVarValueKey),
        nullptr);
}

TEST(TXZonDynamicObject, TheTypeCheckNamesBothClassesAndFailsEveryValueWithoutAClass)
{
    auto song = TestSong::song();
    EXPECT_EQ(inconsistencyReason([&] { set(song.get(), "setCount:", ZSTR("three")); }),
        "Value is not of type NSNumber, but of type NSString");
    EXPECT_EQ(text(song->valueForPropertyName(ZSTR("count"))), "(nil)");
    song->setValue_forPropertyName(MutableString::stringWithString(ZSTR("sub")).get(), ZSTR("name"));

    EXPECT_EQ(inconsistencyReason([&] { song->setValue_forPropertyName(ZSTR("x"), ZSTR("untyped")); }),
        "Value is not of type (null), but of type NSString");
    song->setValue_forPropertyName(nullptr, ZSTR("untyped"));
    song->setValue_forPropertyName(Null::null(), ZSTR("untyped"));
}

TEST(TXZonDynamicObject, HooksRunAroundTheStoreOnlyWithSetterLogic)
{
    auto song = TestSong::song();
    set(song.get(), "setName:", str("One"));
    song->setValue_forPropertyName_withSetterLogic(ZSTR("Two"), ZSTR("name"), false);
    song->setValue_forPropertyName_withSetterLogic(ZSTR("Three"), ZSTR("name"), true);
    EXPECT_EQ(song->calls,
        (std::vector<std::string> {"will One was (nil)", "did One is One", "will Three was Two", "did Three is Three"}));
}

TEST(TXZonDynamicObject, TwoClassesGetTheirOwnAccessorsAndAHandWrittenOneIsKept)
{
    auto song = TestSong::song();
    auto album = TestAlbum::album();
    EXPECT_FALSE(album->respondsToSelector(selector("name")));
    EXPECT_FALSE(song->respondsToSelector(selector("setYear:")));
    EXPECT_TRUE(album->respondsToSelector(selector("setYear:")));

    set(album.get(), "setTitle:", str("Kind"));
    EXPECT_EQ(text(get(album.get(), "title")), "by hand");
    EXPECT_EQ(text(album->valueForPropertyName(ZSTR("title"))), "Kind");

    // Later instances share the class's accessors and keep their own values.
    auto second = TestAlbum::album();
    set(second.get(), "setYear:", Number::numberWithInt(1959).get());
    EXPECT_EQ(text(get(album.get(), "year")), "(nil)");
    EXPECT_EQ(text(get(second.get(), "year")), "1959");
}

TEST(TXZonDynamicObject, TheTableIsSetOnceAndTheFactoryMakesTheSubclass)
{
    auto song = TestSong::song();
    EXPECT_EQ(inconsistencyReason([&] { song->setZonObjcAttributes(Dictionary::dictionary().get()); }),
        "__zonObjcAttributes set multiple times");

    Ref<Object> made = TestSong::staticClass()->createInstance();
    ASSERT_TRUE(made && made->isMemberOfClass(TestSong::staticClass()));
    EXPECT_EQ(static_cast<TestSong*>(made.get())->allProperties()->count(), 8u);
    EXPECT_EQ(TXZonDynamicObject::dynamicObject()->allProperties()->count(), 0u);
}

TEST(TXZonDynamicObject, ContainersKeepAMutableCopyAndCheckElementsBeforeAdding)
{
    auto song = TestSong::song();
    Ref<Array> initial = Array::arrayWithObjects({ZSTR("a"), ZSTR("b"), ZSTR("a")});
    set(song.get(), "setTags:", initial.get());
    Ref<Object> tags = song->valueForPropertyName(ZSTR("tags"));
    EXPECT_NE(tags.get(), initial.get());
    EXPECT_TRUE(tags->isKindOfClass(MutableArray::staticClass()));

    EXPECT_EQ(inconsistencyReason([&] { song->addObjects_toContainerWithPropertyName(nullptr, ZSTR("tags")); }),
        "Adding nil object");
    EXPECT_EQ(inconsistencyReason([&] {
        song->addObjects_toContainerWithPropertyName(
            Array::arrayWithObjects({ZSTR("c"), Number::numberWithInt(1).get()}).get(), ZSTR("tags"));
    }),
        "Invalid object being set into tags, got NSNumber expected NSString");
    EXPECT_EQ(text(tags), text(initial));

    song->addObjects_toContainerWithPropertyName(Array::arrayWithObjects({ZSTR("c"), ZSTR("d")}).get(), ZSTR("tags"));
    // Removal takes every equal element and checks no class.
    song->removeObjects_fromContainerWithPropertyName(
        Array::arrayWithObjects({ZSTR("a"), Number::numberWithInt(1).get()}).get(), ZSTR("tags"));
    EXPECT_EQ(text(tags), text(Array::arrayWithObjects({ZSTR("b"), ZSTR("c"), ZSTR("d")})));
    EXPECT_EQ(song->calls, (std::vector<std::string> {"added 2", "removed 2"}));

    // A container emptied by removing itself from itself, its elements owned by it alone.
    set(song.get(), "setTags:", Array::arrayWithObjects({str("p").get(), str("q").get()}).get());
    Ref<Object> own = song->valueForPropertyName(ZSTR("tags"));
    song->removeObjects_fromContainerWithPropertyName(own.get(), ZSTR("tags"));
    EXPECT_EQ(static_cast<Array*>(own.get())->count(), 0u);
}

TEST(TXZonDynamicObject, ArchivingLeavesOutWhatCannotBeArchivedAndReadsBackWithoutHooks)
{
    auto song = TestSong::song();
    set(song.get(), "setName:", str("Blue"));
    set(song.get(), "setCount:", Number::numberWithInt(2).get());
    song->setValue_forPropertyName(Lock::init().get(), ZSTR("helper"));
    auto coder = DictionaryCoder::coder();
    song->performSelector(selector("encodeWithCoder:"), coder.get());
    EXPECT_EQ(text(coder->values->allKeys()), text(Array::arrayWithObjects({ZSTR("name"), ZSTR("count")})));

    Ref<Object> read = TestSong::staticClass()->createInstance()->performSelector(selector("initWithCoder:"), coder.get());
    auto* back = static_cast<TestSong*>(read.get());
    EXPECT_EQ(text(get(back, "name")), "Blue");
    EXPECT_EQ(text(get(back, "count")), "2");
    EXPECT_EQ(text(get(back, "helper")), "none");
    EXPECT_TRUE(back->calls.empty());

    // A value of the wrong class raises out of initWithCoder: for the unarchiver to catch.
    coder->values->setObject_forKey(ZSTR("two"), ZSTR("count"));
    EXPECT_EQ(inconsistencyReason([&] { TestSong::song()->initWithCoder(coder.get()); }),
        "Value is not of type NSNumber, but of type NSString");
}

TEST(TXZonDynamicObject, ACopyHoldsCopiesOfTheValuesAndRunsNoHooks)
{
    auto song = TestSong::song();
    Ref<MutableString> name = MutableString::stringWithString(ZSTR("Blue"));
    set(song.get(), "setName:", name.get());
    set(song.get(), "setTags:", Array::arrayWithObjects({ZSTR("a")}).get());
    song->calls.clear();

    Ref<Object> copied = song->copy();
    ASSERT_TRUE(copied->isMemberOfClass(TestSong::staticClass()));
    auto* copy = static_cast<TestSong*>(copied.get());
    EXPECT_TRUE(copy->calls.empty());
    EXPECT_TRUE(song->calls.empty());
    EXPECT_EQ(text(get(copy, "name")), "Blue");
    EXPECT_NE(get(copy, "name").get(), name.get());
    EXPECT_NE(get(copy, "tags").get(), get(song.get(), "tags").get());
    EXPECT_TRUE(get(copy, "tags")->isKindOfClass(MutableArray::staticClass()));
    EXPECT_EQ(text(get(copy, "count")), "7");
}

// Through the real archiver: a song holding an album (another class, another table) and a
// container, next to a song whose helper cannot be archived.
struct ArchivedSongs {
    Ref<TestSong> song = TestSong::song();
    Ref<TestSong> plain = TestSong::song();
    Ref<Array> root;

    ArchivedSongs()
    {
        set(song.get(), "setName:", str("Blue"));
        set(song.get(), "setCount:", Number::numberWithInt(2).get());
        set(song.get(), "setTags:", Array::arrayWithObjects({ZSTR("jazz"), ZSTR("modal")}).get());
        Ref<TestAlbum> album = TestAlbum::album();
        album->setValue_forPropertyName(ZSTR("Kind of Blue"), ZSTR("title"));
        album->setValue_forPropertyName(Number::numberWithInt(1959).get(), ZSTR("year"));
        song->setValue_forPropertyName(album.get(), ZSTR("helper"));
        plain->setValue_forPropertyName(Lock::init().get(), ZSTR("helper"));
        root = Array::arrayWithObjects({song.get(), plain.get()});
    }

    static Ref<Set> allowed() { return Set::setWithObjects({TestSong::staticClass(), TestAlbum::staticClass()}); }

    // What came back, checked against what went in.
    static void expectReadBack(const Ref<Object>& decoded)
    {
        auto* songs = dynamicCast<Array>(decoded.get());
        ASSERT_TRUE(songs && songs->count() == 2) << text(decoded);
        auto* song = dynamicCast<TestSong>(songs->objectAtIndex(0));
        auto* plain = dynamicCast<TestSong>(songs->objectAtIndex(1));
        ASSERT_TRUE(song && plain);
        EXPECT_EQ(text(get(song, "name")), "Blue");
        EXPECT_EQ(text(get(song, "count")), "2");
        Ref<Object> tags = get(song, "tags");
        EXPECT_EQ(text(tags), text(Array::arrayWithObjects({ZSTR("jazz"), ZSTR("modal")})));
        EXPECT_TRUE(tags->isKindOfClass(MutableArray::staticClass()));
        auto* album = dynamicCast<TestAlbum>(song->valueForPropertyName(ZSTR("helper")).get());
        ASSERT_TRUE(album);
        EXPECT_EQ(text(album->valueForPropertyName(ZSTR("title"))), "Kind of Blue");
        EXPECT_EQ(text(album->valueForPropertyName(ZSTR("year"))), "1959");
        EXPECT_EQ(text(get(album, "title")), "by hand");
        EXPECT_EQ(text(get(plain, "helper")), "none");
        EXPECT_EQ(text(get(plain, "count")), "7");
        EXPECT_TRUE(song->calls.empty());
        EXPECT_TRUE(plain->calls.empty());
    }
};

TEST(TXZonDynamicObject, NestedObjectsRoundTripThroughTheKeyedArchiver)
{
    ArchivedSongs songs;
    Ref<Error> error;
    Ref<Data> archive = KeyedArchiver::archivedDataWithRootObject(songs.root.get(), &error);
    ASSERT_TRUE(archive) << text(error);
    Ref<Object> decoded = KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(
        ArchivedSongs::allowed().get(), archive.get(), &error);
    ArchivedSongs::expectReadBack(decoded);

    // The album's class must be allowed too.
    error = nullptr;
    EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(
        Set::setWithObject(TestSong::staticClass()).get(), archive.get(), &error));
    EXPECT_NE(text(error).find("'TestAlbum' is not among the classes allowed"), std::string::npos) << text(error);
}

TEST(TXZonDynamicObject, PlistlibReadsTheArchiveAndItsBinaryFormReadsBack)
{
    if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 with plistlib is not available";
    namespace fs = std::filesystem;
    const fs::path directory = fs::temp_directory_path() / ("zon-dynamic-archive-" + std::to_string(::getpid()));
    fs::create_directories(directory);
    ArchivedSongs songs;
    Ref<Data> archive = KeyedArchiver::archivedDataWithRootObject(songs.root.get(), nullptr);
    ASSERT_TRUE(archive);
    std::ofstream(directory / "songs.ours.xml", std::ios::binary)
        .write(static_cast<const char*>(archive->bytes()), static_cast<std::streamsize>(archive->length()));
    const std::string command = "python3 " ZON_KEYED_ARCHIVE_PEER " " + directory.string() + " >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0) << "plistlib found the archive malformed";

    std::ifstream in(directory / "songs.py.bin", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    fs::remove_all(directory);
    ASSERT_EQ(bytes.rfind("bplist00", 0), 0u);
    Ref<Error> error;
    Ref<Object> decoded = KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(
        ArchivedSongs::allowed().get(), Data::dataWithBytes(bytes.data(), bytes.size()).get(), &error);
    ArchivedSongs::expectReadBack(decoded);
}

// Per-property locks: several threads write, read and fill a container at once.
class TestCounter final : public TXZonDynamicObject {
    ZON_OBJECT(TestCounter, TXZonDynamicObject)
public:
    static Ref<TestCounter> counter() { return create<TestCounter>(); }
    static void exportMethods(Class& cls) { registerInstanceFactory<TestCounter>(cls); }
    bool objcAttributesAreThreadSafe() const override { return true; }
    Ref<Dictionary> objcAttributes() const override
    {
        return DynamicPropertyTable(DynamicPropertyLocks::PerProperty)
            .property("level", Number::staticClass()).defaultValue(Number::numberWithInt(0).get())
            .property("items", Array::staticClass()).container(Number::staticClass())
            .table();
    }

private:
    TestCounter() = default;
};
ZON_DEFINE_CLASS(TestCounter, "TestCounter")

TEST(TXZonDynamicObject, AThreadSafeObjectTakesWritesFromSeveralThreads)
{
    auto counter = TestCounter::counter();
    counter->setValue_forPropertyName(MutableArray::array().get(), ZSTR("items"));
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                set(counter.get(), "setLevel:", i % 7 ? Number::numberWithInt(i).get() : nullptr);
                EXPECT_TRUE(get(counter.get(), "level"));
                counter->addObjects_toContainerWithPropertyName(
                    Array::arrayWithObjects({Number::numberWithInt(t).get()}).get(), ZSTR("items"));
                Ref<Object> copy = counter->copy();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(static_cast<Array*>(get(counter.get(), "items").get())->count(), size_t(kThreads * kRounds));
}

TEST(TXZonDynamicObject, ArchivingAThreadSafeObjectReadsEachValueUnderItsLock)
{
    auto counter = TestCounter::counter();
    counter->setValue_forPropertyName(MutableArray::array().get(), ZSTR("items"));
    constexpr int kAdds = 20000;
    std::atomic<bool> adding = true;
    std::thread adder([&] {
        for (int i = 0; i < kAdds; ++i)
            counter->addObjects_toContainerWithPropertyName(
                Array::arrayWithObjects({Number::numberWithInt(i).get()}).get(), ZSTR("items"));
        adding = false;
    });
    // Each archive holds the container as it was at one moment: a prefix of the adds, in order.
    for (int round = 0; round < 3 || adding; ++round) {
        Ref<Error> error;
        Ref<Data> archive = KeyedArchiver::archivedDataWithRootObject(counter.get(), &error);
        ASSERT_TRUE(archive) << text(error);
        Ref<Object> back = KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(
            Set::setWithObject(TestCounter::staticClass()).get(), archive.get(), &error);
        ASSERT_TRUE(back) << text(error);
        auto* items = dynamicCast<Array>(back->performSelector(selector("items")).get());
        ASSERT_TRUE(items);
        for (size_t i = 0; i < items->count(); ++i)
            ASSERT_EQ(static_cast<Number*>(items->objectAtIndex(i))->longValue(), static_cast<long>(i));
    }
    adder.join();
}

} // namespace zon::test
