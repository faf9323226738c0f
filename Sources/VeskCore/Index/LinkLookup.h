// The names that links resolve through, kept in memory between saves so that a save need not read those of
// the whole vault. The index's tables hold the truth; NoteIndex drops the lookup when they may have changed
// behind it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vesk {

/// Guarded by the lock of its index. Names are kept as hashes and compared when asked for.
class LinkLookup {
public:
    struct Alias {
        std::string key, text;  ///< the property's key and the alias
        bool operator==(const Alias&) const = default;
    };

    bool isBuilt() const { return built_; }
    void clear();
    void markBuilt() { built_ = true; }

    /// A note behind all others; nothing if it is known.
    void addNote(std::string_view path);
    /// All aliases of a path, in place of those it had.
    void setAliases(std::string_view path, std::vector<Alias> aliases);
    void addAlias(std::string_view path, Alias alias);
    /// The note and its aliases.
    void remove(std::string_view path);

    /// The paths that a key leads to, each once: notes in the order they came, then those with such an alias,
    /// by key, alias and path.
    std::vector<std::string> candidates(std::string_view key) const;

private:
    using Number = std::uint32_t;
    struct AliasEntry {
        Alias alias;
        std::string path;
    };
    static std::size_t hash(std::string_view key) { return std::hash<std::string_view>()(key); }
    void dropAliases(std::string_view path);

    bool built_ = false;
    std::vector<std::string> paths_;  // by number; those removed stay
    std::unordered_multimap<std::size_t, Number> numbersByKey_;
    std::unordered_multimap<std::size_t, AliasEntry> aliasesByKey_;
    std::unordered_map<std::string, std::vector<Alias>> aliasesByPath_;
};

}  // namespace vesk
