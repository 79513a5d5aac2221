#include "systemManagement/processManagement/TXZonProcessArgumentAreaInternal.h"

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
    explicit AreaReader(size_t strings)
    {
        arguments_.reserve(strings);
        environment_.reserve(2 * strings);
    }

    void take(std::string_view bytes)
    {
        const size_t equals = bytes.find('=');
        if (equals == std::string_view::npos || bytes.starts_with("--")) {
            Ref<String> text = String::stringWithUTF8String(bytes);
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
        Ref<String> key = String::stringWithUTF8String(bytes.substr(0, equals));
        Ref<String> value = String::stringWithUTF8String(bytes.substr(equals + 1));
        if (!key || !value)
            return;
        environment_.push_back(std::move(key));
        environment_.push_back(std::move(value));
    }

    ProcessArgumentArea finish()
    {
        // A later entry of a key replaces the value of the earlier one.
        return {std::move(path_), Dictionary::dictionaryAdoptingKeysAndValues(environment_),
            Array::arrayWithVector(std::move(arguments_))};
    }

private:
    Ref<String> path_;
    std::string_view pathBytes_;
    std::vector<Ref<Object>> arguments_;
    std::vector<Ref<Object>> environment_; // keys and values, alternating
};

} // namespace

ProcessArgumentArea parseProcessArgumentArea(std::string_view area)
{
    if (area.size() > kCountBytes)
        area.remove_prefix(kCountBytes);
    else
        area = {};
    AreaReader reader(static_cast<size_t>(std::count(area.begin(), area.end(), '\0')) + 1);
    while (!area.empty()) {
        const size_t end = std::min(area.find('\0'), area.size());
        if (end > 0) // runs of NULs give no strings
            reader.take(area.substr(0, end));
        area.remove_prefix(std::min(end + 1, area.size()));
    }
    return reader.finish();
}

} // namespace zon
