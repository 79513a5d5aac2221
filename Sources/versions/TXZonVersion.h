#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ComparisonResult.h"
#include "platform/values/String.h"

#include <array>
#include <cstdint>
#include <optional>

namespace zon {

// A software version of four parts (major, minor, bug-fix, build), each held as the string it was
// given ("4.6.x", "5.0.0.beta3" survive being stored and printed). Numbers come from the strings
// only when a comparison or a numeric field asks.
//
// compare walks the four parts as if joined with "." and reads each "."-separated component's
// digits into a wrapping 32-bit value, skipping every other character, so "1.2.x.x" equals
// "1.2.0.0", "5.0.0.beta3" equals "5.0.0.3" and a part holding a "." shifts the components after
// it. isEqual is compare == 0, while hash is that of the joined text as written: equal versions
// may hash differently. Nil arguments are absorbed: a nil version compares as 0.0.0.0.
//
// The class operations make an instance of the class they are called for (Self). A subclass
// declares the same four-string constructor and forwards the operations it offers:
//
//     static Ref<Beta> versionWithString(const String* text) { return TXZonVersion::versionWithString<Beta>(text); }
//
// Not thread-safe while a setter runs; the library itself never calls the setters.
class ZON_EXPORT TXZonVersion : public Object {
    ZON_OBJECT(TXZonVersion, Object)
public:
    // initWithMajorVersion:minorVersion:bugFixVersion:build:, the designated initialiser; nil
    // parts are stored as "".
    template <class Self = TXZonVersion>
    static Ref<Self> initWithMajorVersion_minorVersion_bugFixVersion_build(
        const String* major, const String* minor, const String* bugFix, const String* build)
    {
        return makeObject<Self>(major, minor, bugFix, build);
    }
    template <class Self = TXZonVersion>
    static Ref<Self> versionWithMajorVersion_minorVersion_bugFixVersion_build(
        const String* major, const String* minor, const String* bugFix, const String* build)
    {
        return initWithMajorVersion_minorVersion_bugFixVersion_build<Self>(major, minor, bugFix, build);
    }
    // Each part formatted with "%d".
    template <class Self = TXZonVersion>
    static Ref<Self> versionWithNumericMajorVersion_minorVersion_bugFixVersion_build(
        int32_t major, int32_t minor, int32_t bugFix, int32_t build)
    {
        return fromParts<Self>(numericParts(major, minor, bugFix, build));
    }
    // Split at every "."; missing parts are "x"; leading "0"s of each part stripped (an empty
    // result is "0"); parts past the fourth ignored. Nil for nil.
    template <class Self = TXZonVersion>
    static Ref<Self> versionWithString(const String* text)
    {
        if (!text)
            return nullptr;
        return fromParts<Self>(partsOfVersionString(text));
    }
    // The host operating system's release (docs/Versions.md has the mapping on Linux).
    template <class Self = TXZonVersion>
    static Ref<Self> versionOnMacOSX()
    {
        return fromParts<Self>(hostSystemParts());
    }
    // CFBundleShortVersionString and the last piece of CFBundleVersion of the main bundle, "0"
    // for a missing piece; a bare tool (no Info.plist) still has an information dictionary, so
    // it answers 0.0.0.0.
    template <class Self = TXZonVersion>
    static Ref<Self> versionOfRunningApplication()
    {
        std::optional<Parts> parts = runningApplicationParts();
        return parts ? fromParts<Self>(std::move(*parts)) : nullptr;
    }
    // Whether versionOnMacOSX's numeric minor release is 5, 6 or 7, whatever its major.
    static bool isMacOSX105();
    static bool isMacOSX106();
    static bool isMacOSX107();

    // The string shortcuts: each parses its arguments with versionWithString first.
    static bool isVersionString_equalToVersionString(const String* version, const String* other);
    static ComparisonResult compareVersionString_toVersionString(const String* version, const String* other);
    static bool isVersionString_inclusivlyBetweenLowerVersionString_andUpperVersionString(
        const String* version, const String* lower, const String* upper);

    // The stored parts (the properties and their old names alike); nil only after a setter was
    // given nil.
    String* majorValue() const { return major_.get(); }
    String* minorValue() const { return minor_.get(); }
    String* bugfixValue() const { return bugFix_.get(); }
    String* buildValue() const { return build_.get(); }
    void setMajorValue(String* value) { major_ = Ref(value); }
    void setMinorValue(String* value) { minor_ = Ref(value); }
    void setBugfixValue(String* value) { bugFix_ = Ref(value); }
    void setBuildValue(String* value) { build_ = Ref(value); }
    String* majorVersion() const { return majorValue(); }
    String* minorVersion() const { return minorValue(); }
    String* bugFixVersion() const { return bugfixValue(); }
    String* build() const { return buildValue(); }

    // The part with every non-digit removed from both ends, then read as a leading integer:
    // "x" and "" give 0, "beta3" 3, "10b2" 10, "3rc" 3.
    long integerValueOf(const String* part) const;
    long numericMajorVersion() const { return integerValueOf(major_.get()); }
    long numericMinorVersion() const { return integerValueOf(minor_.get()); }
    long numericBugFixVersion() const { return integerValueOf(bugFix_.get()); }
    long numericBuild() const { return integerValueOf(build_.get()); }

    // NSOrderedDescending when this version is the greater; nil counts as 0.0.0.0. No text is
    // made: the parts are walked as if joined.
    ComparisonResult compare(const TXZonVersion* other) const;
    // Both bounds inclusive; a nil lower bound is no bound, a nil upper bound is 0.0.0.0.
    bool isInclusivlyBetweenLower_andUpper(const TXZonVersion* lower, const TXZonVersion* upper) const;

    // compare == NSOrderedSame. Another kind of object fails as a message it does not answer.
    bool isEqual(const Object* other) const override;
    // The hash of "%@.%@.%@.%@" of the parts as written.
    size_t hash() const override;
    // copyWithZone:, always a TXZonVersion (never the subclass) holding the same four strings.
    Ref<Object> copy() const override;
    // The seven description keys below first, in this order: "stringValue", "versionDescription",
    // "versionAndBuildDescription", "zonVersionAndBuildDescription", "description",
    // "userDescription", "localizedUserDescription"; other keys by key-value coding.
    Ref<Object> valueForKey(String* key) override;

    // The description forms; "%@" is a part as written ((null) for nil), "%d" its numeric value.
    Ref<String> versionDescription() const;                   // "%@.%@.%@"
    Ref<String> trimmedVersionDescription() const;            // "%d", ".%d" minor > 0, then ".%d" bug-fix > 0
    Ref<String> versionAndBuildDescription() const;           // "%@.%@.%@.%@"
    Ref<String> stringValue() const { return versionAndBuildDescription(); }
    Ref<String> description() const override { return versionAndBuildDescription(); }
    Ref<String> spacedVersionAndBuildDescription() const;     // "%@.%@.%@ %@"
    Ref<String> zeroPaddedVersionAndBuildDescription() const; // "%d.%d.%d.%d"
    Ref<String> zonVersionAndBuildDescription() const;        // "%02d%02d.%02d.%02d"
    Ref<String> userDescription() const;                      // "Version %@ (build %@)"
    // The same with its format from the library's string table.
    Ref<String> localizedUserDescription() const;
    // "%u.%u.%u" (or "%u.%u" without a bug-fix), then "%@ Bundle %u" from the string table when
    // the build is non-zero.
    Ref<String> localizedSoftwareDescription() const;

    static void exportMethods(Class& cls);

protected:
    using Parts = std::array<Ref<String>, 4>;
    TXZonVersion(const String* major, const String* minor, const String* bugFix, const String* build);
    explicit TXZonVersion(Parts&& parts);

private:
    // Made by the parsers: the parts move in (nil becomes "") instead of being retained again.
    template <class Self>
    static Ref<Self> fromParts(Parts&& parts)
    {
        return makeObject<Self>(std::move(parts));
    }
    static Parts numericParts(int32_t major, int32_t minor, int32_t bugFix, int32_t build);
    static Parts partsOfVersionString(const String* text);
    static Parts hostSystemParts();
    static std::optional<Parts> runningApplicationParts();

    Ref<String> major_;
    Ref<String> minor_;
    Ref<String> bugFix_;
    Ref<String> build_;
};

} // namespace zon
