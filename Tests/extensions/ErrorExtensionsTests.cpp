#include "extensions/NSError+ZonExtensions.h"
#include "extensions/NSObject+ZonExtensions.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "support/Values.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

Object* entry(const Error* error, String* key) { return error->userInfo() ? error->userInfo()->objectForKey(key) : nullptr; }

std::string entryText(const Error* error, String* key) { return utf8(dynamicCast<String>(entry(error, key))); }

// Keys of the user info, in order.
std::vector<std::string> keys(const Error* error)
{
    std::vector<std::string> result;
    for (auto [key, value] : *error->userInfo())
        result.push_back(utf8(dynamicCast<String>(key)));
    return result;
}

template <class Body>
void expectInvalidArgument(Body body)
{
    try {
        body();
        ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& exception) {
        EXPECT_EQ(utf8(exception.name()), "NSInvalidArgumentException");
    }
}

using Keys = std::vector<std::string>;

} // namespace

TEST(NSErrorZonExtensions, ConstantsHaveTheirTexts)
{
    EXPECT_EQ(utf8(TXZonErrorDomain), "ZonErrorDomain");
    EXPECT_EQ(utf8(TXZonErrorSystemErrorCodeKey), "ZonSystemErrorCode");
    EXPECT_EQ(utf8(TXZonErrorAdditionalContextInfoKey), "ZonUserInfoAdditionalContext");
    EXPECT_EQ(utf8(kLogNetworkCommIdentifier), "networkcomm");
    EXPECT_EQ(kZonBufferPrematureClosureError, 47872);
    EXPECT_EQ(kZonBufferUnknownError, 47873);
}

TEST(NSErrorZonExtensions, AnyDomainConstructors)
{
    auto plain = Error::errorWithDomain_code(ZSTR("D"), 3);
    EXPECT_EQ(utf8(plain->domain()), "D");
    EXPECT_EQ(plain->code(), 3);
    EXPECT_EQ(plain->userInfo(), nullptr);
    EXPECT_EQ(plain->underlyingError(), nullptr);

    auto described = Error::errorWithDomain_code_description(ZSTR("D"), 1, ZSTR("Failed"));
    EXPECT_EQ(keys(described), Keys {"NSLocalizedDescription"});
    EXPECT_EQ(utf8(described->localizedDescription()), "Failed");

    auto wrapped = Error::errorWithDomain_code_underlyingError(ZSTR("D"), 2, plain);
    EXPECT_EQ(wrapped->underlyingError(), plain.get());

    auto both = Error::errorWithDomain_code_underlyingError_description(ZSTR("D"), 2, plain, ZSTR("Outer"));
    EXPECT_EQ(keys(both), (Keys {"NSUnderlyingError", "NSLocalizedDescription"}));
}

TEST(NSErrorZonExtensions, SingleEntryFormsRaiseOnNilValues)
{
    expectInvalidArgument([] { Error::errorWithDomain_code_description(ZSTR("D"), 1, nullptr); });
    expectInvalidArgument([] { Error::errorWithDomain_code_underlyingError(ZSTR("D"), 1, nullptr); });
    expectInvalidArgument([] { Error::zonErrorWithCode_description(1, nullptr); });
    expectInvalidArgument([] {
        Error::errorWithDomain_zonCode_systemCode_description_userInfo(ZSTR("D"), 1, 2, nullptr, nullptr);
    });
}

TEST(NSErrorZonExtensions, OrderedListFormsStopAtTheFirstNil)
{
    auto cause = Error::zonErrorWithCode(9);
    // No underlying error: the description is dropped too, leaving an empty (not nil) user info.
    auto noCause = Error::zonErrorWithCode_underlyingError_description(2, nullptr, ZSTR("lost"));
    ASSERT_NE(noCause->userInfo(), nullptr);
    EXPECT_EQ(noCause->userInfo()->count(), 0u);
    EXPECT_EQ(Error::errorWithDomain_code_underlyingError_description(ZSTR("D"), 2, nullptr, ZSTR("lost"))->userInfo()->count(), 0u);
    EXPECT_EQ(Error::zonErrorWithCode_underlyingError(2, nullptr)->userInfo()->count(), 0u);

    EXPECT_EQ(keys(Error::zonErrorWithCode_underlyingError_description(2, cause, nullptr)), Keys {"NSUnderlyingError"});
    EXPECT_EQ(keys(Error::zonErrorWithCode_underlyingError(2, cause)), Keys {"NSUnderlyingError"});

    auto systemOnly = Error::zonErrorWithCode_systemErrorCode_description(6, -36, nullptr);
    EXPECT_EQ(keys(systemOnly), Keys {"ZonSystemErrorCode"});
    EXPECT_EQ(systemOnly->systemErrorCode(), -36);
    auto systemAndText = Error::zonErrorWithCode_systemErrorCode_description(6, -36, ZSTR("Timed out"));
    EXPECT_EQ(keys(systemAndText), (Keys {"ZonSystemErrorCode", "NSLocalizedDescription"}));
    EXPECT_EQ(utf8(systemAndText->localizedDescription()), "Timed out");
}

TEST(NSErrorTXZonExtensions, SuiteDomainConstructors)
{
    auto zero = Error::zonErrorWithCode(0);
    EXPECT_EQ(utf8(zero->domain()), "ZonErrorDomain");
    EXPECT_EQ(zero->code(), 0);
    EXPECT_EQ(zero->userInfo(), nullptr);
    EXPECT_EQ(zero->systemErrorCode(), 0);

    auto described = Error::zonErrorWithCode_description(4, ZSTR("Failed to get servicePort"));
    EXPECT_EQ(entryText(described, NSLocalizedDescriptionKey), "Failed to get servicePort");

    auto info = Dictionary::dictionaryWithObject_forKey(ZSTR("v"), ZSTR("k"));
    EXPECT_TRUE(Error::zonErrorWithCode_userInfo(1, info)->userInfo()->isEqual(info));
    EXPECT_EQ(Error::zonErrorWithCode_userInfo(1, nullptr)->userInfo(), nullptr);

    auto system = Error::zonErrorWithCode_systemErrorCode(6, -36);
    EXPECT_EQ(keys(system), Keys {"ZonSystemErrorCode"});
    EXPECT_EQ(system->systemErrorCode(), -36);
    EXPECT_EQ(Error::zonErrorWithCode_systemErrorCode(6, 0)->systemErrorCode(), 0);
}

TEST(NSErrorTXZonExtensions, DomainZonCodeConstructorOverridesDescriptionAndSystemCode)
{
    auto info = Dictionary::dictionaryWithObjectsAndKeys({{TXZonErrorSystemErrorCodeKey, Number::numberWithInt(5)},
        {NSLocalizedDescriptionKey, ZSTR("old")}, {ZSTR("caller"), ZSTR("kept")}});
    auto error = Error::errorWithDomain_zonCode_systemCode_description_userInfo(ZSTR("TXZonBaseException"), 7, 0,
        ZSTR("new"), info);
    EXPECT_EQ(utf8(error->domain()), "TXZonBaseException");
    EXPECT_EQ(error->code(), 7);
    EXPECT_EQ(error->systemErrorCode(), 0);
    EXPECT_EQ(entryText(error, NSLocalizedDescriptionKey), "new");
    EXPECT_EQ(entryText(error, ZSTR("caller")), "kept");
    EXPECT_FALSE(error->userInfo()->isKindOfClass(MutableDictionary::staticClass()));
    // The caller's dictionary is left alone.
    EXPECT_EQ(dynamicCast<Number>(info->objectForKey(TXZonErrorSystemErrorCodeKey))->intValue(), 5);

    auto fresh = Error::errorWithDomain_zonCode_systemCode_description_userInfo(ZSTR("D"), 1, 0, ZSTR("d"), nullptr);
    EXPECT_EQ(keys(fresh), (Keys {"NSLocalizedDescription", "ZonSystemErrorCode"}));
}

TEST(NSErrorTXZonExtensions, AccessorsIgnoreTheDomain)
{
    auto foreign = Error::errorWithDomain_code_userInfo(ZSTR("NSPOSIXErrorDomain"), 2,
        Dictionary::dictionaryWithObject_forKey(Number::numberWithInt(-43), TXZonErrorSystemErrorCodeKey));
    EXPECT_EQ(foreign->zonErrorCode(), 2);
    EXPECT_EQ(foreign->systemErrorCode(), -43);
    auto notAnError = Error::errorWithDomain_code_userInfo(ZSTR("D"), 1,
        Dictionary::dictionaryWithObject_forKey(ZSTR("text"), NSUnderlyingErrorKey));
    EXPECT_EQ(notAnError->underlyingError(), nullptr);
}
