#include "VeskCore/Brain/Filing/FilingTaxonomy.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <unordered_set>

#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

using VaultPlanner::normaliseFolder;
using Names = std::vector<std::string>;

constexpr std::array<std::string_view, 4> protectedNames = {"templates", "daily", "journal", "attachments"};
constexpr std::array<std::string_view, 19> inboxWords = {
    "inbox",      "misc",   "miscellaneous", "unsorted", "unfiled",  "uncategorised", "uncategorized",
    "imported",   "import", "imports",       "triage",   "incoming", "staging",       "scratch",
    "scratchpad", "dump",   "temp",          "tmp",      "temporary"};
constexpr std::array<std::pair<std::string_view, std::string_view>, 6> inboxPhrases = {{{"apple", "notes"},
                                                                                        {"quick", "notes"},
                                                                                        {"new", "notes"},
                                                                                        {"to", "file"},
                                                                                        {"to", "sort"},
                                                                                        {"brain", "dump"}}};

template <class List, class Item>
bool contains(const List& list, const Item& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

/// How folders are compared: a rule that one device wrote holds for the spelling of another's file system.
std::string folded(std::string_view path) {
    return normalisedNfc(lowercased(decodedText(std::string(path))));
}

/// Runs of letters and digits, lower-cased.
Names wordsOf(std::string_view name) {
    const auto text = folded(name);
    Names words(1);
    for (std::size_t offset = 0; offset < text.size();) {
        const auto codePoint = nextCodePoint(text, offset);
        if (isLetter(codePoint) || isNumber(codePoint)) {
            appendCodePoint(words.back(), codePoint);
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    return words;
}

/// "a", "a/b", "a/b/c" of "a/b/c". True if `test` answers true for one.
template <class Test>
bool anyPrefix(std::string_view folder, Test test) {
    for (std::size_t end = 0; end < folder.size();) {
        end = std::min(folder.find('/', end + 1), folder.size());
        if (test(folder.substr(0, end))) return true;
    }
    return false;
}

std::set<std::string, std::less<>> ruleSet(const Names& folders) {
    std::set<std::string, std::less<>> rules;
    for (const auto& folder : folders) rules.insert(folded(normaliseFolder(folder)));
    return rules;
}

}  // namespace

std::string_view rawValue(FilingScope scope) {
    switch (scope) {
        case FilingScope::staging:
            return "staging";
        case FilingScope::filed:
            return "filed";
        case FilingScope::protectedFolder:
            return "protected";
        case FilingScope::excluded:
            return "excluded";
    }
    return {};
}

FilingTaxonomy::Rules::Rules(const OrganiseSettings& settings)
    : inbox(ruleSet(settings.inbox)),
      notInbox(ruleSet(settings.notInbox)),
      protectedFolders(ruleSet(settings.protectedFolders)) {
    if (!settings.junkFolder) return;
    auto junk = normaliseFolder(*settings.junkFolder);
    // The root can't be where junk goes.
    if (!junk.empty()) junkFolder = std::move(junk);
}

bool FilingTaxonomy::Rules::isProtected(std::string_view folder) const {
    const auto path = folded(folder);
    for (const auto component : pathComponents(path)) {
        if (component.starts_with('.') || contains(protectedNames, component)) return true;
    }
    const auto junk = junkFolder ? std::optional(folded(*junkFolder)) : std::nullopt;
    return anyPrefix(
        path, [&](std::string_view prefix) { return protectedFolders.contains(prefix) || prefix == junk; });
}

bool FilingTaxonomy::Rules::isStaging(std::string_view folder) const {
    const auto path = folded(folder);
    std::optional<bool> ruled;
    anyPrefix(path, [&](std::string_view prefix) {
        if (notInbox.contains(prefix)) ruled = false;
        if (inbox.contains(prefix)) ruled = true;
        return false;
    });
    if (ruled) return *ruled;
    return anyPrefix(path, [](std::string_view prefix) { return looksLikeInbox(lastComponent(prefix)); });
}

bool FilingTaxonomy::Rules::looksLikeInbox(std::string_view name) {
    const auto words = wordsOf(name);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (contains(inboxWords, words[i])) return true;
        if (i == 0) continue;
        for (const auto& [first, second] : inboxPhrases) {
            if (words[i - 1] == first && words[i] == second) return true;
        }
    }
    return false;
}

FilingTaxonomy FilingTaxonomy::detect(const Names& folders, const std::vector<Note>& notes,
                                      const OrganiseSettings& settings) {
    FilingTaxonomy taxonomy;
    auto& rules = taxonomy.rules;
    rules = Rules(settings);
    taxonomy.rootIsStaging = rules.inbox.contains("") || !rules.notInbox.contains("");
    taxonomy.junkFolder = rules.junkFolder;
    taxonomy.noteCount = static_cast<int>(notes.size());

    std::unordered_set<std::string> known;
    Names all;
    const auto add = [&](std::string_view path) {
        auto folder = normaliseFolder(path);
        if (!folder.empty() && known.insert(folded(folder)).second) all.push_back(std::move(folder));
    };
    for (const auto& folder : folders) add(folder);
    // By the notes' own folders: whether notes there are candidates.
    std::unordered_map<std::string_view, bool> waits;
    for (const auto& note : notes) {
        const auto folder = parentFolder(note.relativePath);
        const auto [entry, isNew] = waits.try_emplace(folder, false);
        if (!isNew) continue;
        anyPrefix(folder, [&](std::string_view parent) {
            add(parent);
            return false;
        });
        entry->second =
            folder.empty() ? taxonomy.rootIsStaging : !rules.isProtected(folder) && rules.isStaging(folder);
    }

    for (const auto& folder : all) {
        auto& list = rules.isProtected(folder) ? taxonomy.protectedFolders
                     : rules.isStaging(folder) ? taxonomy.stagingFolders
                                               : taxonomy.targets;
        list.push_back(folder);
    }
    if (rules.junkFolder && !known.contains(folded(*rules.junkFolder)))
        taxonomy.protectedFolders.push_back(*rules.junkFolder);
    for (const auto& folder : taxonomy.stagingFolders) {
        const auto parent = parentFolder(folder);
        if (parent.empty() || rules.isProtected(parent) || !rules.isStaging(parent))
            taxonomy.stagingSources.push_back(folder);
    }

    auto sorted = taxonomy.targets;
    std::sort(sorted.begin(), sorted.end());
    taxonomy.targetsHash = sha256Hex(decodedText(join(sorted, "\n")));

    std::vector<const Note*> candidates;
    for (const auto& note : notes) {
        if (waits.at(parentFolder(note.relativePath))) candidates.push_back(&note);
    }
    std::sort(candidates.begin(), candidates.end(), [](const Note* left, const Note* right) {
        if (left->modified != right->modified) return left->modified > right->modified;
        return left->relativePath < right->relativePath;
    });
    for (const auto* note : candidates) taxonomy.candidatePaths.push_back(note->relativePath);
    return taxonomy;
}

FilingScope FilingTaxonomy::scope(std::string_view folder) const {
    const auto path = normaliseFolder(folder);
    if (path.empty()) return rootIsStaging ? FilingScope::staging : FilingScope::excluded;
    if (rules.isProtected(path)) return FilingScope::protectedFolder;
    return rules.isStaging(path) ? FilingScope::staging : FilingScope::filed;
}

Names FilingTaxonomy::forbiddenFolders() const {
    auto forbidden = protectedFolders;
    if (junkFolder) {
        std::erase_if(forbidden, [junk = folded(*junkFolder)](const std::string& folder) {
            return folded(folder) == junk;
        });
    }
    return forbidden;
}

std::string FilingTaxonomy::treatedAsInboxLine() const {
    Names list;
    if (rootIsStaging) list.push_back(localised("notes at the vault root"));
    for (const auto& folder : stagingSources) list.push_back(decodedText(std::string(lastComponent(folder))));
    if (list.empty()) return localised("Treated as inbox: nothing — no folder looks like one");
    std::string line = list.front();
    for (std::size_t i = 1; i < list.size(); ++i) {
        const bool isLast = i + 1 == list.size();
        line += !isLast ? ", " : list.size() == 2 ? localised(" and ") : localised(", and ");
        line += list[i];
    }
    return localised("Treated as inbox: {}", line);
}

}  // namespace vesk
