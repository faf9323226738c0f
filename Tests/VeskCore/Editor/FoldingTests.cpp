#include <gtest/gtest.h>

#include "VeskCore/Editor/Folding.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {
namespace {

/// "first line > hidden text" for each fold, lines joined by "/".
std::string folds(std::u16string_view text) {
    std::string result;
    for (const Fold& fold : Fold::folds(text)) {
        std::string hidden = utf8(text.substr(fold.hidden.location, fold.hidden.length));
        for (char& c : hidden) c = c == '\n' ? '/' : c;
        result += utf8(text.substr(fold.line.location, fold.line.length)) + " >" + hidden + "; ";
    }
    return result;
}

TEST(Folding, FoldsWhatBelongsTogether) {
    EXPECT_EQ(folds(u"---\na: 1\n---\ntext"), "--- >/a: 1/---; ");
    EXPECT_EQ(folds(u"# A\nx\n## B\ny\n\n# C\n# D\nz"), "# A >/x/## B/y; ## B >/y; # D >/z; ");
    EXPECT_EQ(folds(u"```c\n# no heading\n\n```\nx"), "```c >/# no heading//```; ");
    EXPECT_EQ(folds(u"~~~\nopen"), "~~~ >/open; ");
    EXPECT_EQ(folds(u"- a\n  - b\n    c\n\n  d\n- e\nf"), "- a >/  - b/    c//  d;   - b >/    c; ");
    EXPECT_EQ(folds(u"- a\n  ```\nx\n  ```\n  y\nz"), "- a >/  ```/x/  ```/  y;   ``` >/x/  ```; ");
    EXPECT_EQ(folds(u"a\nb"), "");
}

}  // namespace
}  // namespace vesk::test
