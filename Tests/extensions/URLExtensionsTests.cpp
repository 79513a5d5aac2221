#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/URL.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

std::string joined(std::string_view receiver, std::string_view component)
{
    return utf8(str(receiver)->stringByAppendingURLComponent(str(component).get()).get());
}

Ref<URL> url(std::string_view text) { return URL::URLWithString(str(text).get()); }

std::string text(const URL* value) { return value ? utf8(value->absoluteString()) : "(nil)"; }

} // namespace

TEST(StringURLComponent, PathPartsGetOneSlash)
{
    EXPECT_EQ(joined("a/", "b"), "a/b");
    EXPECT_EQ(joined("a/", "/b"), "a/b");
    EXPECT_EQ(joined("a", "b"), "a/b");
    EXPECT_EQ(joined("a", "/b"), "a/b");
    EXPECT_EQ(joined("a", ""), "a");
    EXPECT_EQ(joined("a/", "//b"), "a//b");
}

TEST(StringURLComponent, QueryPartsChooseQuestionMarkOrAmpersand)
{
    EXPECT_EQ(joined("p/", "?x=1"), "p?x=1");
    EXPECT_EQ(joined("p?x=1", "&y=2"), "p?x=1&y=2");
    EXPECT_EQ(joined("p", "&y=2"), "p?y=2");
    EXPECT_EQ(joined("p?x=1", "?y=2"), "p?x=1&y=2");
    EXPECT_EQ(joined("p", "?y=2"), "p?y=2");
    EXPECT_EQ(joined("p/", "&y=2"), "p?y=2");
    // Only the last path component counts: a "?" before the last slash is not a query.
    EXPECT_EQ(joined("a?b/c", "&y=2"), "a?b/c?y=2");
}

TEST(StringURLComponent, TheUTF8LengthIndexesTheLastUnit)
{
    // For ASCII text the UTF-8 length is the length; for anything else the index lies past the end.
    EXPECT_EQ(raisedReason(NSRangeException, [] { joined("é/", "b"); }).empty(), false);
    EXPECT_EQ(raisedReason(NSRangeException, [] { joined("😀", "?x"); }).empty(), false);
    EXPECT_EQ(raisedReason(NSRangeException, [] { joined("", "b"); }).empty(), false);
    EXPECT_EQ(joined("é", ""), "é");
}

TEST(StringURLComponent, PropertiesAppendUnescapedInDictionaryOrder)
{
    Ref<Dictionary> properties = Dictionary::dictionaryWithObjectsAndKeys({{str("k"), str("v 1")}, {str("a"), str("é")}});
    EXPECT_EQ(utf8(str("p")->stringByAppendingURLComponentProperties(properties.get())), "p?k=v 1&a=é");
    EXPECT_EQ(utf8(str("p?z=0")->stringByAppendingURLComponentProperties(properties.get())), "p?z=0&k=v 1&a=é");
    EXPECT_EQ(utf8(str("p")->stringByAppendingURLComponentProperties(Dictionary::dictionary().get())), "p");
}

TEST(StringURLComponent, URLTextByPrefix)
{
    EXPECT_TRUE(str("http://x")->isURLString());
    EXPECT_TRUE(str("https://x")->isURLString());
    EXPECT_TRUE(str("httpfoo")->isURLString());
    EXPECT_FALSE(str("ftp://x")->isURLString());
    EXPECT_FALSE(str("HTTP://x")->isURLString());
    EXPECT_FALSE(str("http://x")->isSecureURLString());
    EXPECT_TRUE(str("https://x")->isSecureURLString());
    EXPECT_FALSE(str("é")->isURLString());
}

TEST(URLZon, ArgumentsDictionaryEscapesKeysAndValues)
{
    Ref<URL> base = url("http://me:pw@h:8080/a/b?old=1#frag");
    Ref<Dictionary> arguments =
        Dictionary::dictionaryWithObjectsAndKeys({{str("k"), str("a b+/&=?")}, {str("é"), str("x")}});
    EXPECT_EQ(text(base->urlByAppendingHttpArgumentsDictionary(arguments.get()).get()),
        "http://h/a/b?k=a%20b%2B%2F&=?&%C3%A9=x");
    EXPECT_EQ(text(base->urlByAppendingHttpArgumentsDictionary(Dictionary::dictionary().get()).get()), "http://h/a/b?");
    // The path goes in decoded, so one that held an escaped space makes text that is no URL.
    EXPECT_EQ(text(url("http://h/a%20b")->urlByAppendingHttpArgumentsDictionary(arguments.get()).get()), "(nil)");
}

TEST(URLZon, ArgumentsStringAndPathComponentKeepSchemeHostAndPath)
{
    Ref<URL> base = url("https://h:8/p?q=1#f");
    EXPECT_EQ(text(base->urlByAppendingHttpArgumentsString(str("x=1&y=2").get()).get()), "https://h/p?x=1&y=2");
    EXPECT_EQ(text(base->URLByAppendingPathComponent(str("b c").get()).get()), "https://h/p/b%20c");
    EXPECT_EQ(text(url("http://h")->URLByAppendingPathComponent(str("é").get()).get()), "http://h/%C3%A9");
    EXPECT_EQ(text(url("http://h/a/")->URLByAppendingPathComponent(str("/b/").get()).get()), "http://h/a/b");
}

TEST(URLZon, SchemeSwitchesDropEverythingButHostAndPath)
{
    Ref<URL> base = url("https://u@h:8/a/b/?q#f");
    EXPECT_EQ(text(base->httpURL().get()), "http://h/a/b");
    EXPECT_EQ(text(url("http://h/x")->httpsURL().get()), "https://h/x");
}

TEST(URLZon, Classification)
{
    EXPECT_TRUE(url("http://h")->isHTTPURL());
    EXPECT_TRUE(url("https://h")->isHTTPURL());
    EXPECT_FALSE(url("ftp://h")->isHTTPURL());
    EXPECT_FALSE(url("http://h")->isSecureHTTPURL());
    EXPECT_TRUE(url("https://h")->isSecureHTTPURL());
    EXPECT_TRUE(url("http://h/p?x")->isPostURL());
    EXPECT_FALSE(url("http://h/p?x")->isGetURL());
    EXPECT_TRUE(url("http://h/p")->isGetURL());
    EXPECT_TRUE(url("http://h/p#a?b")->isPostURL());
    EXPECT_EQ(utf8(url("http://h/a/b?x=1")->lastPathComponent()), "b?x=1");
    EXPECT_EQ(utf8(url("http://h/a%20b/")->lastPathComponent()), "a%20b");
}
