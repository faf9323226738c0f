#include "Vesk/Views/EditorCommands.h"

#include "VeskCore/Editor/EditingCommands.h"
#include "VeskCore/Editor/TableEditing.h"

namespace vesk::views {
namespace {

using Kind = MarkdownBlock::Kind;
using EditingCommands::InlineStyle;

auto styling(InlineStyle style) {
    return [style](std::u16string_view text, TextRange selection) {
        return EditingCommands::toggle(style, text, selection);
    };
}

auto turning(Kind kind) {
    return [kind = std::move(kind)](std::u16string_view text, TextRange selection) {
        return EditingCommands::turnInto(text, selection, kind);
    };
}

auto moving(bool up) {
    return [up](std::u16string_view text, TextRange selection) {
        return EditingCommands::moveBlock(text, selection, up);
    };
}

template <class Operation, class Argument>
auto inTable(Operation operation, Argument argument) {
    return [operation, argument](std::u16string_view text, TextRange selection) {
        return operation(text, selection, argument);
    };
}

}  // namespace

const std::vector<EditorCommand>& editorCommands() {
    using TableEditing::Side;
    static const std::vector<EditorCommand> commands = {
        {"bold", N_("Bold"), N_("Text"), "<Control>b", styling(InlineStyle::bold)},
        {"italic", N_("Italic"), N_("Text"), "<Control>i", styling(InlineStyle::italic)},
        {"code", N_("Code"), N_("Text"), "<Control>e", styling(InlineStyle::code)},
        {"highlight", N_("Highlight"), N_("Text"), "<Control><Shift>h", styling(InlineStyle::highlight)},
        {"strikethrough", N_("Strikethrough"), N_("Text"), "<Control><Shift>x",
         styling(InlineStyle::strikethrough)},
        {"link", N_("Link"), N_("Text"), "<Control>k", EditingCommands::toggleLink},
        {"heading-1", N_("Heading 1"), N_("Paragraphs"), "<Control><Alt>1", turning({Kind::Heading{1}})},
        {"heading-2", N_("Heading 2"), N_("Paragraphs"), "<Control><Alt>2", turning({Kind::Heading{2}})},
        {"heading-3", N_("Heading 3"), N_("Paragraphs"), "<Control><Alt>3", turning({Kind::Heading{3}})},
        {"paragraph", N_("Paragraph"), N_("Paragraphs"), "<Control><Alt>0",
         turning({Kind::Plain::paragraph})},
        {"bullet", N_("Bulleted List"), N_("Paragraphs"), "<Control><Shift>8",
         turning({Kind::Plain::bullet})},
        {"ordered", N_("Numbered List"), N_("Paragraphs"), "<Control><Shift>7", turning({Kind::Ordered{1}})},
        {"task", N_("Tick or Untick Task"), N_("Paragraphs"), "<Control>Return", EditingCommands::toggleTask},
        {"quote", N_("Quote"), N_("Paragraphs"), "<Control><Shift>9", turning({Kind::Plain::quote})},
        {"callout", N_("Callout"), N_("Paragraphs"), "", turning({Kind::Callout{u"note"}})},
        {"code-block", N_("Code Block"), N_("Paragraphs"), "<Control><Shift>e", turning({Kind::Code{}})},
        {"divider", N_("Divider"), N_("Paragraphs"), "", turning({Kind::Plain::divider})},
        {"move-up", N_("Move Up"), N_("Paragraphs"), "<Alt>Up", moving(true)},
        {"move-down", N_("Move Down"), N_("Paragraphs"), "<Alt>Down", moving(false)},
        {"duplicate", N_("Duplicate"), N_("Paragraphs"), "<Control><Shift>d",
         EditingCommands::duplicateBlock},
        {"table", N_("Insert Table"), N_("Tables"), "<Control><Shift>t",
         [](std::u16string_view text, TextRange selection) {
             return TableEditing::insertTable(text, selection, 2, 3);
         }},
        {"table-row", N_("Add Row Below"), N_("Tables"), "", inTable(TableEditing::insertRow, Side::after)},
        {"table-row-delete", N_("Delete Row"), N_("Tables"), "", TableEditing::deleteRow},
        {"table-row-up", N_("Move Row Up"), N_("Tables"), "", inTable(TableEditing::moveRow, Side::before)},
        {"table-row-down", N_("Move Row Down"), N_("Tables"), "",
         inTable(TableEditing::moveRow, Side::after)},
        {"table-column", N_("Add Column After"), N_("Tables"), "",
         inTable(TableEditing::insertColumn, Side::after)},
        {"table-column-delete", N_("Delete Column"), N_("Tables"), "", TableEditing::deleteColumn},
        {"table-column-left", N_("Move Column Left"), N_("Tables"), "",
         inTable(TableEditing::moveColumn, Side::before)},
        {"table-column-right", N_("Move Column Right"), N_("Tables"), "",
         inTable(TableEditing::moveColumn, Side::after)},
        {"align-left", N_("Align Column Left"), N_("Tables"), "",
         inTable(TableEditing::alignColumn, TableAlignment::left)},
        {"align-center", N_("Centre Column"), N_("Tables"), "",
         inTable(TableEditing::alignColumn, TableAlignment::center)},
        {"align-right", N_("Align Column Right"), N_("Tables"), "",
         inTable(TableEditing::alignColumn, TableAlignment::right)},
        {"table-tidy", N_("Tidy Table"), N_("Tables"), "", TableEditing::tidy},
    };
    return commands;
}

}  // namespace vesk::views
