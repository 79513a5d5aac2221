#include "platform/io/Workspace.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/FakeOpener.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;
using testing::Optional;

TEST(Workspace, OpensAURLWithXdgOpenAndReapsIt)
{
    FakeOpener opener;
    // Characters a shell would act on reach the opener untouched.
    Ref<URL> url = URL::URLWithString(str("http://h/p?q=$(touch%20x);a='b'&c=*#f"));
    ASSERT_TRUE(url);
    EXPECT_TRUE(Workspace::sharedWorkspace()->openURL(url.get()));
    EXPECT_THAT(opener.arguments(), Optional(ElementsAre("http://h/p?q=$(touch%20x);a='b'&c=*#f")));
    EXPECT_TRUE(childrenAreReaped());
    EXPECT_EQ(Workspace::sharedWorkspace(), Workspace::sharedWorkspace());
}

TEST(Workspace, NilOpensNothing)
{
    FakeOpener opener;
    EXPECT_FALSE(Workspace::sharedWorkspace()->openURL(nullptr));
    EXPECT_FALSE(opener.ran());
}

TEST(Workspace, FilePackagesAreFoldersWithAPackageExtension)
{
    AutoreleasePool pool;
    ScratchFolder folder;
    for (const char* made : {"Tool.app", "Kit.framework", "Res.bundle", "Codec.plugin", "Plain", ".app"})
        folder.makeFolder(made);
    std::ofstream(folder.file("File.app")) << "not a folder";
    ::symlink(folder.file("Tool.app").c_str(), folder.file("Link.app").c_str());

    Workspace* workspace = Workspace::sharedWorkspace();
    auto isPackage = [&](const std::string& name) {
        return workspace->isFilePackageAtPath(String::stringWithUTF8String(folder.file(name)).get());
    };
    for (const char* package : {"Tool.app", "Tool.app/", "Kit.framework", "Res.bundle", "Codec.plugin", "Link.app"})
        EXPECT_TRUE(isPackage(package)) << package;
    for (const char* other : {"Plain", ".app", "File.app", "Missing.app"})
        EXPECT_FALSE(isPackage(other)) << other;
    EXPECT_FALSE(workspace->isFilePackageAtPath(nullptr));
}
