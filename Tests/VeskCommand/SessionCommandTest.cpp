#include <gtest/gtest.h>

#include "VeskCommand/Program.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

/// The answers by their ids, as compact JSON; events are left out.
std::map<std::int64_t, Json> answers(const std::string& out) {
    std::map<std::int64_t, Json> byID;
    std::size_t begin = 0;
    for (auto end = out.find('\n'); end != std::string::npos; end = out.find('\n', begin)) {
        const Json line = Json::parse(std::string_view(out).substr(begin, end - begin));
        if (const auto id = line.integer("id")) byID.emplace(*id, line);
        begin = end + 1;
    }
    return byID;
}

TEST(SessionCommand, EditsMovesAndTrashesNotesOnRequest) {
    Program program;
    program.vault.write("a.md", "base\n");
    program.vault.write("b.md", "other\n");
    const auto ran = program.run({"session"}, R"({"id": 1, "do": "select", "path": "a.md"}
{"id": 2, "do": "edit", "text": "typed\n"}
{"id": 3, "do": "rename", "path": "a.md", "name": "z"}
{"id": 4, "do": "edit", "text": "typed on\n"}
{"id": 5, "do": "select", "path": "b.md"}
{"id": 6, "do": "edit", "text": "last\n"}
{"id": 7, "do": "trash", "path": "b.md"}
{"id": 8, "do": "edit", "text": "too late"}
{"id": 9, "do": "select", "path": "../b.md"}
{"id": 10, "do": "dance"}
not json
{"id": 11, "do": "restore", "path": "b.md"}
{"id": 12, "do": "select", "path": "z.md"}
{"id": 13, "do": "edit", "text": "the end\n"}
)");
    EXPECT_EQ(ran.status, 0) << ran.err;
    const auto byID = answers(ran.out);
    const std::pair<std::int64_t, const char*> rows[] = {
        {1, R"({"id":1,"ok":true,"path":"a.md","text":"base\n","state":"loaded"})"},
        {2, R"({"id":2,"ok":true,"path":"a.md","replaced":"base\n"})"},
        {3, R"({"id":3,"ok":true,"path":"z.md"})"},
        {4, R"({"id":4,"ok":true,"path":"z.md","replaced":"typed\n"})"},
        {5, R"({"id":5,"ok":true,"path":"b.md","text":"other\n","state":"loaded"})"},
        {7, R"({"id":7,"ok":true,"trashPath":".trash/b.md"})"},
        {8, R"({"id":8,"ok":false,"error":"No note is loaded."})"},
        {10, R"({"id":10,"ok":false,"error":"There is nothing called “dance” to do."})"},
        {11, R"({"id":11,"ok":true,"path":"b.md"})"},
        {12, R"({"id":12,"ok":true,"path":"z.md","text":"typed on\n","state":"loaded"})"},
    };
    for (const auto& [id, expected] : rows) {
        ASSERT_TRUE(byID.contains(id)) << id << "\n" << ran.out;
        EXPECT_EQ(byID.at(id).dump(), expected);
    }
    EXPECT_EQ(byID.at(9).boolean("ok"), false);
    EXPECT_EQ(program.vault.read("z.md"), "the end\n");  // the end of the input saves what was typed
    EXPECT_EQ(program.vault.read("b.md"), "last\n");
    EXPECT_FALSE(program.vault.exists("a.md"));
}

TEST(SaveCommand, OverwritesNothingItWasNotToldOf) {
    Program program;
    const auto note = program.vault.write("a.md", "foreign\n");
    const auto baseline = program.home.write("loaded", "base\n");
    const auto ran = program.run({"save", "a.md", "--baseline", baseline.string()}, "mine\n");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(program.vault.read("a.md"), "mine\n");
    EXPECT_EQ(program.vault.read("a (conflict from another device).md"), "foreign\n");
}

}  // namespace
}  // namespace vesk::test
