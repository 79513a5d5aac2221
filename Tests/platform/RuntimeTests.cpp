#include "logger/ZonLog.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/Invocation.h"
#include "platform/runtime/Proxy.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include "support/CountedObject.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using namespace zon;
using test::CountedObject;

namespace {

class Greeter : public Object {
    ZON_OBJECT(Greeter, Object)
public:
    static Ref<Greeter> greeter() { return makeObject<Greeter>(); }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("greet:", &Greeter::greet);
        cls.exportMethod("join:with:", &Greeter::join);
        cls.exportMethod("poke", &Greeter::poke);
        cls.exportClassMethod("objectLogCategory", +[]() -> String* { return ZSTR("Greeting"); });
    }
    Ref<String> greet(String* name) { return String::stringWithUTF8String("hi " + name->UTF8String()); }
    Ref<String> join(String* a, String* b)
    {
        return String::stringWithUTF8String((a ? a->UTF8String() : "nil") + "+" + (b ? b->UTF8String() : "nil"));
    }
    void poke() { ++pokes; }
    int pokes = 0;
};
ZON_DEFINE_CLASS(Greeter, "Greeter")

class LoudGreeter : public Greeter {
    ZON_OBJECT(LoudGreeter, Greeter)
public:
    static Ref<LoudGreeter> loudGreeter() { return makeObject<LoudGreeter>(); }
};
ZON_DEFINE_CLASS(LoudGreeter, "LoudGreeter")

// A class whose class operation answers whatever category is set, computed anew each time.
class Relabelled : public Object {
    ZON_OBJECT(Relabelled, Object)
public:
    static inline std::string category = "first";
    static inline int asked = 0;
    static void exportMethods(Class& cls)
    {
        cls.exportClassMethod("objectLogCategory", +[]() -> Ref<String> {
            ++asked;
            return String::stringWithUTF8String(category);
        });
    }
};
ZON_DEFINE_CLASS(Relabelled, "Relabelled")

// Gets its class operation only at run time, after its first line; a subclass inherits it.
class LateLabelled : public Object {
    ZON_OBJECT(LateLabelled, Object)
};
ZON_DEFINE_CLASS(LateLabelled, "LateLabelled")

class LateLabelledChild : public LateLabelled {
    ZON_OBJECT(LateLabelledChild, LateLabelled)
};
ZON_DEFINE_CLASS(LateLabelledChild, "LateLabelledChild")

std::string loggedCategory(const LogCapture& capture, const Object& object)
{
    zon_log_obj(__FILE__, __LINE__, &object, logger::kLevelInfo, kDefaultLogIdentifier, "line");
    auto records = capture.records();
    return records.empty() ? "(no line)" : records.back().category;
}

} // namespace

TEST(Object, RetainReleaseAndAutorelease)
{
    CountedObject::alive = 0;
    {
        Ref<CountedObject> probe = makeObject<CountedObject>();
        EXPECT_EQ(probe->retainCount(), 1u);
        {
            AutoreleasePool pool;
            probe->retain();
            probe->autorelease();
            EXPECT_EQ(probe->retainCount(), 2u);
        }
        EXPECT_EQ(probe->retainCount(), 1u);
        EXPECT_EQ(CountedObject::alive, 1);
    }
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST(Object, SelectorsDispatchThroughTheSuperclassChain)
{
    auto loud = LoudGreeter::loudGreeter();
    SEL greet = selector("greet:");
    EXPECT_TRUE(loud->respondsToSelector(greet));
    EXPECT_FALSE(loud->respondsToSelector(selector("missing")));
    auto answer = dynamicCast<String>(loud->performSelector(greet, ZSTR("bob")));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->UTF8String(), "hi bob");
    EXPECT_TRUE(loud->isKindOfClass(Greeter::staticClass()));
    EXPECT_FALSE(Greeter::greeter()->isKindOfClass(LoudGreeter::staticClass()));
    EXPECT_EQ(Class::named("LoudGreeter"), LoudGreeter::staticClass());
    EXPECT_EQ(LoudGreeter::staticClass()->superclass(), Greeter::staticClass());
}

TEST(Object, SignaturesComeFromTheCppSignature)
{
    auto g = Greeter::greeter();
    auto signature = g->methodSignatureForSelector(selector("join:with:"));
    ASSERT_TRUE(signature);
    EXPECT_EQ(signature->types(), "@@:@@");
    EXPECT_EQ(signature->numberOfArguments(), 4u);
    EXPECT_STREQ(g->methodSignatureForSelector(selector("poke"))->methodReturnType(), "v");
}

TEST(Object, UnknownSelectorRaisesInvalidArgument)
{
    auto g = Greeter::greeter();
    try {
        g->performSelector(selector("nope:"), nullptr);
        FAIL() << "no exception";
    } catch (const Exception& e) {
        EXPECT_EQ(e.name()->UTF8String(), "NSInvalidArgumentException");
        EXPECT_NE(e.reason()->UTF8String().find("-[Greeter nope:]: unrecognized selector sent to instance"), std::string::npos);
    }
}

TEST(Object, MethodsAddedAtRunTimeOnlyWhereMissing)
{
    SEL sel = selector("dynamicAnswer");
    auto impl = [](Object*, SEL cmd, Arguments) -> Ref<Object> { return Ref<Object>(ZSTR("dynamic")); };
    EXPECT_TRUE(LoudGreeter::staticClass()->addMethod(sel, "@@:", impl));
    EXPECT_FALSE(LoudGreeter::staticClass()->addMethod(sel, "@@:", impl));
    EXPECT_TRUE(LoudGreeter::staticClass()->addMethod(selector("greet:"), "@@:@", impl)); // base has it: allowed
    EXPECT_FALSE(Greeter::greeter()->respondsToSelector(sel));
    auto loud = LoudGreeter::loudGreeter();
    EXPECT_EQ(dynamicCast<String>(loud->performSelector(sel))->UTF8String(), "dynamic");
}

TEST(Object, InvocationCallsWithArgumentSlots)
{
    auto g = Greeter::greeter();
    auto invocation = Invocation::invocationWithMethodSignature(g->methodSignatureForSelector(selector("join:with:")));
    invocation->setTarget(g);
    invocation->setSelector(selector("join:with:"));
    invocation->setArgument_atIndex(ZSTR("a"), 2);
    invocation->retainArguments();
    invocation->invoke();
    EXPECT_EQ(dynamicCast<String>(invocation->returnValue())->UTF8String(), "a+nil");
    EXPECT_THROW(invocation->setArgument_atIndex(ZSTR("x"), 4), Exception);
    EXPECT_THROW(Invocation::invocationWithMethodSignature(nullptr), Exception);
}

TEST(Object, LogCategoryFollowsClassOverrides)
{
    EXPECT_EQ(makeObject<CountedObject>()->objectLogCategory()->UTF8String(), "default");
    EXPECT_EQ(Greeter::greeter()->objectLogCategory()->UTF8String(), "Greeting");
    EXPECT_EQ(LoudGreeter::loudGreeter()->objectLogCategory()->UTF8String(), "Greeting");
    EXPECT_EQ(LoudGreeter::staticClass()->objectLogCategory()->UTF8String(), "Greeting");
    auto proxy = Proxy::proxyForObject(Greeter::greeter());
    EXPECT_EQ(proxy->objectLogCategory()->UTF8String(), "default");
    EXPECT_EQ(dynamicCast<String>(proxy->performSelector(selector("greet:"), ZSTR("p")))->UTF8String(), "hi p");
}

TEST(Object, LogCategoryIsAskedForEveryLine)
{
    LogCapture capture;
    AutoreleasePool pool;
    auto relabelled = makeObject<Relabelled>();
    EXPECT_EQ(loggedCategory(capture, *relabelled), "first");
    Relabelled::category = "second";
    EXPECT_EQ(loggedCategory(capture, *relabelled), "second");

    auto late = makeObject<LateLabelled>();
    auto child = makeObject<LateLabelledChild>();
    EXPECT_EQ(loggedCategory(capture, *late), "default");
    EXPECT_EQ(loggedCategory(capture, *child), "default");
    LateLabelled::staticClass()->addClassMethod(selector("objectLogCategory"), "@@:",
        [](Object*, SEL, Arguments) -> Ref<Object> { return Ref<Object>(ZSTR("Late")); });
    EXPECT_EQ(loggedCategory(capture, *late), "Late");
    EXPECT_EQ(loggedCategory(capture, *child), "Late");
    EXPECT_EQ(loggedCategory(capture, *Proxy::proxyForObject(late)), "default");
}

TEST(Object, ACategoryIsAskedForOnlyWhenALineIsWritten)
{
    LogCapture capture;
    AutoreleasePool pool;
    auto relabelled = makeObject<Relabelled>();
    const int asked = Relabelled::asked;
    zon_log_obj(__FILE__, __LINE__, relabelled.get(), 9, kDefaultLogIdentifier, "a level no sink wants");
    EXPECT_EQ(Relabelled::asked, asked);
    zon_log_obj(__FILE__, __LINE__, relabelled.get(), logger::kLevelInfo, kDefaultLogIdentifier, "a line");
    EXPECT_EQ(Relabelled::asked, asked + 1);
    EXPECT_EQ(capture.records().back().category, Relabelled::category);
}
