#include "formatters/TXZonByteSizeFormatter.h"

#include "logger/ZonLog.h"
#include "platform/io/Bundle.h"
#include "platform/values/LocaleInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/Number.h"
#include "platform/values/NumberFormatterInternal.h"
#include "platform/values/String.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace zon {

ZON_DEFINE_CLASS(TXZonByteSizeFormatter, "TXZonByteSizeFormatter")

namespace {

// The units; each name is a key in the library's string table.
enum ByteUnit : size_t { B, KB, MB, GB, TB, PB, kUnitCount };
ZON_STRING_CONSTANT(kUnitB, "B");
ZON_STRING_CONSTANT(kUnitKB, "KB");
ZON_STRING_CONSTANT(kUnitMB, "MB");
ZON_STRING_CONSTANT(kUnitGB, "GB");
ZON_STRING_CONSTANT(kUnitTB, "TB");
ZON_STRING_CONSTANT(kUnitPB, "PB");
String* const kUnitKeys[kUnitCount] {kUnitB, kUnitKB, kUnitMB, kUnitGB, kUnitTB, kUnitPB};

// A byte count in its unit: the unit chosen by the magnitude, and the value the texts show.
struct ByteSize {
    ByteUnit unit;
    double value;
};

ByteSize measure(long long bytes)
{
    // The magnitude is the two's-complement negation, read as unsigned for the range tests; the
    // most negative count negates to itself (2^63), which only the PB test could take, and that
    // test also wants the magnitude non-negative as a signed number: it falls to B.
    const uint64_t magnitude = bytes < 0 ? 0 - static_cast<uint64_t>(bytes) : static_cast<uint64_t>(bytes);
    const auto from = [](ByteUnit unit) { return uint64_t {1} << (10 * unit); };
    ByteUnit unit = B;
    if (magnitude >= from(KB) && magnitude < from(MB))
        unit = KB;
    else if (magnitude >= from(MB) && magnitude < from(GB))
        unit = MB;
    else if (magnitude >= from(GB) && magnitude < from(TB))
        unit = GB;
    else if (magnitude >= from(TB) && magnitude < from(PB))
        unit = TB;
    else if (magnitude >= from(PB) && static_cast<int64_t>(magnitude) >= 0)
        unit = PB;
    // The magnitude converts as a signed number: 2^63 becomes -2^63, and the negation below
    // turns the most negative count's value positive.
    const double value = static_cast<double>(static_cast<int64_t>(magnitude)) / static_cast<double>(from(unit));
    return {unit, bytes < 0 ? -value : value};
}

// The unit names and the "%1$@ %2$@" layout as the library's string table gives them. A look-up
// costs more than the rest of a text together (row BM_ByteSizeString_Zon of ByteSizeBenchmarks),
// so each thread keeps its answers while the library's bundle and the locale preference stay the
// same. (A table edited on disk while the process runs is therefore not seen here.)
struct ByteSizeTexts {
    const Bundle* bundle = nullptr;
    uint64_t localeGeneration = 0;
    Ref<String> layout;
    bool plainLayout = false; // the layout as it ships: number, space, unit
    Ref<String> units[kUnitCount];
};

const ByteSizeTexts& byteSizeTexts()
{
    __attribute__((tls_model("initial-exec"))) thread_local ByteSizeTexts texts;
    const Bundle* bundle = Bundle::zonCommonBundle();
    const uint64_t localeGeneration = localePreferenceGeneration();
    if (texts.layout && texts.bundle == bundle && texts.localeGeneration == localeGeneration)
        return texts;
    texts.bundle = bundle;
    texts.localeGeneration = localeGeneration;
    texts.layout = ZonLocalizedString(ZSTR("%1$@ %2$@"));
    texts.plainLayout = texts.layout && texts.layout->view() == u"%1$@ %2$@";
    for (size_t unit = 0; unit < kUnitCount; ++unit)
        texts.units[unit] = ZonLocalizedString(kUnitKeys[unit]);
    return texts;
}

// The truncating conversion of x86's cvttsd2si: toward zero, and INT32_MIN (the "integer
// indefinite" value) for NaN and for anything outside the 32-bit range.
int32_t truncateToInt32(double value)
{
    if (value > -2147483649.0 && value < 2147483648.0)
        return static_cast<int32_t>(value);
    return INT32_MIN;
}

// Fills the "%1$@ %2$@" layout (as translated) with the number and the unit's name. The layout as
// it ships is filled by hand: the format engine would cost a third of the text.
Ref<String> numberAndUnit(const icu::UnicodeString& number, ByteUnit unit)
{
    const ByteSizeTexts& texts = byteSizeTexts();
    const String* unitName = texts.units[unit].get();
    const std::u16string_view numberText(number.getBuffer(), static_cast<size_t>(number.length()));
    if (!texts.plainLayout || !unitName)
        return String::stringWithFormat(texts.layout.get(), numberText, unitName);
    const std::u16string_view unitText = unitName->view();
    char16_t onStack[64];
    std::u16string onHeap;
    char16_t* text = onStack;
    const size_t length = numberText.size() + 1 + unitText.size();
    if (length > std::size(onStack)) {
        onHeap.resize(length);
        text = onHeap.data();
    }
    std::copy(numberText.begin(), numberText.end(), text);
    text[numberText.size()] = u' ';
    std::copy(unitText.begin(), unitText.end(), text + numberText.size() + 1);
    return String::stringWithCharacters(text, length);
}

} // namespace

Ref<TXZonByteSizeFormatter> TXZonByteSizeFormatter::init()
{
    return makeObject<TXZonByteSizeFormatter>();
}

TXZonByteSizeFormatter::TXZonByteSizeFormatter()
{
    setNumberStyle(NSNumberFormatterDecimalStyle);
    setMaximumFractionDigits(1);
}

Ref<String> TXZonByteSizeFormatter::stringForObjectValue(const Object* value) const
{
    auto* number = dynamicCast<Number>(value);
    if (!number) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Expected parameter to be NSNumber but it's %@", value ? value->objectClass() : nullptr);
        return value ? value->description() : nullptr;
    }
    return stringForByteCount(number->longLongValue());
}

Ref<String> TXZonByteSizeFormatter::stringForByteCount(long long bytes) const
{
    const ByteSize size = measure(bytes);
    icu::UnicodeString text;
    if (!appendFormattedDouble(*this, size.value, text))
        return nullptr;
    return numberAndUnit(text, size.unit);
}

bool TXZonByteSizeFormatter::getObjectValue_forString_errorDescription(Ref<Object>*, const String*, Ref<String>*) const
{
    return false;
}

Ref<String> TXZonByteSizeString(long long bytes)
{
    // A new formatter each time, so the text follows the current locale; the count goes to it
    // without a number object around it, which would change nothing but the time taken.
    return TXZonByteSizeFormatter::init()->stringForByteCount(bytes);
}

Ref<String> TXZonByteSizeDecimalString(long long bytes)
{
    const ByteSize size = measure(bytes);
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, truncateToInt32(size.value)).ptr;
    icu::UnicodeString text(digits, static_cast<int32_t>(end - digits), US_INV);
    return numberAndUnit(text, size.unit);
}

} // namespace zon

zon::CGFloat TXZonCeilCGFloat(zon::CGFloat value)
{
    return std::ceil(value);
}
