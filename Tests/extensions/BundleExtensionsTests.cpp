#include "platform/io/Bundle.h"
#include "platform/values/String.h"
#include "versions/TXZonVersion.h"

#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gtest/gtest.h>

using namespace zon;
using test::ScratchFolder;
using test::str;

namespace {

std::string utf8(const Object* value) { return value ? value->description()->UTF8String() : std::string("(nil)"); }

Ref<Bundle> bundleWithInfo(const ScratchFolder& scratch, const std::string& name, const std::string& entries)
{
    scratch.write(name + "/Contents/Info.plist",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + entries + "</dict>\n</plist>\n");
    return Bundle::bundleWithPath(str(scratch.file(name)).get());
}

} // namespace

TEST(BundleZonExtensions, VersionStringsAndTheVersionsParsedFromThem)
{
    ScratchFolder scratch;
    Ref<Bundle> both = bundleWithInfo(scratch, "Both.app",
        "<key>CFBundleVersion</key><string>6.0.0.0141</string>\n"
        "<key>CFBundleShortVersionString</key><string>06.0.1</string>\n");
    ASSERT_TRUE(both);
    EXPECT_EQ(utf8(both->versionString().get()), "6.0.0.0141");
    EXPECT_EQ(utf8(both->shortVersionString().get()), "06.0.1");
    EXPECT_EQ(utf8(both->bundleVersion().get()), "6.0.0.141");
    EXPECT_EQ(utf8(both->bundleShortVersion().get()), "6.0.1.x");

    // Missing, or not a string: no text and no version.
    Ref<Bundle> none = bundleWithInfo(scratch, "None.app", "<key>CFBundleVersion</key><integer>7</integer>\n");
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->versionString());
    EXPECT_FALSE(none->bundleVersion());
    EXPECT_FALSE(none->shortVersionString());
    EXPECT_FALSE(none->bundleShortVersion());

    // A folder without any information.
    Ref<Bundle> bare = Bundle::bundleWithPath(str(scratch.makeFolder("Bare")).get());
    ASSERT_TRUE(bare);
    EXPECT_FALSE(bare->bundleVersion());
}
