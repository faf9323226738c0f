// Any command on any note and selection: edits stand in the text and on code points, apply cleanly, and lose
// only what the command says. The input's first bytes choose command and selection.
#include <algorithm>
#include <cstdint>

#include "../Tests/VeskCore/Editor/AnyCommand.h"
#include "VeskCore/Editor/Completion.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/FindReplace.h"
#include "VeskCore/Editor/Folding.h"
#include "VeskCore/Editor/LinkAt.h"
#include "VeskCore/Editor/NoteFormat.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;

namespace {

bool splitsCodePoint(std::u16string_view text, std::size_t offset) {
    if (offset == 0 || offset >= text.size()) return false;
    const char16_t before = text[offset - 1], after = text[offset];
    return (before >= 0xD800 && before <= 0xDBFF && after >= 0xDC00 && after <= 0xDFFF) ||
           (before == u'\r' && after == u'\n');
}

void check(const TextEdit& edit, std::u16string_view text) {
    VESK_ENSURE(edit.range.end() <= text.size());
    VESK_ENSURE(!splitsCodePoint(text, edit.range.location) && !splitsCodePoint(text, edit.range.end()));
    const std::u16string after = edit.applied(text);
    VESK_ENSURE(edit.selection.end() <= after.size());
    VESK_ENSURE(!splitsCodePoint(after, edit.selection.location));
    VESK_ENSURE(!splitsCodePoint(after, edit.selection.end()));
}

bool isSubsequence(std::u16string_view part, std::u16string_view whole) {
    std::size_t matched = 0;
    for (const char16_t unit : whole) {
        if (matched < part.size() && unit == part[matched]) ++matched;
    }
    return matched == part.size();
}

std::u16string sortedWithout(std::u16string_view text, std::u16string_view without) {
    std::u16string units;
    for (const char16_t unit : text) {
        if (without.find(unit) == without.npos) units += unit;
    }
    std::sort(units.begin(), units.end());
    return units;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t header = 5;
    if (size < header) return 0;
    const auto& commands = test::anyCommands();
    const test::AnyCommand& command = commands[data[0] % commands.size()];
    const std::u16string text =
        utf16(decodedText(std::string(reinterpret_cast<const char*>(data + header), size - header)));
    const std::size_t start = (data[1] * 256U + data[2]) % (text.size() + 1);
    const TextRange selection{start, std::min<std::size_t>(data[3] * 256U + data[4], text.size() - start)};

    if (const auto edit = command.run(text, selection)) {
        check(*edit, text);
        const std::u16string after = edit->applied(text);
        if (command.onlyAdds) {
            VESK_ENSURE(isSubsequence(text, after));
        } else if (command.takes != u"*") {
            std::u16string takes(command.takes);
            if (command.renumbers) takes += u"0123456789";
            const std::u16string before = sortedWithout(text, takes), now = sortedWithout(after, takes);
            VESK_ENSURE(std::includes(now.begin(), now.end(), before.begin(), before.end()));
        }
    }

    const std::u16string once = NoteFormat::formatted(text);
    VESK_ENSURE(NoteFormat::formatted(once) == once);
    for (const Fold& fold : Fold::folds(text)) {
        VESK_ENSURE(fold.line.end() == fold.hidden.location && fold.hidden.end() <= text.size());
        VESK_ENSURE(!fold.hidden.empty());
    }
    if (const auto link = LinkAt::at(text, start))
        VESK_ENSURE(link->range.location <= start && start <= link->range.end());
    if (const auto prefix = Completion::prefixAt(text, start))
        check(Completion::insertion(text, *prefix, u"x"), text);

    // The selected text is what is looked for; as an expression it may well be none.
    const std::u16string_view looked = EditorLines::piece(text, EditorLines::clipped(selection, text));
    for (const bool expression : {false, true}) {
        try {
            const Finder finder(
                {std::u16string(looked.substr(0, 40)), expression, start % 2 == 0, size % 2 == 0});
            const auto replaced = finder.replaceAll(text, selection, {u"$0", size % 3 == 0});
            if (replaced && expression && size % 3 != 0) VESK_ENSURE(replaced->edit.applied(text) == text);
            if (const auto step = finder.next(text, selection)) VESK_ENSURE(step->range.end() <= text.size());
        } catch (const InvalidExpression&) {
        }
    }
    return 0;
}
