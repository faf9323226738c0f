#include "Support/Scratch.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace vesk::test {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& what, const fs::path& path) {
    throw std::runtime_error(what + " " + path.native());
}

/// Gives the owner every right on the folders below `top`, so that they can be listed and emptied.
void unlock(const fs::path& top) {
    std::vector<fs::path> folders{top};
    while (!folders.empty()) {
        const fs::path folder = std::move(folders.back());
        folders.pop_back();
        ::chmod(folder.c_str(), S_IRWXU);
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code unknown;
            if (entry->symlink_status(unknown).type() == fs::file_type::directory)
                folders.push_back(entry->path());
        }
    }
}

}  // namespace

ScratchFolder::ScratchFolder() {
    const char* chosen = std::getenv("TMPDIR");
    std::string name = (fs::path(chosen && *chosen ? chosen : "/tmp") / "vesk-test-XXXXXX").native();
    if (!::mkdtemp(name.data())) fail("can't make", name);
    path_ = fs::canonical(name);
}

ScratchFolder::~ScratchFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
    if (!error) return;
    try {
        unlock(path_);
        fs::remove_all(path_, error);
    } catch (...) {  // what can't be removed stays behind
    }
}

fs::path ScratchFolder::write(std::string_view relative, std::string_view bytes) const {
    fs::path file = path_ / relative;
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) fail("can't write", file);
    return file;
}

std::string ScratchFolder::read(std::string_view relative) const {
    std::ifstream stream(path_ / relative, std::ios::binary);
    if (!stream) fail("can't open", path_ / relative);
    std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad()) fail("can't read", path_ / relative);
    return bytes;
}

bool ScratchFolder::exists(std::string_view relative) const {
    // A dangling link is something too.
    return fs::exists(fs::symlink_status(path_ / relative));
}

std::vector<std::string> ScratchFolder::list(std::string_view relative) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_ / relative))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace vesk::test
