#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/SortDescriptor.h"
#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace zon {
namespace {

using test::raisedReason;
using test::str;
using test::utf8;
using Texts = std::vector<std::string>;

Ref<Array> arrayOf(const Texts& texts)
{
    Ref<MutableArray> array = MutableArray::array();
    for (const std::string& text : texts)
        array->addObject(str(text).get());
    return Array::arrayWithArray(array.get());
}

Texts textsOf(const Array* array)
{
    Texts texts;
    for (Object* item : *array)
        texts.push_back(utf8(dynamicCast<String>(item)));
    return texts;
}

TEST(ArrayShuffle, TheFirstElementNeverMovesAndTheOthersGoEverywhereElse)
{
    ::srandom(3);
    const Texts items {"a", "b", "c", "d", "e", "f"};
    Ref<MutableArray> array = MutableArray::arrayWithArray(arrayOf(items).get());
    // How often each element lands in each place, over many shuffles of the same array.
    std::vector<std::vector<int>> placed(items.size(), std::vector<int>(items.size()));
    const int rounds = 3000;
    for (int round = 0; round < rounds; ++round) {
        array->shuffle();
        const Texts now = textsOf(array.get());
        ASSERT_EQ(now[0], "a") << "round " << round;
        for (size_t place = 0; place < now.size(); ++place)
            ++placed[size_t(now[place][0] - 'a')][place];
    }
    // Each of the other five spreads evenly over places 1 ... 5 (chi-square, 4 degrees of
    // freedom, 0.1% critical value 18.47).
    for (size_t element = 1; element < items.size(); ++element) {
        EXPECT_EQ(placed[element][0], 0);
        double statistic = 0;
        const double expected = rounds / 5.0;
        for (size_t place = 1; place < items.size(); ++place)
            statistic += (placed[element][place] - expected) * (placed[element][place] - expected) / expected;
        EXPECT_LT(statistic, 18.47) << "element " << items[element];
    }
}

TEST(ArrayShuffle, ShortArraysNeverChange)
{
    for (const Texts& items : {Texts {}, Texts {"only"}, Texts {"first", "second"}}) {
        Ref<MutableArray> array = MutableArray::arrayWithArray(arrayOf(items).get());
        for (int i = 0; i < 50; ++i) {
            array->shuffle();
            EXPECT_EQ(textsOf(array.get()), items);
            EXPECT_EQ(textsOf(arrayOf(items)->shuffledArray().get()), items);
        }
    }
}

TEST(ArrayShuffle, ShuffledArrayIsANewImmutableArray)
{
    ::srandom(8);
    Ref<Array> original = arrayOf({"a", "b", "c", "d", "e", "f", "g", "h"});
    Ref<Array> shuffled = original->shuffledArray();
    EXPECT_EQ(textsOf(original.get()), (Texts {"a", "b", "c", "d", "e", "f", "g", "h"}));
    EXPECT_EQ(shuffled->objectClass(), Array::staticClass());
    EXPECT_EQ(textsOf(shuffled.get())[0], "a");
    Texts sorted = textsOf(shuffled.get());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, textsOf(original.get()));
}

TEST(ArrayReverse, ReversesAnyLength)
{
    EXPECT_EQ(textsOf(arrayOf({"a", "b", "c"})->reverseArray().get()), (Texts {"c", "b", "a"}));
    EXPECT_EQ(textsOf(arrayOf({"a", "b", "c", "d"})->reverseArray().get()), (Texts {"d", "c", "b", "a"}));
    EXPECT_EQ(textsOf(arrayOf({"a"})->reverseArray().get()), (Texts {"a"}));
    Ref<Array> empty = Array::array();
    Ref<Array> reversed = empty->reverseArray();
    EXPECT_TRUE(reversed->isEqual(empty.get()));
    EXPECT_EQ(Array::array()->firstObject(), nullptr);
}

// An element that answers "album" (and "title"), as the suite's track objects do.
class Track final : public Object {
    ZON_OBJECT(Track, Object)
public:
    static Ref<Track> trackWithAlbum(const std::string& album, const std::string& title)
    {
        return makeObject<Track>(str(album), str(title));
    }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("album", &Track::album);
        cls.exportMethod("title", &Track::title);
    }
    String* album() const { return album_.get(); }
    String* title() const { return title_.get(); }

private:
    Track(Ref<String> album, Ref<String> title) : album_(std::move(album)), title_(std::move(title)) {}
    Ref<String> album_;
    Ref<String> title_;
};
ZON_DEFINE_CLASS(Track, "Track")

TEST(ArrayDictionaryKey, MapsEachElementByItsAnswerAndKeepsTheLast)
{
    Ref<Track> intro = Track::trackWithAlbum("Kind of Blue", "So What");
    Ref<Track> blue = Track::trackWithAlbum("Kind of Blue", "Blue in Green");
    Ref<Track> naima = Track::trackWithAlbum("Giant Steps", "Naima");
    Ref<Array> tracks = Array::arrayWithObjects({intro.get(), naima.get(), blue.get()});
    Ref<Dictionary> byAlbum = tracks->dictionaryKeyWithSelector(selector("album"));
    ASSERT_TRUE(byAlbum);
    EXPECT_EQ(byAlbum->count(), 2u);
    EXPECT_EQ(byAlbum->objectForKey(str("Kind of Blue").get()), blue.get());
    EXPECT_EQ(byAlbum->objectForKey(str("Giant Steps").get()), naima.get());
    EXPECT_EQ(byAlbum->objectClass(), Dictionary::staticClass());
    EXPECT_EQ(Array::array()->dictionaryKeyWithSelector(selector("album"))->count(), 0u);
}

TEST(ArrayDictionaryKey, OnlyTheFirstElementIsChecked)
{
    LogCapture capture;
    Ref<Array> first = Array::arrayWithObjects({str("not a track").get(), Track::trackWithAlbum("A", "B").get()});
    EXPECT_EQ(first->dictionaryKeyWithSelector(selector("album")), nullptr);
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "Cannot fetch with album");
    EXPECT_EQ(records[0].level, 1);
    EXPECT_EQ(records[0].line, 48);
    EXPECT_THAT(records[0].file, ::testing::EndsWith("Sources/extensions/NSArray+ZonExtensions.cpp"));

    Ref<Array> later = Array::arrayWithObjects({Track::trackWithAlbum("A", "B").get(), str("not a track").get()});
    EXPECT_THAT(raisedReason(NSInvalidArgumentException, [&] { later->dictionaryKeyWithSelector(selector("album")); }),
        ::testing::HasSubstr("unrecognized selector"));
}

TEST(ArraySortDescriptor, SortsByTheKeyInEitherDirectionAndKeepsTiesInOrder)
{
    auto song = [](const char* title, int seconds) {
        return Dictionary::dictionaryWithObjectsAndKeys(
            {{ZSTR("title"), str(title).get()}, {ZSTR("seconds"), Number::numberWithInt(seconds).get()}});
    };
    Ref<Array> songs = Array::arrayWithObjects(
        {song("b", 300).get(), song("a", 200).get(), song("c", 200).get(), song("d", 100).get()});
    auto titles = [](const Array* sorted) {
        Texts texts;
        for (Object* item : *sorted)
            texts.push_back(utf8(static_cast<Dictionary*>(item)->objectForKey<String>(ZSTR("title"))));
        return texts;
    };
    auto bySeconds = SortDescriptor::sortDescriptorWithKey_ascending(ZSTR("seconds"), true);
    EXPECT_EQ(titles(songs->sortedArrayUsingDescriptor(bySeconds.get()).get()), (Texts {"d", "a", "c", "b"}));
    EXPECT_EQ(titles(songs->sortedArrayUsingDescriptor(bySeconds->reversedSortDescriptor().get()).get()),
        (Texts {"b", "a", "c", "d"}));
    EXPECT_EQ(utf8(bySeconds->description().get()), "(seconds, ascending, compare:)");

    // A nil key compares the elements themselves, here with another selector.
    auto caseless = SortDescriptor::sortDescriptorWithKey_ascending_selector(nullptr, true, selector("caseInsensitiveCompare:"));
    EXPECT_EQ(textsOf(arrayOf({"b", "C", "a"})->sortedArrayUsingDescriptor(caseless.get()).get()), (Texts {"a", "b", "C"}));
    // Tracks answer their keys through their getters.
    Ref<Array> tracks = Array::arrayWithObjects(
        {Track::trackWithAlbum("Z", "2").get(), Track::trackWithAlbum("Y", "1").get()});
    auto byTitle = SortDescriptor::sortDescriptorWithKey_ascending(ZSTR("title"), true);
    auto sorted = tracks->sortedArrayUsingDescriptor(byTitle.get());
    EXPECT_EQ(utf8(static_cast<Track*>(sorted->firstObject())->album()), "Y");
}

TEST(MutableDictionaryNestedEntry, StoresTheValuesUnderTheirKeys)
{
    Ref<MutableDictionary> settings = MutableDictionary::dictionary();
    settings->addDictionaryEntryFromValues_withKeys_forKey(
        arrayOf({"on", "7"}).get(), arrayOf({"shuffle", "volume"}).get(), ZSTR("playback"));
    auto* playback = settings->objectForKey<Dictionary>(ZSTR("playback"));
    ASSERT_TRUE(playback);
    EXPECT_EQ(utf8(playback->objectForKey<String>(ZSTR("volume"))), "7");
    EXPECT_EQ(utf8(playback->objectForKey<String>(ZSTR("shuffle"))), "on");
    EXPECT_EQ(raisedReason(NSInvalidArgumentException,
                  [&] {
                      settings->addDictionaryEntryFromValues_withKeys_forKey(
                          arrayOf({"on"}).get(), arrayOf({"a", "b"}).get(), ZSTR("x"));
                  }),
        "*** -[NSDictionary initWithObjects:forKeys:]: count of objects (1) differs from count of keys (2)");
}

} // namespace
} // namespace zon
