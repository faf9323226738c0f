#include <gtest/gtest.h>

#include "Program.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

TEST(LinkCommand, ShowsMentionsWithTheLinesAsTheyWouldRead) {
    Program program;
    program.vault.write("Plan.md", "---\nalias: Go\n---\nx\n");
    program.vault.write("b.md", "the plan, `Plan`\n");
    ASSERT_EQ(program.run({"index"}).status, 0);
    const auto answer = Json::parse(program.run({"links", "Plan.md", "--mentions", "--json"}).out);
    ASSERT_NE(answer.find("unlinked"), nullptr);
    EXPECT_EQ(*answer.find("unlinked"),
              Json::parse(R"({"mentions": [{"id": "b.md:4", "source": "b.md", "line": 0, "column": 4,
                  "text": "plan", "before": "the plan, `Plan`", "after": "the [[Plan|plan]], `Plan`"}],
                  "terms": ["Plan"], "skipped": ["Go"], "truncated": false, "candidateNotes": 1,
                  "searchedNotes": 1})"));
    EXPECT_NE(program.run({"links", "Plan.md", "--mentions"}).out.find("  b.md: the plan, `Plan`\n"),
              std::string::npos);
}

}  // namespace
}  // namespace vesk::test
