#pragma once

#include "platform/runtime/Object.h"

#include <cstdint>
#include <memory>
#include <string>

namespace zon {

class Array;
class Dictionary;
class String;
class TXZonVersion;

// A folder of resources with an information dictionary and localisation folders ("de.lproj",
// "English.lproj"). Safe to share between threads; run-time class NSBundle.
//
// A bundle folder holds its Info.plist and resources directly, or in the platform's layout under
// "Contents" (Contents/Info.plist, resources in Contents/Resources). The main bundle is the
// running program's: an Info.plist beside the executable, in its parent folder (a parent named
// "Contents" stands for the folder above it), or in <prefix>/share/<program>/ when the program is
// in <prefix>/bin; with none, the executable's folder. Its information dictionary always holds
// "CFBundleExecutablePath", the resolved /proc/self/exe, even when there is no Info.plist. The
// library's own bundle, identifier "org.zoncommon.ZonCommon", is <prefix>/share/ZonCommon beside
// the installed library, or the source tree's Resources folder for a library in its build tree.
//
// Localisations are offered by folder name; the old long names ("English", "German", "French",
// "Japanese", "Spanish", "Italian", "Dutch", ...) stand for their language codes, both when
// preferences are matched and when a resource is looked up. String tables are property-list
// dictionaries (XML or binary) in "<table>.strings"; each is read once per bundle, table and
// localisation and read again when its file's modification time changes, looked at no more than
// once a second.
class ZON_EXPORT Bundle final : public Object {
    ZON_OBJECT(Bundle, Object)
public:
    // Never nil.
    static Bundle* mainBundle();
    // Nil when path is not a folder.
    static Ref<Bundle> bundleWithPath(const String* path);
    // The main bundle or the library's own, by identifier; nil for any other.
    static Bundle* bundleWithIdentifier(const String* identifier);
    // The library's own bundle; nil when its folder is missing.
    static Bundle* zonCommonBundle();

    String* bundlePath() const { return path_.get(); }
    Ref<String> resourcePath() const;
    Ref<String> bundleIdentifier() const;
    // nullptr when there is none.
    Dictionary* infoDictionary() const { return info_.get(); }
    Ref<Object> objectForInfoDictionaryKey(const String* key) const;
    // Folder names without ".lproj", sorted.
    Ref<Array> localizations() const;
    // developmentLocalization: CFBundleDevelopmentRegion of the information dictionary, or nil.
    Ref<String> developmentLocalization() const;
    // preferredLocalizationsFromArray over this bundle's localisations, falling back to its own
    // development localisation. Kept until the current locale's test hook changes.
    Ref<Array> preferredLocalizations() const;
    // The offered localisations that match the user's preferred languages: for each language in
    // order, an exact match, then offers of the language alone, then regional offers of a
    // preference that names the language alone, then other regions of the language. NULs, "_"
    // against "-", case and long names do not matter. When nothing matches: the main bundle's
    // development localisation if offered, else the first offer.
    static Ref<Array> preferredLocalizationsFromArray(const Array* localizations);
    // "<name>.<extension>" in the localisation's folder (or the folder of its long or short name),
    // in subdirectory when given, else outside the localisation folders; nil when no file is there.
    // A nil localisation looks outside first, then in the preferred localisations.
    Ref<String> pathForResource_ofType_inDirectory_forLocalization(const String* name, const String* extension,
        const String* subdirectory, const String* localization) const;
    Ref<String> pathForResource_ofType_inDirectory(const String* name, const String* extension,
        const String* subdirectory) const;
    Ref<String> pathForResource_ofType(const String* name, const String* extension) const;
    // The key's text in table (nil or "" means "Localizable") of the first preferred localisation
    // that has the table, else of the development localisation. Without a translation: value, or
    // the key itself when value is nil or empty.
    Ref<String> localizedStringForKey_value_table(const String* key, const String* value, const String* table) const;

    // ---- NSBundle(ZonExtensions) -------------------------------------------------------------
    // The information's "CFBundleVersion" and "CFBundleShortVersionString" (nil when missing or
    // not strings), and the versions parsed from them (TXZonVersion::versionWithString; nil
    // without a string).
    Ref<String> versionString() const;
    Ref<String> shortVersionString() const;
    Ref<TXZonVersion> bundleVersion() const;
    Ref<TXZonVersion> bundleShortVersion() const;

    // Test hooks: point the main bundle / the library's bundle at a folder (nil restores).
    static void setMainBundlePathForTesting(const String* path);
    static void setZonCommonBundlePathForTesting(const String* path);

    ~Bundle() override;

private:
    struct State;
    Bundle(Ref<String> path, std::string resourceFolder, Ref<Dictionary> info);
    static Ref<Bundle> bundleAtFolder(const std::string& folder);
    Ref<Dictionary> stringTable(const String* table) const;
    const Ref<Array>& preferredLocalizationsLocked(uint64_t generation) const;
    Ref<String> localizedPath(const std::string& relative, const String* localization) const;

    Ref<String> path_;
    std::string resourceFolder_;
    Ref<Dictionary> info_;
    std::unique_ptr<State> state_;
};

// The library's own string table (default table, empty default): the key itself when untranslated.
ZON_EXPORT Ref<String> ZonLocalizedString(const String* key);

} // namespace zon
