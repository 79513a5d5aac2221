#include "Configuration.h"

#include "FileSink.h"
#include "JournalSink.h"
#include "StderrSink.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace zon::logger {
namespace {

template <class Integer>
std::optional<Integer> parseInteger(std::string_view text)
{
    Integer value {};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::optional<bool> parseFlag(std::string_view text)
{
    for (std::string_view yes : {"1", "yes", "true", "on"})
        if (text == yes)
            return true;
    for (std::string_view no : {"0", "no", "false", "off"})
        if (text == no)
            return false;
    return std::nullopt;
}

// Bytes with an optional K, M or G suffix (powers of 1024).
std::optional<uint64_t> parseSize(std::string_view text)
{
    uint64_t scale = 1;
    if (!text.empty()) {
        switch (text.back()) {
        case 'K': case 'k': scale = uint64_t(1) << 10; break;
        case 'M': case 'm': scale = uint64_t(1) << 20; break;
        case 'G': case 'g': scale = uint64_t(1) << 30; break;
        }
        if (scale != 1)
            text.remove_suffix(1);
    }
    auto value = parseInteger<uint64_t>(text);
    if (!value || *value > UINT64_MAX / scale)
        return std::nullopt;
    return *value * scale;
}

template <class T, class Parse>
void read(const EnvironmentLookup& lookup, const char* name, T& field, Parse parse)
{
    const char* text = lookup(name);
    if (!text)
        return;
    if (auto value = parse(std::string_view(text)))
        field = *value;
}

} // namespace

Configuration configurationFromEnvironment(const EnvironmentLookup& lookup)
{
    Configuration configuration;
    auto level = [](std::string_view text) { return parseInteger<int>(text); };
    auto count = [](std::string_view text) {
        auto value = parseInteger<int>(text);
        return value && *value >= 0 ? value : std::nullopt;
    };
    read(lookup, "ZON_LOG_LEVEL", configuration.stderrLevel, level);
    read(lookup, "ZON_LOG_STDERR", configuration.stderrEnabled, parseFlag);
    read(lookup, "ZON_LOG_FILE", configuration.filePath, [](std::string_view text) { return std::optional<std::string>(text); });
    read(lookup, "ZON_LOG_FILE_LEVEL", configuration.fileLevel, level);
    read(lookup, "ZON_LOG_FILE_SIZE", configuration.fileMaxBytes, parseSize);
    read(lookup, "ZON_LOG_FILE_COUNT", configuration.fileCount, count);
    read(lookup, "ZON_LOG_JOURNAL", configuration.journal, parseFlag);
    return configuration;
}

std::vector<std::shared_ptr<Sink>> makeSinks(const Configuration& configuration)
{
    std::vector<std::shared_ptr<Sink>> sinks;
    if (configuration.stderrEnabled)
        sinks.push_back(std::make_shared<StderrSink>(configuration.stderrLevel));
    if (!configuration.filePath.empty())
        sinks.push_back(std::make_shared<FileSink>(configuration.filePath, configuration.fileLevel,
            configuration.fileMaxBytes, configuration.fileCount));
    if (configuration.journal) {
        if (auto journal = JournalSink::create(kLevelDetail))
            sinks.push_back(std::move(journal));
    }
    return sinks;
}

} // namespace zon::logger
