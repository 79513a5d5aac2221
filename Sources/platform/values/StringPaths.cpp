#include "platform/values/String.h"
#include "platform/values/StringInternal.h"

namespace zon {

namespace {

using View = std::u16string_view;

// Drops trailing slashes but keeps a lone "/" (so "///" is "/").
View withoutTrailingSlashes(View path)
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

// Collapses runs of slashes and drops a trailing one: "a//b/" is "a/b", "//" is "/".
std::u16string normalizedSlashes(View path)
{
    std::u16string out;
    out.reserve(path.size());
    for (char16_t c : path) {
        if (c != '/' || out.empty() || out.back() != '/')
            out.push_back(c);
    }
    if (out.size() > 1 && out.back() == '/')
        out.pop_back();
    return out;
}

View lastComponent(View path)
{
    path = withoutTrailingSlashes(path);
    if (path == u"/")
        return path;
    const size_t slash = path.rfind('/');
    return slash == View::npos ? path : path.substr(slash + 1);
}

// Where the extension's dot is in path, or npos; a dot that starts the last component is no
// extension (".profile").
size_t extensionDot(View path)
{
    const size_t componentStart = path.rfind('/') == View::npos ? 0 : path.rfind('/') + 1;
    const size_t dot = path.rfind('.');
    return dot != View::npos && dot > componentStart ? dot : View::npos;
}

View argument(const String* text) { return text ? text->view() : View {}; }

} // namespace

std::vector<Ref<String>> String::pathComponents() const
{
    std::vector<Ref<String>> components;
    const View path = view();
    if (path.starts_with(u"/"))
        components.push_back(ZSTR("/"));
    for (size_t start = 0; start < path.size();) {
        size_t end = path.find('/', start);
        if (end == View::npos)
            end = path.size();
        if (end > start)
            components.push_back(StringBuilder::fromView(path.substr(start, end - start)));
        start = end + 1;
    }
    return components;
}

Ref<String> String::pathWithComponents(const std::vector<Ref<String>>& components)
{
    std::u16string joined;
    for (const Ref<String>& component : components) {
        if (!joined.empty())
            joined.push_back('/');
        joined.append(argument(component));
    }
    return StringBuilder::fromView(normalizedSlashes(joined));
}

bool String::isAbsolutePath() const { return length_ && (characters()[0] == '/' || characters()[0] == '~'); }

Ref<String> String::lastPathComponent() const { return StringBuilder::fromView(lastComponent(view())); }

Ref<String> String::pathExtension() const
{
    const View path = withoutTrailingSlashes(view());
    const size_t dot = extensionDot(path);
    return dot == View::npos ? String::string() : StringBuilder::fromView(path.substr(dot + 1));
}

Ref<String> String::stringByDeletingLastPathComponent() const
{
    View path = withoutTrailingSlashes(view());
    const size_t slash = path.rfind('/');
    if (slash == View::npos)
        return String::string();
    View head = path.substr(0, slash);
    while (!head.empty() && head.back() == '/')
        head.remove_suffix(1);
    return head.empty() ? Ref<String>(ZSTR("/")) : StringBuilder::fromView(head);
}

Ref<String> String::stringByDeletingPathExtension() const
{
    const View path = withoutTrailingSlashes(view());
    const size_t dot = extensionDot(path);
    return StringBuilder::fromView(dot == View::npos ? path : path.substr(0, dot));
}

Ref<String> String::stringByAppendingPathComponent(const String* component) const
{
    if (!length_)
        return StringBuilder::fromView(normalizedSlashes(argument(component)));
    std::u16string joined(view());
    joined.push_back('/');
    joined.append(argument(component));
    return StringBuilder::fromView(normalizedSlashes(joined));
}

Ref<String> String::stringByAppendingPathExtension(const String* extension) const
{
    const View path = withoutTrailingSlashes(view());
    const View tail = argument(extension);
    if (path.empty() || path == u"/" || tail.find('/') != View::npos)
        return nullptr;
    std::u16string joined(path);
    joined.push_back('.');
    joined.append(tail);
    return StringBuilder::fromView(joined);
}

} // namespace zon
