// Parses arbitrary text as a URL and checks what a parsed URL promises: the text is kept as
// given, its parts lie in the text in their places, and escaping any text then parsing it
// as a path gives that text back. Also runs every URL convenience on what parsed.

#include "FuzzSupport.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <cstdint>
#include <string>

using namespace zon;
using fuzz::check;

namespace {

std::string textOf(const String* text) { return text ? text->UTF8String() : std::string(); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    Ref<String> text = String::stringWithUTF8String(bytes);
    if (!text)
        text = String::initWithBytes_length_encoding(data, size, NSISOLatin1StringEncoding);

    if (Ref<URL> url = URL::URLWithString(text.get())) {
        check(url->absoluteString()->isEqualToString(text.get()));
        check(URL::URLWithString(url->absoluteString().get())->isEqual(url.get()));
        if (Ref<String> scheme = url->scheme())
            check(bytes.starts_with(textOf(scheme.get()) + ":"));
        if (Ref<String> host = url->host())
            check(bytes.find("//") != std::string_view::npos && bytes.find(textOf(host.get())) != std::string_view::npos);
        if (Ref<String> query = url->query())
            check(bytes.find("?" + textOf(query.get())) != std::string_view::npos);
        if (Ref<String> fragment = url->fragment())
            check(bytes.ends_with("#" + textOf(fragment.get())));
        url->port();
        url->path();
        url->httpURL();
        url->httpsURL();
        url->URLByAppendingPathComponent(text.get());
        url->urlByAppendingHttpArgumentsString(text.get());
        url->urlByAppendingHttpArgumentsDictionary(Dictionary::dictionaryWithObject_forKey(text.get(), text.get()).get());
        url->lastPathComponent();
        check(url->isPostURL() != url->isGetURL());
    }

    // Escaped text (with "?" escaped, which would end the path) always parses, and the path
    // decodes to the text again, less trailing slashes; lone surrogates come back as U+FFFD.
    Ref<String> escaped = URL::stringByAddingPercentEscapes(text.get(), nullptr, ZSTR("?"));
    Ref<URL> parsed = URL::URLWithString(String::stringWithFormat("http://h/%@", escaped.get()).get());
    check(bool(parsed));
    std::string expected = "/" + text->UTF8String();
    while (expected.size() > 1 && expected.back() == '/')
        expected.pop_back();
    check(textOf(parsed->path().get()) == expected);
    return 0;
}
