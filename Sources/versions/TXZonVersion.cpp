#include "versions/TXZonVersion.h"

#include "platform/io/Bundle.h"
#include "platform/io/HostSystemVersionInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/CharacterSet.h"
#include "platform/values/Dictionary.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(TXZonVersion, "TXZonVersion")

namespace {

String* orEmpty(const String* part) { return part ? const_cast<String*>(part) : ZSTR(""); }
Ref<String> orEmpty(Ref<String>&& part) { return part ? std::move(part) : Ref<String>(ZSTR("")); }

// A nil part prints as (null), which holds neither a digit nor a ".", so for the comparison it
// reads like an empty part.
std::u16string_view unitsOf(const String* part) { return part ? part->view() : std::u16string_view(); }

// Reads the text "major.minor.bugfix.build" one "."-separated component at a time without making
// it: digits gather into a wrapping 32-bit value, every other unit is skipped.
class JoinedComponentReader {
public:
    explicit JoinedComponentReader(const TXZonVersion* version)
    {
        if (version) {
            parts_ = {unitsOf(version->majorValue()), unitsOf(version->minorValue()),
                unitsOf(version->bugfixValue()), unitsOf(version->buildValue())};
        }
    }

    bool atEnd() const { return part_ == parts_.size() - 1 && offset_ == parts_.back().size(); }

    // The next component's value, consuming the "." that ends it; 0 once the text has ended.
    uint32_t next()
    {
        uint32_t value = 0;
        const std::u16string_view text = parts_[part_];
        while (offset_ < text.size()) {
            const char16_t unit = text[offset_++];
            if (unit == u'.')
                return value;
            if (unit >= u'0' && unit <= u'9')
                value = value * 10 + uint32_t(unit - u'0');
        }
        if (part_ < parts_.size() - 1) {
            ++part_; // the "." that joins two parts
            offset_ = 0;
        }
        return value;
    }

private:
    std::array<std::u16string_view, 4> parts_ {};
    size_t part_ = 0;
    size_t offset_ = 0;
};

void appendPart(std::u16string& text, const String* part)
{
    if (part)
        text += part->view();
    else
        text += u"(null)";
}

// The four parts of a "%@" form, ready for the formatter (nil stays nil and prints as (null)).
Ref<String> joinedParts(const TXZonVersion& version, std::string_view format)
{
    return String::stringWithFormat(
        format, version.majorValue(), version.minorValue(), version.bugfixValue(), version.buildValue());
}

// A version part with its leading "0"s stripped again and again; "0" when nothing is left.
Ref<String> withoutLeadingZeros(Ref<String> piece)
{
    // Most parts have no leading zero: they skip the trim's copy of the text.
    if (piece->length() && piece->characterAtIndex(0) == u'0')
        piece = piece->stringByTrimmingPrefix(ZSTR("0"));
    return piece->length() ? std::move(piece) : Ref<String>(ZSTR("0"));
}

// The "."-separated pieces of an information dictionary's value; none when it is missing or not
// a string.
std::vector<Ref<String>> infoPieces(const Dictionary* info, const String* key)
{
    const String* value = dynamicCast<String>(info->objectForKey(key));
    return value ? value->componentsSeparatedByString(ZSTR(".")) : std::vector<Ref<String>>();
}

// The four numeric values in a "%d" form. Each is cut to the 32 bits "%d" reads, so a part past
// INT_MAX prints as other programs of the suite print it.
Ref<String> numericForm(const TXZonVersion& version, std::string_view format)
{
    return String::stringWithFormat(format, int(version.numericMajorVersion()), int(version.numericMinorVersion()),
        int(version.numericBugFixVersion()), int(version.numericBuild()));
}

CharacterSet* nonDigits()
{
    static const Ref<CharacterSet> set = CharacterSet::decimalDigitCharacterSet()->invertedSet();
    return set.get();
}

} // namespace

void TXZonVersion::exportMethods(Class& cls)
{
    cls.exportMethod("majorValue", &TXZonVersion::majorValue);
    cls.exportMethod("minorValue", &TXZonVersion::minorValue);
    cls.exportMethod("bugfixValue", &TXZonVersion::bugfixValue);
    cls.exportMethod("buildValue", &TXZonVersion::buildValue);
    cls.exportMethod("setMajorValue:", &TXZonVersion::setMajorValue);
    cls.exportMethod("setMinorValue:", &TXZonVersion::setMinorValue);
    cls.exportMethod("setBugfixValue:", &TXZonVersion::setBugfixValue);
    cls.exportMethod("setBuildValue:", &TXZonVersion::setBuildValue);
    cls.exportMethod("majorVersion", &TXZonVersion::majorVersion);
    cls.exportMethod("minorVersion", &TXZonVersion::minorVersion);
    cls.exportMethod("bugFixVersion", &TXZonVersion::bugFixVersion);
    cls.exportMethod("build", &TXZonVersion::build);
    cls.exportMethod("integerValueOf:", &TXZonVersion::integerValueOf);
    cls.exportMethod("numericMajorVersion", &TXZonVersion::numericMajorVersion);
    cls.exportMethod("numericMinorVersion", &TXZonVersion::numericMinorVersion);
    cls.exportMethod("numericBugFixVersion", &TXZonVersion::numericBugFixVersion);
    cls.exportMethod("numericBuild", &TXZonVersion::numericBuild);
    cls.exportMethod("isInclusivlyBetweenLower:andUpper:", &TXZonVersion::isInclusivlyBetweenLower_andUpper);
    cls.exportMethod("versionDescription", &TXZonVersion::versionDescription);
    cls.exportMethod("trimmedVersionDescription", &TXZonVersion::trimmedVersionDescription);
    cls.exportMethod("versionAndBuildDescription", &TXZonVersion::versionAndBuildDescription);
    cls.exportMethod("stringValue", &TXZonVersion::stringValue);
    cls.exportMethod("spacedVersionAndBuildDescription", &TXZonVersion::spacedVersionAndBuildDescription);
    cls.exportMethod("zeroPaddedVersionAndBuildDescription", &TXZonVersion::zeroPaddedVersionAndBuildDescription);
    cls.exportMethod("zonVersionAndBuildDescription", &TXZonVersion::zonVersionAndBuildDescription);
    cls.exportMethod("userDescription", &TXZonVersion::userDescription);
    cls.exportMethod("localizedUserDescription", &TXZonVersion::localizedUserDescription);
    cls.exportMethod("localizedSoftwareDescription", &TXZonVersion::localizedSoftwareDescription);
}

TXZonVersion::TXZonVersion(const String* major, const String* minor, const String* bugFix, const String* build)
    : major_(orEmpty(major))
    , minor_(orEmpty(minor))
    , bugFix_(orEmpty(bugFix))
    , build_(orEmpty(build))
{
}

TXZonVersion::TXZonVersion(Parts&& parts)
    : major_(orEmpty(std::move(parts[0])))
    , minor_(orEmpty(std::move(parts[1])))
    , bugFix_(orEmpty(std::move(parts[2])))
    , build_(orEmpty(std::move(parts[3])))
{
}

TXZonVersion::Parts TXZonVersion::numericParts(int32_t major, int32_t minor, int32_t bugFix, int32_t build)
{
    return {String::stringWithFormat("%d", major), String::stringWithFormat("%d", minor),
        String::stringWithFormat("%d", bugFix), String::stringWithFormat("%d", build)};
}

TXZonVersion::Parts TXZonVersion::partsOfVersionString(const String* text)
{
    Parts parts {ZSTR("x"), ZSTR("x"), ZSTR("x"), ZSTR("x")};
    const std::u16string_view units = text->view();
    size_t start = 0;
    for (Ref<String>& part : parts) {
        const size_t dot = units.find(u'.', start);
        const size_t end = dot == std::u16string_view::npos ? units.size() : dot;
        part = withoutLeadingZeros(text->substringWithRange({start, end - start}));
        if (dot == std::u16string_view::npos)
            break;
        start = dot + 1;
    }
    return parts;
}

TXZonVersion::Parts TXZonVersion::hostSystemParts()
{
    const HostSystemVersion host = currentHostSystemVersion();
    // A build that is not UTF-8 becomes nil, which the initialiser stores as "".
    return {String::stringWithUTF8String(host.major), String::stringWithUTF8String(host.minor),
        String::stringWithUTF8String(host.bugFix), String::stringWithUTF8String(host.build)};
}

std::optional<TXZonVersion::Parts> TXZonVersion::runningApplicationParts()
{
    const Dictionary* info = Bundle::mainBundle()->infoDictionary();
    if (!info)
        return std::nullopt;
    std::vector<Ref<String>> release = infoPieces(info, ZSTR("CFBundleShortVersionString"));
    std::vector<Ref<String>> bundleVersion = infoPieces(info, ZSTR("CFBundleVersion"));
    Parts parts {ZSTR("0"), ZSTR("0"), ZSTR("0"), ZSTR("0")};
    for (size_t i = 0; i < 3 && i < release.size(); ++i)
        parts[i] = withoutLeadingZeros(std::move(release[i]));
    if (!bundleVersion.empty())
        parts[3] = withoutLeadingZeros(std::move(bundleVersion.back()));
    return parts;
}

bool TXZonVersion::isMacOSX105() { return versionOnMacOSX()->numericMinorVersion() == 5; }
bool TXZonVersion::isMacOSX106() { return versionOnMacOSX()->numericMinorVersion() == 6; }
bool TXZonVersion::isMacOSX107() { return versionOnMacOSX()->numericMinorVersion() == 7; }

bool TXZonVersion::isVersionString_equalToVersionString(const String* version, const String* other)
{
    Ref<TXZonVersion> left = versionWithString(version);
    // A message to nil answers NO.
    return left && left->isEqual(versionWithString(other).get());
}

ComparisonResult TXZonVersion::compareVersionString_toVersionString(const String* version, const String* other)
{
    Ref<TXZonVersion> left = versionWithString(version);
    return left ? left->compare(versionWithString(other).get()) : NSOrderedSame;
}

bool TXZonVersion::isVersionString_inclusivlyBetweenLowerVersionString_andUpperVersionString(
    const String* version, const String* lower, const String* upper)
{
    Ref<TXZonVersion> receiver = versionWithString(version);
    return receiver
        && receiver->isInclusivlyBetweenLower_andUpper(versionWithString(lower).get(), versionWithString(upper).get());
}

long TXZonVersion::integerValueOf(const String* part) const
{
    if (!part)
        return 0;
    return part->stringByTrimmingCharactersInSet(nonDigits())->integerValue();
}

ComparisonResult TXZonVersion::compare(const TXZonVersion* other) const
{
    JoinedComponentReader left(this);
    JoinedComponentReader right(other);
    while (!left.atEnd() || !right.atEnd()) {
        const uint32_t a = left.atEnd() ? 0 : left.next();
        const uint32_t b = right.atEnd() ? 0 : right.next();
        if (a != b)
            return a > b ? NSOrderedDescending : NSOrderedAscending;
    }
    return NSOrderedSame;
}

bool TXZonVersion::isInclusivlyBetweenLower_andUpper(const TXZonVersion* lower, const TXZonVersion* upper) const
{
    if (lower && lower->compare(this) == NSOrderedDescending)
        return false;
    return compare(upper) != NSOrderedDescending;
}

bool TXZonVersion::isEqual(const Object* other) const
{
    if (other && !other->isKindOfClass(staticClass())) {
        // Raises as the message majorValue to an object that does not answer it.
        const_cast<Object*>(other)->performSelector(selector("majorValue"));
        return false;
    }
    return compare(static_cast<const TXZonVersion*>(other)) == NSOrderedSame;
}

size_t TXZonVersion::hash() const
{
    std::u16string joined;
    appendPart(joined, major_.get());
    joined += u'.';
    appendPart(joined, minor_.get());
    joined += u'.';
    appendPart(joined, bugFix_.get());
    joined += u'.';
    appendPart(joined, build_.get());
    // The same hash as the string of that text.
    return std::hash<std::u16string_view>()(joined);
}

Ref<Object> TXZonVersion::copy() const
{
    return initWithMajorVersion_minorVersion_bugFixVersion_build(major_.get(), minor_.get(), bugFix_.get(), build_.get());
}

Ref<Object> TXZonVersion::valueForKey(String* key)
{
    using Form = Ref<String> (TXZonVersion::*)() const;
    static constexpr std::pair<std::u16string_view, Form> keyedForms[] {
        {u"stringValue", &TXZonVersion::stringValue},
        {u"versionDescription", &TXZonVersion::versionDescription},
        {u"versionAndBuildDescription", &TXZonVersion::versionAndBuildDescription},
        {u"zonVersionAndBuildDescription", &TXZonVersion::zonVersionAndBuildDescription},
        {u"description", &TXZonVersion::description},
        {u"userDescription", &TXZonVersion::userDescription},
        {u"localizedUserDescription", &TXZonVersion::localizedUserDescription},
    };
    if (key)
        for (const auto& [name, form] : keyedForms)
            if (key->view() == name)
                return (this->*form)();
    return Object::valueForKey(key);
}

Ref<String> TXZonVersion::versionDescription() const
{
    return String::stringWithFormat("%@.%@.%@", major_.get(), minor_.get(), bugFix_.get());
}

Ref<String> TXZonVersion::trimmedVersionDescription() const
{
    std::string format = "%d";
    const long minor = numericMinorVersion();
    const long bugFix = numericBugFixVersion();
    if (minor > 0) {
        format += ".%d";
        if (bugFix > 0)
            format += ".%d";
    }
    return String::stringWithFormat(format, int(numericMajorVersion()), int(minor), int(bugFix));
}

Ref<String> TXZonVersion::versionAndBuildDescription() const { return joinedParts(*this, "%@.%@.%@.%@"); }

Ref<String> TXZonVersion::spacedVersionAndBuildDescription() const { return joinedParts(*this, "%@.%@.%@ %@"); }

Ref<String> TXZonVersion::zeroPaddedVersionAndBuildDescription() const { return numericForm(*this, "%d.%d.%d.%d"); }

Ref<String> TXZonVersion::zonVersionAndBuildDescription() const { return numericForm(*this, "%02d%02d.%02d.%02d"); }

Ref<String> TXZonVersion::userDescription() const
{
    return String::stringWithFormat("Version %@ (build %@)", versionDescription().get(), build_.get());
}

Ref<String> TXZonVersion::localizedUserDescription() const
{
    return String::stringWithFormat(
        ZonLocalizedString(ZSTR("Version %@ (build %@)")).get(), versionDescription().get(), build_.get());
}

// The numbers are cut to the 32 bits "%u" reads, as in the "%d" forms.
Ref<String> TXZonVersion::localizedSoftwareDescription() const
{
    const auto major = unsigned(numericMajorVersion()), minor = unsigned(numericMinorVersion());
    const long bugFix = numericBugFixVersion();
    Ref<String> text = bugFix != 0 ? String::stringWithFormat("%u.%u.%u", major, minor, unsigned(bugFix))
                                   : String::stringWithFormat("%u.%u", major, minor);
    if (const long build = numericBuild(); build != 0)
        return String::stringWithFormat(ZonLocalizedString(ZSTR("%@ Bundle %u")).get(), text.get(), unsigned(build));
    return text;
}

} // namespace zon
