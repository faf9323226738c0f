#include <gtest/gtest.h>

#include "VeskCore/Editor/DictationFormatter.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

TEST(DictationFormatter, ObeysSpokenCommands) {
    struct Row {
        std::u16string_view spoken, expected;
    };
    const Row rows[] = {
        {u"", u""},
        {u"  just\n some \u2028words, here. ", u"just some words, here."},
        {u"bold this hello", u"**hello**"},
        {u"Say BOLD THIS hello there, stop and go", u"Say **hello there**, and go"},
        {u"italics this hello normal. Then stop.", u"*hello*. Then stop."},
        {u"bold this a italic this b", u"**a** *b*"},
        {u"bold this stop on", u"on"},
        {u"bold this", u""},
        {u"a New line. b next paragraph c new paragraph", u"a\nb\n\nc"},
        {u"bold this a new line b", u"**a**\nb"},
        {u"a quote this b", u"a\n> b"},
        {u"a quote this", u"a"},
        {u"this new stop bold lines", u"this new stop bold lines"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(utf8(DictationFormatter::markdown(row.spoken)), utf8(row.expected)) << utf8(row.spoken);
    }
}

}  // namespace
}  // namespace vesk
