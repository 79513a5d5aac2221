#include "platform/io/Workspace.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/String.h"
#include "support/ApplicationFixtures.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace zon;
using namespace zon::test;

namespace {

// A home, a data home, one shared data folder and two PATH folders, all in a scratch folder.
class ApplicationSearch : public testing::Test {
protected:
    ApplicationSearch()
    {
        environment.set("HOME", scratch.makeFolder("home"));
        environment.set("XDG_DATA_HOME", scratch.makeFolder("data"));
        environment.set("XDG_DATA_DIRS", "relative/ignored:" + scratch.makeFolder("shared"));
        environment.set("PATH", scratch.makeFolder("bin1") + ":" + scratch.makeFolder("bin2"));
    }

    void userEntry(std::string_view file, std::string_view lines) const
    {
        scratch.write("data/applications/" + std::string(file), desktopEntryText(lines));
    }
    void sharedEntry(std::string_view file, std::string_view lines) const
    {
        scratch.write("shared/applications/" + std::string(file), desktopEntryText(lines));
    }

    std::string byIdentifier(const char* identifier) const
    {
        Ref<String> found = Workspace::sharedWorkspace()->absolutePathForAppBundleWithIdentifier(String::stringWithUTF8String(identifier).get());
        return found ? found->UTF8String() : "(nil)";
    }
    std::string byName(const char* name) const
    {
        Ref<String> found = Workspace::sharedWorkspace()->fullPathForApplication(String::stringWithUTF8String(name).get());
        return found ? found->UTF8String() : "(nil)";
    }

    AutoreleasePool pool;
    ScratchFolder scratch;
    ScopedEnvironment environment;
};

TEST_F(ApplicationSearch, DesktopEntryProgramIsLookedUpOnPath)
{
    const std::string second = makeProgram(scratch, "bin2/tool");
    scratch.write("bin1/tool", "not executable");
    userEntry("org.example.Tool.desktop", "Exec=tool --open %U\n");
    EXPECT_EQ(byIdentifier("org.example.Tool"), second);

    // TryExec is what counts when given, even when Exec names another program.
    const std::string tried = makeProgram(scratch, "bin1/tried");
    userEntry("org.example.Tried.desktop", "TryExec=tried\nExec=tool\n");
    EXPECT_EQ(byIdentifier("org.example.Tried"), tried);

    // A quoted path with spaces; a relative path with a slash is not looked up.
    const std::string spaced = makeProgram(scratch, "My Programs/the tool");
    userEntry("org.example.Spaced.desktop", "Exec=\"" + spaced + "\" %f\n");
    EXPECT_EQ(byIdentifier("org.example.Spaced"), spaced);
    userEntry("org.example.Relative.desktop", "Exec=bin2/tool\n");
    EXPECT_EQ(byIdentifier("org.example.Relative"), "(nil)");
}

TEST_F(ApplicationSearch, ProgramInsideAnApplicationBundleAnswersTheBundle)
{
    const std::string bundled = makeProgram(scratch, "apps/T.app/Contents/MacOS/T");
    makeProgram(scratch, "apps/T.app/Contents/MacOS/Other");
    userEntry("org.example.T.desktop", "Exec=" + bundled + "\n");
    userEntry("org.example.Other.desktop", "Exec=" + scratch.file("apps/T.app/Contents/MacOS/Other") + "\n");
    EXPECT_EQ(byIdentifier("org.example.T"), scratch.file("apps/T.app"));
    EXPECT_EQ(byIdentifier("org.example.Other"), scratch.file("apps/T.app/Contents/MacOS/Other"));

    // A link on PATH to the bundle's program is followed to the bundle.
    std::filesystem::create_symlink(bundled, scratch.file("bin1/t-link"));
    userEntry("org.example.Linked.desktop", "Exec=t-link\n");
    EXPECT_EQ(byIdentifier("org.example.Linked"), scratch.file("apps/T.app"));
}

TEST_F(ApplicationSearch, TheFirstReadableEntryDecidesThenBundleFoldersAreSearched)
{
    const std::string userProgram = makeProgram(scratch, "bin1/user-tool");
    const std::string sharedProgram = makeProgram(scratch, "bin1/shared-tool");
    userEntry("org.example.Both.desktop", "Exec=user-tool\n");
    sharedEntry("org.example.Both.desktop", "Exec=shared-tool\n");
    EXPECT_EQ(byIdentifier("org.example.Both"), userProgram);

    // A broken entry is passed over.
    scratch.write("data/applications/org.example.Broken.desktop", "[Desktop Entry]\nthis is no key\n");
    sharedEntry("org.example.Broken.desktop", "Exec=shared-tool\n");
    EXPECT_EQ(byIdentifier("org.example.Broken"), sharedProgram);

    // A readable entry that starts nothing (hidden, not an application, program missing) hides the
    // shared one; the bundle folders answer then.
    userEntry("org.example.Hidden.desktop", "Exec=user-tool\nHidden=true\n");
    sharedEntry("org.example.Hidden.desktop", "Exec=shared-tool\n");
    const std::string bundle = makeApplicationBundle(scratch, "home/Applications/Hidden.app", "org.example.Hidden");
    EXPECT_EQ(byIdentifier("org.example.Hidden"), bundle);
    userEntry("org.example.Gone.desktop", "TryExec=no-such-program\nExec=user-tool\n");
    EXPECT_EQ(byIdentifier("org.example.Gone"), "(nil)");
    scratch.write("data/applications/org.example.Link.desktop", "[Desktop Entry]\nType=Link\nExec=user-tool\n");
    EXPECT_EQ(byIdentifier("org.example.Link"), "(nil)");
}

TEST_F(ApplicationSearch, BundlesAreFoundByTheIdentifierInTheirInfoPlist)
{
    makeApplicationBundle(scratch, "home/Applications/A.app", "org.example.A");
    const std::string b = makeApplicationBundle(scratch, "home/Applications/B.app", "org.example.B");
    // Only the Contents layout, and only folders named X.app.
    scratch.write("home/Applications/Flat.app/Info.plist", infoPlistWithIdentifier("org.example.Flat"));
    makeApplicationBundle(scratch, "home/Applications/NotAnApp", "org.example.NotAnApp");
    EXPECT_EQ(byIdentifier("org.example.B"), b);
    EXPECT_EQ(byIdentifier("org.example.Flat"), "(nil)");
    EXPECT_EQ(byIdentifier("org.example.NotAnApp"), "(nil)");
    EXPECT_EQ(byIdentifier("org.example.Missing"), "(nil)");
    for (const char* unsafe : {"", "..", "../data/applications/x"})
        EXPECT_EQ(byIdentifier(unsafe), "(nil)") << unsafe;
    EXPECT_FALSE(Workspace::sharedWorkspace()->absolutePathForAppBundleWithIdentifier(nullptr));
}

TEST_F(ApplicationSearch, ApplicationsByNameAreBundleFoldersThenEntryNames)
{
    const std::string bundle = makeApplicationBundle(scratch, "home/Applications/Pallidor Station.app", "org.example.P");
    EXPECT_EQ(byName("Pallidor Station.app"), bundle);
    EXPECT_EQ(byName("Pallidor Station"), bundle);

    const std::string program = makeProgram(scratch, "bin1/viewer");
    sharedEntry("viewer.desktop", "Name=Picture Viewer\nName[de]=Bildbetrachter\nExec=viewer %F\n");
    EXPECT_EQ(byName("Picture Viewer.app"), program);
    EXPECT_EQ(byName("Bildbetrachter.app"), "(nil)"); // localised names do not count
    // The user's entry of the same file name hides the shared one.
    userEntry("viewer.desktop", "Name=Other Viewer\nExec=viewer\n");
    EXPECT_EQ(byName("Picture Viewer.app"), "(nil)");
    EXPECT_EQ(byName("Other Viewer.app"), program);

    for (const char* missing : {"Missing.app", ".app", "", "../home/Applications/Pallidor Station.app"})
        EXPECT_EQ(byName(missing), "(nil)") << missing;
    EXPECT_FALSE(Workspace::sharedWorkspace()->fullPathForApplication(nullptr));
}

} // namespace
