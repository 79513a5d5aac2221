#pragma once

// Points XDG_RUNTIME_DIR at a fresh temporary folder for one test, so that message-port names of
// tests running in parallel (ctest -j) never meet. Child processes started during the test
// inherit it. The folder and what is left in it are removed afterwards.

#include <cstdlib>
#include <filesystem>
#include <string>

namespace zon::test {

class PrivateRuntimeDirectory {
public:
    PrivateRuntimeDirectory()
    {
        if (const char* old = std::getenv("XDG_RUNTIME_DIR"))
            previous_ = old, hadPrevious_ = true;
        std::string pattern = (std::filesystem::temp_directory_path() / "zon-test-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data()) ? pattern : std::string();
        ::setenv("XDG_RUNTIME_DIR", path_.c_str(), 1);
    }
    ~PrivateRuntimeDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        if (hadPrevious_)
            ::setenv("XDG_RUNTIME_DIR", previous_.c_str(), 1);
        else
            ::unsetenv("XDG_RUNTIME_DIR");
    }
    PrivateRuntimeDirectory(const PrivateRuntimeDirectory&) = delete;
    PrivateRuntimeDirectory& operator=(const PrivateRuntimeDirectory&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
    std::string previous_;
    bool hadPrevious_ = false;
};

} // namespace zon::test
