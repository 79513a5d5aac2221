// Arbitrary bytes as a keyed archive, XML or binary. The first byte picks whether an allow-list is
// given; the rest is the archive. The unarchiver must answer an object, or nil with an error, and
// never crash, leak or hang. Whatever it answers archives again (when it can be written) and
// reads back.

#include "platform/io/KeyedArchiver.h"
#include "platform/io/KeyedUnarchiver.h"
#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

#include <cstdint>
#include <cstdlib>

namespace {

// A class archives can name: its name goes through an exported setter whose type is checked,
// and it holds whatever object it is given under "next".
class FuzzNode final : public zon::Object {
    ZON_OBJECT(FuzzNode, zon::Object)
public:
    static void exportMethods(zon::Class& cls)
    {
        cls.exportMethod("encodeWithCoder:", &FuzzNode::encodeWithCoder);
        cls.exportMethod("initWithCoder:", &FuzzNode::initWithCoder);
        cls.exportMethod("setName:", &FuzzNode::setName);
        cls.setInstanceFactory([] { return zon::makeObject<FuzzNode>(); });
    }

private:
    FuzzNode() = default;
    void setName(zon::String* name) { name_ = name; }
    void encodeWithCoder(zon::Coder* coder)
    {
        coder->encodeObject_forKey(name_.get(), ZSTR("name"));
        coder->encodeObject_forKey(next_.get(), ZSTR("next"));
        coder->encodeInteger_forKey(count_, ZSTR("count"));
    }
    zon::Ref<zon::Object> initWithCoder(zon::Coder* coder)
    {
        performSelector(zon::selector("setName:"), coder->decodeObjectForKey(ZSTR("name")).get());
        next_ = coder->decodeObjectForKey(ZSTR("next"));
        count_ = coder->decodeIntegerForKey(ZSTR("count"));
        return zon::Ref<zon::Object>(this);
    }

    zon::Ref<zon::String> name_;
    zon::Ref<zon::Object> next_;
    long count_ = 0;
};

ZON_DEFINE_CLASS(FuzzNode, "FuzzNode")

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zon;
    if (size == 0)
        return 0;
    static Set* const allowed = Set::setWithObject(FuzzNode::staticClass()).leakRef();
    Set* classes = data[0] & 1 ? allowed : nullptr;
    Ref<Data> bytes = Data::dataWithBytes(data + 1, size - 1);
    Ref<Error> error;
    Ref<Object> object = KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(classes, bytes, &error);
    if (!object) {
        if (error && (error->code() != NSCoderReadCorruptError || !error->localizedDescription()))
            std::abort();
        return 0;
    }
    Ref<Data> again = KeyedArchiver::archivedDataWithRootObject(object, nullptr);
    if (again && !KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(classes, again, nullptr))
        std::abort();
    return 0;
}
