#pragma once

// What a block of test code raises, as text a test compares with what it expects.

#include "platform/values/Exception.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <string>

namespace zon::test {

// The reason of the exception body raises, checking its name; "" (and a failure) when it raises
// none.
template <class Body>
std::string raisedReason(String* expectedName, Body&& body)
{
    try {
        body();
    } catch (const Exception& exception) {
        EXPECT_TRUE(exception.name()->isEqualToString(expectedName)) << utf8(exception.name());
        return utf8(exception.reason());
    }
    ADD_FAILURE() << "nothing was raised";
    return "";
}

// The reason of the NSInternalInconsistencyException body raises (an assertion's).
template <class Body>
std::string inconsistencyReason(Body&& body)
{
    return raisedReason(NSInternalInconsistencyException, std::forward<Body>(body));
}

// "NAME: REASON" of the exception body raises, or "no exception".
template <class Body>
std::string raisedDescription(Body&& body)
{
    try {
        body();
    } catch (const Exception& exception) {
        return utf8(exception.name()) + ": " + utf8(exception.reason());
    }
    return "no exception";
}

} // namespace zon::test
