// Every editing command under one number, with what it may do to a text: for tests that try them all on any
// text and selection.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/EditingCommands.h"
#include "VeskCore/Editor/TableEditing.h"

namespace vesk::test {

struct AnyCommand {
    const char* name;
    std::function<std::optional<TextEdit>(std::u16string_view, TextRange)> run;
    /// The characters that it may take away, besides digits where `renumbers`; "*" for any.
    std::u16string_view takes;
    /// Ordered lists may get other numbers.
    bool renumbers = false;
    /// It never takes a character out of the text, whatever it is.
    bool onlyAdds = false;
};

inline const std::vector<AnyCommand>& anyCommands() {
    using namespace EditingCommands;
    using Kind = MarkdownBlock::Kind;
    const auto styled = [](InlineStyle style) {
        return [style](std::u16string_view text, TextRange at) { return toggle(style, text, at); };
    };
    const auto turned = [](Kind kind) {
        return [kind](std::u16string_view text, TextRange at) { return turnInto(text, at, kind); };
    };
    const auto wrapped = [](char16_t sign) {
        return [sign](std::u16string_view text, TextRange at) { return wrapSelection(text, at, sign); };
    };
    const auto moved = [](bool up) {
        return [up](std::u16string_view text, TextRange at) { return moveBlock(text, at, up); };
    };
    const auto sided = [](auto command, TableEditing::Side side) {
        return [=](std::u16string_view text, TextRange at) { return command(text, at, side); };
    };
    // A callout's type goes with its marker, so that any letter may be taken by a change of kind.
    static const std::vector<AnyCommand> all{
        {"return", insertNewline, u"*", true},
        {"tab", indent, u" \t", true},
        {"shift-tab", outdent, u" \t", true},
        {"backspace", deleteBackward, u"*", true},
        {"bold", styled(InlineStyle::bold), u"*"},
        {"italic", styled(InlineStyle::italic), u"*"},
        {"code", styled(InlineStyle::code), u"` "},
        {"highlight", styled(InlineStyle::highlight), u"="},
        {"strikethrough", styled(InlineStyle::strikethrough), u"~"},
        {"link", toggleLink, u"*"},
        {"task", toggleTask, u"*", true},
        {"bullets", turned({Kind::Plain::bullet}), u"*", true},
        {"numbers", turned({Kind::Ordered{}}), u"*", true},
        {"heading", turned({Kind::Heading{3}}), u"*", true},
        {"callout", turned({Kind::Callout{u"TIP"}}), u"*", true},
        {"code block", turned({Kind::Code{}}), u"*", true},
        {"divider", turned({Kind::Plain::divider}), u" \t"},
        {"wrap star", wrapped(u'*'), u"", false, true},
        {"wrap bracket", wrapped(u'['), u"", false, true},
        {"wrap backtick", wrapped(u'`'), u"", false, true},
        {"move up", moved(true), u"", true},
        {"move down", moved(false), u"", true},
        {"duplicate", duplicateBlock, u"", true},
        {"paste address",
         [](std::u16string_view text, TextRange at) { return paste(text, at, u"https://a.b/(c d)"); }, u"",
         false, true},
        {"paste rows", [](std::u16string_view text, TextRange at) { return paste(text, at, u"a\tb\nc|\td"); },
         u"*"},
        {"next cell", TableEditing::nextCell, u"", false, true},
        {"previous cell", TableEditing::previousCell, u"", false, true},
        {"cell below", TableEditing::cellBelow, u"| \t"},
        {"insert row", sided(TableEditing::insertRow, TableEditing::Side::after), u"", false, true},
        {"insert row above", sided(TableEditing::insertRow, TableEditing::Side::before), u"", false, true},
        {"delete row", TableEditing::deleteRow, u"*"},
        {"move row up", sided(TableEditing::moveRow, TableEditing::Side::before), u""},
        {"move row down", sided(TableEditing::moveRow, TableEditing::Side::after), u""},
        {"insert column", sided(TableEditing::insertColumn, TableEditing::Side::before), u" \t|-:"},
        {"delete column", TableEditing::deleteColumn, u"*"},
        {"move column", sided(TableEditing::moveColumn, TableEditing::Side::after), u" \t|-:"},
        {"align column",
         [](std::u16string_view text, TextRange at) {
             return TableEditing::alignColumn(text, at, TableAlignment::center);
         },
         u" \t|-:"},
        {"tidy", TableEditing::tidy, u" \t|-:"},
        {"insert table",
         [](std::u16string_view text, TextRange at) { return TableEditing::insertTable(text, at, 2, 3); },
         u"*"},
    };
    return all;
}

}  // namespace vesk::test
