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
        {"bold", "Bold", "Text", "<Control>b", styling(InlineStyle::bold)},
        {"italic", "Italic", "Text", "<Control>i", styling(InlineStyle::italic)},
        {"code", "Code", "Text", "<Control>e", styling(InlineStyle::code)},
        {"highlight", "Highlight", "Text", "<Control><Shift>h", styling(InlineStyle::highlight)},
        {"strikethrough", "Strikethrough", "Text", "<Control><Shift>x", styling(InlineStyle::strikethrough)},
        {"link", "Link", "Text", "<Control>k", EditingCommands::toggleLink},
        {"heading-1", "Heading 1", "Paragraphs", "<Control><Alt>1", turning({Kind::Heading{1}})},
        {"heading-2", "Heading 2", "Paragraphs", "<Control><Alt>2", turning({Kind::Heading{2}})},
        {"heading-3", "Heading 3", "Paragraphs", "<Control><Alt>3", turning({Kind::Heading{3}})},
        {"paragraph", "Paragraph", "Paragraphs", "<Control><Alt>0", turning({Kind::Plain::paragraph})},
        {"bullet", "Bulleted List", "Paragraphs", "<Control><Shift>8", turning({Kind::Plain::bullet})},
        {"ordered", "Numbered List", "Paragraphs", "<Control><Shift>7", turning({Kind::Ordered{1}})},
        {"task", "Tick or Untick Task", "Paragraphs", "<Control>Return", EditingCommands::toggleTask},
        {"quote", "Quote", "Paragraphs", "<Control><Shift>9", turning({Kind::Plain::quote})},
        {"callout", "Callout", "Paragraphs", "", turning({Kind::Callout{u"note"}})},
        {"code-block", "Code Block", "Paragraphs", "<Control><Shift>e", turning({Kind::Code{}})},
        {"divider", "Divider", "Paragraphs", "", turning({Kind::Plain::divider})},
        {"move-up", "Move Up", "Paragraphs", "<Alt>Up", moving(true)},
        {"move-down", "Move Down", "Paragraphs", "<Alt>Down", moving(false)},
        {"duplicate", "Duplicate", "Paragraphs", "<Control><Shift>d", EditingCommands::duplicateBlock},
        {"table", "Insert Table", "Tables", "<Control><Shift>t",
         [](std::u16string_view text, TextRange selection) {
             return TableEditing::insertTable(text, selection, 2, 3);
         }},
        {"table-row", "Add Row Below", "Tables", "", inTable(TableEditing::insertRow, Side::after)},
        {"table-row-delete", "Delete Row", "Tables", "", TableEditing::deleteRow},
        {"table-row-up", "Move Row Up", "Tables", "", inTable(TableEditing::moveRow, Side::before)},
        {"table-row-down", "Move Row Down", "Tables", "", inTable(TableEditing::moveRow, Side::after)},
        {"table-column", "Add Column After", "Tables", "", inTable(TableEditing::insertColumn, Side::after)},
        {"table-column-delete", "Delete Column", "Tables", "", TableEditing::deleteColumn},
        {"table-column-left", "Move Column Left", "Tables", "",
         inTable(TableEditing::moveColumn, Side::before)},
        {"table-column-right", "Move Column Right", "Tables", "",
         inTable(TableEditing::moveColumn, Side::after)},
        {"align-left", "Align Column Left", "Tables", "",
         inTable(TableEditing::alignColumn, TableAlignment::left)},
        {"align-center", "Centre Column", "Tables", "",
         inTable(TableEditing::alignColumn, TableAlignment::center)},
        {"align-right", "Align Column Right", "Tables", "",
         inTable(TableEditing::alignColumn, TableAlignment::right)},
        {"table-tidy", "Tidy Table", "Tables", "", TableEditing::tidy},
    };
    return commands;
}

}  // namespace vesk::views
