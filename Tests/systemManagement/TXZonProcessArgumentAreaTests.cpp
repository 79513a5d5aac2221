#include "platform/io/ProcessTableInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonProcessArgumentAreaInternal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zon;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> arguments(const ProcessArgumentArea& area)
{
    std::vector<std::string> out;
    for (Object* item : *area.arguments)
        out.push_back(static_cast<String*>(item)->UTF8String());
    return out;
}

std::string environmentValue(const ProcessArgumentArea& area, const char* key)
{
    String* value = area.environment->objectForKey<String>(String::stringWithUTF8String(key).get());
    return value ? value->UTF8String() : "(nil)";
}

ProcessArgumentArea parse(std::string_view commandLine, std::string_view environment, std::string_view path = "/bin/tool")
{
    return parseProcessArgumentArea(buildArgumentArea(path, commandLine, environment));
}

} // namespace

TEST(TXZonProcessArgumentArea, NameValueArgumentsBecomeEnvironmentEntries)
{
    using namespace std::string_view_literals;
    const auto area = parse("/bin/tool\0--mode=fast\0mode=fast\0-psn_0_12345\0/bin/tool\0"sv, "HOME=/root\0mode=slow\0"sv);
    EXPECT_EQ(area.pathCandidate->UTF8String(), "/bin/tool");
    EXPECT_THAT(arguments(area), ElementsAre("--mode=fast", "-psn_0_12345"));
    // The later entry of a key replaces the earlier one.
    EXPECT_EQ(environmentValue(area, "mode"), "slow");
    EXPECT_EQ(environmentValue(area, "HOME"), "/root");
    EXPECT_EQ(area.environment->count(), 2u);
}

TEST(TXZonProcessArgumentArea, PathIsTheFirstStringWithoutEquals)
{
    using namespace std::string_view_literals;
    // With no executable path, "a=b" is an environment entry and the next plain string the path.
    const auto area = parse("a=b\0--flag\0tool\0"sv, ""sv, "");
    EXPECT_EQ(area.pathCandidate->UTF8String(), "--flag");
    EXPECT_THAT(arguments(area), ElementsAre("tool"));
    EXPECT_EQ(environmentValue(area, "a"), "b");
}

TEST(TXZonProcessArgumentArea, StringsThatAreNotUTF8AreSkipped)
{
    using namespace std::string_view_literals;
    const auto area = parse("\xff\xfe\0kept\0"sv, "BAD=\xc3\0GOOD=\xc3\xa9\0"sv, "\xc0\xaf");
    EXPECT_EQ(area.pathCandidate->UTF8String(), "kept");
    EXPECT_THAT(arguments(area), IsEmpty());
    EXPECT_EQ(environmentValue(area, "BAD"), "(nil)");
    EXPECT_EQ(environmentValue(area, "GOOD"), "é");
}

TEST(TXZonProcessArgumentArea, ShortAreaGivesNothing)
{
    for (const std::string_view bytes : {std::string_view(), std::string_view("\1\0\0\0", 4)}) {
        const auto area = parseProcessArgumentArea(bytes);
        EXPECT_FALSE(area.pathCandidate);
        EXPECT_EQ(area.arguments->count(), 0u);
        EXPECT_EQ(area.environment->count(), 0u);
    }
}
