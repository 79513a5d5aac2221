#include "platform/io/TypeIdentifiers.h"

#include "platform/io/TypeIdentifierTableInternal.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <vector>

namespace zon {

namespace {

struct DeclaredType {
    std::string identifier;
    std::vector<std::string> conformsTo;
    std::array<std::vector<std::string>, 3> tags; // by TypeTagClass
};

std::string lowercased(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower;
}

std::vector<std::string> splitList(std::string_view field)
{
    std::vector<std::string> items;
    while (!field.empty()) {
        const size_t comma = field.find(',');
        items.emplace_back(field.substr(0, comma));
        field = comma == std::string_view::npos ? std::string_view {} : field.substr(comma + 1);
    }
    return items;
}

bool matchesCaseBlind(TypeTagClass tagClass) { return tagClass != TypeTagClass::osType; }

class TypeTable {
public:
    static const TypeTable& shared()
    {
        static const TypeTable table;
        return table;
    }

    const DeclaredType* find(std::string_view identifier) const
    {
        auto found = byIdentifier_.find(std::string(identifier));
        return found == byIdentifier_.end() ? nullptr : &types_[found->second];
    }

    // The types claiming tag, in table order.
    const std::vector<size_t>* claiming(TypeTagClass tagClass, std::string_view tag) const
    {
        const auto& index = byTag_[static_cast<size_t>(tagClass)];
        auto found = index.find(matchesCaseBlind(tagClass) ? lowercased(tag) : std::string(tag));
        return found == index.end() ? nullptr : &found->second;
    }

    const DeclaredType& at(size_t index) const { return types_[index]; }

private:
    TypeTable()
    {
        std::string_view rest = kTypeIdentifierTable;
        while (!rest.empty()) {
            const size_t end = rest.find('\n');
            std::string_view line = rest.substr(0, end);
            rest = end == std::string_view::npos ? std::string_view {} : rest.substr(end + 1);
            if (line.empty() || line.front() == '#')
                continue;
            std::array<std::string_view, 5> fields {};
            for (auto& field : fields) {
                const size_t tab = line.find('\t');
                field = line.substr(0, tab);
                line = tab == std::string_view::npos ? std::string_view {} : line.substr(tab + 1);
            }
            add(fields);
        }
    }

    void add(const std::array<std::string_view, 5>& fields)
    {
        const size_t index = types_.size();
        DeclaredType& type = types_.emplace_back();
        type.identifier = fields[0];
        type.conformsTo = splitList(fields[1]);
        for (size_t tagClass = 0; tagClass < 3; ++tagClass) {
            type.tags[tagClass] = splitList(fields[2 + tagClass]);
            for (const auto& tag : type.tags[tagClass]) {
                const bool caseBlind = matchesCaseBlind(static_cast<TypeTagClass>(tagClass));
                byTag_[tagClass][caseBlind ? lowercased(tag) : tag].push_back(index);
            }
        }
        byIdentifier_.emplace(type.identifier, index);
    }

    std::vector<DeclaredType> types_;
    std::unordered_map<std::string, size_t> byIdentifier_;
    std::array<std::unordered_map<std::string, std::vector<size_t>>, 3> byTag_;
};

// The dynamic identifier's short forms: keys and well-known values are written as one character.
constexpr std::array<std::string_view, 16> kAbbreviations = {
    "UTTypeConformsTo", "public.filename-extension", "com.apple.ostype", "public.mime-type",
    "com.apple.nspboard-type", "public.url-scheme", "public.data", "public.text", "public.plain-text",
    "public.utf16-plain-text", "com.apple.traditional-mac-plain-text", "public.image", "public.video",
    "public.audio", "public.directory", "public.folder"};

std::string abbreviated(std::string_view text)
{
    for (size_t i = 0; i < kAbbreviations.size(); ++i) {
        if (kAbbreviations[i] == text)
            return std::string(1, "0123456789ABCDEF"[i]);
    }
    // Characters that separate the text's parts are escaped.
    std::string escaped;
    for (char c : text) {
        if (c == ':' || c == '=' || c == '\\' || c == ',')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string_view tagClassName(TypeTagClass tagClass) { return kAbbreviations[1 + static_cast<size_t>(tagClass)]; }

std::string base32(std::string_view bytes)
{
    static constexpr std::string_view kAlphabet = "abcdefghkmnpqrstuvwxyz0123456789";
    std::string out;
    uint32_t bits = 0;
    int held = 0;
    for (unsigned char byte : bytes) {
        bits = (bits << 8) | byte;
        held += 8;
        while (held >= 5) {
            held -= 5;
            out += kAlphabet[(bits >> held) & 31];
        }
    }
    if (held > 0)
        out += kAlphabet[(bits << (5 - held)) & 31];
    return out;
}

} // namespace

bool typeConformsTo(std::string_view type, std::string_view parent)
{
    if (type == parent)
        return true;
    const TypeTable& table = TypeTable::shared();
    std::vector<std::string_view> pending {type};
    std::vector<std::string_view> seen;
    while (!pending.empty()) {
        const std::string_view current = pending.back();
        pending.pop_back();
        if (current == parent)
            return true;
        if (std::find(seen.begin(), seen.end(), current) != seen.end())
            continue;
        seen.push_back(current);
        if (const DeclaredType* declared = table.find(current))
            pending.insert(pending.end(), declared->conformsTo.begin(), declared->conformsTo.end());
    }
    return false;
}

std::string dynamicTypeIdentifier(TypeTagClass tagClass, std::string_view tag, std::string_view conformingTo)
{
    std::string text = "?";
    if (!conformingTo.empty())
        text += abbreviated(kAbbreviations[0]) + "=" + abbreviated(conformingTo) + ":";
    text += abbreviated(tagClassName(tagClass)) + "=" + abbreviated(tag);
    return "dyn.a" + base32(text);
}

std::string preferredTypeIdentifierForTag(TypeTagClass tagClass, std::string_view tag, std::string_view conformingTo)
{
    const TypeTable& table = TypeTable::shared();
    if (const auto* claimants = table.claiming(tagClass, tag)) {
        for (size_t index : *claimants) {
            const DeclaredType& type = table.at(index);
            if (conformingTo.empty() || typeConformsTo(type.identifier, conformingTo))
                return type.identifier;
        }
    }
    return dynamicTypeIdentifier(tagClass, tag, conformingTo);
}

std::string preferredTagOfType(std::string_view type, TypeTagClass tagClass)
{
    const DeclaredType* declared = TypeTable::shared().find(type);
    if (!declared || declared->tags[static_cast<size_t>(tagClass)].empty())
        return {};
    return declared->tags[static_cast<size_t>(tagClass)].front();
}

} // namespace zon
