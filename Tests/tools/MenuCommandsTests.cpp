// zon menu demo, run as the user runs it.

#include "support/ZonToolRun.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using zon::test::runZon;

TEST(ZonMenuCommands, DemoPrintsTheTreeWithTagsActionsAndSeparators)
{
    const auto demo = runZon("menu demo");
    EXPECT_EQ(demo.exitCode, 0);
    EXPECT_EQ(demo.text,
        "menu \"Device\" (6 items)\n"
        "  \"Library\"  tag -1  submenu (4 items)\n"
        "    \"Import Music...\"  action importMusic:  target DemoController  tag 1\n"
        "    \"Export Playlist...\"  action exportPlaylist:  target DemoController  tag 2\n"
        "    ----------\n"
        "    \"Show in Folder\"  action showInFolder:  target DemoController  tag 0\n"
        "  ----------\n"
        "  \"Recent\"  tag -1  submenu (1 items)\n"
        "    \"Backup of 20 November\"  action restoreBackup:  target DemoController  tag 20\n"
        "  \"Recent\"  tag -1  submenu (0 items)\n"
        "  ----------\n"
        "  \"Eject\"  action eject:  target DemoController  tag 99\n"
        "added under \"Eject\", which has no submenu: \"Eject All\" answered, in no menu\n");
    EXPECT_NE(runZon("menu").exitCode, 0) << "the group wants a subcommand";
}

} // namespace
