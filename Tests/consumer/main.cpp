// Makes a string, holds it in a Ref and logs one line through the installed headers and libraries;
// names the library's own bundle, which the install puts under the prefix.

#include <ZonCommon/ZonCommon.h>
#include <ZonCommon/logger/ZonLog.h>
#include <ZonCommon/platform/values/String.h>

#include <cstdio>

int main()
{
    zon::Ref<zon::String> text = zon::String::stringWithUTF8String("h\xC3\xA9llo \xF0\x9F\x98\x80");
    if (!text || text->length() != 8) {
        std::fprintf(stderr, "consumer: unexpected string length\n");
        return 1;
    }
    zon::zon_log_obj(__FILE__, __LINE__, ZSTR("consumer"), 1, zon::kDefaultLogIdentifier, "consumer logged %@ (%d units)",
        text.get(), int(text->length()));
    std::printf("consumer ok: %s\n", text->UTF8String().c_str());
    zon::Bundle* library = zon::Bundle::zonCommonBundle();
    std::printf("consumer bundle: %s %s\n", library ? library->bundleIdentifier()->UTF8String().c_str() : "(none)",
        zon::ZonLocalizedString(ZSTR("KB"))->UTF8String().c_str());
    if (library)
        std::printf("consumer bundle path: %s\n", library->bundlePath()->UTF8String().c_str());
    return 0;
}
