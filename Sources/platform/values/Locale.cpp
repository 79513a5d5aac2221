#include "platform/values/Locale.h"

#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/LocaleInternal.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <unicode/locid.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <vector>

namespace zon {

ZON_STRING_CONSTANT(NSLocaleLanguageCode, "kCFLocaleLanguageCodeKey");
ZON_STRING_CONSTANT(NSLocaleCountryCode, "kCFLocaleCountryCodeKey");
ZON_STRING_CONSTANT(NSLocaleScriptCode, "kCFLocaleScriptCodeKey");
ZON_STRING_CONSTANT(NSLocaleVariantCode, "kCFLocaleVariantCodeKey");

ZON_DEFINE_CLASS(Locale, "NSLocale")

namespace {

// The identifier's UTF-8 with every NUL removed: what ICU is given.
std::string icuInput(std::u16string_view identifier)
{
    std::string bytes;
    utf::appendUTF16ToUTF8(identifier, bytes);
    std::erase(bytes, '\0');
    return bytes;
}

// "de_DE.UTF-8@euro" less its codeset and modifier: "de_DE".
std::string_view withoutCodesetAndModifier(std::string_view name)
{
    return name.substr(0, name.find_first_of(".@"));
}

// A part ICU read; a locale it could not read (bogus) may answer no text at all.
std::string_view partOf(const char* part) { return part ? part : ""; }

std::string languageTag(const icu::Locale& locale)
{
    std::string tag(partOf(locale.getLanguage()));
    if (tag.empty())
        return tag;
    for (std::string_view part : {partOf(locale.getScript()), partOf(locale.getCountry())}) {
        if (!part.empty())
            tag.append("-").append(part);
    }
    return tag;
}

// The locale name the C library uses for messages, as an identifier ICU reads.
std::string environmentLocaleName()
{
    std::string_view value;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* set = std::getenv(variable);
        if (set && *set) {
            value = set;
            break;
        }
    }
    value = withoutCodesetAndModifier(value);
    if (value.empty() || value == "C" || value == "POSIX")
        return "en_US_POSIX";
    return std::string(value);
}

// LANGUAGE's entries in the "de-DE" form, in order; "C" and empty entries skipped.
std::vector<std::string> environmentLanguages()
{
    std::vector<std::string> tags;
    const char* set = std::getenv("LANGUAGE");
    std::string_view list = set ? set : "";
    while (!list.empty()) {
        const size_t colon = list.find(':');
        std::string_view entry = withoutCodesetAndModifier(list.substr(0, colon));
        list = colon == std::string_view::npos ? std::string_view() : list.substr(colon + 1);
        if (entry.empty() || entry == "C" || entry == "POSIX")
            continue;
        std::string tag = languageTag(icu::Locale(std::string(entry).c_str()));
        if (!tag.empty())
            tags.push_back(std::move(tag));
    }
    return tags;
}

// What currentLocale and preferredLanguages answer, made together and kept until the hook changes.
struct CurrentLocaleState {
    Ref<Locale> locale;
    Ref<Array> languages;
};

Ref<Array> arrayOfTags(const std::vector<std::string>& tags)
{
    std::vector<Ref<Object>> objects;
    for (const std::string& tag : tags) {
        bool seen = false;
        for (const Ref<Object>& object : objects)
            seen = seen || static_cast<String*>(object.get())->UTF8String() == tag;
        if (!seen)
            objects.push_back(String::stringWithUTF8String(tag));
    }
    return Array::arrayWithVector(std::move(objects));
}

std::unique_ptr<CurrentLocaleState> makeCurrentLocaleState(const String* hookIdentifier)
{
    auto state = std::make_unique<CurrentLocaleState>();
    Ref<String> identifier = hookIdentifier ? Ref<String>(const_cast<String*>(hookIdentifier))
                                            : String::stringWithUTF8String(environmentLocaleName());
    if (!identifier) // an environment value that is not UTF-8
        identifier = ZSTR("en_US_POSIX");
    state->locale = Locale::localeWithLocaleIdentifier(identifier.get());
    std::vector<std::string> tags = hookIdentifier ? std::vector<std::string>() : environmentLanguages();
    std::string own = languageTagOfIdentifier(identifier->view());
    if (!own.empty())
        tags.push_back(std::move(own));
    state->languages = arrayOfTags(tags);
    return state;
}

// The kept state. Readers take it without a lock; a state the hook replaces stays alive (in
// retired) for readers that may still hold it, which only tests ever cause.
struct CurrentLocaleCache {
    std::atomic<CurrentLocaleState*> current {nullptr};
    std::atomic<uint64_t> generation {1};
    std::mutex mutex;
    Ref<String> hookIdentifier;
    std::vector<std::unique_ptr<CurrentLocaleState>> retired;
};

CurrentLocaleCache& currentLocaleCache()
{
    static CurrentLocaleCache* const cache = new CurrentLocaleCache(); // outlives every thread
    return *cache;
}

const CurrentLocaleState& currentLocaleState()
{
    CurrentLocaleCache& cache = currentLocaleCache();
    if (const CurrentLocaleState* state = cache.current.load(std::memory_order_acquire))
        return *state;
    std::lock_guard lock(cache.mutex);
    if (const CurrentLocaleState* state = cache.current.load(std::memory_order_acquire))
        return *state;
    cache.retired.push_back(makeCurrentLocaleState(cache.hookIdentifier.get()));
    cache.current.store(cache.retired.back().get(), std::memory_order_release);
    return *cache.retired.back();
}

Ref<String> stringOrNil(const std::string& text) { return text.empty() ? nullptr : String::stringWithUTF8String(text); }

} // namespace

uint64_t localePreferenceGeneration() noexcept
{
    return currentLocaleCache().generation.load(std::memory_order_acquire);
}

std::string languageTagOfIdentifier(std::u16string_view identifier)
{
    const std::string input = icuInput(identifier);
    return languageTag(icu::Locale(std::string(withoutCodesetAndModifier(input)).c_str()));
}

Ref<Locale> Locale::localeWithLocaleIdentifier(const String* identifier)
{
    if (!identifier)
        return nullptr;
    const icu::Locale parsed(icuInput(identifier->view()).c_str());
    return makeObject<Locale>(Ref<String>(String::stringWithString(identifier)), std::string(partOf(parsed.getName())),
        std::string(partOf(parsed.getLanguage())), std::string(partOf(parsed.getCountry())));
}

Ref<Locale> Locale::currentLocale() { return currentLocaleState().locale; }

Ref<Array> Locale::preferredLanguages() { return currentLocaleState().languages; }

Ref<Dictionary> Locale::componentsFromLocaleIdentifier(const String* identifier)
{
    Ref<MutableDictionary> components = MutableDictionary::dictionary();
    if (!identifier)
        return components;
    const icu::Locale parsed(icuInput(identifier->view()).c_str());
    const std::pair<String*, std::string_view> parts[] = {{NSLocaleLanguageCode, partOf(parsed.getLanguage())},
        {NSLocaleCountryCode, partOf(parsed.getCountry())}, {NSLocaleScriptCode, partOf(parsed.getScript())},
        {NSLocaleVariantCode, partOf(parsed.getVariant())}};
    for (auto [key, value] : parts) {
        if (Ref<String> text = value.empty() ? nullptr : String::stringWithUTF8String(value))
            components->setObject_forKey(text.get(), key);
    }
    return components;
}

void Locale::setCurrentLocaleIdentifierForTesting(const String* identifier)
{
    CurrentLocaleCache& cache = currentLocaleCache();
    std::lock_guard lock(cache.mutex);
    cache.hookIdentifier = String::stringWithString(identifier);
    cache.current.store(nullptr, std::memory_order_release);
    cache.generation.fetch_add(1, std::memory_order_acq_rel);
}

Ref<String> Locale::languageCode() const { return stringOrNil(language_); }

Ref<String> Locale::countryCode() const { return stringOrNil(country_); }

Ref<String> Locale::description() const { return String::stringWithUTF8String(icuName_); }

bool Locale::isEqual(const Object* other) const
{
    const Locale* locale = dynamicCast<Locale>(other);
    return locale && (locale == this || identifier_->isEqual(locale->identifier_.get()));
}

size_t Locale::hash() const { return identifier_->hash(); }

Ref<Object> Locale::copy() const { return Ref<Object>(const_cast<Locale*>(this)); }

} // namespace zon
