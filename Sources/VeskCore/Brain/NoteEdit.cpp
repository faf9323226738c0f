#include "VeskCore/Brain/NoteEdit.h"

#include "VeskCore/Brain/NoteRefinement.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Utf16Map.h"

namespace vesk {

namespace {

std::string replaced(std::string_view text, std::size_t at, std::size_t length, std::string_view by) {
    std::string result;
    result.reserve(text.size() - length + by.size());
    return result.append(text.substr(0, at)).append(by).append(text.substr(at + length));
}

/// Whether the frontmatter was left out of what the edit replaces.
bool leftFrontmatterOut(const NoteEdit& edit) {
    if (!edit.noteTextAtAsk) return false;
    const auto [prefix, body] = NoteRefinement::split(*edit.noteTextAtAsk);
    return !prefix.empty() && body == edit.original;
}

}  // namespace

std::optional<std::string> NoteEdit::applied(std::string_view currentText) const {
    if (!isSelectionOnly) {
        if (!leftFrontmatterOut(*this)) return replacement;
        return std::string(NoteRefinement::split(currentText).first) + replacement;
    }
    if (noteTextAtAsk && selectionLocation && *noteTextAtAsk == currentText) {
        if (utf16Length(original) + *selectionLocation > utf16Length(currentText)) return std::nullopt;
        const Utf16Map map(currentText);
        const auto at = map.byteFromUtf16(*selectionLocation);
        const bool isThere = map.utf16FromByte(at) == *selectionLocation;
        if (!isThere || !currentText.substr(at).starts_with(original)) return std::nullopt;
        return replaced(currentText, at, original.size(), replacement);
    }
    if (original.empty()) return std::nullopt;
    const auto at = currentText.find(original);
    if (at == currentText.npos || currentText.find(original, at + 1) != currentText.npos) return std::nullopt;
    return replaced(currentText, at, original.size(), replacement);
}

}  // namespace vesk
