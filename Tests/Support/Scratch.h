// A folder that goes with the test, and small file helpers that throw on failure.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::test {

/// An empty folder on a real file system, removed with all it holds (also unreadable folders) at the end.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view relative) const { return path_ / relative; }
    /// Writes a file with its folders and returns its path.
    std::filesystem::path write(std::string_view relative, std::string_view bytes) const;
    std::string read(std::string_view relative) const;
    bool exists(std::string_view relative) const;
    /// The names in a folder, sorted.
    std::vector<std::string> list(std::string_view relative = "") const;

private:
    std::filesystem::path path_;
};

}  // namespace vesk::test
