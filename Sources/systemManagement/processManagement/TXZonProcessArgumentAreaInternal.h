#pragma once

// The reading of a process's argument area into a path, an environment and arguments, exactly as
// the suite has always read it (quirks included: a plain name=value argument is taken for an
// environment entry).

#include "platform/Export.h"
#include "platform/runtime/Object.h"
#include "platform/runtime/Ref.h"

#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zon {

class Array;
class Dictionary;
class String;

struct ProcessArgumentArea {
    Ref<String> pathCandidate; // nil when no string qualified
    Ref<Dictionary> environment;
    Ref<Array> arguments;
};

// The values one listing has made. The processes of a session share most of their environment,
// so a listing that hands every process the same immutable strings, and the same environment
// dictionary where the entries are the same, decodes, allocates and frees each once instead of
// once per process.
class ProcessValueCache {
public:
    // The string of the UTF-8 bytes, nil when they are not UTF-8.
    Ref<String> stringWithUTF8(std::string_view bytes);
    // The dictionary of keys and values (alternating, strings from this cache), as
    // Dictionary::dictionaryAdoptingKeysAndValues makes it.
    Ref<Dictionary> dictionaryWithKeysAndValues(std::span<Ref<Object>> keysAndValues);
    // Whether a file exists at path (a string from this cache), asked once per path: many
    // processes run the same program.
    bool fileExists(const String* path);

private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view bytes) const { return std::hash<std::string_view> {}(bytes); }
        size_t operator()(const std::vector<const Object*>& objects) const;
    };
    std::unordered_map<std::string, Ref<String>, Hash, std::equal_to<>> strings_;
    // By the identities of their keys and values, which the string cache makes equal for equal text.
    std::unordered_map<std::vector<const Object*>, Ref<Dictionary>, Hash> dictionaries_;
    std::unordered_map<const String*, bool> existingFiles_;
};

// Whether a file (of any kind) exists at path, following links.
ZON_EXPORT bool fileExistsAtPath(const String* path);

// Reads an area laid out as buildArgumentArea lays it out; never fails. Fewer than 5 bytes give
// no path, no arguments and an empty environment. Strings come from cache when one is given.
ZON_EXPORT ProcessArgumentArea parseProcessArgumentArea(std::string_view area, ProcessValueCache* cache = nullptr);

} // namespace zon
