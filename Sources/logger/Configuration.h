#pragma once

#include "Logger.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zon::logger {

// The sinks a process starts with, as the environment describes them (see Logger.h for the
// variables). Values that do not parse leave the default in place.
struct Configuration {
    bool stderrEnabled = true;
    int stderrLevel = kLevelWarning;
    std::string filePath;                 // empty: no file sink
    int fileLevel = kLevelDetail;
    uint64_t fileMaxBytes = 10u << 20;
    int fileCount = 5;
    bool journal = false;
};

using EnvironmentLookup = std::function<const char*(const char* name)>;

ZON_LOGGER_EXPORT Configuration configurationFromEnvironment(const EnvironmentLookup& lookup);
// The sinks for a configuration; the journal one only where a journal runs.
ZON_LOGGER_EXPORT std::vector<std::shared_ptr<Sink>> makeSinks(const Configuration& configuration);

} // namespace zon::logger
