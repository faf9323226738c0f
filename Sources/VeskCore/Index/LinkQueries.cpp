#include "VeskCore/Index/LinkQueries.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

/// Of a line longer than this only the part around its link is kept: many links may stand in one long line.
constexpr std::size_t longestContext = 1000;  // characters
constexpr std::size_t contextBefore = 200;

std::string contextOf(std::string_view line, std::size_t linkAt) {
    if (line.size() <= longestContext) return std::string(line);
    const auto skipped = characterPrefix(line, linkAt - std::min(linkAt, contextBefore)).size();
    return std::string(characterPrefix(line.substr(skipped), longestContext));
}

}  // namespace

std::vector<OutgoingLink> LinkQueries::outgoingLinks(std::string_view path) const {
    std::vector<OutgoingLink> links;
    index_.query(
        "SELECT l.target_name, l.target_resolved_path, l.is_embed, n.title\n"
        "FROM links l\n"
        "LEFT JOIN notes n ON n.relative_path = l.target_resolved_path\n"
        "WHERE l.source_path = ?\n"
        "ORDER BY l.rowid",
        {SQLValue::text(path)}, [&](const Row& row) {
            OutgoingLink link{.id = fmt::format("{} {}", links.size(), row.textView(0)),
                              .target = row.text(0),
                              .resolvedPath = {},
                              .resolvedTitle = {},
                              .isEmbed = row.integer(2) != 0};
            if (!row.isNull(1)) link.resolvedPath = row.text(1);
            if (!row.isNull(3)) link.resolvedTitle = row.text(3);
            links.push_back(std::move(link));
        });
    return links;
}

std::vector<Backlink> LinkQueries::backlinks(std::string_view path) const {
    struct Source {
        std::string path, key, target, title;
        bool isEmbed = false;
        auto order() const { return std::tie(path, key); }
    };
    std::vector<Source> sources;
    index_.query(
        "SELECT l.source_path, l.target_name, l.is_embed, n.title\n"
        "FROM links l\n"
        "JOIN notes n ON n.relative_path = l.source_path\n"
        "WHERE l.target_resolved_path = ? AND l.source_path <> ?",
        {SQLValue::text(path), SQLValue::text(path)}, [&](const Row& row) {
            sources.push_back({.path = row.text(0),
                               .key = NoteIndex::linkKey(row.textView(1)),
                               .target = row.text(1),
                               .title = row.text(3),
                               .isEmbed = row.integer(2) != 0});
        });
    // A note that links twice has two rows, each of which leads to all of its lines.
    std::stable_sort(sources.begin(), sources.end(),
                     [](const Source& one, const Source& other) { return one.order() < other.order(); });
    sources.erase(
        std::unique(sources.begin(), sources.end(),
                    [](const Source& one, const Source& other) { return one.order() == other.order(); }),
        sources.end());

    std::vector<Backlink> links;
    std::string body;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const auto& source = sources[i];
        const bool isNew = i == 0 || sources[i - 1].path != source.path;
        if (isNew) body = index_.body(source.path).value_or(std::string());
        const auto first = links.size();
        const auto add = [&](std::optional<int> line, std::string context, bool isEmbed) {
            links.push_back({.id = {},
                             .sourcePath = source.path,
                             .sourceTitle = source.title,
                             .line = line,
                             .context = std::move(context),
                             .isEmbed = isEmbed});
        };
        for (auto& found : linkContexts(body, source.target))
            add(found.line, std::move(found.text), found.isEmbed);
        if (links.size() == first) add({}, {}, source.isEmbed);
    }
    // Two spellings of a target may stand in one line.
    std::stable_sort(links.begin(), links.end(), [](const Backlink& one, const Backlink& other) {
        return std::tie(one.sourcePath, one.line) < std::tie(other.sourcePath, other.line);
    });
    links.erase(std::unique(links.begin(), links.end(),
                            [](const Backlink& one, const Backlink& other) {
                                return one.sourcePath == other.sourcePath && one.line == other.line;
                            }),
                links.end());
    for (auto& link : links)
        link.id = link.line ? fmt::format("{}:{}", link.sourcePath, *link.line) : link.sourcePath;
    return links;
}

LinkOverview LinkQueries::overview(std::string_view path) const {
    try {
        return {.backlinks = backlinks(path), .outgoing = outgoingLinks(path), .failure = {}};
    } catch (const IndexError&) {
        return {.backlinks = {}, .outgoing = {}, .failure = "Couldn't read the link index."};
    }
}

std::vector<LinkQueries::LinkContext> LinkQueries::linkContexts(std::string_view body,
                                                                std::string_view target) {
    const auto key = NoteIndex::linkKey(target);
    std::vector<LinkContext> contexts;
    std::string_view fence;
    int number = -1;
    for (const auto line : splitLines(body, true)) {
        ++number;
        const auto trimmed = trimHorizontal(line);
        if (trimmed.starts_with("```") || trimmed.starts_with("~~~")) {
            const auto marker = trimmed.substr(0, 3);
            if (fence.empty()) {
                fence = marker;
            } else if (fence == marker) {
                fence = {};
            }
            continue;
        }
        if (!fence.empty() || line.find('[') == line.npos) continue;
        // Fences apart, a line's links don't depend on the lines before it.
        const auto scan = MarkdownScanner::scan(line, true);
        const auto wiki = std::find_if(scan.wikilinks.begin(), scan.wikilinks.end(), [&](const auto& link) {
            return NoteIndex::linkKey(link.target) == key;
        });
        if (wiki != scan.wikilinks.end()) {
            contexts.push_back({number, contextOf(line, wiki->range.location), wiki->isEmbed});
            continue;
        }
        const auto plain = std::find_if(scan.markdownLinks.begin(), scan.markdownLinks.end(),
                                        [&](const auto& link) { return markdownTargetKey(link.url) == key; });
        if (plain != scan.markdownLinks.end())
            contexts.push_back({number, contextOf(line, 0), plain->isImage});
    }
    return contexts;
}

std::optional<std::string> LinkQueries::markdownTargetKey(std::string_view url) {
    const auto target = NoteIndex::internalLinkTarget(url);
    if (!target) return {};
    return NoteIndex::linkKey(target->first);
}

std::string LinkQueries::linkName(std::string_view path) const {
    const auto name = stem(path);
    const auto key = NoteIndex::linkKey(name);
    bool isShared = false;
    const auto compare = [&](std::string_view otherPath, std::string_view otherName) {
        isShared = isShared || (otherPath != path && NoteIndex::linkKey(otherName) == key);
    };
    index_.query("SELECT relative_path FROM notes WHERE " + Vault::sqlIsNote("relative_path"), {},
                 [&](const Row& row) { compare(row.textView(0), stem(row.textView(0))); });
    index_.query(
        "SELECT note_path, value_text FROM properties WHERE key IN ('alias', 'aliases') AND value_text IS "
        "NOT NULL",
        {}, [&](const Row& row) { compare(row.textView(0), row.textView(1)); });
    return decodedText(std::string(isShared ? deletingExtension(path) : name));
}

}  // namespace vesk
