#include "platform/io/DesktopEntryInternal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zon;
using testing::ElementsAre;
using testing::Optional;

TEST(DesktopEntry, ReadsGroupsKeysAndEscapes)
{
    const auto entry = DesktopEntry::parse("# comment\n"
                                           "\n"
                                           "[Desktop Entry]\r\n"
                                           "Type=Application\n"
                                           "Name = Pallidor\\sStation \n"
                                           "Name[de_DE@euro]=Station\n"
                                           "Comment=one\\ntwo\\tthree\\\\\n"
                                           "  Exec=tool\n"
                                           "Exec=tool --last\n"
                                           "Broken=a\\qb\n"
                                           "Empty=\n"
                                           "[Desktop Action New]\n"
                                           "Name=New\n"
                                           "[Desktop Entry]\n"
                                           "Hidden=true\n");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->entryValue("Type"), "Application");
    // Spaces around "=" go, those at the end of a value stay.
    EXPECT_EQ(entry->entryValue("Name"), "Pallidor Station ");
    EXPECT_EQ(entry->entryValue("Name[de_DE@euro]"), "Station");
    EXPECT_EQ(entry->entryValue("Comment"), "one\ntwo\tthree\\");
    EXPECT_EQ(entry->entryValue("Exec"), "tool --last"); // the last of a repeated key
    EXPECT_EQ(entry->entryValue("Broken"), std::nullopt);
    EXPECT_EQ(entry->entryValue("Empty"), "");
    EXPECT_EQ(entry->entryValue("Missing"), std::nullopt);
    EXPECT_EQ(entry->value("Desktop Action New", "Name"), "New");
    EXPECT_TRUE(entry->isTrue("Hidden")); // a group named again is the same group
    EXPECT_FALSE(entry->isTrue("Type"));
}

TEST(DesktopEntry, RefusesWhatIsNotADesktopEntry)
{
    for (std::string_view refused : {
             std::string_view("Name=before any group\n[Desktop Entry]\n"),
             std::string_view("[Desktop Entry]\nno equals sign\n"),
             std::string_view("[Desktop Entry]\nbad key=x\n"),
             std::string_view("[Desktop Entry]\nName[=x\n"),
             std::string_view("[Desktop Entry]\n=value\n"),
             std::string_view("[Desktop [Entry]]\n"),
             std::string_view("[Desktop Entry\n"),
             std::string_view("[]\n"),
             std::string_view("[Desktop Entry]\nName=\xff\xfe\n"),
         })
        EXPECT_FALSE(DesktopEntry::parse(refused)) << refused;
    EXPECT_TRUE(DesktopEntry::parse(""));
    EXPECT_TRUE(DesktopEntry::parse(std::string(kMaxDesktopEntryBytes, '#')));
    EXPECT_FALSE(DesktopEntry::parse(std::string(kMaxDesktopEntryBytes + 1, '#')));
}

TEST(DesktopEntry, SplitsExecIntoArguments)
{
    EXPECT_THAT(desktopEntryExecArguments("tool  -a\tb"), Optional(ElementsAre("tool", "-a", "b")));
    EXPECT_THAT(desktopEntryExecArguments(R"("/opt/My Tool/run" "say \"hi\" \$HOME \`x\` \\ \n")"),
        Optional(ElementsAre("/opt/My Tool/run", R"(say "hi" $HOME `x` \ \n)")));
    EXPECT_THAT(desktopEntryExecArguments("tool %U --percent=100%% %f --file=%f \"%\"x"),
        Optional(ElementsAre("tool", "--percent=100%", "--file=", "%x")));
    EXPECT_THAT(desktopEntryExecArguments("   "), Optional(ElementsAre()));
    EXPECT_THAT(desktopEntryExecArguments("\"\""), Optional(ElementsAre("")));
    EXPECT_EQ(desktopEntryExecArguments("tool \"unclosed"), std::nullopt);
    EXPECT_EQ(desktopEntryExecArguments("\"ends in a backslash\\"), std::nullopt);
}
