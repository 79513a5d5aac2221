#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

#include "support/CountedObject.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;
using test::CountedObject;

namespace {

Ref<Number> num(int value) { return Number::numberWithInt(value); }

std::string joined(const Array* array) { return utf8(array->componentsJoinedByString(ZSTR(","))); }

std::vector<std::string> keysOf(const Dictionary* dictionary)
{
    std::vector<std::string> keys;
    for (auto [key, value] : *dictionary)
        keys.push_back(utf8(key->description()));
    return keys;
}

} // namespace

TEST(Array, NilElementsRaiseWithThePlatformReasons)
{
    EXPECT_EQ(raisedDescription([] { Array::arrayWithObjects({num(1), nullptr}); }),
        "NSInvalidArgumentException: *** -[__NSPlaceholderArray initWithObjects:count:]: attempt to insert nil "
        "object from objects[1]");
    EXPECT_EQ(raisedDescription([] { Array::arrayWithObject(nullptr); }),
        "NSInvalidArgumentException: *** -[__NSPlaceholderArray initWithObjects:count:]: attempt to insert nil "
        "object from objects[0]");
    EXPECT_EQ(raisedDescription([] { MutableArray::array()->addObject(nullptr); }),
        "NSInvalidArgumentException: *** -[__NSArrayM insertObject:atIndex:]: object cannot be nil");
    EXPECT_EQ(raisedDescription([] { Array::arrayWithVector({num(1), nullptr}); }),
        "NSInvalidArgumentException: *** -[__NSPlaceholderArray initWithObjects:count:]: attempt to insert nil "
        "object from objects[1]");
}

TEST(Array, IndexesOutsideTheBoundsRaise)
{
    auto array = Array::arrayWithObjects({num(1), num(2)});
    EXPECT_EQ(raisedDescription([&] { array->objectAtIndex(2); }),
        "NSRangeException: *** -[NSArray objectAtIndex:]: index 2 beyond bounds [0 .. 1]");
    EXPECT_EQ(raisedDescription([] { Array::array()->objectAtIndex(0); }),
        "NSRangeException: *** -[NSArray objectAtIndex:]: index 0 beyond bounds for empty NSArray");
    EXPECT_EQ(raisedDescription([&] { array->subarrayWithRange({1, 2}); }),
        "NSRangeException: *** -[NSArray subarrayWithRange:]: range {1, 2} extends beyond bounds [0 .. 1]");
    auto mutableArray = MutableArray::array();
    EXPECT_EQ(raisedDescription([&] { mutableArray->removeLastObject(); }),
        "NSRangeException: *** -[__NSArrayM removeObjectsInRange:]: range {0, 1} extends beyond bounds for empty array");
    EXPECT_EQ(raisedDescription([&] { mutableArray->insertObject_atIndex(num(1), 1); }),
        "NSRangeException: *** -[__NSArrayM insertObject:atIndex:]: index 1 beyond bounds for empty array");
}

TEST(Array, LooksUpByEqualityAndIterates)
{
    auto array = Array::arrayWithObjects({str("a"), num(1), Null::null()});
    EXPECT_EQ(array->count(), 3u);
    EXPECT_EQ(array->indexOfObject(Number::numberWithDouble(1.0)), 1u);
    EXPECT_EQ(array->indexOfObject(str("z")), NSNotFound);
    EXPECT_EQ(array->indexOfObject(nullptr), NSNotFound);
    EXPECT_TRUE(array->containsObject(Null::null()));
    EXPECT_EQ(array->firstObject(), array->objectAtIndex(0));
    EXPECT_EQ(Array::array()->lastObject(), nullptr);
    std::vector<Object*> seen(array->begin(), array->end());
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[2], Null::null());
    EXPECT_EQ(joined(array), "a,1,<null>");
    EXPECT_EQ(joined(array->subarrayWithRange({1, 1})), "1");
    EXPECT_TRUE(array->isEqual(Array::arrayWithObjects({str("a"), Number::numberWithDouble(1), Null::null()})));
    EXPECT_FALSE(array->isEqual(array->arrayByAddingObject(num(4))));
}

TEST(MutableArray, EditsInPlace)
{
    auto array = MutableArray::arrayWithObjects({num(3), num(1), num(2), num(1)});
    array->removeObject(Number::numberWithDouble(1));
    EXPECT_EQ(joined(array), "3,2");
    array->insertObject_atIndex(num(0), 0);
    array->addObjectsFromArray(array);
    EXPECT_EQ(joined(array), "0,3,2,0,3,2");
    array->removeObjectAtIndex(1);
    array->replaceObjectAtIndex_withObject(0, num(9));
    array->exchangeObjectAtIndex_withObjectAtIndex(0, 4);
    EXPECT_EQ(joined(array), "2,2,0,3,9");
    array->sortUsingComparator([](Object* a, Object* b) {
        return static_cast<Number*>(a)->compare(static_cast<Number*>(b));
    });
    EXPECT_EQ(joined(array), "0,2,2,3,9");
    array->removeLastObject();
    EXPECT_EQ(joined(array), "0,2,2,3");

    Ref<Object> frozen = array->copy();
    array->removeAllObjects();
    EXPECT_EQ(frozen->objectClass()->name(), "NSArray");
    EXPECT_EQ(joined(dynamicCast<Array>(frozen.get())), "0,2,2,3");
    EXPECT_EQ(array->count(), 0u);
}

TEST(Array, DescriptionNestsAsThePlatformPrints)
{
    auto inner = Array::arrayWithObjects({num(2), str("x y")});
    auto array = Array::arrayWithObjects({num(1), inner, Array::array()});
    EXPECT_EQ(utf8(array->description()),
        "(\n"
        "    1,\n"
        "        (\n"
        "        2,\n"
        "        \"x y\"\n"
        "    ),\n"
        "        (\n"
        "    )\n"
        ")");
    EXPECT_EQ(utf8(Array::array()->description()), "(\n)");
}

TEST(Array, DescriptionQuotesStringsThatNeedIt)
{
    auto array = Array::arrayWithObjects({str("plain_Text-1.2/3:$"), str(""), str("a\"b\\c\n"), str("\u00e9\x01")});
    EXPECT_EQ(utf8(array->description()),
        "(\n"
        "    plain_Text-1.2/3:$,\n"
        "    \"\",\n"
        "    \"a\\\"b\\\\c\\n\",\n"
        "    \"\\U00e9\\001\"\n"
        ")");
}

TEST(Dictionary, NilKeysAndValuesRaiseWithThePlatformReasons)
{
    EXPECT_EQ(raisedDescription([] { Dictionary::dictionaryWithObject_forKey(nullptr, ZSTR("k")); }),
        "NSInvalidArgumentException: *** -[__NSPlaceholderDictionary initWithObjects:forKeys:count:]: attempt to "
        "insert nil object from objects[0]");
    EXPECT_EQ(raisedDescription([] { Dictionary::dictionaryWithObjectsAndKeys({{ZSTR("a"), num(1)}, {nullptr, num(2)}}); }),
        "NSInvalidArgumentException: *** -[__NSPlaceholderDictionary initWithObjects:forKeys:count:]: attempt to "
        "insert nil key from keys[1]");
    auto dictionary = MutableDictionary::dictionary();
    EXPECT_EQ(raisedDescription([&] { dictionary->setObject_forKey(nullptr, ZSTR("name")); }),
        "NSInvalidArgumentException: *** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: name)");
    EXPECT_EQ(raisedDescription([&] { dictionary->setObject_forKey(num(1), nullptr); }),
        "NSInvalidArgumentException: *** -[__NSDictionaryM setObject:forKey:]: key cannot be nil");
    EXPECT_EQ(raisedDescription([] { Dictionary::dictionaryWithObjects_forKeys(Array::arrayWithObject(num(1)), Array::array()); }),
        "NSInvalidArgumentException: *** -[NSDictionary initWithObjects:forKeys:]: count of objects (1) differs from "
        "count of keys (0)");
    EXPECT_EQ(dictionary->objectForKey(nullptr), nullptr);
}

TEST(Dictionary, LooksUpByEqualKeysAcrossTypes)
{
    auto dictionary = Dictionary::dictionaryWithObjectsAndKeys({{ZSTR("name"), str("value")}, {num(1), str("one")}});
    EXPECT_TRUE(dictionary->objectForKey(str("name"))->isEqual(str("value")));
    EXPECT_TRUE(dictionary->objectForKey(Number::numberWithDouble(1.0))->isEqual(str("one")));
    EXPECT_NE(dictionary->objectForKey<String>(ZSTR("name")), nullptr);
    EXPECT_EQ(dictionary->objectForKey<Number>(ZSTR("name")), nullptr);
    EXPECT_EQ(dictionary->objectForKey(ZSTR("missing")), nullptr);
    auto same = Dictionary::dictionaryWithObjects_forKeys(
        Array::arrayWithObjects({str("one"), str("value")}), Array::arrayWithObjects({num(1), str("name")}));
    EXPECT_TRUE(dictionary->isEqual(same));
    EXPECT_EQ(dictionary->hash(), same->hash());
}

TEST(MutableDictionary, KeepsInsertionOrderThroughRemovalsAndReplacements)
{
    auto dictionary = MutableDictionary::dictionary();
    for (int i = 0; i < 100; ++i)
        dictionary->setObject_forKey(num(i), num(i));
    for (int i = 0; i < 100; ++i)
        if (i % 10)
            dictionary->removeObjectForKey(num(i));
    dictionary->setObject_forKey(str("replaced"), num(30));
    dictionary->setObject_forKey(num(5), num(5));
    EXPECT_EQ(keysOf(dictionary), (std::vector<std::string> {"0", "10", "20", "30", "40", "50", "60", "70", "80", "90", "5"}));
    EXPECT_TRUE(dictionary->objectForKey(num(30))->isEqual(str("replaced")));
    EXPECT_EQ(dictionary->count(), 11u);
    EXPECT_EQ(joined(dictionary->allKeys()), "0,10,20,30,40,50,60,70,80,90,5");
    dictionary->removeObjectForKey(num(0));
    dictionary->addEntriesFromDictionary(Dictionary::dictionaryWithObject_forKey(num(0), num(0)));
    EXPECT_EQ(keysOf(dictionary).back(), "0");
    dictionary->removeAllObjects();
    EXPECT_EQ(dictionary->count(), 0u);
    EXPECT_EQ(dictionary->begin(), dictionary->end());
}

// Small tables are searched without an index and gain one as they grow; this drives a dictionary
// back and forth across that size with removals and replacements and checks it against a model.
TEST(MutableDictionary, MatchesAnOrderedModelAcrossSmallAndLargeSizes)
{
    auto dictionary = MutableDictionary::dictionary();
    std::vector<std::pair<int, int>> model;
    uint32_t seed = 12345;
    auto next = [&seed] { return (seed = seed * 1103515245 + 12345) >> 16; };
    for (int step = 0; step < 3000; ++step) {
        // Grows towards 20 keys in the first and third thousand steps, shrinks in the second.
        const bool growing = (step / 1000) % 2 == 0;
        const int key = static_cast<int>(next() % 20);
        auto found = std::find_if(model.begin(), model.end(), [key](const auto& entry) { return entry.first == key; });
        if (next() % 3 != 0 ? growing : !growing) {
            dictionary->setObject_forKey(num(step), num(key));
            if (found != model.end())
                found->second = step;
            else
                model.emplace_back(key, step);
        } else {
            dictionary->removeObjectForKey(num(key));
            if (found != model.end())
                model.erase(found);
        }
        ASSERT_EQ(dictionary->count(), model.size()) << "step " << step;
        std::vector<std::string> expectedKeys;
        for (const auto& [modelKey, modelValue] : model) {
            expectedKeys.push_back(std::to_string(modelKey));
            Object* value = dictionary->objectForKey(num(modelKey));
            ASSERT_TRUE(value && value->isEqual(num(modelValue))) << "step " << step << ", key " << modelKey;
        }
        ASSERT_EQ(keysOf(dictionary), expectedKeys) << "step " << step;
    }
}

TEST(Dictionary, AdoptingKeysAndValuesMovesThemInAndKeepsTheFirstOfEqualKeys)
{
    Ref<String> key = str("shared");
    std::vector<Ref<Object>> items {key, num(1), str("other"), num(2), str("shared"), num(3)};
    auto dictionary = Dictionary::dictionaryAdoptingKeysAndValues(items);
    EXPECT_EQ(dictionary->count(), 2u);
    EXPECT_EQ((*dictionary->begin()).first, key.get());
    EXPECT_TRUE(dictionary->objectForKey(ZSTR("shared"))->isEqual(num(3)));
    EXPECT_EQ(items[0].get(), nullptr);
    EXPECT_EQ(items[3].get(), nullptr);
    std::vector<Ref<Object>> withNil {str("a"), num(1), str("b"), nullptr};
    EXPECT_EQ(raisedDescription([&] { Dictionary::dictionaryAdoptingKeysAndValues(withNil); }),
        "NSInvalidArgumentException: *** -[__NSPlaceholderDictionary initWithObjects:forKeys:count:]: attempt to "
        "insert nil object from objects[1]");
}

TEST(MutableDictionary, CopiesKeysOnInsertion)
{
    auto key = MutableData::dataWithBytes("ab", 2);
    auto dictionary = MutableDictionary::dictionary();
    dictionary->setObject_forKey(num(1), key);
    key->appendBytes_length("c", 1);
    auto [storedKey, value] = *dictionary->begin();
    EXPECT_NE(storedKey, key.get());
    EXPECT_EQ(storedKey->objectClass()->name(), "NSData");
    EXPECT_NE(dictionary->objectForKey(Data::dataWithBytes("ab", 2)), nullptr);
    EXPECT_EQ(dictionary->objectForKey(key), nullptr);
}

TEST(Dictionary, CopiesAreImmutableSnapshots)
{
    auto dictionary = MutableDictionary::dictionaryWithObject_forKey(num(1), ZSTR("a"));
    Ref<Object> frozen = dictionary->copy();
    Ref<Object> thawed = frozen->mutableCopy();
    dictionary->setObject_forKey(num(2), ZSTR("b"));
    EXPECT_EQ(frozen->objectClass()->name(), "NSDictionary");
    EXPECT_EQ(thawed->objectClass()->name(), "NSMutableDictionary");
    EXPECT_EQ(dynamicCast<Dictionary>(frozen.get())->count(), 1u);
    EXPECT_EQ(frozen->copy().get(), frozen.get());
}

TEST(Dictionary, DescriptionSortsStringKeysAndNestsValues)
{
    auto dictionary = Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("zeta"), num(1)},
        {ZSTR("alpha beta"), Array::arrayWithObject(num(2))},
        {ZSTR("mid"), Dictionary::dictionaryWithObject_forKey(str("v"), ZSTR("k"))},
    });
    EXPECT_EQ(utf8(dictionary->description()),
        "{\n"
        "    \"alpha beta\" =     (\n"
        "        2\n"
        "    );\n"
        "    mid =     {\n"
        "        k = v;\n"
        "    };\n"
        "    zeta = 1;\n"
        "}");
    EXPECT_EQ(utf8(Dictionary::dictionary()->description()), "{\n}");
}

TEST(Set, HoldsDistinctObjectsInInsertionOrder)
{
    auto set = MutableSet::setWithArray(Array::arrayWithObjects({num(3), num(1), Number::numberWithDouble(3), num(2)}));
    EXPECT_EQ(set->count(), 3u);
    EXPECT_EQ(joined(set->allObjects()), "3,1,2");
    EXPECT_TRUE(set->containsObject(Number::numberWithLongLong(1)));
    EXPECT_EQ(set->member(Number::numberWithDouble(1))->objectClass()->name(), "NSNumber");
    set->removeObject(num(3));
    set->addObject(num(3));
    EXPECT_EQ(joined(set->allObjects()), "1,2,3");
    EXPECT_EQ(utf8(set->description()), "{(\n    1,\n    2,\n    3\n)}");
    EXPECT_EQ(raisedDescription([&] { set->addObject(nullptr); }),
        "NSInvalidArgumentException: *** -[__NSSetM addObject:]: object cannot be nil");
    EXPECT_TRUE(set->isEqual(Set::setWithObjects({num(2), num(3), num(1)})));
    set->intersectSet(Set::setWithObjects({num(2), num(9)}));
    EXPECT_EQ(joined(set->allObjects()), "2");
}

TEST(Collections, DeepNestingIsDestroyedWithoutRecursion)
{
    constexpr int kDepth = 1000000;
    Ref<Object> nested = Array::array();
    for (int i = 0; i < kDepth; ++i)
        nested = (i % 2) ? Ref<Object>(Array::arrayWithObject(nested))
                         : Ref<Object>(Dictionary::dictionaryWithObject_forKey(nested, ZSTR("k")));
    nested = nullptr; // overflows the stack if each level's destruction recursed
    SUCCEED();
}

TEST(Collections, LargeContainersReleaseEachElementOnceWhateverTheyHold)
{
    // Large arrays and dictionaries free their storage before their elements, through a per-thread
    // list that nests: elements here are large containers themselves, deep chains and objects
    // also held from outside.
    constexpr size_t kLarge = 20000;
    CountedObject::alive = 0;
    Ref<Object> shared = makeObject<CountedObject>();
    {
        std::vector<Ref<Object>> outer;
        for (size_t i = 0; i < kLarge; ++i) {
            if (i % 5000 == 0) {
                std::vector<Ref<Object>> inner;
                for (size_t k = 0; k < kLarge; ++k)
                    inner.push_back(makeObject<CountedObject>());
                outer.push_back(Array::arrayWithVector(std::move(inner)));
            } else if (i % 5000 == 1) {
                auto table = MutableDictionary::dictionaryWithCapacity(kLarge);
                for (size_t k = 0; k < kLarge; ++k)
                    table->setObject_forKey(makeObject<CountedObject>(), num(static_cast<int>(k)));
                outer.push_back(table);
            } else if (i % 5000 == 2) {
                Ref<Object> chain = makeObject<CountedObject>();
                for (int depth = 0; depth < 100; ++depth)
                    chain = Array::arrayWithObjects({chain, makeObject<CountedObject>()});
                outer.push_back(chain);
            } else {
                outer.push_back(i % 2 ? shared : Ref<Object>(makeObject<CountedObject>()));
            }
        }
        Ref<Array> array = Array::arrayWithVector(std::move(outer));
        EXPECT_GT(CountedObject::alive, static_cast<int>(kLarge));
    }
    EXPECT_EQ(CountedObject::alive, 1);
    EXPECT_EQ(shared->retainCount(), 1u);
    shared = nullptr;
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST(Collections, ImmutableValuesAreSharedBetweenThreads)
{
    auto dictionary = Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("list"), Array::arrayWithObjects({num(1), Number::yes(), str("two words")})},
        {ZSTR("set"), Set::setWithObjects({num(1), num(2)})},
    });
    const std::string expected = utf8(dictionary->description());
    std::vector<std::thread> threads;
    std::atomic<int> mismatches {0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                Ref<Dictionary> copy = dynamicCast<Dictionary>(dictionary->copy());
                Ref<Object> list = copy->objectForKey(ZSTR("list"));
                if (utf8(copy->description()) != expected || !list->isEqual(dictionary->objectForKey(ZSTR("list"))))
                    ++mismatches;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(dictionary->retainCount(), 1u);
}
