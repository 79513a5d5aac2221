#include "formatters/TXZonByteSizeFormatter.h"
#include "platform/io/Bundle.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;
using testing::EndsWith;

namespace {

// Both texts of a byte count: the formatter's and the whole-number one.
struct Texts {
    std::string formatter;
    std::string whole;
    bool operator==(const Texts&) const = default;
};

void PrintTo(const Texts& texts, std::ostream* out) { *out << '"' << texts.formatter << "\" / \"" << texts.whole << '"'; }

Texts textsOf(long long bytes)
{
    return {utf8(TXZonByteSizeString(bytes)), utf8(TXZonByteSizeDecimalString(bytes))};
}

// The current locale fixed by the hook (English by default), the library's own string table.
class ByteSizes : public testing::Test {
protected:
    ByteSizes() { useLocale("en_US"); }
    ~ByteSizes() override
    {
        Locale::setCurrentLocaleIdentifierForTesting(nullptr);
        Bundle::setZonCommonBundlePathForTesting(nullptr);
    }
    static void useLocale(const char* identifier) { Locale::setCurrentLocaleIdentifierForTesting(str(identifier)); }
};

} // namespace

TEST_F(ByteSizes, UnitsFollowTheMagnitudeOnBase1024)
{
    EXPECT_EQ(textsOf(0), (Texts {"0 B", "0 B"}));
    EXPECT_EQ(textsOf(1023), (Texts {"1,023 B", "1023 B"}));
    EXPECT_EQ(textsOf(1024), (Texts {"1 KB", "1 KB"}));
    EXPECT_EQ(textsOf(1536), (Texts {"1.5 KB", "1 KB"}));
    // 1023.999 rounds to 1,024 KB in the formatter; the whole number truncates.
    EXPECT_EQ(textsOf(1048575), (Texts {"1,024 KB", "1023 KB"}));
    EXPECT_EQ(textsOf(1048576), (Texts {"1 MB", "1 MB"}));
    EXPECT_EQ(textsOf(5368709120), (Texts {"5 GB", "5 GB"}));
    EXPECT_EQ(textsOf(1ll << 40), (Texts {"1 TB", "1 TB"}));
    EXPECT_EQ(textsOf((1ll << 50) - 1), (Texts {"1,024 TB", "1023 TB"}));
    EXPECT_EQ(textsOf(3ll << 50), (Texts {"3 PB", "3 PB"}));
    EXPECT_EQ(textsOf(LLONG_MAX), (Texts {"8,192 PB", "8192 PB"}));
}

TEST_F(ByteSizes, SignStaysOnTheNumber)
{
    EXPECT_EQ(textsOf(-2048), (Texts {"-2 KB", "-2 KB"}));
    EXPECT_EQ(textsOf(-1), (Texts {"-1 B", "-1 B"}));
    EXPECT_EQ(textsOf(-1536), (Texts {"-1.5 KB", "-1 KB"}));
    EXPECT_EQ(textsOf(-(3ll << 50)), (Texts {"-3 PB", "-3 PB"}));
}

// The most negative count has no magnitude that fits: it is shown in B, its value read back as
// the positive double 2^63 (written with its shortest digits), which the whole-number form
// cannot hold in 32 bits.
TEST_F(ByteSizes, MostNegativeCountFallsToBytes)
{
    EXPECT_EQ(textsOf(LLONG_MIN), (Texts {"9,223,372,036,854,776,000 B", "-2147483648 B"}));
}

TEST_F(ByteSizes, WholeNumbersTruncateTowardZero)
{
    EXPECT_EQ(utf8(TXZonByteSizeDecimalString(1535)), "1 KB");
    EXPECT_EQ(utf8(TXZonByteSizeDecimalString(2047)), "1 KB");
    EXPECT_EQ(utf8(TXZonByteSizeDecimalString(-2047)), "-1 KB");
    EXPECT_EQ(utf8(TXZonByteSizeDecimalString((1ll << 30) - 1)), "1023 MB");
}

TEST_F(ByteSizes, OneFractionDigitRoundedHalfToEven)
{
    EXPECT_EQ(utf8(TXZonByteSizeString(1280)), "1.2 KB"); // 1.25
    EXPECT_EQ(utf8(TXZonByteSizeString(1792)), "1.8 KB"); // 1.75
    EXPECT_EQ(utf8(TXZonByteSizeString(1075)), "1 KB");   // 1.0498
    auto formatter = TXZonByteSizeFormatter::init();
    EXPECT_EQ(formatter->numberStyle(), NSNumberFormatterDecimalStyle);
    EXPECT_EQ(formatter->minimumFractionDigits(), 0u);
    EXPECT_EQ(formatter->maximumFractionDigits(), 1u);
    formatter->setRoundingMode(NSNumberFormatterRoundHalfUp);
    EXPECT_EQ(utf8(formatter->stringForObjectValue(Number::numberWithInt(1280))), "1.3 KB");
}

TEST_F(ByteSizes, NumbersAreReadAsSigned64BitCounts)
{
    auto formatter = TXZonByteSizeFormatter::init();
    const auto text = [&](Ref<Number> number) { return utf8(formatter->stringForObjectValue(number)); };
    EXPECT_EQ(text(Number::numberWithDouble(1536.9)), "1.5 KB");
    EXPECT_EQ(text(Number::numberWithDouble(-0.9)), "0 B");
    EXPECT_EQ(text(Number::numberWithUnsignedLongLong(ULLONG_MAX)), "-1 B");
    EXPECT_EQ(text(Number::yes()), "1 B");
}

TEST_F(ByteSizes, LocaleGroupsTheFormatterTextOnly)
{
    useLocale("de_DE");
    EXPECT_EQ(textsOf(1023), (Texts {"1.023 B", "1023 B"}));
    EXPECT_EQ(textsOf(1536), (Texts {"1,5 KB", "1 KB"}));
    EXPECT_EQ(textsOf(1048575), (Texts {"1.024 KB", "1023 KB"}));
    // A formatter keeps the locale it was made with, or the one it is given.
    auto formatter = TXZonByteSizeFormatter::init();
    useLocale("en_US");
    EXPECT_EQ(utf8(formatter->stringForObjectValue(Number::numberWithInt(1536))), "1,5 KB");
    formatter->setLocale(Locale::localeWithLocaleIdentifier(str("fr_FR")));
    EXPECT_EQ(utf8(formatter->stringForObjectValue(Number::numberWithInt(1536))), "1,5 KB");
    EXPECT_EQ(utf8(formatter->stringForObjectValue(Number::numberWithInt(1023))), "1\xE2\x80\xAF" "023 B");
}

TEST_F(ByteSizes, AnythingButANumberIsLoggedAndShownAsItsDescription)
{
    LogCapture capture;
    auto formatter = TXZonByteSizeFormatter::init();
    EXPECT_EQ(utf8(formatter->stringForObjectValue(str("12"))), "12");
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].level, 1);
    EXPECT_EQ(records[0].message, "Expected parameter to be NSNumber but it's NSString");
    EXPECT_THAT(records[0].file, EndsWith("Sources/formatters/TXZonByteSizeFormatter.cpp"));

    capture.clear();
    EXPECT_EQ(formatter->stringForObjectValue(nullptr), nullptr);
    EXPECT_THAT(capture.records(), ContainsLine(1, "Expected parameter to be NSNumber but it's (null)"));
}

TEST_F(ByteSizes, TextIsNeverReadBack)
{
    auto formatter = TXZonByteSizeFormatter::init();
    Ref<Object> value = str("untouched");
    Ref<String> reason = str("untouched");
    for (const char* text : {"1.5 KB", "12", ""})
        EXPECT_FALSE(formatter->getObjectValue_forString_errorDescription(&value, str(text), &reason));
    EXPECT_FALSE(formatter->getObjectValue_forString_errorDescription(nullptr, nullptr, nullptr));
    EXPECT_EQ(utf8(dynamicCast<String>(value)), "untouched");
    EXPECT_EQ(utf8(reason), "untouched");
}

// A translated table renames units and may put the unit first; a new bundle or locale is seen
// at once.
TEST_F(ByteSizes, UnitsAndLayoutComeFromTheStringTable)
{
    ScratchFolder scratch;
    Ref<MutableDictionary> info = MutableDictionary::dictionary();
    info->setObject_forKey(str("org.example.Sizes").get(), str("CFBundleIdentifier").get());
    info->setObject_forKey(str("en").get(), str("CFBundleDevelopmentRegion").get());
    Ref<MutableDictionary> table = MutableDictionary::dictionary();
    table->setObject_forKey(str("Ko").get(), str("KB").get());
    table->setObject_forKey(str("%2$@: %1$@").get(), str("%1$@ %2$@").get());
    const auto write = [&](const char* file, Dictionary* dictionary) {
        Ref<Data> data = PropertyListSerialization::dataWithPropertyList(dictionary, NSPropertyListXMLFormat_v1_0, nullptr);
        scratch.write(file, std::string_view(static_cast<const char*>(data->bytes()), data->length()));
    };
    write("Info.plist", info);
    write("en.lproj/Localizable.strings", table);

    EXPECT_EQ(textsOf(1536), (Texts {"1.5 KB", "1 KB"}));
    Bundle::setZonCommonBundlePathForTesting(str(scratch.path));
    EXPECT_EQ(textsOf(1536), (Texts {"Ko: 1.5", "Ko: 1"}));
    EXPECT_EQ(textsOf(1 << 20), (Texts {"MB: 1", "MB: 1"}));
    Bundle::setZonCommonBundlePathForTesting(nullptr);
    EXPECT_EQ(textsOf(1536), (Texts {"1.5 KB", "1 KB"}));
}

TEST_F(ByteSizes, ThreadsFormattingAtOnceAgree)
{
    std::vector<std::string> expected;
    for (long long bytes = 0; bytes < 5000; bytes += 7)
        expected.push_back(utf8(TXZonByteSizeString(bytes * 997)));
    std::vector<std::thread> threads;
    std::vector<int> wrong(4, 0);
    for (size_t t = 0; t < wrong.size(); ++t)
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < expected.size(); ++i) {
                if (utf8(TXZonByteSizeString(static_cast<long long>(i) * 7 * 997)) != expected[i])
                    ++wrong[t];
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(TXZonCeilCGFloat, RoundsUpInSinglePrecision)
{
    EXPECT_EQ(TXZonCeilCGFloat(2.1f), 3.0f);
    EXPECT_EQ(TXZonCeilCGFloat(-2.1f), -2.0f);
    EXPECT_EQ(TXZonCeilCGFloat(4.0f), 4.0f);
    EXPECT_EQ(TXZonCeilCGFloat(-0.5f), -0.0f);
    EXPECT_EQ(TXZonCeilCGFloat(16777215.5f), 16777216.0f);
}
