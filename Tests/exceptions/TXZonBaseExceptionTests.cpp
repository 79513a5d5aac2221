#include "exceptions/TXZonBaseException.h"
#include "extensions/NSError+ZonExtensions.h"
#include "platform/runtime/Class.h"
#include "platform/values/Number.h"
#include "support/LogCapture.h"
#include "support/Values.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

// What a constructor row fixes, read back from an exception.
struct Row {
    std::string className, name, reason;
    bool hasUserInfo;
    uint32_t type, errorType, errorCode;
    bool operator==(const Row&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Row& row)
{
    return out << row.className << " " << row.name << " '" << row.reason << "' userInfo=" << row.hasUserInfo
               << " type=" << row.type << " errorType=" << row.errorType << " errorCode=" << row.errorCode;
}

Row rowOf(const TXZonBaseException& e)
{
    EXPECT_EQ(e.webSLStatusCode(), 0u);
    return { e.objectClass()->name(), utf8(e.name()), utf8(e.reason()), e.userInfo() != nullptr, e.type(),
        e.errorType(), e.errorCode() };
}

Ref<Dictionary> info() { return Dictionary::dictionaryWithObject_forKey(str("v").get(), str("k").get()); }

// Every constructor row, sent to class C.
template <class C> void expectConstructorRows()
{
    const std::string cls = C::staticClass()->name();
    EXPECT_EQ(rowOf(*C::exceptionWithName_reason_type_errorCode_userInfo(str("N"), str("r"), 3, 9, info())),
        (Row { cls, "N", "r", true, 3, 3, 9 }));
    EXPECT_EQ(rowOf(*C::exceptionWithName_reason(str("N"), str("r"))), (Row { cls, "N", "r", false, 0, 0, 0 }));
    EXPECT_EQ(rowOf(*C::exception()), (Row { cls, cls, "Unknown Reason", false, 0, 0, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason(str("r"))), (Row { cls, cls, "r", false, 0, 0, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason_type(str("r"), 3)), (Row { cls, cls, "r", false, 3, 3, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason_type_errorCode(str("x"), 3, 9)), (Row { cls, cls, "x", false, 3, 3, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason_type_errorCode_userInfo(str("r"), 3, 9, info())),
        (Row { cls, cls, "r", false, 3, 3, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithName_reason_errorType_errorCode_userInfo(str("N"), str("r"), 2, 5, info())),
        (Row { cls, "N", "r", true, 0, 2, 5 }));
    EXPECT_EQ(rowOf(*C::exceptionWithName_reason_errorType_errorCode(str("N"), str("r"), 2, 5)),
        (Row { cls, "N", "r", false, 0, 2, 5 }));
    EXPECT_EQ(
        rowOf(*C::exceptionWithReason_errorType_errorCode(str("r"), 2, 5)), (Row { cls, cls, "r", false, 0, 2, 5 }));
    EXPECT_EQ(rowOf(*C::exceptionWithErrorType_errorCode(2, 5)), (Row { cls, cls, "", false, 0, 2, 5 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason_errorType_userInfo(str("r"), 2, info())),
        (Row { cls, "TXZonBaseException", "r", true, 0, 2, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason_errorType(str("r"), 2)),
        (Row { cls, "TXZonBaseException", "r", false, 0, 2, 0 }));
    EXPECT_EQ(rowOf(*C::exceptionWithReason_userInfo(str("r"), info())),
        (Row { cls, "TXZonBaseException", "r", true, 0, 0, 0 }));

    auto error = Error::zonErrorWithCode_systemErrorCode_description(7, -36, str("gone"));
    const std::string errorText = utf8(error->description());
    EXPECT_EQ(rowOf(*C::exceptionOfType_withError(4, error)),
        (Row { cls, "ZonErrorDomain", errorText, true, 4, 7, static_cast<uint32_t>(-36) }));
    EXPECT_EQ(rowOf(*C::exceptionWithError(error)),
        (Row { cls, "ZonErrorDomain", errorText, true, 7, 7, static_cast<uint32_t>(-36) }));
}

} // namespace

TEST(TXZonBaseException, EveryConstructorRowOnTheBaseAndEachSubclass)
{
    expectConstructorRows<TXZonBaseException>();
    expectConstructorRows<TXZonBaseConnectException>();
    expectConstructorRows<TXZonBasePipeException>();
    expectConstructorRows<TXZonBasePipeClosedException>();
    expectConstructorRows<TXZonBaseDisconnectException>();
}

TEST(TXZonBaseException, EachConstructionLogsOneCreatedLineAndCopiesLogNothing)
{
    LogCapture capture;
    auto e = TXZonBasePipeClosedException::exceptionWithReason_type(str("x"), 3);
    auto copy = e->copy();
    try {
        e->raise();
    } catch (const TXZonBaseException&) {
    }
    std::vector<std::string> created;
    for (const auto& record : capture.records())
        if (record.message.find("created") != std::string::npos)
            created.push_back(record.message);
    EXPECT_EQ(created,
        std::vector<std::string> { "Exception TXZonBasePipeClosedException -- "
                                   "TXZonBasePipeClosedException (x) created" });
    EXPECT_THAT(capture.records(), ContainsLine(1, created.front()));
    EXPECT_THAT(capture.records().front().file, HasSubstr("Sources/exceptions/TXZonBaseException"));
}

TEST(TXZonBaseException, DescriptionAddsErrorTypeAndErrno)
{
    EXPECT_EQ(utf8(TXZonBaseException::exceptionWithReason_errorType_errorCode(str("r"), 2, 5)->description()),
        "r type: 2 errno: 5");
}

TEST(TXZonBaseException, RaiseOperationsThrowTheReceivingClassCaughtByFamily)
{
    auto context = Dictionary::dictionaryWithObject_forKey(str("ctx").get(), str("where").get());
    try {
        TXZonBaseDisconnectException::raiseExceptionWithReason_type_errorCode_context(str("bye"), 3, 9, context);
        FAIL();
    } catch (TXZonBasePipeException& e) {
        EXPECT_EQ(e.objectClass(), TXZonBaseDisconnectException::staticClass());
        EXPECT_EQ(
            rowOf(e), (Row { "TXZonBaseDisconnectException", "TXZonBaseDisconnectException", "bye", false, 3, 3, 0 }));
        EXPECT_EQ(utf8(e.context()->objectForKey<String>(str("where"))), "ctx");
    }
    EXPECT_THROW(TXZonBaseConnectException::raiseException(), TXZonBaseConnectException);
    EXPECT_THROW(TXZonBasePipeClosedException::raiseExceptionWithReason(str("r")), TXZonBasePipeException);
    EXPECT_THROW(TXZonBaseException::raiseExceptionWithReason_type_context(str("r"), 1, nullptr), TXZonBaseException);
    EXPECT_THROW(TXZonBaseException::raiseExceptionWithReason_errorType(str("r"), 1), Exception);
    EXPECT_THROW(TXZonBasePipeException::raiseExceptionWithReason_type(str("r"), 1), TXZonBasePipeException);
    EXPECT_THROW(TXZonBasePipeException::raiseExceptionWithReason_type_errorCode(str("r"), 1, 2), TXZonBaseException);
    auto error = Error::zonErrorWithCode(3);
    EXPECT_THROW(TXZonBaseException::raiseExceptionOfType_withError(1, error), TXZonBaseException);
    EXPECT_THROW(TXZonBaseException::raiseExceptionOfType_withError_context(1, error, nullptr), TXZonBaseException);
    // A pipe exception is not a connect exception.
    EXPECT_THROW(
        {
            try {
                TXZonBasePipeException::raiseException();
            } catch (TXZonBaseConnectException&) {
                FAIL() << "caught by the wrong family";
            }
        },
        TXZonBasePipeException);
}

TEST(TXZonBaseException, ContextAddedInAHandlerSurvivesRethrow)
{
    try {
        try {
            TXZonBaseException::raiseExceptionWithReason(str("r"));
        } catch (TXZonBaseException& e) {
            e.addContextInformation(Dictionary::dictionaryWithObject_forKey(str("1").get(), str("inner").get()));
            throw;
        }
    } catch (TXZonBaseException& e) {
        EXPECT_EQ(utf8(e.context()->objectForKey<String>(str("inner"))), "1");
    }
    // The thrown copy shares the context with the exception it was raised from.
    auto original = TXZonBaseException::exceptionWithReason(str("r"));
    try {
        original->raise();
    } catch (TXZonBaseException& e) {
        e.addContextInformation(Dictionary::dictionaryWithObject_forKey(str("2").get(), str("k").get()));
    }
    EXPECT_EQ(utf8(original->context()->objectForKey<String>(str("k"))), "2");
}

TEST(TXZonBaseException, UnderlyingErrorsAppendAndLiveInTheContext)
{
    auto e = TXZonBaseException::exception();
    EXPECT_EQ(e->underlyingErrors()->count(), 0u);
    EXPECT_EQ(e->context()->count(), 0u);
    e->setUnderlyingErrors(Array::arrayWithObject(Error::zonErrorWithCode(1).get()));
    e->setUnderlyingErrors(Array::arrayWithObject(Error::zonErrorWithCode(2).get()));
    e->addUnderlyingError(Error::zonErrorWithCode(3));
    auto errors = e->underlyingErrors();
    ASSERT_EQ(errors->count(), 3u);
    EXPECT_EQ(dynamicCast<Error>(errors->objectAtIndex(1))->code(), 2);
    EXPECT_EQ(e->context()->objectForKey<Array>(kZonExceptionUnderlyingErrors)->count(), 3u);
    // Later context entries replace earlier ones; nil adds nothing.
    e->addContextInformation(Dictionary::dictionaryWithObject_forKey(str("a").get(), str("k").get()));
    e->addContextInformation(Dictionary::dictionaryWithObject_forKey(str("b").get(), str("k").get()));
    e->addContextInformation(nullptr);
    EXPECT_EQ(utf8(e->context()->objectForKey<String>(str("k"))), "b");
}

TEST(TXZonBaseException, ErrorConversionRoundTripsWithItsAsymmetry)
{
    auto e
        = TXZonBaseException::exceptionWithName_reason_type_errorCode_userInfo(str("Dom"), str("why"), 12, 34, info());
    e->addContextInformation(Dictionary::dictionaryWithObject_forKey(str("c").get(), str("ctx").get()));
    auto error = e->error();
    EXPECT_EQ(utf8(error->domain()), "Dom");
    EXPECT_EQ(error->code(), 12);
    EXPECT_EQ(error->systemErrorCode(), 34);
    EXPECT_EQ(utf8(error->localizedDescription()), "why");
    EXPECT_EQ(utf8(error->userInfo()->objectForKey<String>(str("k"))), "v");
    auto* context = error->userInfo()->objectForKey<Dictionary>(TXZonErrorAdditionalContextInfoKey);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(utf8(context->objectForKey<String>(str("ctx"))), "c");

    // Back: the error's code becomes both type and errorType, and its context the
    // exception's.
    auto back = TXZonBaseException::exceptionWithError(error);
    EXPECT_EQ(rowOf(*back), (Row { "TXZonBaseException", "Dom", utf8(error->description()), true, 12, 12, 34 }));
    EXPECT_EQ(utf8(back->context()->objectForKey<String>(str("ctx"))), "c");
    auto again = back->error();
    EXPECT_EQ(utf8(again->domain()), "Dom");
    EXPECT_EQ(again->code(), 12);
    EXPECT_EQ(again->systemErrorCode(), 34);
    EXPECT_EQ(utf8(again->userInfo()->objectForKey<String>(str("k"))), "v");

    // errorType is not what error() reads.
    auto typed = TXZonBaseException::exceptionOfType_withError(1, Error::zonErrorWithCode(9));
    EXPECT_EQ(typed->errorType(), 9u);
    EXPECT_EQ(typed->error()->code(), 1);
}

TEST(TXZonBaseException, NilReasonMakesErrorRaise)
{
    auto e = TXZonBaseException::exceptionWithName_reason(str("N"), nullptr);
    try {
        e->error();
        FAIL() << "nothing was raised";
    } catch (const Exception& raised) {
        EXPECT_EQ(utf8(raised.name()), "NSInvalidArgumentException");
    }
}
