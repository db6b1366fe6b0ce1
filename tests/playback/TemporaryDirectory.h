#pragma once
// A fresh directory under /tmp, removed with everything in it when this goes.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace lorvane::test {

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        char pattern[] = "/tmp/lorvane-test-XXXXXX";
        if (::mkdtemp(pattern)) path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }

    // Writes `text` to `relative`, making the directories on the way.
    void write(const std::string& relative, const std::string& text) const {
        const std::filesystem::path file = std::filesystem::path(path_) / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    }
    void symlink(const std::string& relative, const std::string& target) const {
        const std::filesystem::path link = std::filesystem::path(path_) / relative;
        std::filesystem::create_directories(link.parent_path());
        std::filesystem::create_symlink(target, link);
    }

private:
    std::string path_;
};

}  // namespace lorvane::test
