// NSURL(ZonExtensions): query arguments, scheme switches, path components and the
// classification of URLs.

#include "logger/ZonLog.h"
#include "platform/io/Bundle.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "platform/values/UTF.h"

namespace zon {

namespace {

// Keys and values of query arguments escape "+" and "/" beyond the default set, so that a value
// holding them survives servers that read "+" as a space or split at "/".
constexpr char16_t kArgumentCharactersToEscape[] = u"+/";

void appendEscapedArgument(std::string& out, const Object* argument)
{
    const String* text = dynamicCast<String>(argument);
    Ref<String> described = text ? nullptr : argument->description();
    URL::appendPercentEscaped(out, (text ? text : described.get())->view(), {}, kArgumentCharactersToEscape);
}

// The UTF-8 of text as the formatter writes an object: "(null)" for nil.
void appendObjectText(std::string& out, const String* text)
{
    if (text)
        utf::appendUTF16ToUTF8(text->view(), out);
    else
        out.append("(null)");
}

// The lines the help-page look-up reports from, as its log readers know them.
constexpr int kLineHelpFileMissing = 34;
constexpr int kLineHelpFileInEnglish = 37;

// The main bundle's help book folder as a bundle of its own; nil when there is none.
Ref<Bundle> helpBundle()
{
    Bundle* main = Bundle::mainBundle();
    Ref<Object> folderName = main->objectForInfoDictionaryKey(ZSTR("CFBundleHelpBookFolder"));
    const String* folder = dynamicCast<String>(folderName.get());
    Ref<String> path = folder ? main->pathForResource_ofType(folder, nullptr) : nullptr;
    return path ? Bundle::bundleWithPath(path.get()) : nullptr;
}

} // namespace

Ref<URL> URL::helpURLFromPage_withExtension_inDirectory(
    const String* page, const String* extension, const String* directory)
{
    Ref<Bundle> help = helpBundle();
    Ref<Array> preferred = Bundle::preferredLocalizationsFromArray(Bundle::mainBundle()->localizations().get());
    if (help && preferred->count()) {
        const String* localization = static_cast<const String*>(preferred->objectAtIndex(0));
        if (Ref<String> path = help->pathForResource_ofType_inDirectory_forLocalization(page, extension, directory, localization))
            return fileURLWithPath(path.get());
    }
    Ref<String> english = help ? help->pathForResource_ofType_inDirectory_forLocalization(page, extension, directory, ZSTR("English"))
                               : nullptr;
    if (!english) {
        zon_log_obj(__FILE__, kLineHelpFileMissing, staticClass(), logger::kLevelWarning, kDefaultLogIdentifier,
            "Unable to locate %@ help file.", page);
        return nullptr;
    }
    zon_log_obj(__FILE__, kLineHelpFileInEnglish, staticClass(), logger::kLevelWarning, kDefaultLogIdentifier,
        "Help file for user's current locale not supported/found, reverting to English help. %@", english);
    return fileURLWithPath(english.get());
}

Ref<URL> URL::urlByAppendingHttpArgumentsDictionary(const Dictionary* arguments) const
{
    std::string text;
    appendObjectText(text, scheme().get());
    text.append("://");
    appendObjectText(text, host().get());
    appendObjectText(text, path().get());
    text.push_back('?');
    if (arguments && arguments->count()) {
        for (auto [key, value] : *arguments) {
            appendEscapedArgument(text, key);
            text.push_back('=');
            appendEscapedArgument(text, value);
            text.push_back('&');
        }
        text.pop_back();
    }
    return URLWithString(std::string_view(text));
}

Ref<URL> URL::urlByAppendingHttpArgumentsString(const String* arguments) const
{
    Ref<String> query = String::stringWithFormat("?%@", arguments);
    Ref<String> receiverPath = path();
    Ref<String> fullPath = receiverPath ? receiverPath->stringByAppendingString(query) : query;
    return initWithScheme_host_path(scheme().get(), host().get(), fullPath.get());
}

Ref<URL> URL::URLByAppendingPathComponent(const String* component) const
{
    Ref<String> receiverPath = path();
    Ref<String> fullPath = receiverPath ? receiverPath->stringByAppendingPathComponent(component)
                                        : String::string()->stringByAppendingPathComponent(component);
    return initWithScheme_host_path(scheme().get(), host().get(), fullPath.get());
}

Ref<URL> URL::httpURL() const { return initWithScheme_host_path(ZSTR("http"), host().get(), path().get()); }

Ref<URL> URL::httpsURL() const { return initWithScheme_host_path(ZSTR("https"), host().get(), path().get()); }

bool URL::isHTTPURL() const { return schemeStartsWith("http"); }

bool URL::isSecureHTTPURL() const { return schemeStartsWith("https"); }

bool URL::isPostURL() const { return text_.find('?') != std::string::npos; }

bool URL::isGetURL() const { return !isPostURL(); }

Ref<String> URL::lastPathComponent() const { return absoluteString()->lastPathComponent(); }

} // namespace zon
