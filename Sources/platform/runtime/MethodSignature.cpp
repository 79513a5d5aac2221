#include "platform/runtime/MethodSignature.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

#include <cctype>
#include <functional>
#include <optional>

namespace zon {

ZON_DEFINE_CLASS(MethodSignature, "NSMethodSignature")

namespace {

// Reads one type from an encoding at pos, skipping qualifiers before it and the frame offset
// digits after it; answers the type text, or nothing when the encoding is malformed.
std::optional<std::string> readType(std::string_view types, size_t& pos)
{
    size_t start = pos;
    while (pos < types.size() && std::string_view("rnNoORV").find(types[pos]) != std::string_view::npos)
        ++pos;
    if (pos >= types.size())
        return std::nullopt;
    const size_t typeStart = pos;
    char c = types[pos];
    if (c == '^') {
        ++pos;
        if (!readType(types, pos))
            return std::nullopt;
    } else if (c == '{' || c == '(' || c == '[') {
        const char close = c == '{' ? '}' : c == '(' ? ')' : ']';
        int depth = 0;
        for (; pos < types.size(); ++pos) {
            if (types[pos] == c)
                ++depth;
            else if (types[pos] == close && --depth == 0)
                break;
        }
        if (pos >= types.size())
            return std::nullopt;
        ++pos;
    } else if (c == '@' && pos + 1 < types.size() && types[pos + 1] == '?') {
        pos += 2; // block
    } else if (std::string_view("cislqCISLQfdBv*@#:?").find(c) != std::string_view::npos) {
        ++pos;
    } else {
        return std::nullopt;
    }
    std::string type(types.substr(typeStart, pos - typeStart));
    while (pos < types.size() && (std::isdigit(static_cast<unsigned char>(types[pos])) || types[pos] == '-'))
        ++pos;
    (void)start;
    return type;
}

} // namespace

MethodSignature::MethodSignature(std::string types, std::string returnType, std::vector<std::string> argumentTypes)
    : types_(std::move(types))
    , returnType_(std::move(returnType))
    , argumentTypes_(std::move(argumentTypes))
{
}

Ref<MethodSignature> MethodSignature::signatureWithObjCTypes(std::string_view types)
{
    size_t pos = 0;
    auto returnType = readType(types, pos);
    if (!returnType)
        return nullptr;
    std::vector<std::string> arguments;
    while (pos < types.size()) {
        auto argument = readType(types, pos);
        if (!argument)
            return nullptr;
        arguments.push_back(std::move(*argument));
    }
    if (arguments.size() < 2)
        return nullptr;
    return makeObject<MethodSignature>(std::string(types), std::move(*returnType), std::move(arguments));
}

const char* MethodSignature::getArgumentTypeAtIndex(unsigned index) const
{
    return index < argumentTypes_.size() ? argumentTypes_[index].c_str() : nullptr;
}

bool MethodSignature::isEqual(const Object* other) const
{
    auto* signature = dynamicCast<MethodSignature>(other);
    return signature && signature->types_ == types_;
}

size_t MethodSignature::hash() const { return std::hash<std::string>()(types_); }

Ref<String> MethodSignature::description() const
{
    return String::stringWithUTF8String("<NSMethodSignature: " + types_ + ">");
}

} // namespace zon
