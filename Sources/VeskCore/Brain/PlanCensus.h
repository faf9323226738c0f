// What a vault holds while a plan is checked: as it is on the disk, and then as the operations before the
// next one would leave it. Private to VaultPlanExecutor.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk {

/// Walks the vault once when it is made. One that is spelled in another way that Unicode counts as equal is
/// the same name.
class PlanCensus {
public:
    /// A note by where it will be.
    struct Entry {
        std::string path;  ///< as the disk spells it
        /// Where its bytes are now; none for a note that is yet to be made.
        std::optional<std::string> onDisk;
        std::optional<std::string> text;  ///< what it will hold, where that is known
    };

    explicit PlanCensus(const Vault& vault);

    const Entry* note(std::string_view path) const;
    bool isFolder(std::string_view path) const;
    /// The file that the path would lie below as if it were a folder; none for a path that can be made.
    std::optional<std::string> fileAbove(std::string_view path) const;
    /// The path as the disk spells as much of it as there is.
    std::string spelled(std::string_view path) const;
    /// Something has this name, or one that differs by case alone, other than what lies at `besides`.
    bool isTaken(std::string_view path, std::string_view besides = {}) const;

    std::vector<std::string> notesUnder(std::string_view folder) const;
    /// Files that are neither notes nor pages or stylesheets.
    std::size_t otherFilesUnder(std::string_view folder) const;
    bool holdsDocuments(std::string_view folder) const;

    void addNote(std::string path, std::string text);
    void setText(std::string_view path, std::string text);
    void moveNote(std::string_view from, std::string to);
    void removeNote(std::string_view path);
    void addFolder(std::string_view path);
    void moveFolder(std::string_view from, std::string_view to);
    void removeFolder(std::string_view path);

private:
    struct File {
        bool isDocument = false;
    };

    void addName(std::string_view path);
    void removeName(std::string_view path);
    void addParents(std::string_view path);
    template <class Map>
    static std::vector<typename Map::key_type> keysUnder(const Map& map, std::string_view folder);

    // By the path in Unicode's composed form.
    std::map<std::string, Entry, std::less<>> notes_;
    std::map<std::string, File, std::less<>> files_;
    std::map<std::string, std::string, std::less<>> folders_;  // with the disk's spelling
    std::map<std::string, std::size_t, std::less<>> names_;    // how many things have a name, case folded
};

}  // namespace vesk
