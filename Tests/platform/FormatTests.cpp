#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/Format.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <limits>

using namespace zon;

namespace {

// An object whose description counts how often it is asked, and can throw.
class Described : public Object {
    ZON_OBJECT(Described, Object)
public:
    static Ref<Described> described(std::string text) { return makeObject<Described>(std::move(text)); }
    Ref<String> description() const override
    {
        ++calls;
        if (text_ == "throw")
            Exception::raise(NSGenericException, ZSTR("no description"));
        return String::stringWithUTF8String(text_);
    }
    mutable int calls = 0;

private:
    explicit Described(std::string text) : text_(std::move(text)) {}
    std::string text_;
};
ZON_DEFINE_CLASS(Described, "Described")

template <class T>
std::string cFormat(const char* format, T value)
{
    std::string text(static_cast<size_t>(std::snprintf(nullptr, 0, format, value)), '\0');
    std::snprintf(text.data(), text.size() + 1, format, value);
    return text;
}

std::u16string utf16(const Ref<String>& text) { return std::u16string(text->view()); }

} // namespace

TEST(Format, IntegerConversionsMatchPrintf)
{
    const char* formats[] = {"%d", "%i", "%5d", "%-5d|", "%05d", "%+d", "% d", "%.3d", "%8.3d", "%-+8.3d|", "%x",
        "%X", "%#x", "%#X", "%#o", "%o", "%08x", "%#010x", "%.0d", "%u", "%'d"};
    for (const char* format : formats) {
        for (int value : {0, 1, -1, 42, -42, 123456, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
            SCOPED_TRACE(std::string(format) + " " + std::to_string(value));
            EXPECT_EQ(formatUTF8(format, value), cFormat(format, value));
        }
    }
    for (long long value : {0LL, -1LL, std::numeric_limits<long long>::min(), std::numeric_limits<long long>::max()}) {
        EXPECT_EQ(formatUTF8("%lld %qd %llx %20lld", value, value, value, value),
            cFormat("%lld", value) + " " + cFormat("%lld", value) + " " + cFormat("%llx", value) + " " + cFormat("%20lld", value));
    }
    EXPECT_EQ(formatUTF8("%zu %td %jd %lu", size_t(7), ptrdiff_t(-3), intmax_t(9), 10UL), "7 -3 9 10");
}

TEST(Format, FloatingConversionsMatchPrintf)
{
    const char* formats[] = {"%f", "%F", "%e", "%E", "%g", "%G", "%a", "%A", "%.0f", "%.3f", "%10.2f", "%-10.2f|",
        "%+f", "% f", "%#.0f", "%#g", "%010.3e", "%.17g", "%.0e", "%g"};
    const double values[] = {0.0, -0.0, 1.0, -1.5, 0.1, 3.14159265358979, 1e300, 1e-300, 123456789.125,
        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::denorm_min()};
    for (const char* format : formats) {
        for (double value : values) {
            SCOPED_TRACE(std::string(format) + " " + cFormat("%a", value));
            EXPECT_EQ(formatUTF8(format, value), cFormat(format, value));
        }
    }
    EXPECT_EQ(formatUTF8("%.2f", 2.5f), "2.50");
    const long double big = 1.0L / 3.0L;
    EXPECT_EQ(formatUTF8("%.20Lf", big), cFormat("%.20Lf", big));
    // A long double keeps its precision even without the L modifier.
    EXPECT_EQ(formatUTF8("%.20f", big), cFormat("%.20Lf", big));
    // Long output goes past the engine's stack buffer.
    EXPECT_EQ(formatUTF8("%.300f", 1e300), cFormat("%.300f", 1e300));
}

TEST(Format, ObjectsPrintTheirDescriptionAndNilPrintsNull)
{
    Ref<String> name = String::stringWithUTF8String("Pallidor");
    String* nil = nullptr;
    EXPECT_EQ(formatUTF8("IPC Service Started with name: %@", name), "IPC Service Started with name: Pallidor");
    EXPECT_EQ(formatUTF8("%@|%@|%@", nil, nullptr, Ref<String>()), "(null)|(null)|(null)");
    EXPECT_EQ(formatUTF8("[%10@][%-10@][%.3@]", name.get(), name.get(), name.get()), "[  Pallidor][Pallidor  ][Pal]");
    EXPECT_EQ(formatUTF8("%s and %s", "text", static_cast<const char*>(nullptr)), "text and (null)");
    EXPECT_EQ(formatUTF8("%S|%s|%.2s", u"wide", std::string("std"), std::string_view("view")), "wide|std|vi");
    EXPECT_EQ(formatUTF8("%@", ZSTR("z\u00e9")), "z\u00e9");
    EXPECT_EQ(formatUTF8("%@ %s", selector("start:"), selector("stop")), "start: stop");
    EXPECT_EQ(formatUTF8("%%|100%%"), "%|100%");
}

TEST(Format, PositionalArgumentsFollowPrintf)
{
    EXPECT_EQ(formatUTF8("%2$@ %1$@", ZSTR("world"), ZSTR("hello")), "hello world");
    EXPECT_EQ(formatUTF8("%1$d %1$x %1$o", 255), "255 ff 377");
    EXPECT_EQ(formatUTF8("%1$*2$d|%1$-*2$d|", 7, 4), "   7|7   |");
    EXPECT_EQ(formatUTF8("%1$.*2$f", 3.14159, 2), "3.14");
    // Unnumbered conversions count on their own, as glibc's printf does.
    EXPECT_EQ(formatUTF8("%2$d %d %d", 10, 20), "20 10 20");
    // Index 0 and indexes past the end print nothing.
    EXPECT_EQ(formatUTF8("[%0$d][%3$d]", 1, 2), "[][]");
    EXPECT_EQ(utf16(String::stringWithFormat("%1$@ %2$@", ZSTR("a"), ZSTR("b"))), u"a b");
}

TEST(Format, StarWidthAndPrecision)
{
    EXPECT_EQ(formatUTF8("[%*d]", 5, 42), cFormat("[%5d]", 42));
    EXPECT_EQ(formatUTF8("[%*d]", -5, 42), "[42   ]");
    EXPECT_EQ(formatUTF8("[%.*f]", 1, 2.25), cFormat("[%.1f]", 2.25));
    EXPECT_EQ(formatUTF8("[%.*f]", -1, 2.25), cFormat("[%f]", 2.25));
    EXPECT_EQ(formatUTF8("[%*.*s]", 6, 2, "abcdef"), "[    ab]");
    // A width that is not an integer is ignored; the value is still taken in order.
    EXPECT_EQ(formatUTF8("[%*d]", ZSTR("x"), 3), "[3]");
}

TEST(Format, LengthModifiersDecideWidthAndConversionsDecideSign)
{
    EXPECT_EQ(formatUTF8("%hhd %hhu %hd %hu", 300, -1, 70000, -1), "44 255 4464 65535");
    EXPECT_EQ(formatUTF8("%u %x", -1, -1), "4294967295 ffffffff");
    EXPECT_EQ(formatUTF8("%d", 4294967295u), "-1");
    // Without a modifier the argument's own width counts: a 64-bit value prints whole.
    EXPECT_EQ(formatUTF8("%d %u", std::numeric_limits<long long>::max(), 18446744073709551615ULL),
        "9223372036854775807 18446744073709551615");
    EXPECT_EQ(formatUTF8("%u", static_cast<long long>(-1)), "18446744073709551615");
    EXPECT_EQ(formatUTF8("%d %d %c", true, 'A', 'A'), "1 65 A");
    EXPECT_EQ(formatUTF8("%@ Buffer Stream Wrote %d of %u from %@", ZSTR("Stream"), 512, 1024u, ZSTR("me")),
        "Stream Buffer Stream Wrote 512 of 1024 from me");
}

TEST(Format, MismatchedArgumentsPrintNaturallyWithoutCrashing)
{
    EXPECT_EQ(formatUTF8("%d|%x|%5c|", ZSTR("obj"), nullptr, ZSTR("c")), "obj|(null)|    c|");
    EXPECT_EQ(formatUTF8("%@ %@ %@", 42, -7LL, 2.5), "42 -7 2.5");
    EXPECT_EQ(formatUTF8("%f %.1e", 3, 2u), "3.000000 2.0e+00");
    EXPECT_EQ(formatUTF8("%d", 1.5), "1.5");
    EXPECT_EQ(formatUTF8("%s", Described::described("desc")), "desc");
    int local = 0;
    const std::string address = cFormat("%p", static_cast<void*>(&local));
    EXPECT_EQ(formatUTF8("%p", &local), address);
    EXPECT_EQ(formatUTF8("%@", static_cast<void*>(&local)), address);
    EXPECT_EQ(formatUTF8("%p", static_cast<void*>(nullptr)), "0x0");
    EXPECT_EQ(formatUTF8("%lx", static_cast<void*>(&local)), address.substr(2));
}

TEST(Format, MissingArgumentsAndOddSpecificationsAreHarmless)
{
    EXPECT_EQ(formatUTF8("a%db%@c%sd%fe"), "abcde");
    EXPECT_EQ(formatUTF8("%d and %d", 1), "1 and ");
    EXPECT_EQ(formatUTF8("%n|%d", 5, 6), "|6");          // %n stores nothing
    EXPECT_EQ(formatUTF8("%k %5k %d", 9), "%k %5k 9");   // unknown conversions stay as written
    EXPECT_EQ(formatUTF8("100%"), "100%");
    EXPECT_EQ(formatUTF8("tail %-08.3l"), "tail %-08.3l");
    // Huge widths are clamped rather than honoured.
    EXPECT_EQ(formatUTF8("%999999999999d", 1).size(), size_t(1) << 16);
}

TEST(Format, StringOutputIsUTF16AndCountsCharacters)
{
    EXPECT_EQ(utf16(String::stringWithFormat("caf\u00e9 %@ %d", ZSTR("\u20ac"), 5)), u"caf\u00e9 \u20ac 5");
    EXPECT_EQ(utf16(String::stringWithFormat(ZSTR("%@-%@"), ZSTR("a"), ZSTR("b"))), u"a-b");
    EXPECT_EQ(utf16(String::stringWithFormat(static_cast<const String*>(nullptr), 1)), u"");
    // %C and %lc take code points; %c takes a Latin-1 byte.
    EXPECT_EQ(utf16(String::stringWithFormat("%C%lc%c", char16_t(0x263A), 0x1F600, 0xE9)), u"\u263A\U0001F600\u00e9");
    EXPECT_EQ(utf16(String::stringWithFormat("%C", 0xD800)), u"\uFFFD");
    // Width and precision count characters, so a surrogate pair is never split.
    EXPECT_EQ(utf16(String::stringWithFormat("[%3@][%.1@]", ZSTR("\U0001F600"), ZSTR("\U0001F600x"))), u"[  \U0001F600][\U0001F600]");
    EXPECT_EQ(formatUTF8("[%3s][%.1s]", "\u00e9", "\u00e9x"), "[  \u00e9][\u00e9]");
    // Invalid UTF-8 passes through to UTF-8 output and becomes U+FFFD in UTF-16 output.
    EXPECT_EQ(formatUTF8("a\xff%s", "\xc3"), "a\xff\xc3");
    EXPECT_EQ(utf16(String::stringWithFormat("a\xff%s", "\xe2\x82")), u"a\uFFFD\uFFFD\uFFFD");
    // Lone surrogates survive UTF-16 output.
    const char16_t lone[] = {u'x', 0xDC00, 0};
    EXPECT_EQ(utf16(String::stringWithFormat("%S", lone)), std::u16string(lone));
}

TEST(Format, DescriptionsThatThrowPropagateFromStringFormatting)
{
    EXPECT_THROW(String::stringWithFormat("%@", Described::described("throw")), Exception);
}

TEST(ZonLog, EnabledLineReachesTheSinksFormatted)
{
    LogCapture capture;
    Ref<String> name = String::stringWithUTF8String("media");
    zon_log_obj(__FILE__, __LINE__, ZSTR("BufferStream"), 3, kDefaultLogIdentifier, "IPC Service Started with name: %@", name);
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "IPC Service Started with name: media");
    EXPECT_EQ(records[0].category, "BufferStream");
    EXPECT_EQ(records[0].identifier, "default");
    EXPECT_EQ(records[0].level, 3);
    EXPECT_THAT(records[0].file, testing::EndsWith("FormatTests.cpp"));
    EXPECT_GT(records[0].line, 0);
    EXPECT_EQ(kDefaultLogIdentifier->UTF8String(), "default");
}

TEST(ZonLog, DisabledLevelFormatsNothingAndThrowingDescriptionsAreSwallowed)
{
    LogCapture capture;
    auto probe = Described::described("probe");
    const int disabled = logger::gMaximumThreshold.load() + 1;
    zon_log_obj(__FILE__, __LINE__, nullptr, disabled, kDefaultLogIdentifier, "%@", probe);
    EXPECT_EQ(probe->calls, 0);

    EXPECT_NO_THROW(zon_log_obj(__FILE__, __LINE__, nullptr, 1, nullptr, "%@", Described::described("throw")));
    zon_log_obj(__FILE__, __LINE__, nullptr, 1, nullptr, "after %@", probe);
    EXPECT_EQ(probe->calls, 1);
    EXPECT_THAT(capture.records(), ContainsLine(1, "after probe"));
    EXPECT_EQ(capture.records().back().category, "default");
}
