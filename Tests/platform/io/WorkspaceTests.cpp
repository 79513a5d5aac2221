#include "platform/io/Workspace.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/FakeOpener.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
