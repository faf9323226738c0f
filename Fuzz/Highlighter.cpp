// A note and a history of edits and caret moves: after each the styles are those of a pass over the whole.
// The steps stand between bytes 254: the note, then for each step two bytes of place, one of how much goes,
// and what comes. The byte 255 for how much makes it a caret.
#include <cstdint>
#include <string>
#include <vector>

#include "Support/InMemoryAttributedText.h"
#include "VeskCore/Editor/MarkdownHighlighter.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;

namespace {

void dress(MarkdownHighlighter& highlighter) {
    highlighter.titleHeading = "a";
    highlighter.gridLayout = [](const MarkdownTable& table) {
        return table.columnCount() % 2 == 0 ? std::optional(MarkdownTableGrid::Layout{}) : std::nullopt;
    };
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const auto steps = split(bytes, '\xFE');
    test::InMemoryAttributedText storage(utf16(decodedText(std::string(steps.front()))));
    MarkdownHighlighter highlighter;
    dress(highlighter);
    storage.setDidEdit([&](TextRange edited, std::ptrdiff_t delta) {
        highlighter.didProcessEditing(storage, edited, delta);
    });
    highlighter.highlight(storage, {0, storage.text().size()}, false);
    for (std::size_t i = 1; i < std::min<std::size_t>(steps.size(), 64); ++i) {
        const std::string_view step = steps[i];
        const auto at = [&](std::size_t n) {
            return n < step.size() ? static_cast<std::size_t>(static_cast<unsigned char>(step[n]))
                                   : std::size_t{0};
        };
        const std::size_t length = storage.text().size();
        const std::size_t place = (at(0) * 256 + at(1)) % (length + 1);
        if (at(2) == 255) {
            highlighter.reveal(TextRange{place, 0}, storage);
        } else {
            const std::string_view typed = step.substr(std::min<std::size_t>(step.size(), 3));
            storage.edit({place, std::min(at(2), length - place)}, utf16(decodedText(std::string(typed))));
        }
        test::InMemoryAttributedText whole{std::u16string(storage.text())};
        MarkdownHighlighter fresh;
        dress(fresh);
        fresh.reveal(highlighter.revealRange(), whole);
        fresh.highlight(whole, {0, whole.text().size()}, false);
        VESK_ENSURE(storage.runs() == whole.runs());
    }
    return 0;
}
