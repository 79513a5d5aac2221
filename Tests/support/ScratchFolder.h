#pragma once

// Files for one test: a fresh folder under the temporary folder, removed with everything in it
// when the test ends; and environment variables set for one test and put back afterwards.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zon::test {

class ScratchFolder {
public:
    ScratchFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zon-scratch-XXXXXX").string();
        path = ::mkdtemp(pattern.data()) ? pattern : std::string();
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string file(std::string_view relative) const { return path + "/" + std::string(relative); }
    // Writes bytes to a file below the folder, making the folders on the way.
    std::string write(std::string_view relative, std::string_view bytes) const
    {
        const std::string target = file(relative);
        std::filesystem::create_directories(std::filesystem::path(target).parent_path());
        std::ofstream(target, std::ios::binary | std::ios::trunc).write(bytes.data(), std::streamsize(bytes.size()));
        return target;
    }
    std::string makeFolder(std::string_view relative) const
    {
        const std::string target = file(relative);
        std::filesystem::create_directories(target);
        return target;
    }

    std::string path;
};

// Sets (a value) or unsets (nullopt) environment variables until the scope ends.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ~ScopedEnvironment()
    {
        for (const auto& [name, value] : saved_)
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void set(const std::string& name, std::optional<std::string> value)
    {
        if (!saved_.contains(name)) {
            const char* old = std::getenv(name.c_str());
            saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
        }
        value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }

private:
    std::map<std::string, std::optional<std::string>> saved_;
};

} // namespace zon::test
