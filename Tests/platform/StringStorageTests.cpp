#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/MutableString.h"
#include "platform/values/String.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace zon;

// Long ASCII text keeps its bytes; everything a string does must answer as for UTF-16 text.

namespace {

const std::string kLongASCII = [] {
    std::string text;
    for (int i = 0; text.size() < 5000; ++i)
        text += "line " + std::to_string(i) + "/";
    return text;
}();

Ref<String> wideCopyOf(const std::string& ascii)
{
    const std::u16string units(ascii.begin(), ascii.end());
    return String::stringWithCharacters(units);
}

} // namespace

TEST(StringStorage, LongASCIIKeepsItsBytesAndBehavesAsUTF16)
{
    Ref<String> kept = String::stringWithUTF8String(kLongASCII);
    Ref<String> wide = wideCopyOf(kLongASCII);
    ASSERT_NE(kept->asciiCharacters(), nullptr);
    EXPECT_EQ(wide->asciiCharacters(), nullptr);
    EXPECT_EQ(std::string(kept->asciiCharacters(), kept->length()), kLongASCII);
    EXPECT_EQ(kept->UTF8String(), kLongASCII);

    // Compared both ways before and after either side makes its units.
    EXPECT_TRUE(kept->isEqual(wide.get()));
    EXPECT_TRUE(wide->isEqual(kept.get()));
    EXPECT_FALSE(kept->isEqual(wideCopyOf(kLongASCII.substr(1) + "x").get()));
    EXPECT_EQ(kept->hash(), wide->hash());
    EXPECT_EQ(kept->view(), wide->view());
    EXPECT_EQ(kept->characterAtIndex(5), u'0');
    EXPECT_EQ(kept->substringWithRange({0, 6})->UTF8String(), "line 0");
    EXPECT_TRUE(kept->isEqual(String::stringWithUTF8String(kLongASCII).get()));

    // A dictionary finds a value under either form of the key.
    Ref<String> value = String::stringWithUTF8String("found");
    auto dictionary = Dictionary::dictionaryWithObject_forKey(value.get(), wide.get());
    EXPECT_EQ(dictionary->objectForKey(String::stringWithUTF8String(kLongASCII).get()), value.get());

    auto mutableCopy = staticRefCast<MutableString>(kept->mutableCopy());
    mutableCopy->appendString(ZSTR("!"));
    EXPECT_EQ(mutableCopy->UTF8String(), kLongASCII + "!");
    EXPECT_EQ(kept->UTF8String(), kLongASCII);
    EXPECT_NE(String::stringWithString(kept.get())->asciiCharacters(), nullptr);
}

TEST(StringStorage, ShortOrNonASCIITextIsUTF16)
{
    EXPECT_EQ(String::stringWithUTF8String("short")->asciiCharacters(), nullptr);
    Ref<String> accented = String::stringWithUTF8String(kLongASCII + "\xC3\xA9");
    ASSERT_NE(accented, nullptr);
    EXPECT_EQ(accented->asciiCharacters(), nullptr);
    EXPECT_EQ(accented->length(), kLongASCII.size() + 1);
    EXPECT_EQ(String::stringWithUTF8String(kLongASCII + "\xC3"), nullptr);
}

TEST(StringStorage, ThreadsAskingForUnitsAtOnceAllSeeTheSameUnits)
{
    for (int round = 0; round < 20; ++round) {
        Ref<String> kept = String::stringWithUTF8String(kLongASCII);
        std::vector<const char16_t*> seen(4);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < seen.size(); ++i)
            threads.emplace_back([&, i] { seen[i] = kept->characters(); });
        for (std::thread& thread : threads)
            thread.join();
        for (const char16_t* units : seen)
            EXPECT_EQ(units, seen[0]);
        EXPECT_EQ(kept->view(), wideCopyOf(kLongASCII)->view());
    }
}

TEST(StringStorage, TextOfAllOfImmutableDataSharesIt)
{
    Ref<String> shared;
    Ref<Data> data = Data::dataWithBytes(kLongASCII.data(), kLongASCII.size());
    const Data* address = data.get();
    shared = stringWithUTF8Data(data.get());
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared->asciiOwner(), address);
    EXPECT_EQ(Data::dataWithUTF8OfString(shared.get()).get(), address);
    // The string keeps the data alive.
    data = nullptr;
    EXPECT_EQ(shared->UTF8String(), kLongASCII);
    EXPECT_EQ(shared->view(), wideCopyOf(kLongASCII)->view());
    // A substring, or text from a copy, is UTF-8 of its own.
    EXPECT_EQ(Data::dataWithUTF8OfString(shared->substringFromIndex(1).get())->length(), kLongASCII.size() - 1);

    // Mutable data can change under a string, so its text is copied.
    Ref<MutableData> changing = MutableData::dataWithBytes(kLongASCII.data(), kLongASCII.size());
    Ref<String> copied = stringWithUTF8Data(changing.get());
    EXPECT_EQ(copied->asciiOwner(), nullptr);
    changing->resetBytesInRange({0, 4});
    EXPECT_EQ(copied->UTF8String(), kLongASCII);

    // Bytes past ASCII decode as usual; invalid UTF-8 answers nil.
    const std::string accented = kLongASCII + "\xC3\xA9";
    Ref<String> decoded = stringWithUTF8Data(Data::dataWithBytes(accented.data(), accented.size()).get());
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->asciiOwner(), nullptr);
    EXPECT_EQ(decoded->UTF8String(), accented);
    EXPECT_EQ(stringWithUTF8Data(Data::dataWithBytes(accented.data(), accented.size() - 1).get()), nullptr);
}
