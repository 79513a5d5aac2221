#include "systemManagement/processManagement/TXZonProcessArgumentAreaInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"

#include <algorithm>
#include <vector>

namespace zon {

namespace {

// The argument count that heads the area is not used.
constexpr size_t kCountBytes = 4;

// Collects the strings of an area in order. An environment entry is split at its first "=" before
// decoding: "=" is one ASCII byte, so the entry is UTF-8 exactly when both halves are.
class AreaReader {
public:
    // strings: how many the area may hold, so that the lists grow once.
    AreaReader(size_t strings, ProcessValueCache* cache)
        : cache_(cache)
    {
        arguments_.reserve(strings);
        environment_.reserve(2 * strings);
    }

    void take(std::string_view bytes)
    {
        const size_t equals = bytes.find('=');
        if (equals == std::string_view::npos || bytes.starts_with("--")) {
            Ref<String> text = decode(bytes);
            if (!text)
                return; // not UTF-8: passed over
            if (!path_ && equals == std::string_view::npos) {
                path_ = std::move(text);
                pathBytes_ = bytes;
            } else if (bytes.starts_with("--") || bytes != pathBytes_) {
                arguments_.push_back(std::move(text));
            }
            return;
        }
        Ref<String> key = decode(bytes.substr(0, equals));
        Ref<String> value = decode(bytes.substr(equals + 1));
        if (!key || !value)
            return;
        environment_.push_back(std::move(key));
        environment_.push_back(std::move(value));
    }

    ProcessArgumentArea finish()
    {
        // A later entry of a key replaces the value of the earlier one.
        return {std::move(path_),
            cache_ ? cache_->dictionaryWithKeysAndValues(environment_) : Dictionary::dictionaryAdoptingKeysAndValues(environment_),
            Array::arrayWithVector(std::move(arguments_))};
    }

private:
    Ref<String> decode(std::string_view bytes)
    {
        return cache_ ? cache_->stringWithUTF8(bytes) : String::stringWithUTF8String(bytes);
    }

    ProcessValueCache* cache_;
    Ref<String> path_;
    std::string_view pathBytes_;
    std::vector<Ref<Object>> arguments_;
    std::vector<Ref<Object>> environment_; // keys and values, alternating
};

} // namespace

Ref<String> ProcessValueCache::stringWithUTF8(std::string_view bytes)
{
    if (auto found = strings_.find(bytes); found != strings_.end())
        return found->second;
    Ref<String> text = String::stringWithUTF8String(bytes);
    strings_.emplace(bytes, text);
    return text;
}

size_t ProcessValueCache::Hash::operator()(const std::vector<const Object*>& objects) const
{
    size_t hash = objects.size();
    for (const Object* object : objects)
        hash = hash * 31 + std::hash<const Object*> {}(object);
    return hash;
}

Ref<Dictionary> ProcessValueCache::dictionaryWithKeysAndValues(std::span<Ref<Object>> keysAndValues)
{
    std::vector<const Object*> identities;
    identities.reserve(keysAndValues.size());
    for (const Ref<Object>& object : keysAndValues)
        identities.push_back(object.get());
    if (auto found = dictionaries_.find(identities); found != dictionaries_.end())
        return found->second;
    Ref<Dictionary> dictionary = Dictionary::dictionaryAdoptingKeysAndValues(keysAndValues);
    dictionaries_.emplace(std::move(identities), dictionary);
    return dictionary;
}

bool ProcessValueCache::fileExists(const String* path)
{
    auto [entry, added] = existingFiles_.try_emplace(path, false);
    if (added)
        entry->second = fileExistsAtPath(path);
    return entry->second;
}

bool fileExistsAtPath(const String* path) { return pathStatus(path->UTF8String()).ok(); }

ProcessArgumentArea parseProcessArgumentArea(std::string_view area, ProcessValueCache* cache)
{
    if (area.size() > kCountBytes)
        area.remove_prefix(kCountBytes);
    else
        area = {};
    AreaReader reader(static_cast<size_t>(std::count(area.begin(), area.end(), '\0')) + 1, cache);
    while (!area.empty()) {
        const size_t end = std::min(area.find('\0'), area.size());
        if (end > 0) // runs of NULs give no strings
            reader.take(area.substr(0, end));
        area.remove_prefix(std::min(end + 1, area.size()));
    }
    return reader.finish();
}

} // namespace zon
