#include "platform/io/HostSystemVersionInternal.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using namespace zon;

namespace {

using Parts = std::array<std::string, 4>;

Parts mapped(std::string_view osRelease, std::string_view debianVersion = "", std::string_view kernel = "6.1.0-18-amd64")
{
    const HostSystemVersion version = hostSystemVersionFromTexts(osRelease, debianVersion, kernel);
    return {version.major, version.minor, version.bugFix, version.build};
}

bool isDecimalInteger(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos
        && (text == "0" || text.front() != '0');
}

} // namespace

TEST(HostSystemVersion, DebianPointReleaseRefinesVersionID)
{
    const char* debian = "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME=\"Debian GNU/Linux\"\n"
                         "VERSION_ID=\"12\"\nVERSION=\"12 (bookworm)\"\nID=debian\n";
    EXPECT_EQ(mapped(debian, "12.11\n"), (Parts {"12", "11", "0", "6.1.0-18-amd64"}));
    EXPECT_EQ(mapped(debian, ""), (Parts {"12", "0", "0", "6.1.0-18-amd64"}));
    // Another major in debian_version (a stale file) leaves VERSION_ID alone.
    EXPECT_EQ(mapped(debian, "11.9"), (Parts {"12", "0", "0", "6.1.0-18-amd64"}));
    // Without VERSION_ID (testing, sid) a numeric debian_version stands in; a code name does not.
    EXPECT_EQ(mapped("ID=debian\n", "11.9"), (Parts {"11", "9", "0", "6.1.0-18-amd64"}));
    EXPECT_EQ(mapped("ID=debian\n", "trixie/sid"), (Parts {"0", "0", "0", "6.1.0-18-amd64"}));
}

TEST(HostSystemVersion, PartsAreReformattedAsIntegers)
{
    EXPECT_EQ(mapped("VERSION_ID=\"22.04\"\nID=ubuntu\n", "bookworm/sid\n"), (Parts {"22", "4", "0", "6.1.0-18-amd64"}));
    EXPECT_EQ(mapped("VERSION_ID=007.0100.3.9"), (Parts {"7", "100", "3", "6.1.0-18-amd64"}));
    EXPECT_EQ(mapped("VERSION_ID=3.19.1_rc2"), (Parts {"3", "19", "1", "6.1.0-18-amd64"}));
    EXPECT_EQ(mapped("VERSION_ID=rolling"), (Parts {"0", "0", "0", "6.1.0-18-amd64"}));
    EXPECT_EQ(mapped("VERSION_ID=39"), (Parts {"39", "0", "0", "6.1.0-18-amd64"}));
}

TEST(HostSystemVersion, BuildIsBuildIDElseTheKernelRelease)
{
    EXPECT_EQ(mapped("VERSION_ID=40\nBUILD_ID=\"20240412.0\"\n")[3], "20240412.0");
    EXPECT_EQ(mapped("VERSION_ID=40\nBUILD_ID=\n")[3], "6.1.0-18-amd64");
    EXPECT_EQ(mapped("VERSION_ID=40\nBUILD_ID=\"\"\n", "", "")[3], "");
}

TEST(HostSystemVersion, ReaderToleratesQuotesCommentsAndJunk)
{
    constexpr char text[] = "# VERSION_ID=1\n"
                       "\n"
                       "garbage without an equals sign\n"
                       "BAD KEY=2\n"
                       "=3\n"
                       "\xff\xfe\x00\x01\n"
                       "  VERSION_ID = '9.8'  \r\n"
                       "BUILD_ID=\"a\\\"b\\\\c\\d\n";
    EXPECT_EQ(mapped(std::string_view(text, sizeof text - 1)),
        (Parts {"9", "8", "0", "a\"b\\c\\d"}));
    // The last assignment wins; an unclosed quote runs to the line's end.
    EXPECT_EQ(mapped("VERSION_ID=1\nVERSION_ID=\"2.5\nBUILD_ID='x y\n"), (Parts {"2", "5", "0", "x y"}));
    EXPECT_EQ(mapped(""), (Parts {"0", "0", "0", "6.1.0-18-amd64"}));
}

TEST(HostSystemVersion, ThisMachineGivesDecimalParts)
{
    const HostSystemVersion version = currentHostSystemVersion();
    EXPECT_TRUE(isDecimalInteger(version.major)) << version.major;
    EXPECT_TRUE(isDecimalInteger(version.minor)) << version.minor;
    EXPECT_TRUE(isDecimalInteger(version.bugFix)) << version.bugFix;
    EXPECT_FALSE(version.build.empty());
}
