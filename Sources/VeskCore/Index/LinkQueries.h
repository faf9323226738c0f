// What links to a note, what it links to, and plain mentions of its name in other notes.
#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct Backlink {
    std::string id;
    std::string sourcePath, sourceTitle;
    std::optional<int> line;  ///< from 0, in the note's body; none if the link isn't found there
    std::string context;      ///< the line's text; of a very long line the part around the link
    bool isEmbed = false;
    bool operator==(const Backlink&) const = default;
};

struct OutgoingLink {
    std::string id;
    std::string target;                        ///< as written in the note
    std::optional<std::string> resolvedPath;   ///< none if it leads to no note
    std::optional<std::string> resolvedTitle;  ///< none if that note isn't in the index any more
    bool isEmbed = false;
    bool operator==(const OutgoingLink&) const = default;
};

struct LinkOverview {
    std::vector<Backlink> backlinks;
    std::vector<OutgoingLink> outgoing;
    std::optional<std::string> failure;
    bool operator==(const LinkOverview&) const = default;
};

struct UnlinkedMention {
    std::string id;
    std::string sourcePath, sourceTitle;
    int line = 0;         ///< from 0, in the note's body
    std::string context;  ///< the line's text; of a very long line the part around the mention
    int column = 0;       ///< in the context, UTF-16 units
    std::string matchedText;
    TextRange range;  ///< in the note's body, UTF-16 units
    bool operator==(const UnlinkedMention&) const = default;
};

struct UnlinkedMentionScan {
    std::vector<UnlinkedMention> mentions;    ///< by the notes' paths, in each in the order of its text
    std::vector<std::string> terms, skipped;  ///< what was searched for, and what is too short for it
    bool truncated = false;
    int searchedNotes = 0, candidateNotes = 0;
    std::optional<std::string> failure;
    bool operator==(const UnlinkedMentionScan&) const = default;
};

/// A mention about to become a link.
struct PendingLink {
    std::string id;
    UnlinkedMention mention;
    std::string replacement;  ///< "[[Name]]" or "[[Name|as written]]"
    std::string after;        ///< the line as it would read
    /// False where the replacement would read as no link, or as one to another place: a name with signs of
    /// the link syntax in it.
    bool previewAvailable = true;
    bool operator==(const PendingLink&) const = default;

    /// `target` is the name that the link shall lead to.
    static PendingLink of(const UnlinkedMention& mention, std::string_view target);
    /// The note's whole text with the link in place of the mention, all else as it is; none if the mention
    /// doesn't stand there any more.
    std::optional<std::string> insertedInto(std::string_view text) const;
    /// The reverse of it.
    std::optional<std::string> takenOutOf(std::string_view text) const;
};

/// Borrows the index. Any thread; the calls block.
class LinkQueries {
public:
    static constexpr std::size_t shortestTerm = 3;  ///< characters
    static constexpr std::size_t mostTerms = 8, mostMentions = 200;

    explicit LinkQueries(const NoteIndex& index) : index_(index) {}

    /// Throws IndexError.
    std::vector<OutgoingLink> outgoingLinks(std::string_view path) const;
    /// Without the note's links to itself; by the sources' paths. Throws IndexError.
    std::vector<Backlink> backlinks(std::string_view path) const;
    /// Both; a failure in words.
    LinkOverview overview(std::string_view path) const;

    struct Terms {
        std::vector<std::string> terms, skipped;
        bool operator==(const Terms&) const = default;
    };
    /// The names under which a note may be mentioned: title, file name, aliases. Throws IndexError.
    Terms mentionTerms(std::string_view path) const;
    /// Stops between notes, with what it has by then. A failure in words.
    UnlinkedMentionScan unlinkedMentions(std::string_view path, const std::stop_token& stop) const;
    /// What a link to the note is called: its file name, or its path where others go by that name too. Throws
    /// IndexError.
    std::string linkName(std::string_view path) const;

    // Pure parts

    struct LinkContext {
        int line = 0;
        std::string text;
        bool isEmbed = false;
        bool operator==(const LinkContext&) const = default;
    };
    /// The lines of a body that hold a link to the target.
    static std::vector<LinkContext> linkContexts(std::string_view body, std::string_view target);
    /// The body with code and links blanked, every offset kept.
    static std::u16string maskedForMentions(std::u16string_view body);
    /// The key of a Markdown link's address; none for an address that leads out of the vault.
    static std::optional<std::string> markdownTargetKey(std::string_view url);

private:
    const NoteIndex& index_;
};

}  // namespace vesk
