#include <gtest/gtest.h>

#include "VeskCore/Brain/VaultOrganiser.h"
#include "VeskCore/Brain/VaultPlanner.h"

namespace vesk::test {
namespace {

using Op = VaultOperation;
using Operations = std::vector<VaultOperation>;

TEST(PlanOperations, AreReadByAnyOfTheirNames) {
    const struct {
        std::string_view json;
        std::optional<Op> expected;
    } rows[] = {
        {R"({"op":"create","path":"A/b.md","content":"x"})", Op{Op::CreateNote{"A/b.md", "x"}}},
        {R"({"op":"new","path":"b"})", Op{Op::CreateNote{"b.md", ""}}},
        {R"({"op":"create","content":"x"})", std::nullopt},
        {R"({"action":"Update_Note","note":" /a ","text":"x"})", Op{Op::UpdateNote{"a.md", "x"}}},
        {R"({"op":"update","path":"a.md","content":""})", std::nullopt},
        {R"({"op":"rename","from":"/a","to":"b"})", Op{Op::RenameNote{"a.md", "b.md"}}},
        {R"({"op":"move","path":"./x/a.md","to":"","folder":"/Archive/"})",
         Op{Op::RenameNote{"x/a.md", "Archive/a.md"}}},
        {R"({"action":"MOVE_NOTE","file":"a.md","to_folder":"Archive/"})",
         Op{Op::RenameNote{"a.md", "Archive/a.md"}}},
        {R"({"op":"move","path":"x/a.md","destination":"/"})", Op{Op::RenameNote{"x/a.md", "a.md"}}},
        {R"({"op":"rename","from":"a.md","to":"Archive/"})", Op{Op::RenameNote{"a.md", "Archive/a.md"}}},
        {R"({"op":"rename","from":"a.md"})", std::nullopt},
        {R"({"op":"rename","to":"a.md"})", std::nullopt},
        {R"({"op":"set_property","path":"a.md","key":"status","value":"done"})",
         Op{Op::SetProperty{"a.md", "status", "done"}}},
        {R"({"op":"add_tag","path":"a.md","property":"tags","value":["x",2,null,["y",2.5]]})",
         Op{Op::SetProperty{"a.md", "tags", "x, 2, y, 2.5"}}},
        {R"({"op":"set_metadata","path":"a.md","key":"k","value":{"a":1}})",
         Op{Op::SetProperty{"a.md", "k", ""}}},
        {R"({"op":"set_property","path":"a.md","value":"done"})", std::nullopt},
        {R"({"op":"remove_tag","path":"a.md","key":"k"})", Op{Op::RemoveProperty{"a.md", "k"}}},
        {R"({"op":"delete","file":"a.md"})", Op{Op::TrashNote{"a.md"}}},
        {R"({"op":"delete","path":"/"})", std::nullopt},
        {R"({"op":"mkdir","name":"A/B/"})", Op{Op::CreateFolder{"A/B"}}},
        {R"({"op":"create_folder","file":"A"})", Op{Op::CreateFolder{"A"}}},
        {R"({"op":"create_folder"})", std::nullopt},
        {R"({"op":"create_folder","path":" "})", std::nullopt},
        {R"({"op":"trash_folder","path":"/"})", Op{Op::TrashFolder{""}}},
        {R"({"op":"rename_folder","from":"A","to":"/"})", Op{Op::RenameFolder{"A", ""}}},
        {R"({"op":"move_directory","folder":"/A/","new":"B"})", Op{Op::RenameFolder{"A", "B"}}},
        {R"({"op":"rename_folder","from":"A"})", std::nullopt},
        {R"({"op":"delete_folder","directory":"A"})", Op{Op::TrashFolder{"A"}}},
        {R"({"op":"format_disk","path":"/"})", std::nullopt},
        {R"({"path":"a.md"})", std::nullopt},
        {R"(["op"])", std::nullopt},
        {R"({"op":7,"operation":"trash","path":["x"],"file":"a.md"})", Op{Op::TrashNote{"a.md"}}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(VaultPlanner::operation(Json::parse(row.json)), row.expected) << row.json;
    }
}

TEST(Plans, AreFoundInReplies) {
    const std::string trash = R"({"op":"trash","path":"a.md"})";
    const Operations one{Op{Op::TrashNote{"a.md"}}};
    const struct {
        std::string_view name;
        std::string reply, summary, prose;
    } rows[] = {
        {"fenced", "I tidied.\n```json\n{\"summary\":\"Tidy\",\"operations\":[" + trash + "]}\n```\nDone.",
         "Tidy", "I tidied.\n\nDone."},
        {"bare", "Sure: {\"operations\":[" + trash + "]} ok", "Proposed changes",
         "Sure: {\"operations\":[" + trash + "]} ok"},
        {"a list", "```\n[" + trash + "]\n```", "Proposed changes", ""},
        {"code fences in a string",
         "```json\n{\"operations\":[{\"op\":\"create\",\"path\":\"\",\"content\":\"```\\n}\\\"]\"}," + trash +
             "]}\n```",
         "Proposed changes",
         "```json\n{\"operations\":[{\"op\":\"create\",\"path\":\"\",\"content\":\"```\\n}\\\"]\"}," + trash +
             "]}\n```"},
        {"behind another fence", "```\nls\n```\nSo:\n```json\n[" + trash + "]\n```", "Proposed changes",
         "```\nls\n```\nSo:"},
        {"what can't be read left out",
         "{\"summary\":3,\"operations\":[7,{\"op\":\"hack\"}," + trash +
             ",{\"op\":\"update\",\"path\":\"x\"}]}",
         "Proposed changes",
         "{\"summary\":3,\"operations\":[7,{\"op\":\"hack\"}," + trash +
             ",{\"op\":\"update\",\"path\":\"x\"}]}"},
    };
    for (const auto& row : rows) {
        const auto plan = VaultPlanner::parse(row.reply);
        EXPECT_EQ(plan.summary, row.summary) << row.name;
        EXPECT_EQ(plan.operations, one) << row.name;
        EXPECT_TRUE(plan.annotations.empty()) << row.name;
        EXPECT_EQ(VaultPlanner::removingPlanJSON(row.reply), row.prose) << row.name;
    }
}

TEST(Plans, AreRefusedInWords) {
    struct Row {
        std::string_view reply, description;
    };
    const Row rows[] = {
        {"Nothing to do.",
         "The model didn't return a plan Vesk could act on. Ask again, or try a model with stronger "
         "instruction-following."},
        {"{\"operations\":[",
         "The model didn't return a plan Vesk could act on. Ask again, or try a model with stronger "
         "instruction-following."},
        {"{operations}", "The model's plan couldn't be read: it wasn't valid JSON"},
        {"{\"summary\":\"x\"}", "The model's plan couldn't be read: the plan contained no operations"},
        {"{\"operations\":{}}", "The model's plan couldn't be read: the plan contained no operations"},
        {"[]", "The model's plan couldn't be read: the plan contained no operations"},
        {"[{\"op\":\"hack\"}]",
         "The model's plan couldn't be read: none of the operations were ones Vesk understands"},
    };
    for (const auto& row : rows) {
        try {
            VaultPlanner::parse(row.reply);
            ADD_FAILURE() << row.reply;
        } catch (const VaultPlanError& error) {
            EXPECT_EQ(error.description(), row.description) << row.reply;
        }
    }
}

TEST(PlanOperations, AreDescribedForReview) {
    const struct {
        Op operation;
        std::string_view description;
        std::optional<std::string> risk;
    } rows[] = {
        {{Op::CreateNote{"a.md", "né\r\n"}}, "Create a.md (3 characters)", std::nullopt},
        {{Op::UpdateNote{"a.md", "👨‍👩‍👧"}},
         "Rewrite a.md (1 characters)",
         "Replaces the whole note."},
        {{Op::RenameNote{"x/a.md", "x/b.md"}},
         "Rename x/a.md → x/b.md",
         "Changes the note's path, so links by path need updating."},
        {{Op::RenameNote{"a.md", "x/a.md"}},
         "Move a.md → x/a.md",
         "Changes the note's path, so links by path need updating."},
        {{Op::SetProperty{"a.md", "k", "v"}}, "Set k: v on a.md", std::nullopt},
        {{Op::RemoveProperty{"a.md", "k"}}, "Remove k from a.md", std::nullopt},
        {{Op::TrashNote{"a.md"}},
         "Move a.md to the vault's trash",
         "Recoverable from the vault's .trash folder."},
        {{Op::CreateFolder{"A"}}, "Create the folder A/", std::nullopt},
        {{Op::RenameFolder{"A", "B"}},
         "Rename the folder A/ → B/",
         "Moves every note inside the folder with it."},
        {{Op::RenameFolder{"A", "B/A"}},
         "Move the folder A/ → B/A/",
         "Moves every note inside the folder with it."},
        {{Op::TrashFolder{"A"}},
         "Move the folder A/ and everything in it to the vault's trash",
         "Takes the folder and every note inside it. Recoverable from the vault's .trash folder."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.operation.describedForReview(), row.description);
        EXPECT_EQ(row.operation.riskNote(), row.risk) << row.description;
    }
}

TEST(Filing, KeepsOnlyMovesAndNewFolders) {
    VaultPlan plan{.summary = "s",
                   .operations = {Op{Op::CreateFolder{"A"}}, Op{Op::RenameNote{"a.md", "A/a.md"}},
                                  Op{Op::RenameNote{"b.md", "A/c.md"}}, Op{Op::RenameNote{"d.md", "d.md"}},
                                  Op{Op::TrashNote{"a.md"}}, Op{Op::RenameFolder{"A", "B"}}},
                   .annotations = {{"a.md", {}}}};
    const auto [kept, dropped] = VaultOrganiser::filingOnly(plan);
    EXPECT_EQ(kept.operations, (Operations{plan.operations[0], plan.operations[1]}));
    EXPECT_EQ(dropped, 4);
    EXPECT_EQ(kept.annotations, plan.annotations);
    EXPECT_EQ(VaultOrganiser::fileNoteUserMessage("a.md", {"A", "B/C"}),
              "File this note where it belongs: a.md\n\nThe vault's folders:\nA\nB/C");
    EXPECT_EQ(VaultOrganiser::fileNoteUserMessage("a.md", {}),
              "File this note where it belongs: a.md\n\nThe vault has no folders yet.");
    EXPECT_EQ(VaultOrganiser::excerpt(" \n"), "(empty note)");
    EXPECT_EQ(VaultOrganiser::excerpt(std::string(1200, 'x') + "\n"), std::string(1200, 'x'));
    EXPECT_EQ(VaultOrganiser::excerpt(std::string(1201, 'x')), std::string(1200, 'x') + "…");
}

}  // namespace
}  // namespace vesk::test
