#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/// A directory of a test's own, which goes with the object.
class TemporaryDirectory {
public:
    TemporaryDirectory()
        : directory(std::filesystem::temp_directory_path() / "kaikla-test-XXXXXX") {
        if (::mkdtemp(directory.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), directory);
        }
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(directory); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    TemporaryDirectory(TemporaryDirectory&&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory&&) = delete;

    const std::string& path() const { return directory; }
    /// The path of `name` in it.
    std::string file(const std::string& name) const { return directory + "/" + name; }

private:
    std::string directory;
};
