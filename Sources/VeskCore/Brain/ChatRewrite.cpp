#include "VeskCore/Brain/ChatRewrite.h"

#include "VeskCore/Support/Text.h"

namespace vesk::ChatRewrite {

namespace {

constexpr std::string_view opener = "```replacement";
constexpr std::string_view closer = "\n```";

/// Where the line feed before the closing fence stands, for a block whose opening line ends at `feed`; npos
/// if it is never closed.
std::size_t closeOf(std::string_view text, std::size_t feed) {
    const auto close = text.find(closer, feed);
    if (close != feed) return close;
    // Right below the opening line a fence that says more is the first line of the replacement.
    const auto lineEnd = text.find('\n', feed + closer.size());
    const auto rest = text.substr(feed + closer.size(), lineEnd - feed - closer.size());
    return trim(rest).empty() ? close : text.find(closer, feed + 1);
}

}  // namespace

constinit const std::string_view instructions =
    "\n"
    "WHEN THE USER ASKS YOU TO CHANGE THE TEXT — fix it, rewrite it, translate it, reformat it, "
    "shorten it, expand it — do not describe the change and do not print the result bare. Reply "
    "with one short sentence about what you changed, then the COMPLETE replacement text in a fenced"
    " block opened with ```replacement and closed with ```. Include the ENTIRE text you were given,"
    " with your changes applied — anything you leave out is deleted. If no change is needed, or the"
    " user asked a question rather than for a change, answer normally and emit no replacement "
    "block.";

constinit const std::string_view noteFileInstructions =
    "\n"
    "WHEN THE USER ASKS YOU TO DO SOMETHING TO THIS NOTE AS A FILE — move         it to a folder, "
    "rename it, add or change a property or tag, or trash         it — reply with one short "
    "sentence, then a single JSON object in a         ```json code block:\n"
    "\n"
    "```json\n"
    "{\n"
    "  \"summary\": \"one sentence\",\n"
    "  \"operations\": [\n"
    "    {\"op\": \"rename\", \"from\": \"<the exact path in the note's context header>\", \"to\": "
    "\"Folder/Name.md\"},\n"
    "    {\"op\": \"set_property\", \"path\": \"<same exact path>\", \"key\": \"status\", \"value\""
    ": \"active\"}\n"
    "  ]\n"
    "}\n"
    "```\n"
    "\n"
    "Use the note's exact path as given in its context header. Only THIS         note may be moved,"
    " renamed, tagged or trashed; a \"rename\" into a new         folder creates the folder. For "
    "changes to the note's TEXT, use the         replacement block instead — one reply carries a "
    "replacement block or         a plan, never both. Nothing is applied until the user approves "
    "it.";

bool looksLikeReplacement(std::string_view text) {
    return text.find(opener) != text.npos;
}

std::optional<std::string> extract(std::string_view text) {
    const auto open = text.find(opener);
    if (open == text.npos) return std::nullopt;
    const auto feed = text.find('\n', open);
    if (feed == text.npos) return std::nullopt;
    // The line end behind the opener may be the one before the closing fence: an empty block.
    const auto close = closeOf(text, feed);
    if (close == text.npos) return std::nullopt;
    return close == feed ? std::string() : std::string(text.substr(feed + 1, close - feed - 1));
}

std::string removing(std::string_view text) {
    const auto open = text.find(opener);
    if (open == text.npos) return std::string(text);
    const auto before = trim(text.substr(0, open));
    const auto feed = text.find('\n', open);
    const auto close = feed == text.npos ? text.npos : closeOf(text, feed);
    if (close == text.npos) return std::string(before);
    const auto after = trim(text.substr(close + closer.size()));
    if (before.empty() || after.empty()) return std::string(before.empty() ? after : before);
    return std::string(before) + "\n\n" + std::string(after);
}

}  // namespace vesk::ChatRewrite
