#include "platform/io/Bundle.h"

#include "platform/io/BundleInternal.h"
#include "platform/io/BundleLocalizationsInternal.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/system/EventCallsInternal.h"
#include "platform/io/PathTextInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/LocaleInternal.h"
#include "platform/values/String.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(Bundle, "NSBundle")

namespace {

// Information files and string tables are small; anything larger is not one.
constexpr size_t kMaxPropertyListFileBytes = 16 * 1024 * 1024;
// How long a string table is used before its modification time is looked at again.
constexpr auto kTableRecheckInterval = std::chrono::seconds(1);

bool exists(const std::string& path) { return pathStatus(path).ok(); }

std::string parentFolder(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string utf8(const String* text) { return text ? text->UTF8String() : std::string(); }

bool isNilOrEmpty(const String* text) { return !text || text->length() == 0; }

// A property list read from a file; nil when the file cannot be read or holds none.
Ref<Object> readPropertyListFile(const std::string& path)
{
    auto file = openForReading(path, ReadableKinds::regularFiles);
    if (!file)
        return nullptr;
    auto bytes = readToEnd(file.value().get(), kMaxPropertyListFileBytes);
    if (!bytes)
        return nullptr;
    Ref<Data> data = Data::dataWithBytes(bytes.value().data(), bytes.value().size());
    return PropertyListSerialization::propertyListWithData(data.get(), nullptr);
}

Ref<Dictionary> readDictionaryFile(const std::string& path)
{
    return dynamicCast<Dictionary>(readPropertyListFile(path));
}

std::vector<std::string> tagsOf(const Array* names)
{
    std::vector<std::string> tags;
    for (size_t index = 0; names && index < names->count(); ++index) {
        const String* name = dynamicCast<String>(names->objectAtIndex(index));
        tags.push_back(name ? localizationTag(name->view()) : std::string());
    }
    return tags;
}

std::vector<std::string> preferredLanguageTags()
{
    Ref<Array> languages = Locale::preferredLanguages();
    std::vector<std::string> tags;
    for (size_t index = 0; index < languages->count(); ++index)
        tags.push_back(static_cast<String*>(languages->objectAtIndex(index))->UTF8String());
    return tags;
}

// The offers that serve the user's languages; when none does, the development localisation if
// offered, else the first offer.
Ref<Array> chooseLocalizations(const Array* offers, const String* development)
{
    if (!offers || offers->count() == 0)
        return Array::array();
    const std::vector<std::string> offered = tagsOf(offers);
    std::vector<Ref<Object>> chosen;
    for (size_t index : matchLocalizations(preferredLanguageTags(), offered))
        chosen.emplace_back(offers->objectAtIndex(index));
    if (chosen.empty() && development) {
        const std::string wanted = localizationTag(development->view());
        for (size_t index = 0; index < offered.size() && chosen.empty(); ++index) {
            if (offered[index] == wanted && !wanted.empty())
                chosen.emplace_back(offers->objectAtIndex(index));
        }
    }
    if (chosen.empty())
        chosen.emplace_back(offers->objectAtIndex(0));
    return Array::arrayWithVector(std::move(chosen));
}

// The folder names a localisation may have: its own, then its long or short other name.
std::vector<std::string> localizationFolderNames(const String* localization)
{
    std::vector<std::string> names {utf8(localization)};
    const std::string_view code = languageCodeOfLongName(localization->view());
    if (!code.empty()) {
        names.emplace_back(code);
    } else if (std::u16string_view longName = longNameOfLanguageCode(localization->view()); !longName.empty()) {
        names.push_back(String::stringWithCharacters(longName)->UTF8String());
    }
    return names;
}

// Where the library's own bundle is: the source tree's resources for a library in its build
// folder, else the installed data folder relative to the library's own folder.
std::string zonCommonBundleFolder()
{
    auto library = loadedObjectPath(reinterpret_cast<const void*>(&Bundle::zonCommonBundle));
    if (!library)
        return {};
    const std::string folder = parentFolder(library.value());
    if (folder == ZON_BUILD_LIBRARY_FOLDER)
        return ZON_SOURCE_RESOURCES_FOLDER;
    return (std::filesystem::path(folder) / ZON_LIBRARY_TO_BUNDLE_PATH).lexically_normal().string();
}

// One of the process's well-known bundles. Readers take it without a lock; one that a test hook
// replaces stays alive, since callers hold it by plain pointer.
struct BundleSlot {
    std::atomic<Bundle*> current {nullptr};
    std::atomic<bool> resolved {false};
    std::mutex mutex;
    Ref<String> hookPath;
    std::vector<Ref<Bundle>> kept;
};

// complete finishes the bundle found (or hooked) before anyone sees it.
template <class Find, class Complete>
Bundle* resolveSlot(BundleSlot& slot, Find find, Complete complete)
{
    if (slot.resolved.load(std::memory_order_acquire))
        return slot.current.load(std::memory_order_acquire);
    std::lock_guard lock(slot.mutex);
    if (!slot.resolved.load(std::memory_order_acquire)) {
        Ref<Bundle> bundle = complete(slot.hookPath ? Bundle::bundleWithPath(slot.hookPath.get()) : find());
        slot.current.store(bundle.get(), std::memory_order_release);
        if (bundle)
            slot.kept.push_back(std::move(bundle));
        slot.resolved.store(true, std::memory_order_release);
    }
    return slot.current.load(std::memory_order_acquire);
}

void pointSlotAt(BundleSlot& slot, const String* path)
{
    std::lock_guard lock(slot.mutex);
    slot.hookPath = String::stringWithString(path);
    slot.resolved.store(false, std::memory_order_release);
}

BundleSlot& mainSlot()
{
    static BundleSlot* const slot = new BundleSlot(); // outlives every thread
    return *slot;
}

BundleSlot& zonCommonSlot()
{
    static BundleSlot* const slot = new BundleSlot();
    return *slot;
}

} // namespace

std::string mainBundleFolder(const std::string& executable)
{
    const std::string folder = parentFolder(executable);
    if (exists(joinedPath(folder, "Info.plist")))
        return folder;
    const std::string parent = parentFolder(folder);
    if (exists(joinedPath(parent, "Info.plist")))
        return lastPathComponent(parent) == "Contents" ? parentFolder(parent) : parent;
    const std::string shared = joinedPath(joinedPath(parent, "share"), lastPathComponent(executable));
    if (exists(joinedPath(shared, "Info.plist")))
        return shared;
    return folder;
}

// What a bundle learns as it is used: its chosen localisations and its string tables.
struct Bundle::State {
    struct Table {
        Ref<String> name;
        Ref<String> localization;
        std::string path; // "" when no file was found
        timespec modified {};
        std::chrono::nanoseconds checked {}; // on the coarse monotonic clock
        Ref<Dictionary> strings;
    };

    std::mutex mutex;
    Ref<Array> localizations;
    Ref<String> development;
    Ref<Array> preferred;
    uint64_t preferredGeneration = 0;
    std::vector<Table> tables;
};

Bundle::Bundle(Ref<String> path, std::string resourceFolder, Ref<Dictionary> info)
    : path_(std::move(path)), resourceFolder_(std::move(resourceFolder)), info_(std::move(info)),
      state_(std::make_unique<State>())
{
}

Bundle::~Bundle() = default;

Ref<Bundle> Bundle::bundleAtFolder(const std::string& folder)
{
    if (!isFolder(folder))
        return nullptr;
    const std::string contents = joinedPath(folder, "Contents");
    const bool platformLayout = exists(joinedPath(contents, "Info.plist"));
    std::string resources = platformLayout ? joinedPath(contents, "Resources") : folder;
    Ref<Dictionary> info = readDictionaryFile(joinedPath(platformLayout ? contents : folder, "Info.plist"));
    Ref<String> path = String::stringWithUTF8String(folder);
    if (!path)
        return nullptr;

    std::vector<std::string> names;
    if (auto entries = directoryEntries(resources)) {
        for (const std::string& entry : entries.value()) {
            if (entry.size() > 6 && entry.ends_with(".lproj"))
                names.push_back(entry.substr(0, entry.size() - 6));
        }
    }
    std::ranges::sort(names);
    std::vector<Ref<Object>> localizations;
    for (const std::string& name : names) {
        if (Ref<String> text = String::stringWithUTF8String(name))
            localizations.push_back(std::move(text));
    }
    Ref<Bundle> bundle = makeObject<Bundle>(std::move(path), std::move(resources), std::move(info));
    bundle->state_->localizations = Array::arrayWithVector(std::move(localizations));
    bundle->state_->development = dynamicCast<String>(bundle->objectForInfoDictionaryKey(ZSTR("CFBundleDevelopmentRegion")));
    return bundle;
}

Ref<Bundle> Bundle::bundleWithPath(const String* path)
{
    if (isNilOrEmpty(path))
        return nullptr;
    std::string folder = path->UTF8String();
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return bundleAtFolder(folder);
}

Bundle* Bundle::mainBundle()
{
    auto find = [] {
        auto executable = executablePath();
        const std::string folder = executable ? mainBundleFolder(executable.value()) : std::string(".");
        Ref<Bundle> bundle = bundleAtFolder(folder);
        return bundle ? bundle : bundleAtFolder("/");
    };
    // The main bundle's information always names the running executable, even for a bare tool
    // without an Info.plist, so that such a program can still be told apart by its name.
    auto addExecutablePath = [](Ref<Bundle> bundle) {
        auto executable = executablePath();
        Ref<String> path = executable ? String::stringWithUTF8String(executable.value()) : nullptr;
        if (bundle && path) {
            Ref<MutableDictionary> info = MutableDictionary::dictionaryWithDictionary(bundle->info_.get());
            info->setObject_forKey(path.get(), ZSTR("CFBundleExecutablePath"));
            bundle->info_ = Dictionary::dictionaryWithDictionary(info.get());
        }
        return bundle;
    };
    return resolveSlot(mainSlot(), find, addExecutablePath);
}

Bundle* Bundle::zonCommonBundle()
{
    return resolveSlot(zonCommonSlot(), [] { return bundleAtFolder(zonCommonBundleFolder()); },
        [](Ref<Bundle> bundle) { return bundle; });
}

Bundle* Bundle::bundleWithIdentifier(const String* identifier)
{
    if (!identifier)
        return nullptr;
    for (Bundle* bundle : {mainBundle(), zonCommonBundle()}) {
        if (bundle) {
            Ref<String> own = bundle->bundleIdentifier();
            if (own && own->isEqualToString(identifier))
                return bundle;
        }
    }
    return nullptr;
}

void Bundle::setMainBundlePathForTesting(const String* path) { pointSlotAt(mainSlot(), path); }

void Bundle::setZonCommonBundlePathForTesting(const String* path) { pointSlotAt(zonCommonSlot(), path); }

Ref<String> Bundle::resourcePath() const { return String::stringWithUTF8String(resourceFolder_); }

Ref<String> Bundle::bundleIdentifier() const { return dynamicCast<String>(objectForInfoDictionaryKey(ZSTR("CFBundleIdentifier"))); }

Ref<Object> Bundle::objectForInfoDictionaryKey(const String* key) const
{
    return info_ && key ? info_->objectForKey(key) : nullptr;
}

Ref<Array> Bundle::localizations() const { return state_->localizations; }

Ref<String> Bundle::developmentLocalization() const { return state_->development; }

Ref<Array> Bundle::preferredLocalizations() const
{
    const uint64_t generation = localePreferenceGeneration();
    std::lock_guard lock(state_->mutex);
    return preferredLocalizationsLocked(generation);
}

const Ref<Array>& Bundle::preferredLocalizationsLocked(uint64_t generation) const
{
    if (!state_->preferred || state_->preferredGeneration != generation) {
        state_->preferred = chooseLocalizations(state_->localizations.get(), state_->development.get());
        state_->preferredGeneration = generation;
    }
    return state_->preferred;
}

Ref<Array> Bundle::preferredLocalizationsFromArray(const Array* localizations)
{
    return chooseLocalizations(localizations, mainBundle()->developmentLocalization().get());
}

Ref<String> Bundle::localizedPath(const std::string& relative, const String* localization) const
{
    std::vector<std::string> candidates;
    if (localization) {
        for (const std::string& folder : localizationFolderNames(localization))
            candidates.push_back(joinedPath(joinedPath(resourceFolder_, folder + ".lproj"), relative));
    }
    candidates.push_back(joinedPath(resourceFolder_, relative));
    for (const std::string& candidate : candidates) {
        if (exists(candidate))
            return String::stringWithUTF8String(candidate);
    }
    return nullptr;
}

Ref<String> Bundle::pathForResource_ofType_inDirectory_forLocalization(const String* name, const String* extension,
    const String* subdirectory, const String* localization) const
{
    if (isNilOrEmpty(name))
        return nullptr;
    std::string relative = isNilOrEmpty(subdirectory) ? std::string() : subdirectory->UTF8String();
    std::string file = name->UTF8String();
    if (!isNilOrEmpty(extension))
        file.append(".").append(extension->UTF8String());
    relative = relative.empty() ? file : joinedPath(relative, file);
    if (localization)
        return localizedPath(relative, localization);
    if (Ref<String> found = localizedPath(relative, nullptr))
        return found;
    Ref<Array> preferred = preferredLocalizations();
    for (size_t index = 0; index < preferred->count(); ++index) {
        if (Ref<String> found = localizedPath(relative, static_cast<String*>(preferred->objectAtIndex(index))))
            return found;
    }
    return nullptr;
}

Ref<String> Bundle::pathForResource_ofType_inDirectory(
    const String* name, const String* extension, const String* subdirectory) const
{
    return pathForResource_ofType_inDirectory_forLocalization(name, extension, subdirectory, nullptr);
}

Ref<String> Bundle::pathForResource_ofType(const String* name, const String* extension) const
{
    return pathForResource_ofType_inDirectory_forLocalization(name, extension, nullptr, nullptr);
}

Ref<Dictionary> Bundle::stringTable(const String* table) const
{
    const uint64_t generation = localePreferenceGeneration();
    const auto now = coarseMonotonicTime();
    std::lock_guard lock(state_->mutex);
    const Ref<Array>& preferred = preferredLocalizationsLocked(generation);
    String* development = state_->development.get();
    String* localization = preferred->count() ? static_cast<String*>(preferred->objectAtIndex(0)) : development;

    auto entry = std::ranges::find_if(state_->tables, [&](const State::Table& candidate) {
        return candidate.localization.get() == localization
            && (candidate.name.get() == table || candidate.name->isEqualToString(table));
    });
    if (entry != state_->tables.end() && entry->checked.count() && now - entry->checked < kTableRecheckInterval)
        return entry->strings;
    if (entry == state_->tables.end()) {
        state_->tables.push_back({staticRefCast<String>(table->copy()), localization, {}, {}, {}, {}});
        entry = state_->tables.end() - 1;
    }
    entry->checked = now;

    Ref<String> path;
    for (const String* candidate : {localization, development}) {
        if (candidate && !path)
            path = pathForResource_ofType_inDirectory_forLocalization(table, ZSTR("strings"), nullptr, candidate);
    }
    if (!path) {
        entry->path.clear();
        entry->strings = nullptr;
        return nullptr;
    }
    std::string file = path->UTF8String();
    auto modified = modificationTime(file);
    if (!modified) {
        entry->path.clear();
        entry->strings = nullptr;
        return nullptr;
    }
    const bool unchanged = entry->path == file && entry->modified.tv_sec == modified.value().tv_sec
        && entry->modified.tv_nsec == modified.value().tv_nsec;
    if (!unchanged) {
        entry->strings = readDictionaryFile(file);
        entry->path = std::move(file);
        entry->modified = modified.value();
    }
    return entry->strings;
}

Ref<String> Bundle::localizedStringForKey_value_table(const String* key, const String* value, const String* table) const
{
    Ref<String> fallback = !isNilOrEmpty(value) ? Ref<String>(const_cast<String*>(value)) : nullptr;
    if (!key)
        return fallback ? fallback : String::string();
    const String* tableName = isNilOrEmpty(table) ? ZSTR("Localizable") : table;
    if (Ref<Dictionary> strings = stringTable(tableName)) {
        if (String* text = dynamicCast<String>(strings->objectForKey(key)))
            return text;
    }
    return fallback ? fallback : Ref<String>(const_cast<String*>(key));
}

Ref<String> ZonLocalizedString(const String* key)
{
    Bundle* bundle = Bundle::zonCommonBundle();
    if (!bundle)
        return Ref<String>(const_cast<String*>(key));
    return bundle->localizedStringForKey_value_table(key, ZSTR(""), nullptr);
}

} // namespace zon
