// Links: how their targets are read, and which notes they lead to.
#include <algorithm>
#include <set>

#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Url.h"

namespace vesk {

namespace {

constexpr std::size_t longestLinkTarget = 512;  // characters

void removeLeadingDotSlashes(std::string& text) {
    std::size_t start = 0;
    while (text.compare(start, 2, "./") == 0) start += 2;
    text.erase(0, start);
}

/// The candidates of one target, prepared for many sources: what NoteIndex::pick() says, without walking the
/// list for each.
class PreparedPick {
public:
    explicit PreparedPick(const std::vector<std::string>& candidates) {
        if (candidates.empty()) return;
        // No folder of a vault is called "/".
        fallback_ = NoteIndex::pick(candidates, "/");
        if (candidates.size() == 1) return;
        for (const std::string& path : candidates) byFolder_.emplace(parentFolder(path), path);
    }
    const std::string* operator()(std::string_view folder) const {
        if (auto near = byFolder_.find(folder); near != byFolder_.end()) return &near->second;
        return fallback_ ? &*fallback_ : nullptr;
    }

private:
    std::optional<std::string> fallback_;
    std::unordered_map<std::string, std::string, StringHash, std::equal_to<>> byFolder_;
};

}  // namespace

bool NoteIndex::hasURIScheme(std::string_view url) {
    if (url.empty() || !isAsciiLetter(url.front())) return false;
    std::size_t end =
        url.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
    return end != url.npos && url[end] == ':';
}

std::optional<std::pair<std::string, std::optional<std::string>>> NoteIndex::internalLinkTarget(
    std::string_view url) {
    if (url.empty() || url.starts_with('#') || url.starts_with("//")) return std::nullopt;
    if (url.find("://") != url.npos) return std::nullopt;
    if (asciiLowercased(url.substr(0, 7)) == "mailto:" || hasURIScheme(url)) return std::nullopt;
    if (characterCount(url) > longestLinkTarget) return std::nullopt;

    std::string name = removingPercentEncoding(url).value_or(std::string(url));
    std::optional<std::string> heading;
    if (auto mark = name.find('#'); mark != name.npos) {
        if (mark + 1 < name.size()) heading = name.substr(mark + 1);
        name.resize(mark);
    }
    removeLeadingDotSlashes(name);
    if (name.empty()) return std::nullopt;
    return std::pair(std::move(name), std::move(heading));
}

std::string NoteIndex::linkKey(std::string_view text) {
    std::string key = normalisedNfc(lowercased(trim(text)));
    removeLeadingDotSlashes(key);
    for (std::string_view suffix : {".md", ".markdown", ".mdown", ".txt"}) {
        if (!key.ends_with(suffix)) continue;
        key.resize(key.size() - suffix.size());
        break;
    }
    return key;
}

std::optional<std::string> NoteIndex::pick(const std::vector<std::string>& candidates,
                                           std::string_view preferringFolder) {
    if (candidates.empty()) return std::nullopt;
    if (candidates.size() == 1) return candidates.front();
    const std::string* best = nullptr;
    std::pair<std::ptrdiff_t, std::size_t> bestRank;
    for (const std::string& path : candidates) {
        if (parentFolder(path) == preferringFolder) return path;
        std::pair rank(std::count(path.begin(), path.end(), '/'), characterCount(path));
        if (best != nullptr && rank >= bestRank) continue;
        best = &path;
        bestRank = rank;
    }
    return *best;
}

int NoteIndex::resolveLinks(const std::optional<std::string>& from) {
    std::lock_guard guard(implementation_->lock);
    int count = 0;
    transaction([&] {
        count = from ? implementation_->resolveLinksOf(*from, false) : implementation_->resolveAllLinks();
    });
    return count;
}

LinkLookup& NoteIndex::Implementation::currentLookup() {
    std::int64_t version = 0;
    readCached("PRAGMA data_version", [&](const Row& row) { version = row.integer(0); });
    if (!lookup.isBuilt() || version != lookupDataVersion) {
        buildLookup();
        lookupDataVersion = version;
    }
    return lookup;
}

void NoteIndex::Implementation::buildLookup() {
    lookup.clear();
    read("SELECT relative_path, name FROM notes WHERE " + Vault::sqlIsNote("relative_path"),
         [&](const Row& row) { lookup.addNote(row.textView(0)); });
    read(
        "SELECT note_path, value_text, key FROM properties WHERE key IN ('alias', 'aliases') AND value_text "
        "IS NOT NULL",
        [&](const Row& row) {
            lookup.addAlias(row.textView(0), {row.text(2), row.text(1)});
        });
    lookup.markBuilt();
}

void NoteIndex::Implementation::unsettleLinks() {
    if (!bulkMode) connection().exec("PRAGMA user_version=0");  // in bulk a pass follows
}

int NoteIndex::Implementation::resolveLinksOf(std::string_view path, bool anew) {
    struct Link {
        std::int64_t row;
        std::string target;
        std::optional<std::string> resolved;
    };
    std::vector<Link> links;
    readCached(
        "SELECT rowid, target_name, target_resolved_path FROM links WHERE source_path = ? ORDER BY rowid",
        [&](const Row& row) {
            links.push_back({row.integer(0), row.text(1), std::nullopt});
            if (!row.isNull(2)) links.back().resolved = row.text(2);
        },
        path);
    if (links.empty()) return 0;
    LinkLookup& names = currentLookup();
    std::map<std::string_view, std::optional<std::string>> picks;
    int count = 0;
    for (const Link& link : links) {
        auto [known, isNew] = picks.try_emplace(link.target);
        if (isNew) {
            known->second = pick(names.candidates(linkKey(link.target)), parentFolder(path));
            if (known->second) ++count;
        }
        if (link.resolved == known->second || (!known->second && !anew)) continue;
        write("UPDATE links SET target_resolved_path = ? WHERE rowid = ?", known->second, link.row);
    }
    return count;
}

int NoteIndex::Implementation::resolveAllLinks() {
    LinkLookup& names = currentLookup();
    std::unordered_map<std::string, PreparedPick, StringHash, std::equal_to<>> picks;
    std::string source;
    std::set<std::string, std::less<>> targetsOfSource;
    int count = 0;
    // In the table's order, which the update does not touch; links of one source stand together.
    read("SELECT rowid, source_path, target_name, target_resolved_path FROM links ORDER BY rowid",
         [&](const Row& row) {
             if (row.textView(1) != source) {
                 source = row.text(1);
                 targetsOfSource.clear();
             }
             std::string_view target = row.textView(2);
             auto known = picks.find(target);
             if (known == picks.end()) {
                 known = picks.emplace(target, PreparedPick(names.candidates(linkKey(target)))).first;
             }
             const std::string* resolved = known->second(parentFolder(source));
             if (resolved == nullptr) return;
             if (targetsOfSource.emplace(target).second) ++count;
             if (row.isNull(3) || row.textView(3) != *resolved) {
                 write("UPDATE links SET target_resolved_path = ? WHERE rowid = ?", *resolved,
                       row.integer(0));
             }
         });
    connection().exec("PRAGMA user_version=1");
    return count;
}

}  // namespace vesk
