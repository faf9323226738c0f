// One-shot rewrites of a note, whose reply is the bare text: what is asked, and what may be taken from the
// reply. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vesk {

enum class NoteRefinementKind { clarify, deepen };
std::string_view rawValue(NoteRefinementKind kind);

namespace NoteRefinement {

std::string_view title(NoteRefinementKind kind);
std::string_view symbol(NoteRefinementKind kind);
std::string_view summary(NoteRefinementKind kind);
/// The system prompt.
std::string_view instruction(NoteRefinementKind kind);

struct FileReference {
    std::string target;
    std::size_t line = 0;  ///< from 0
    bool operator==(const FileReference&) const = default;
};

/// The frontmatter with its fences, and the body. All is body where the two can't be told apart byte for
/// byte.
std::pair<std::string_view, std::string_view> split(std::string_view text);
std::string userMessage(std::string_view text);

/// The text that a reply proposes in the place of `original`; none if it proposes nothing new.
std::optional<std::string> proposal(std::string_view reply, std::string_view original);
/// The reply without a fence around the whole answer and without the chatter behind it.
std::string clean(std::string_view reply);
/// The pictures, files and embeds that a text shows.
std::vector<FileReference> fileReferences(std::string_view text);
/// The rewrite with the lines of `original` put back whose files it lost.
std::string restoringFiles(std::string_view rewritten, std::string_view original);
/// `text` between the line breaks that `original` begins and ends with.
std::string rewrap(std::string_view text, std::string_view original);

}  // namespace NoteRefinement
}  // namespace vesk
