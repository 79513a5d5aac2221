#include "platform/values/String.h"
#include "support/Values.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

TEST(StringVersionHelpers, FieldsSplitAtDotsAndSpaces)
{
    Ref<String> full = str("10.6.8 10K549");
    EXPECT_EQ(full->majorOSVersionValue(), 10u);
    EXPECT_EQ(full->minorOSVersionValue(), 6u);
    EXPECT_EQ(full->bugFixOSVersionValue(), 8u);
    EXPECT_EQ(utf8(full->buildNumberVersionValue().get()), "10K549");
    EXPECT_FALSE(str("10.6.8")->buildNumberVersionValue());
    EXPECT_EQ(str("10")->minorOSVersionValue(), 0u);
    EXPECT_EQ(str("")->majorOSVersionValue(), 0u);
}

TEST(StringVersionHelpers, EmptyFieldsCountAndReadAsZero)
{
    Ref<String> text = str("10..7 ");
    EXPECT_EQ(text->minorOSVersionValue(), 0u);
    EXPECT_EQ(text->bugFixOSVersionValue(), 7u);
    EXPECT_EQ(utf8(text->buildNumberVersionValue().get()), "");
    // Each field's leading integer: blanks are separators here, a sign is read.
    EXPECT_EQ(str("3rc.-1")->majorOSVersionValue(), 3u);
    EXPECT_EQ(str("3rc.-1")->minorOSVersionValue(), static_cast<unsigned long>(-1L));
}
