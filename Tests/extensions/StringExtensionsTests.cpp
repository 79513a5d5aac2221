#include "platform/runtime/Class.h"
#include "extensions/NSStringChompFastEnumerator.h"
#include "platform/values/CharacterSet.h"
#include "platform/values/Exception.h"
#include "platform/values/MutableString.h"
#include "support/PeerProcess.h"
#include "support/Values.h"
#include "utilities/CodecTestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <filesystem>
#include <set>
#include <sys/wait.h>
#include <thread>

using namespace zon;
using namespace zon::test;
using namespace std::literals;

namespace {

std::vector<std::string> records(NSStringChompFastEnumerator* enumerator)
{
    std::vector<std::string> out;
    while (Ref<Object> record = enumerator->nextObject())
        out.push_back(utf8(dynamicCast<String>(record.get())));
    return out;
}

std::vector<std::string> chomped(std::u16string_view text) { return records(str(text)->chomp().get()); }

using Records = std::vector<std::string>;

} // namespace

TEST(StringInitalization, GUIDIsUpperCaseVersion4Text)
{
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        const std::string guid = utf8(String::stringGUID());
        ASSERT_EQ(guid.size(), 36u);
        for (size_t at : {8, 13, 18, 23})
            EXPECT_EQ(guid[at], '-');
        EXPECT_EQ(guid[14], '4');
        EXPECT_NE(std::string("89AB").find(guid[19]), std::string::npos);
        EXPECT_EQ(guid.find_first_of("abcdef"), std::string::npos);
        seen.insert(guid);
    }
    EXPECT_EQ(seen.size(), 50u);
}

TEST(StringInitalization, PrefixTrimRemovesEveryRepetition)
{
    EXPECT_EQ(utf8(str("ababx")->stringByTrimmingPrefix(str("ab").get())), "x");
    EXPECT_EQ(utf8(str("abab")->stringByTrimmingPrefix(str("ab").get())), "");
    EXPECT_EQ(utf8(str("xab")->stringByTrimmingPrefix(str("").get())), "xab");
    EXPECT_EQ(utf8(str("a")->stringByTrimmingPrefix(str("ab").get())), "a");
    EXPECT_EQ(utf8(str("éééx")->stringByTrimmingPrefix(str("é").get())), "x");
    EXPECT_EQ(utf8(str("😀😀x")->stringByTrimmingPrefix(str("😀").get())), "x");
}

TEST(StringInitalization, SuffixTrimKeepsOneUnitMoreThanTheSuffix)
{
    EXPECT_EQ(utf8(str("xab")->stringByTrimmingSuffix(str("ab").get())), "xa");
    EXPECT_EQ(utf8(str("ab")->stringByTrimmingSuffix(str("ab").get())), "a");
    EXPECT_EQ(utf8(str("xabc")->stringByTrimmingSuffix(str("abc").get())), "xa");
    // xabab: cut to xaba, which no longer ends with ab.
    EXPECT_EQ(utf8(str("xabab")->stringByTrimmingSuffix(str("ab").get())), "xaba");
    EXPECT_EQ(utf8(str("xab")->stringByTrimmingSuffix(str("").get())), "xab");
    EXPECT_EQ(utf8(str("xab")->stringByTrimmingSuffix(str("c").get())), "xab");
    EXPECT_EQ(utf8(str("xéü")->stringByTrimmingSuffix(str("éü").get())), "xé");
    // A surrogate pair is two units: the cut keeps its lead.
    EXPECT_EQ(str("x😀")->stringByTrimmingSuffix(str("😀").get())->view(), std::u16string_view(u"x\xD83D"));
}

TEST(StringInitalization, SuffixTrimOfOneUnitTheTextEndsWithNeverReturns)
{
    PeerProcess child;
    ASSERT_TRUE(child.runInChild([] {
        str("xa")->stringByTrimmingSuffix(str("a").get());
        return 0;
    }));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    int status = 0;
    EXPECT_EQ(::waitpid(child.pid(), &status, WNOHANG), 0) << "the trim returned";
}

TEST(StringInitalization, PaddingAlwaysUsesZero)
{
    EXPECT_EQ(utf8(str("7")->stringByPrependingCharacter_toLength(u'x', 3)), "007");
    EXPECT_EQ(utf8(str("1234")->stringByPrependingCharacter_toLength(u'x', 3)), "1234");
    EXPECT_EQ(utf8(str("")->stringByPrependingCharacter_toLength(u' ', 2)), "00");
    EXPECT_EQ(utf8(str("é")->stringByPrependingCharacter_toLength(u'x', 3)), "00é");
}

TEST(StringChomp, RecordsLieBetweenSeparators)
{
    EXPECT_EQ(chomped(u"a\nb\n"), (Records {"a", "b"}));
    EXPECT_EQ(chomped(u"a\n\nb"), (Records {"a", "", "b"}));
    EXPECT_EQ(chomped(u""), Records {});
    EXPECT_EQ(chomped(u"\n"), (Records {""}));
    EXPECT_EQ(chomped(u"é\n😀"), (Records {"é", "😀"}));
    EXPECT_EQ(records(str("a;b;;")->chomp(u';').get()), (Records {"a", "b", ""}));
    EXPECT_EQ(records(str("aéb")->chomp(u'é').get()), (Records {"a", "b"}));
}

TEST(StringChomp, LongASCIITextSplitsAsItsUnitsDo)
{
    std::string text;
    for (int i = 0; i < 400; ++i)
        text += std::to_string(i) + (i % 7 ? "\n" : "\n\n");
    Ref<String> ascii = str(text);
    ASSERT_TRUE(ascii->asciiCharacters());
    Ref<String> units = str(ascii->view());
    ASSERT_FALSE(units->asciiCharacters());
    EXPECT_EQ(records(ascii->chomp().get()), records(units->chomp().get()));
}

TEST(StringChomp, FastEnumerationHandsOutOneRecordPerCall)
{
    Ref<NSStringChompFastEnumerator> enumerator = str("a\nbc\n")->chomp();
    FastEnumerationState state;
    Object* buffer[16] = {};
    ASSERT_EQ(enumerator->countByEnumeratingWithState_objects_count(&state, buffer, 16), 1u);
    EXPECT_EQ(state.itemsPtr, buffer);
    EXPECT_EQ(state.mutationsPtr, state.extra);
    EXPECT_EQ(state.state, 2u);
    EXPECT_EQ(utf8(dynamicCast<String>(buffer[0])), "a");
    ASSERT_EQ(enumerator->countByEnumeratingWithState_objects_count(&state, buffer, 16), 1u);
    EXPECT_EQ(utf8(dynamicCast<String>(buffer[0])), "bc");
    EXPECT_EQ(state.state, 5u);
    EXPECT_EQ(enumerator->countByEnumeratingWithState_objects_count(&state, buffer, 16), 0u);
    // The caller's state is its own: nextObject starts from the beginning.
    EXPECT_EQ(records(enumerator.get()), (Records {"a", "bc"}));
    EXPECT_FALSE(enumerator->nextObject());
}

TEST(StringChomp, EnumeratorKeepsItsOwnCopy)
{
    Ref<MutableString> text = MutableString::stringWithString(str("a\nb").get());
    Ref<NSStringChompFastEnumerator> enumerator = text->chomp();
    text->setString(str("zzz").get());
    EXPECT_EQ(records(enumerator.get()), (Records {"a", "b"}));
    EXPECT_EQ(enumerator->objectClass()->name(), "NSStringChompFastEnumerator");
    EXPECT_TRUE(enumerator->isKindOfClass(Enumerator::staticClass()));
}

TEST(StringPathComponent, FirstComponentSkipsTheRoot)
{
    EXPECT_EQ(utf8(str("/")->firstPathComponent()), "/");
    EXPECT_EQ(utf8(str("/a/b")->firstPathComponent()), "a");
    EXPECT_EQ(utf8(str("a/b")->firstPathComponent()), "a");
    EXPECT_EQ(utf8(str("//é//b")->firstPathComponent()), "é");
    EXPECT_EQ(utf8(str("")->firstPathComponent()), "");

    EXPECT_EQ(utf8(str("/a/b/c")->stringByDeletingFirstPathComponent()), "b/c");
    EXPECT_EQ(utf8(str("a//b/")->stringByDeletingFirstPathComponent()), "b");
    EXPECT_EQ(utf8(str("/a")->stringByDeletingFirstPathComponent()), "");
    EXPECT_EQ(utf8(str("a")->stringByDeletingFirstPathComponent()), "");
    EXPECT_EQ(utf8(str("/")->stringByDeletingFirstPathComponent()), "");
    EXPECT_EQ(utf8(str("")->stringByDeletingFirstPathComponent()), "");
    EXPECT_EQ(utf8(str("/é/ü/😀")->stringByDeletingFirstPathComponent()), "ü/😀");
}

TEST(StringPathComponent, ModelPathLosesOneOuterSlashEachSide)
{
    EXPECT_EQ(utf8(str("/")->compatibleModelPath()), "/");
    EXPECT_EQ(utf8(str("//")->compatibleModelPath()), "");
    EXPECT_EQ(utf8(str("/a/b/")->compatibleModelPath()), "a/b");
    EXPECT_EQ(utf8(str("//a//")->compatibleModelPath()), "/a/");
    EXPECT_EQ(utf8(str("ab")->compatibleModelPath()), "ab");
    EXPECT_EQ(utf8(str("/é/")->compatibleModelPath()), "é");
}

TEST(StringNumerical, UnsignedValueReadsAsStrtoull)
{
    EXPECT_EQ(str("0x1F")->unsignedLongLongValue(), 31u);
    EXPECT_EQ(str("010")->unsignedLongLongValue(), 8u);
    EXPECT_EQ(str("abc")->unsignedLongLongValue(), 0u);
    EXPECT_EQ(str("  42x")->unsignedLongLongValue(), 42u);
    EXPECT_EQ(str("-1")->unsignedLongLongValue(), ULLONG_MAX);
    EXPECT_EQ(str("99999999999999999999999")->unsignedLongLongValue(), ULLONG_MAX);
    EXPECT_EQ(str("１２")->unsignedLongLongValue(), 0u);
    EXPECT_EQ(str("7é")->unsignedLongLongValue(), 7u);

    EXPECT_EQ(str("file2")->numericalCompare(str("file10").get()), NSOrderedAscending);
    EXPECT_EQ(str("10")->numericalCompare(str("9").get()), NSOrderedDescending);
    EXPECT_EQ(str("é2")->numericalCompare(str("é2").get()), NSOrderedSame);
}

TEST(StringZon, NilTerminatorAndHash)
{
    EXPECT_EQ(str(u"abc\0"sv)->stringByDeletingNilTerminator()->view(), u"abc");
    EXPECT_EQ(str(u"é\0\0"sv)->stringByDeletingNilTerminator()->view(), std::u16string_view(u"é\0", 2));
    EXPECT_EQ(str(u"")->stringByDeletingNilTerminator()->length(), 0u);
    EXPECT_EQ(utf8(str("ab")->stringByDeletingNilTerminator()), "ab");

    for (std::string_view text : {"", "a", "hello", "é😀", "a much longer text to hash"}) {
        Ref<String> s = str(text);
        EXPECT_EQ(s->hash64() >> 32, 0u) << text;
        EXPECT_EQ(s->hash64(), uint32_t(s->hash())) << text;
    }
}

TEST(StringZon, ModificationDateOrdersEarlierOrEqualFirst)
{
    TempFile older, newer;
    older.write(Bytes {1});
    newer.write(Bytes {2});
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(older.path(), now - std::chrono::seconds(10));
    std::filesystem::last_write_time(newer.path(), now);
    Ref<String> a = str(older.path()), b = str(newer.path());
    EXPECT_EQ(a->compareByFileModificationDate(b.get()), NSOrderedAscending);
    EXPECT_EQ(b->compareByFileModificationDate(a.get()), NSOrderedDescending);
    EXPECT_EQ(a->compareByFileModificationDate(a.get()), NSOrderedAscending);
    EXPECT_EQ(a->compareByFileModificationDate(str("/no/such/file").get()), NSOrderedSame);
    EXPECT_EQ(str("/no/such/file")->compareByFileModificationDate(a.get()), NSOrderedSame);

    const std::string accented = newer.path() + "-é😀";
    std::filesystem::copy_file(newer.path(), accented);
    std::filesystem::last_write_time(accented, now + std::chrono::seconds(10));
    EXPECT_EQ(str(accented)->compareByFileModificationDate(b.get()), NSOrderedDescending);
    std::filesystem::remove(accented);
}

TEST(MutableStringZon, DeletesEveryMemberOfTheSet)
{
    Ref<MutableString> text = MutableString::stringWithString(str("a1b22c3é4").get());
    text->deleteCharactersInSet(CharacterSet::decimalDigitCharacterSet());
    EXPECT_EQ(utf8(text.get()), "abcé");

    text = MutableString::stringWithString(str("é😀xé").get());
    text->deleteCharactersInSet(CharacterSet::characterSetWithCharactersInString(str("é").get()).get());
    EXPECT_EQ(utf8(text.get()), "😀x");

    // Deleting x joins the lone surrogates around it into a pair, which is then tested whole.
    const std::u16string_view split = u"\xD83Dx\xDE00";
    text = MutableString::stringWithCharacters(split);
    text->deleteCharactersInSet(CharacterSet::characterSetWithCharactersInString(str("x").get()).get());
    EXPECT_EQ(utf8(text.get()), "😀");
    text = MutableString::stringWithCharacters(split);
    text->deleteCharactersInSet(CharacterSet::characterSetWithCharactersInString(str("x😀").get()).get());
    EXPECT_EQ(text->length(), 0u);
}
