// A file system in memory for whole histories of a vault: fast, with every change told as a kernel tells it,
// and with a say before each call of the process on what becomes of it. What it does to text is what the real
// one does; the folders of a device's own data lie in it too.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Platform/FileSystem.h"

namespace vesk::simulation {

/// What becomes of one call.
struct Fate {
    int error = 0;        ///< errno value that the call fails with
    bool happens = true;  ///< the change stands, also where the call then fails
    bool torn = false;    ///< a new file gets half of its bytes
};

class MemoryFiles final : public FileSystem {
public:
    explicit MemoryFiles(Clock& clock) : clock_(clock), root_(folder()) {}

    /// Asked before every call of the process.
    std::function<Fate(std::string_view operation, const FilePath& path, bool mutates)> fate;
    /// Every change, whoever made it, with flags of FileEventFlag.
    std::function<void(const std::string& path, std::uint64_t fileID, std::uint32_t flags)> told;
    bool hasExchange = true;

    // The others on this machine: never refused

    std::optional<std::string> textAt(const std::string& path) const;
    bool isTaken(const std::string& path) const { return find(path) != nullptr; }
    bool isFolder(const std::string& path) const;
    /// Replaces or makes a file with its folders. With `inPlace` the item stays the same.
    void put(const std::string& path, std::string_view bytes, bool inPlace);
    /// False if there is nothing to move or the place is taken.
    bool rename(const std::string& from, const std::string& to);
    void erase(const std::string& path);
    /// Every regular file below a folder: path relative to it and bytes, hidden ones included.
    std::vector<std::pair<std::string, const std::string*>> filesBelow(const std::string& folder) const;

    // The process

    std::optional<FileInfo> info(const FilePath& path) const override;
    std::optional<FileInfo> linkInfo(const FilePath& path) const override;
    bool isWritable(const FilePath& path) const override;
    std::optional<FilePath> realPath(const FilePath& path) const override;
    std::vector<std::string> list(const FilePath& folder) const override;
    void walk(const FilePath& root, const std::function<WalkStep(const WalkEntry&)>& visit) const override;
    std::string read(const FilePath& path, std::optional<std::size_t> limit = {}) const override;
    void createDirectories(const FilePath& path) override;
    void writeNew(const FilePath& path, std::string_view bytes) override;
    void replace(const FilePath& target, const FilePath& temporary) override;
    bool exchange(const FilePath& target, const FilePath& temporary) override;
    void carryMetadata(const FilePath& target, const FilePath& temporary) override;
    void move(const FilePath& from, const FilePath& to) override;
    void remove(const FilePath& path) override;
    void removeTree(const FilePath& path) override;
    void setCreationDate(const FilePath& path, TimePoint created) override;
    std::optional<std::string> attribute(const FilePath& path, std::string_view name) const override;
    void setAttribute(const FilePath& path, std::string_view name, std::string_view value) override;
    FilePath applicationSupportDirectory() const override { return supportDirectory; }

    FilePath supportDirectory;

private:
    struct Item;
    using ItemPtr = std::shared_ptr<Item>;
    using Children = std::map<std::string, ItemPtr, std::less<>>;
    struct Item {
        FileKind kind = FileKind::regular;
        std::string bytes;
        TimePoint modified, created;
        std::uint64_t id = 0;
        std::map<std::string, std::string, std::less<>> attributes;
        Children children;
    };
    class Entry;

    ItemPtr folder();
    Item* find(std::string_view path) const;
    /// The folder that an item of this path stands in, and its name; throws ENOENT.
    std::pair<Item*, std::string> placeOf(const FilePath& path) const;
    Item& makeFolders(std::string_view path);
    ItemPtr makeFile(std::string_view bytes);
    static FileInfo infoOf(const Item& item);
    Fate ask(std::string_view operation, const FilePath& path, bool mutates) const;
    /// Asks, and throws if the call fails without having happened.
    Fate begin(std::string_view operation, const FilePath& path, bool mutates) const;
    static void end(const Fate& fate, std::string_view operation, const FilePath& path);
    void tell(const std::string& path, const Item& item, std::uint32_t flags) const;
    bool visitBelow(const Item& folder, std::string& path,
                    const std::function<WalkStep(const WalkEntry&)>& visit) const;

    Clock& clock_;
    std::uint64_t nextID_ = 1;
    ItemPtr root_;
};

}  // namespace vesk::simulation
