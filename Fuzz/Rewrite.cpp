// Rewrites in models' replies, beside the text they are to replace, which stands behind a NUL: no file is
// lost, an edit touches nothing around it, and the comparison keeps both texts.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VeskCore/Brain/ChatRewrite.h"
#include "VeskCore/Brain/NoteEdit.h"
#include "VeskCore/Brain/NoteRefinement.h"
#include "VeskCore/Brain/WordDiff.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace {

using namespace vesk;

void require(bool condition) {
    if (!condition) std::abort();
}

std::string side(const WordDiff::Result& result, WordDiff::Kind own) {
    std::string text;
    for (const auto& run : result.runs) {
        if (run.kind == WordDiff::Kind::same || run.kind == own) text += run.text;
    }
    return text;
}

void requireKept(const std::string& oldText, const std::string& newText) {
    const auto result = WordDiff::compare(oldText, newText);
    require(side(result, WordDiff::Kind::removed) == oldText);
    require(side(result, WordDiff::Kind::added) == newText);
    require(result.hasChanges == (oldText != newText));
}

/// The edit of a part changes that part alone.
void requirePlaced(const std::string& original, const std::string& replacement) {
    const std::string before = "before ", behind = " behind";
    const auto note = before + original + behind;
    const NoteEdit edit{.id = {},
                        .notePath = {},
                        .noteTitle = {},
                        .action = {},
                        .original = original,
                        .replacement = replacement,
                        .isSelectionOnly = true,
                        .noteTextAtAsk = note,
                        .selectionLocation = utf16Length(before),
                        .subjectDescription = {}};
    require(edit.applied(note) == before + replacement + behind);
    // Twice in a note that changed since: there is no one place for it.
    require(original.empty() || !edit.applied(note + original));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > (1 << 15)) return 0;
    const auto text = repairedUtf8({reinterpret_cast<const char*>(data), size});
    const auto end = text.find('\0');
    const auto reply = text.substr(0, end);
    const auto original = end == text.npos ? std::string() : text.substr(end + 1);

    if (const auto block = ChatRewrite::extract(reply)) {
        require(ChatRewrite::looksLikeReplacement(reply));
        require(reply.find(*block) != reply.npos);
    }
    require(ChatRewrite::removing(reply).size() <= reply.size() + 2);
    const auto [prefix, body] = NoteRefinement::split(original);
    require(std::string(prefix) + std::string(body) == original);
    if (const auto proposal = NoteRefinement::proposal(reply, original)) {
        for (const auto& reference : NoteRefinement::fileReferences(original)) {
            require(proposal->find(reference.target) != std::string::npos);
        }
        requireKept(original, *proposal);
        requirePlaced(original, *proposal);
    }
    requireKept(reply, original);
    return 0;
}
