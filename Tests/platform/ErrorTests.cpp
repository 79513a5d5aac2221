#include "platform/runtime/Class.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Error, HoldsDomainCodeAndACopyOfTheUserInfo)
{
    auto info = MutableDictionary::dictionaryWithObject_forKey(ZSTR("v"), ZSTR("k"));
    auto error = Error::errorWithDomain_code_userInfo(ZSTR("D"), -7, info);
    info->setObject_forKey(ZSTR("later"), ZSTR("k2"));
    EXPECT_EQ(utf8(error->domain()), "D");
    EXPECT_EQ(error->code(), -7);
    EXPECT_EQ(error->userInfo()->count(), 1u);
    EXPECT_FALSE(error->userInfo()->isKindOfClass(MutableDictionary::staticClass()));
    EXPECT_EQ(Error::errorWithDomain_code_userInfo(ZSTR("D"), 0, nullptr)->userInfo(), nullptr);
    EXPECT_EQ(Error::staticClass()->name(), "NSError");
    EXPECT_EQ(error->copy().get(), error.get());
}

TEST(Error, LocalizedDescriptionFallsBackToThePlatformText)
{
    auto plain = Error::errorWithDomain_code_userInfo(ZSTR("ZonErrorDomain"), 4, nullptr);
    EXPECT_EQ(utf8(plain->localizedDescription()), "The operation couldn\u2019t be completed. (ZonErrorDomain error 4.)");
    auto described = Error::errorWithDomain_code_userInfo(ZSTR("D"), 1,
        Dictionary::dictionaryWithObject_forKey(ZSTR("Failed to get servicePort"), NSLocalizedDescriptionKey));
    EXPECT_EQ(utf8(described->localizedDescription()), "Failed to get servicePort");
    EXPECT_EQ(utf8(NSLocalizedDescriptionKey), "NSLocalizedDescription");
    EXPECT_EQ(utf8(NSUnderlyingErrorKey), "NSUnderlyingError");
}

TEST(Error, DescriptionShowsDomainCodeTextAndUserInfo)
{
    auto inner = Error::errorWithDomain_code_userInfo(ZSTR("Inner"), 2, nullptr);
    EXPECT_EQ(utf8(inner->description()),
        "Error Domain=Inner Code=2 \"The operation couldn\u2019t be completed. (Inner error 2.)\"");
    auto outer = Error::errorWithDomain_code_userInfo(ZSTR("Outer"), -36,
        Dictionary::dictionaryWithObjectsAndKeys({{NSLocalizedDescriptionKey, ZSTR("Broken")}, {NSUnderlyingErrorKey, inner}}));
    EXPECT_EQ(utf8(outer->description()),
        "Error Domain=Outer Code=-36 \"Broken\" UserInfo={NSLocalizedDescription=Broken, "
        "NSUnderlyingError=Error Domain=Inner Code=2 \"The operation couldn\u2019t be completed. (Inner error 2.)\"}");
}

TEST(Error, EqualityCoversDomainCodeAndUserInfo)
{
    auto info = [] { return Dictionary::dictionaryWithObject_forKey(Number::numberWithInt(5), ZSTR("k")); };
    auto a = Error::errorWithDomain_code_userInfo(ZSTR("D"), 1, info());
    auto b = Error::errorWithDomain_code_userInfo(String::stringWithUTF8String("D"), 1, info());
    EXPECT_TRUE(a->isEqual(b));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_FALSE(a->isEqual(Error::errorWithDomain_code_userInfo(ZSTR("D"), 2, info())));
    EXPECT_FALSE(a->isEqual(Error::errorWithDomain_code_userInfo(ZSTR("E"), 1, info())));
    EXPECT_FALSE(a->isEqual(Error::errorWithDomain_code_userInfo(ZSTR("D"), 1, nullptr)));
    EXPECT_FALSE(a->isEqual(ZSTR("D")));
}

TEST(AssertionHandler, RaisesInternalInconsistencyWithTheFormattedDescription)
{
    LogCapture capture;
    EXPECT_EQ(inconsistencyReason([] {
        AssertionHandler::handleFailureInFunction_file_lineNumber_description("startThing", "Sources/x/Unit.cpp", 12,
            "Count %d exceeds %@", 5, ZSTR("limit"));
    }), "Count 5 exceeds limit");
    EXPECT_THAT(capture.records(), ContainsLine(1, "*** Assertion failure in startThing, Sources/x/Unit.cpp:12"));

    auto object = Error::errorWithDomain_code_userInfo(ZSTR("D"), 0, nullptr);
    EXPECT_EQ(inconsistencyReason([&] {
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("start:"), object,
            "Unit.cpp", 3, "Already started");
    }), "Already started");
    EXPECT_THAT(capture.records(), ContainsLine(1, "*** Assertion failure in -[NSError start:], Unit.cpp:3"));
    inconsistencyReason([] {
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("make"),
            Error::staticClass(), "Unit.cpp", 4, "x");
    });
    EXPECT_THAT(capture.records(), ContainsLine(1, "*** Assertion failure in +[NSError make], Unit.cpp:4"));
}

TEST(AssertionHandler, AssertMacroRaisesOnlyWhenTheConditionFails)
{
    int evaluations = 0;
    EXPECT_NO_THROW(ZON_ASSERT(++evaluations == 1, "unused %d", 1));
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(inconsistencyReason([] { ZON_ASSERT(1 > 2, "one is not above %d", 2); }), "one is not above 2");
    EXPECT_EQ(inconsistencyReason([] { ZON_ASSERT(false, "plain"); }), "plain");
}
