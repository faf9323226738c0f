// Every call by which the program changes a file, one after the other: killed before and after it, refused
// for want of room or rights, cut short. Whatever happens, each text is whole somewhere, a success told is
// one, and a failure is told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <set>
#include <sstream>

#include "VeskCommand/Program.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Files = std::map<std::string, std::string>;  // path → contents

constexpr int killed = 128 + 9;

struct Scenario {
    const char* name;
    Files vault;      ///< before
    Files elsewhere;  ///< in the home folder, which the arguments may name as @path
    Words arguments;
    std::string input;
    std::string typed;               ///< new text that has to be kept once the program says it is
    std::vector<std::string> given;  ///< texts that the action may let go of: replaced knowingly, or emptied
    std::vector<Words> before;       ///< commands to run first
    const char* heldBy = nullptr;    ///< the input of a session before, whose saves all fail
};

/// What lay about unfinished comes back with plain line ends.
std::string withFeeds(std::string text) {
    std::erase(text, '\r');
    return text;
}

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

class World {
public:
    explicit World(const Scenario& scenario) : scenario_(scenario) {
        for (const auto& [path, text] : scenario.vault) program.vault.write(path, text);
        for (const auto& [path, text] : scenario.elsewhere) program.home.write(path, text);
        fs::create_directories(program.vault / ".vesk");
        for (const auto& words : scenario.before) program.run(words);
        if (scenario.heldBy) run({"session"}, scenario.heldBy, 1, std::to_string(ENOSPC) + "+", false);
    }

    Ran act(int at, const std::string& how) const {
        return run(scenario_.arguments, scenario_.input, at, how, true);
    }

    /// Opens the vault again as the next start does, and waits until what lay about is cleared.
    std::string reopen() const {
        for (const auto& file : temporaries()) {
            // Old enough to belong to nobody.
            const timespec old[] = {{1000000000, 0}, {1000000000, 0}};
            ::utimensat(AT_FDCWD, (program.vault / file).c_str(), old, 0);
        }
        for (int attempt = 0; attempt < 50; ++attempt) {
            const auto ran = program.run({"session"}, "{\"id\": 1, \"do\": \"search\", \"query\": \"x\"}\n");
            if (ran.status != 0) return "the next start fails: " + ran.err;
            if (temporaries().empty()) return {};
        }
        return "a temporary file stays for ever: " + *temporaries().begin();
    }

    std::set<std::string> temporaries() const {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(program.vault.path())) {
            if (entry.path().filename().string().starts_with(".vesk-tmp-"))
                found.insert(entry.path().lexically_relative(program.vault.path()).string());
        }
        return found;
    }

    /// All that a person could find: notes, the trash, held text.
    std::set<std::string> texts() const {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(program.vault.path())) {
            if (entry.is_regular_file()) found.insert(contents(entry.path()));
        }
        for (const auto& text : held()) found.insert(text);
        return found;
    }

    /// Notes in plain sight.
    Files notes() const {
        Files found;
        for (const auto& entry : fs::recursive_directory_iterator(program.vault.path())) {
            const auto path = entry.path().lexically_relative(program.vault.path()).string();
            if (entry.is_regular_file() && !path.starts_with(".vesk/") &&
                !entry.path().filename().string().starts_with(".vesk-tmp-"))
                found[path] = contents(entry.path());
        }
        return found;
    }

    std::set<std::string> held() const {
        std::set<std::string> found;
        const auto folder = program.home / "data";
        if (!fs::exists(folder)) return found;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file() || entry.path().string().find("/Held/") == std::string::npos ||
                entry.path().extension() != ".json")
                continue;
            if (const auto text = Json::parse(contents(entry.path())).string("text")) found.insert(*text);
        }
        return found;
    }

    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::istringstream log(contents(program.home / "calls"));
        for (std::string line; std::getline(log, line);) lines.push_back(line);
        return lines;
    }

    Program program;

private:
    Ran run(Words words, const std::string& input, int at, const std::string& how, bool heldToo) const {
        for (auto& word : words) {
            if (word.starts_with("@")) word = (program.home / word.substr(1)).string();
        }
        words.insert(words.begin(), {"--vault", program.vault.path().string()});
        std::string under = program.vault.path().string();
        if (heldToo) {
            for (const char* folder : {"data/Vesk/Held", "data/vesk/Held"})
                under += ":" + (program.home / folder).string();
        }
        fs::remove(program.home / "calls");
        return program.runPlain(words, input,
                                {"LD_PRELOAD=" VESK_FAULT_SHIM, "VESK_FAULT_UNDER=" + under,
                                 "VESK_FAULT_AT=" + std::to_string(at), "VESK_FAULT_HOW=" + how,
                                 "VESK_FAULT_LOG=" + (program.home / "calls").string()});
    }

    const Scenario& scenario_;
};

const std::string conflicted = "a.sync-conflict-20260102-030405-ABCDEFG.md";
const std::string typing = R"({"id": 1, "do": "select", "path": "a.md"}
{"id": 2, "do": "edit", "text": "typed\n"}
{"id": 3, "do": "flush"}
)";

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all = {
        {.name = "SaveOverWhatWasRead",
         .vault = {{"a.md", "old\n"}},
         .elsewhere = {{"loaded", "old\n"}},
         .arguments = {"save", "a.md", "--baseline", "@loaded"},
         .input = "typed\n",
         .typed = "typed\n",
         .given = {"old\n"}},
        {.name = "SaveWithItsLineEnds",
         .vault = {{"a.md", "old\r\nlines\r\n"}},
         .elsewhere = {{"loaded", "old\nlines\n"}},
         .arguments = {"save", "a.md", "--baseline", "@loaded"},
         .input = "typed\nlines\n",
         .typed = "typed\r\nlines\r\n",
         .given = {"old\r\nlines\r\n"}},
        {.name = "SaveBesideAForeignText",
         .vault = {{"a.md", "foreign\n"}},
         .elsewhere = {{"loaded", "old\n"}},
         .arguments = {"save", "a.md", "--baseline", "@loaded"},
         .input = "typed\n",
         .typed = "typed\n"},
        {.name = "MergeAReminder",
         .vault = {{"a.md", "---\nremind: 2030-01-02 09:00\n---\nold\n"}},
         .elsewhere = {{"loaded", "old\n"}},
         .arguments = {"save", "a.md", "--baseline", "@loaded"},
         .input = "typed\n",
         .typed = "---\nremind: 2030-01-02 09:00\n---\ntyped\n",
         .given = {"---\nremind: 2030-01-02 09:00\n---\nold\n"}},
        {.name = "SaveWhereTheNoteIsGone",
         .elsewhere = {{"loaded", "old\n"}},
         .arguments = {"save", "Folder/a.md", "--baseline", "@loaded"},
         .input = "typed\n",
         .typed = "typed\n"},
        {.name = "MakeANote", .arguments = {"new", "Fresh"}, .input = "typed\n", .typed = "typed\n"},
        {.name = "SetAProperty",
         .vault = {{"a.md", "body\n"}},
         .arguments = {"set", "a.md", "due", "soon"},
         .typed = "---\ndue: soon\n---\nbody\n",
         .given = {"body\n"}},
        {.name = "Rename",
         .vault = {{"a.md", "kept\n"}, {"c.md", "links to [[a]]\n"}},
         .arguments = {"rename", "a.md", "b"}},
        {.name = "Move",
         .vault = {{"a.md", "kept\n"}, {"Sub/x.md", "x\n"}},
         .arguments = {"move", "a.md", "Sub"}},
        {.name = "Trash",
         .vault = {{"Sub/a.md", "kept\n"}, {".trash/a.md", "older\n"}},
         .arguments = {"trash", "Sub/a.md"}},
        {.name = "Restore",
         .vault = {{"Sub/a.md", "kept\n"}},
         .arguments = {"trash", "restore", "Sub/a.md"},
         .before = {{"trash", "Sub/a.md"}}},
        {.name = "EmptyTheTrash",
         .vault = {{"a.md", "kept\n"}, {".trash/b.md", "thrown away\n"}},
         .arguments = {"trash", "empty", "--yes"},
         .given = {"thrown away\n"}},
        {.name = "KeepBothOfAConflict",
         .vault = {{"a.md", "here\n"}, {conflicted, "there\n"}, {".stfolder/x", ""}},
         .arguments = {"conflicts", "resolve"}},
        {.name = "KeepTheOtherOfAConflict",
         .vault = {{"a.md", "here\n"}, {conflicted, "there\n"}, {".stfolder/x", ""}},
         .arguments = {"conflicts", "resolve", "a.md", "--keep", conflicted}},
        {.name = "TypeInASession",
         .vault = {{"a.md", "old\n"}},
         .arguments = {"session"},
         .input = typing,
         .typed = "typed\n",
         .given = {"old\n"}},
        {.name = "TypeRenameAndTrash",
         .vault = {{"a.md", "old\n"}},
         .arguments = {"session"},
         .input = typing + R"({"id": 4, "do": "rename", "path": "a.md", "name": "b"}
{"id": 5, "do": "trash", "path": "b.md"}
)",
         .typed = "typed\n",
         .given = {"old\n"}},
        {.name = "RecoverWhatWasHeld",
         .vault = {{"a.md", "old\n"}},
         .arguments = {"held", "recover"},
         .typed = "typed\n",
         .heldBy = typing.c_str()},
    };
    return all;
}

/// True of a text that is more than a piece of one.
bool whole(const Scenario& scenario, const Files& notesBefore, const Files& notesDone,
           const std::string& text) {
    const auto holds = [&](const auto& note) { return note.second == text; };
    return text == scenario.typed || std::any_of(notesBefore.begin(), notesBefore.end(), holds) ||
           std::any_of(notesDone.begin(), notesDone.end(), holds);
}

/// What is wrong with the state after; "" if nothing is.
std::string fault(const Scenario& scenario, const World& before, const Files& notesBefore,
                  const Files& notesDone, const Ran& ran, const World& after) {
    const auto texts = after.texts();
    for (const auto& text : before.texts()) {
        if (std::find(scenario.given.begin(), scenario.given.end(), text) != scenario.given.end()) continue;
        if (!texts.contains(text)) return "lost: " + text;
    }
    for (const auto& [path, text] : after.notes()) {
        if (!whole(scenario, notesBefore, notesDone, text))
            return path + " is neither the old nor the new: " + text;
    }
    // A note that is replaced is never gone in between.
    for (const auto& text : scenario.given) {
        for (const auto& [path, old] : notesBefore) {
            if (old == text && notesDone.contains(path) && !after.notes().contains(path))
                return path + " is gone";
        }
    }
    if (ran.status == 0 && !scenario.typed.empty() && !texts.contains(scenario.typed))
        return "told as saved, and nowhere: " + scenario.typed;
    if (ran.status != 0 && ran.status != killed && ran.err.find("vesk: ") == std::string::npos)
        return "no message: " + ran.err;
    return {};
}

class Fault : public testing::TestWithParam<std::size_t> {};

TEST_P(Fault, LosesNothingWhicheverCallFails) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer has to be the first library";
#endif
    const auto& scenario = scenarios()[GetParam()];
    const World before(scenario), done(scenario);
    const auto quiet = done.act(0, "");
    ASSERT_EQ(quiet.status, 0) << quiet.err;
    const auto calls = done.calls();
    const auto notesBefore = before.notes(), notesDone = done.notes();
    ASSERT_FALSE(calls.empty());
    ASSERT_TRUE(scenario.typed.empty() || done.texts().contains(scenario.typed));
    if (!scenario.heldBy) {
        EXPECT_TRUE(done.held().empty());
    }
    EXPECT_TRUE(done.temporaries().empty());

    std::vector<std::string> hows{"before", "after", "short", std::to_string(ENOSPC),
                                  std::to_string(EROFS) + "+"};
    if (std::getenv("VESK_FAULTS_ALL")) {
        for (const int error : {EIO, EDQUOT, EROFS}) hows.push_back(std::to_string(error));
        for (const int error : {ENOSPC, EIO}) hows.push_back(std::to_string(error) + "+");
    }
    for (std::size_t call = 0; call < calls.size(); ++call) {
        for (const auto& how : hows) {
            if (how == "short" && calls[call].find(" write ") == std::string::npos) continue;
            const World world(scenario);
            const auto ran = world.act(static_cast<int>(call) + 1, how);
            const std::string where = std::string(scenario.name) + ", call " + calls[call] + ", " + how +
                                      ", status " + std::to_string(ran.status) + ", " + ran.err + ": ";
            auto wrong = fault(scenario, before, notesBefore, notesDone, ran, world);
            if (wrong.empty() && ran.status == 0 && !how.ends_with('+') && !world.temporaries().empty() &&
                calls[call].find(" unlink ") == std::string::npos)
                wrong = "left behind: " + *world.temporaries().begin();
            if (wrong.empty() &&
                (ran.status == killed || !world.temporaries().empty() || !world.held().empty())) {
                const auto kept = world.texts();
                wrong = world.reopen();
                const auto now = world.texts();
                for (const auto& text : kept) {
                    const bool isGiven =
                        std::find(scenario.given.begin(), scenario.given.end(), text) != scenario.given.end();
                    if (wrong.empty() && whole(scenario, notesBefore, notesDone, text) && !isGiven &&
                        !now.contains(text) && !now.contains(withFeeds(text)))
                        wrong = "lost at the next start: " + text;
                }
            }
            ASSERT_EQ(wrong, "") << where;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Actions, Fault, testing::Range(std::size_t{0}, scenarios().size()),
                         [](const auto& row) { return scenarios()[row.param].name; });

}  // namespace
}  // namespace vesk::test
