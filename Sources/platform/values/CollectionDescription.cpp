#include "platform/values/CollectionDescription.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace zon::detail {

namespace {

enum class Kind { Array, Dictionary, Set };

struct Item {
    Object* key; // null outside dictionaries
    Object* value;
};

// One open container: its items in printing order and the next one to print.
struct Frame {
    Kind kind;
    std::vector<Item> items;
    size_t next;
    size_t level;
};

bool isBareUnit(char16_t unit)
{
    return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') || (unit >= u'0' && unit <= u'9')
        || unit == u'_' || unit == u'$' || unit == u'/' || unit == u':' || unit == u'.' || unit == u'-';
}

void appendASCII(std::u16string& out, const char* text)
{
    while (*text)
        out += static_cast<char16_t>(*text++);
}

void appendIndent(std::u16string& out, size_t level) { out.append(level * 4, u' '); }

void appendLeaf(std::u16string& out, const Object* object)
{
    if (const String* string = dynamicCast<String>(object)) {
        appendQuotedIfNeeded(out, string->view());
        return;
    }
    Ref<String> description = object->description();
    if (description)
        out += description->view();
}

// Dictionaries print sorted by key when the keys are all strings or all numbers.
void sortByKey(std::vector<Item>& items)
{
    auto allOf = [&](auto cast) {
        return std::all_of(items.begin(), items.end(), [&](const Item& item) { return cast(item.key) != nullptr; });
    };
    if (allOf([](Object* key) { return dynamicCast<String>(key); })) {
        std::stable_sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
            return static_cast<String*>(a.key)->view() < static_cast<String*>(b.key)->view();
        });
    } else if (allOf([](Object* key) { return dynamicCast<Number>(key); })) {
        std::stable_sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
            return static_cast<Number*>(a.key)->compare(static_cast<Number*>(b.key)) == NSOrderedAscending;
        });
    }
}

// Answers the frame for a container, or nothing for a leaf.
bool frameFor(const Object* object, size_t level, Frame& frame)
{
    frame.next = 0;
    frame.level = level;
    frame.items.clear();
    if (const Array* array = dynamicCast<Array>(object)) {
        frame.kind = Kind::Array;
        for (Object* item : *array)
            frame.items.push_back({nullptr, item});
        return true;
    }
    if (const Dictionary* dictionary = dynamicCast<Dictionary>(object)) {
        frame.kind = Kind::Dictionary;
        for (auto [key, value] : *dictionary)
            frame.items.push_back({key, value});
        sortByKey(frame.items);
        return true;
    }
    if (const Set* set = dynamicCast<Set>(object)) {
        frame.kind = Kind::Set;
        for (Object* item : *set)
            frame.items.push_back({nullptr, item});
        return true;
    }
    return false;
}

const char* openingOf(Kind kind) { return kind == Kind::Array ? "(" : kind == Kind::Dictionary ? "{" : "{("; }
const char* closingOf(Kind kind) { return kind == Kind::Array ? ")" : kind == Kind::Dictionary ? "}" : ")}"; }

// What ends the line of the item just printed.
const char* separatorAfter(const Frame& frame)
{
    if (frame.kind == Kind::Dictionary)
        return ";\n";
    return frame.next < frame.items.size() ? ",\n" : "\n";
}

} // namespace

void appendQuotedIfNeeded(std::u16string& out, std::u16string_view text)
{
    if (!text.empty() && std::all_of(text.begin(), text.end(), isBareUnit)) {
        out += text;
        return;
    }
    out += u'"';
    for (char16_t unit : text) {
        const char* escape = nullptr;
        switch (unit) {
        case u'"': escape = "\\\""; break;
        case u'\\': escape = "\\\\"; break;
        case u'\a': escape = "\\a"; break;
        case u'\b': escape = "\\b"; break;
        case u'\t': escape = "\\t"; break;
        case u'\n': escape = "\\n"; break;
        case u'\v': escape = "\\v"; break;
        case u'\f': escape = "\\f"; break;
        case u'\r': escape = "\\r"; break;
        default: break;
        }
        char code[8];
        if (!escape && (unit < 0x20 || unit == 0x7f)) {
            std::snprintf(code, sizeof code, "\\%03o", static_cast<unsigned>(unit));
            escape = code;
        } else if (!escape && unit > 0x7f) {
            std::snprintf(code, sizeof code, "\\U%04x", static_cast<unsigned>(unit));
            escape = code;
        }
        if (escape)
            appendASCII(out, escape);
        else
            out += unit;
    }
    out += u'"';
}

Ref<String> describeCollection(const Object* collection)
{
    std::u16string out;
    std::vector<Frame> stack;
    auto open = [&](const Object* object, size_t level) {
        Frame frame;
        if (!frameFor(object, level, frame))
            return false;
        appendIndent(out, level);
        appendASCII(out, openingOf(frame.kind));
        out += u'\n';
        stack.push_back(std::move(frame));
        return true;
    };
    if (!open(collection, 0))
        return collection->description();
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.items.size()) {
            appendIndent(out, frame.level);
            appendASCII(out, closingOf(frame.kind));
            stack.pop_back();
            if (!stack.empty())
                appendASCII(out, separatorAfter(stack.back()));
            continue;
        }
        const Item item = frame.items[frame.next++];
        const size_t level = frame.level + 1;
        appendIndent(out, level);
        if (item.key) {
            appendLeaf(out, item.key);
            appendASCII(out, " = ");
        }
        if (open(item.value, level)) // invalidates frame
            continue;
        appendLeaf(out, item.value);
        appendASCII(out, separatorAfter(frame));
    }
    return String::stringWithCharacters(out);
}

} // namespace zon::detail
