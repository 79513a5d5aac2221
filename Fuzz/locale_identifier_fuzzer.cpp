// Makes locales and their components from arbitrary identifiers (the input read as UTF-8, or as
// Latin-1 when it is not, so NULs and any byte reach ICU's side of the path) and matches them as
// offered localisations. Checks that the identifier is kept exactly, that ICU's name holds no NUL
// and that every component is non-empty text.

#include "FuzzSupport.h"
#include "platform/io/Bundle.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/String.h"

#include <cstdint>
#include <string_view>

using namespace zon;
using fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    Ref<String> identifier = String::stringWithUTF8String(bytes);
    if (!identifier)
        identifier = String::initWithBytes_length_encoding(bytes.data(), bytes.size(), NSISOLatin1StringEncoding);

    Ref<Locale> locale = Locale::localeWithLocaleIdentifier(identifier.get());
    check(locale && locale->localeIdentifier()->isEqualToString(identifier.get()));
    check(locale->icuLocaleName().find('\0') == std::string::npos);
    for (const Ref<String>& part : {locale->languageCode(), locale->countryCode()})
        check(!part || part->length() > 0);

    Ref<Dictionary> components = Locale::componentsFromLocaleIdentifier(identifier.get());
    check(components && components->count() <= 4);
    for (auto [key, value] : *components)
        check(dynamicCast<String>(value) && static_cast<String*>(value)->length() > 0);

    Ref<Array> offers = Array::arrayWithObjects({identifier.get(), ZSTR("en")});
    Ref<Array> chosen = Bundle::preferredLocalizationsFromArray(offers.get());
    check(chosen->count() >= 1 && chosen->count() <= 2);
    return 0;
}
