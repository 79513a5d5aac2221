#pragma once

#include "platform/runtime/Object.h"

#include <string>
#include <string_view>
#include <vector>

namespace zon {

// The type signature of a method as type-encoding text ("@@:@": returns an object, takes the
// receiver, the selector and one object). Slots 0 and 1 are the receiver and the selector.
class ZON_EXPORT MethodSignature final : public Object {
    ZON_OBJECT(MethodSignature, Object)
public:
    // Nil when the text is not a valid encoding or has fewer than two argument slots.
    static Ref<MethodSignature> signatureWithObjCTypes(std::string_view types);

    unsigned numberOfArguments() const { return static_cast<unsigned>(argumentTypes_.size()); }
    const char* methodReturnType() const { return returnType_.c_str(); }
    const char* getArgumentTypeAtIndex(unsigned index) const;
    const std::string& types() const { return types_; }
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<String> description() const override;

private:
    MethodSignature(std::string types, std::string returnType, std::vector<std::string> argumentTypes);

    std::string types_;
    std::string returnType_;
    std::vector<std::string> argumentTypes_;
};

} // namespace zon
