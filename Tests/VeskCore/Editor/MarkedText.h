// Text with its selection written in it: "‸" is the caret, "«…»" the selection.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Editor/TextEdit.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {

struct MarkedText {
    std::u16string text;
    TextRange selection;

    explicit MarkedText(std::string_view marked) {
        const std::u16string units = utf16(marked);
        std::optional<std::size_t> start, end;
        for (const char16_t unit : units) {
            if (unit == u'‸') start = end = text.size();
            if (unit == u'«') start = text.size();
            if (unit == u'»') end = text.size();
            if (unit != u'‸' && unit != u'«' && unit != u'»') text += unit;
        }
        EXPECT_TRUE(start && end) << "no caret in " << marked;
        if (start && end) selection = {*start, *end - *start};
    }

    static std::string marked(std::u16string text, TextRange selection) {
        if (selection.empty()) {
            text.insert(selection.location, u"‸");
        } else {
            text.insert(selection.end(), u"»");
            text.insert(selection.location, u"«");
        }
        return utf8(text);
    }
};

/// What a command makes of a marked text, marked; "none" where it gives no edit.
template <class Command>
std::string after(std::string_view marked, Command command) {
    const MarkedText before(marked);
    const std::optional<TextEdit> edit = command(before.text, before.selection);
    if (!edit) return "none";
    return MarkedText::marked(edit->applied(before.text), edit->selection);
}

}  // namespace vesk::test
