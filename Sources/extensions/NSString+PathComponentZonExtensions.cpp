// NSString(PathComponentZonExtensions): the first component of slash-separated paths and the
// model paths without their outer slashes.

#include "platform/values/StringInternal.h"

namespace zon {

namespace {

bool isRoot(const String* component) { return component->length() == 1 && component->characterAtIndex(0) == '/'; }

} // namespace

Ref<String> String::firstPathComponent() const
{
    const std::vector<Ref<String>> components = pathComponents();
    if (components.empty())
        return String::string();
    if (components.size() >= 2 && isRoot(components[0].get()))
        return components[1];
    return components[0];
}

Ref<String> String::stringByDeletingFirstPathComponent() const
{
    std::vector<Ref<String>> components = pathComponents();
    size_t first = !components.empty() && isRoot(components[0].get()) ? 1 : 0;
    if (first < components.size())
        ++first;
    std::u16string joined;
    for (size_t i = first; i < components.size(); ++i) {
        if (i > first)
            joined.push_back('/');
        joined.append(components[i]->view());
    }
    return StringBuilder::fromView(joined);
}

Ref<String> String::compatibleModelPath() const
{
    if (length_ < 2)
        return immutableSelf();
    std::u16string_view path = view();
    if (path.front() == '/')
        path.remove_prefix(1);
    if (!path.empty() && path.back() == '/')
        path.remove_suffix(1);
    return StringBuilder::fromView(path);
}

} // namespace zon
