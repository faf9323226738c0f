#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Support/VirtualTime.h"
#include "VeskCore/Vault/HeldTextStore.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

class HeldTextStoreTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    VirtualTime time{1, timeFromSecondsSince2001(800'000'000.5)};
    const FilePath directory = HeldTextStore::directoryFor("/vaults/notes");
    HeldTextStore store{directory, time};

    std::vector<HeldTextStore::Entry> entries(bool includingThisRun = true) const {
        std::vector<HeldTextStore::Entry> result;
        for (const auto& leftover : store.leftovers(includingThisRun)) result.push_back(leftover.entry);
        return result;
    }
    std::string fileOf(std::string_view owner, std::string_view path) const {
        return HeldTextStore::digest(std::string(owner) + '\0' + std::string(path)) + ".json";
    }
    Names paths() const {
        Names result;
        for (const auto& entry : entries())
            result.push_back(entry.relativePath + (entry.trashed ? " trashed" : ""));
        std::sort(result.begin(), result.end());
        return result;
    }
};

TEST_F(HeldTextStoreTest, WritesOneSmallFileForANoteAndAnEditor) {
    EXPECT_EQ(HeldTextStore::digest("/vaults/notes"), "d215da21adb02d2ca4f535686958fe70");
    EXPECT_TRUE(store.keep("a/\"b\"\n", "n/x.md", "ONE", std::nullopt));
    EXPECT_TRUE(store.keep("other", "n/x.md", "TWO", "base"));
    const FilePath file = directory / fileOf("ONE", "n/x.md");
    EXPECT_EQ(platform.files.read(file),
              R"({"relativePath":"n\/x.md","text":"a\/\"b\"\n","savedAt":800000000.5,"trashed":false})");
    EXPECT_EQ(
        platform.files.read(directory / fileOf("TWO", "n/x.md")),
        R"({"relativePath":"n\/x.md","text":"other","savedAt":800000000.5,"trashed":false,"baseline":"base"})");
    EXPECT_EQ(entries(false), std::vector<HeldTextStore::Entry>{});
    store.discard("n/x.md", "ONE");
    EXPECT_EQ(entries().size(), 1u);
    store.discard("n/x.md", "THREE");
    EXPECT_EQ(entries().size(), 1u);
}

TEST_F(HeldTextStoreTest, WritesOnlyWhatIsNew) {
    int writes = 0;
    bool refuses = false;
    platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation != "writeNew") return {};
        ++writes;
        return refuses ? std::optional(ENOSPC) : std::nullopt;
    };
    store.keep("text", "x.md", "ONE", "base");
    store.keep("text", "x.md", "ONE", "base");
    EXPECT_EQ(writes, 1);
    store.keep("text", "x.md", "ONE", "another base");
    EXPECT_EQ(writes, 2);
    store.markTrashed({"x.md"});
    store.markTrashed({"x.md"});
    EXPECT_EQ(writes, 3);
    EXPECT_TRUE(entries().at(0).trashed);
    store.keep("text", "x.md", "ONE", "another base");
    EXPECT_EQ(writes, 4);
    EXPECT_FALSE(entries().at(0).trashed);
    // A refused file isn't taken for written: the next try writes again.
    refuses = true;
    EXPECT_FALSE(store.keep("newer", "x.md", "ONE", "base"));
    refuses = false;
    EXPECT_EQ(entries().at(0).text, "text");
    EXPECT_TRUE(store.keep("newer", "x.md", "ONE", "base"));
    EXPECT_EQ(entries().at(0).text, "newer");
}

TEST_F(HeldTextStoreTest, FollowsItsNotes) {
    for (const char* path : {"a/x.md", "a/b/y.md", "ab/z.md", "a.md"}) store.keep("text", path, "ONE", {});
    const FilePath file = directory / fileOf("ONE", "a/x.md");
    store.moved("a", "c");
    store.moved("a.md", "a.html");
    EXPECT_EQ(paths(), (Names{"a.md", "ab/z.md", "c/b/y.md", "c/x.md"}));
    EXPECT_TRUE(platform.files.exists(file));
    store.markTrashed({"c", "ab/z"});
    EXPECT_EQ(paths(), (Names{"a.md", "ab/z.md", "c/b/y.md trashed", "c/x.md trashed"}));
    // Under the new path the same file is written, and under either path it is let go.
    store.keep("more", "c/x.md", "ONE", {});
    EXPECT_EQ(paths(), (Names{"a.md", "ab/z.md", "c/b/y.md trashed", "c/x.md"}));
    store.discard("c/x.md", "ONE");
    store.discard("a/b/y.md", "ONE");
    EXPECT_EQ(paths(), (Names{"a.md", "ab/z.md"}));
}

TEST_F(HeldTextStoreTest, ReadsWhatEarlierRunsLeft) {
    const auto put = [&](const std::string& name, const std::string& json) {
        platform.files.createDirectories(directory);
        platform.files.writeNew(directory / name, json);
    };
    EXPECT_EQ(entries(), std::vector<HeldTextStore::Entry>{});
    put("b.json", R"({"relativePath":"b.md","text":"b","savedAt":20,"later":[1]})");
    put("a.json", R"({"relativePath":"a.md","text":"a","savedAt":10.5,"trashed":true,"baseline":"base"})");
    put("broken.json", "{");
    put("incomplete.json", R"({"relativePath":"c.md","text":"c"})");
    put("wrong.json", R"({"relativePath":"c.md","text":"c","savedAt":1,"trashed":"yes"})");
    put("far.json", R"({"relativePath":"d.md","text":"d","savedAt":1e300})");
    put("other.txt", R"({"relativePath":"e.md","text":"e","savedAt":1})");
    store.keep("mine", "x.md", "ONE", {});
    const auto left = store.leftovers(false);
    ASSERT_EQ(left.size(), 3u);
    EXPECT_EQ(left[0].entry, (HeldTextStore::Entry{.relativePath = "a.md",
                                                   .text = "a",
                                                   .savedAt = timeFromSecondsSince2001(10.5),
                                                   .trashed = true,
                                                   .baseline = "base"}));
    EXPECT_EQ(left[1].entry.relativePath, "b.md");
    EXPECT_FALSE(left[1].entry.trashed);
    EXPECT_EQ(left[2].entry.relativePath, "d.md");
    // The discarding of this run touches none of them; recovery removes one by one.
    HeldTextStore::discardEverythingKeptThisRun();
    EXPECT_EQ(entries(true).size(), 3u);
    store.remove(left[0].file);
    EXPECT_EQ(entries(true).size(), 2u);
}

TEST_F(HeldTextStoreTest, LetsGoOfAllThatThisRunKeptAlsoForClosedVaults) {
    {
        HeldTextStore closed{HeldTextStore::directoryFor("/vaults/old"), time};
        closed.keep("text", "x.md", "ONE", {});
    }
    store.keep("text", "x.md", "ONE", {});
    HeldTextStore::discardEverythingKeptThisRun();
    EXPECT_EQ(entries(), std::vector<HeldTextStore::Entry>{});
    EXPECT_EQ(HeldTextStore(HeldTextStore::directoryFor("/vaults/old"), time).leftovers(true).size(), 0u);
}

TEST(HeldTextRecovery, DecidesRowByRow) {
    using Entry = HeldTextStore::Entry;
    using Note = HeldTextStore::NoteOnDisk;
    using Recovery = HeldTextStore::Recovery;
    const std::string base = "---\nremind: 2026-01-02 09:00\ntags: a\n---\n\nbody\n";
    const std::string keyed = "---\nremind: 2026-02-02 09:00\ntags: a\n---\n\nbody\n";
    const std::string bare = "---\ntags: a\n---\n\nbody\n";
    const Recovery plainCopy{Recovery::Copy{"typed", false}};
    const struct {
        const char* name;
        Entry entry;
        Note note;
        Recovery expected;
    } rows[] = {
        {"trashed, and the trashed file holds it",
         {"n.md", "typed", {}, true, {}},
         {Note::Gone{true, "typed"}},
         {Recovery::Plain::noteTrashed}},
        {"trashed with less than was typed",
         {"n.md", "typed", {}, true, {}},
         {Note::Gone{true, "saved"}},
         {Recovery::KeepInTrash{"typed"}}},
        {"trashed and no longer found",
         {"n.md", keyed, {}, true, {}},
         {Note::Gone{true, {}}},
         {Recovery::KeepInTrash{bare}}},
        {"still downloading",
         {"n.md", "typed", {}, false, {}},
         {Note::NotCurrent{}},
         {Recovery::Plain::wait}},
        {"gone into the trash",
         {"n.md", keyed, {}, false, {}},
         {Note::Gone{true, {}}},
         {Recovery::KeepInTrash{bare}}},
        {"gone", {"n.md", "typed", {}, false, {}}, {Note::Gone{false, {}}}, plainCopy},
        {"gone with a reminder",
         {"n.md", keyed, {}, false, {}},
         {Note::Gone{false, {}}},
         {Recovery::Copy{bare, true}}},
        {"in the note",
         {"n.md", "typed", {}, false, "base"},
         {Note::Text{"typed"}},
         {Recovery::Plain::alreadyInNote}},
        {"only a key was unsaved",
         {"n.md", keyed, {}, false, base},
         {Note::Text{base}},
         {Recovery::ApplyKeys{{.written = {{"remind", "2026-02-02 09:00"}}, .removed = {}}}}},
        {"only a key was unsaved, the body moved on",
         {"n.md", keyed, {}, false, base},
         {Note::Text{"---\nremind: 2026-01-02 09:00\n---\nother"}},
         {Recovery::ApplyKeys{{.written = {{"remind", "2026-02-02 09:00"}}, .removed = {}}}}},
        {"the keys moved on",
         {"n.md", keyed, {}, false, base},
         {Note::Text{bare}},
         {Recovery::Plain::onlyReminderKeys}},
        {"the keys and the body moved on",
         {"n.md", keyed, {}, false, base},
         {Note::Text{"other"}},
         {Recovery::Copy{bare, true}}},
        {"no baseline, keys differ",
         {"n.md", keyed, {}, false, {}},
         {Note::Text{base}},
         {Recovery::Plain::onlyReminderKeys}},
        {"another text", {"n.md", "typed", {}, false, "base"}, {Note::Text{"theirs"}}, plainCopy},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HeldTextStore::recovery(row.entry, row.note, Calendar{}), row.expected) << row.name;
    }
}

}  // namespace
}  // namespace vesk::test
