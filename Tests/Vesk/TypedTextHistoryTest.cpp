// Random histories of typing, foreign edits, moves, full disks and crashes: no typed text is ever lost.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

#include "Vesk/SessionWorld.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::test {
namespace {

std::string contentsBelow(const FilePath& folder) {
    std::string all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.path().extension() == ".sqlite") continue;
        std::ifstream file(entry.path(), std::ios::binary);
        all.append(std::istreambuf_iterator<char>(file), {});
        all += '\n';
    }
    return all;
}

class History : public SessionWorld {
public:
    explicit History(std::uint64_t seed) : SessionWorld(seed) {
        for (const auto* path : {"a.md", "b.md", "n/c.md"}) {
            vault().write(path, grown("", safe_));
        }
        open();
        load();
    }

    void step() {
        switch (time.random()() % 12) {
            case 0:
            case 1:
            case 2:
            case 3:
                return type();
            case 4:
            case 5:
                return wait();
            case 6:
                return foreignEdit();
            case 7:
                return foreignMoveOne();
            case 8:
                return moveOne();
            case 9:
                return fillDisk(full_ = !full_);
            case 10:
                return time.random()() % 3 == 0 ? crashAndReopen() : load();
            case 11:
                return time.random()() % 4 == 0 ? trashShown() : flush();
        }
    }

    /// What has been handed to a save and is nowhere any more.
    std::vector<std::string> lost() const {
        const auto all = contentsBelow(vault().path()) + contentsBelow(platform.supportFolder.path());
        std::vector<std::string> missing;
        for (const auto& token : safe_) {
            if (all.find(token) == std::string::npos) missing.push_back(token);
        }
        return missing;
    }

private:
    std::string grown(const std::string& text, std::set<std::string>& tokens) {
        const auto token = "<" + std::to_string(next_++) + ">";
        tokens.insert(token);
        return text + token + "\n";
    }
    void type() {
        std::set<std::string> tokens;
        if (surface->edit(grown(surface->text(), tokens))) {
            typed_.merge(tokens);
        } else {
            load();
        }
    }
    void nowSafe() { safe_.merge(typed_); }
    std::vector<std::string> notes() const {
        std::vector<std::string> paths;
        for (const auto& note : session->vault().enumerateNotes()) paths.push_back(note.relativePath);
        std::sort(paths.begin(), paths.end());
        return paths;
    }
    std::optional<std::string> anyNote() {
        const auto paths = notes();
        if (paths.empty()) return {};
        return paths[time.random()() % paths.size()];
    }
    void load() {
        if (const auto path = anyNote()) {
            surface->load(*path);
            nowSafe();
        }
        time.settle();
    }
    void flush() {
        surface->flush();
        nowSafe();
    }
    void wait() {
        const double seconds = static_cast<double>(time.random()() % 40) / 10.0;
        pass(seconds);
        if (seconds > 0.8) nowSafe();
    }
    void foreignEdit() {
        // Reads and writes as an application that knows the present text would.
        if (const auto path = anyNote()) foreign(*path, grown(vault().read(*path), safe_));
    }
    std::string freshName() { return "m" + std::to_string(next_++) + ".md"; }
    void foreignMoveOne() {
        if (const auto path = anyNote()) foreignMove(*path, freshName());
    }
    void moveOne() {
        const auto path = anyNote();
        if (!path) return;
        flush();
        const auto to = freshName();
        std::filesystem::rename(vault() / *path, vault() / to);
        session->noteMoved(*path, to);
        surface->follow(*path, to);
    }
    void trashShown() {
        flush();
        const auto path = surface->loadedPath();
        if (!path || !vault().exists(*path)) return;
        VaultTrash(session->vault()).trashNote(*path);
        session->notesTrashed({*path});
        surface->close();
    }
    void crashAndReopen() {
        typed_.clear();  // what was typed in the last moment goes with the process
        crash();
        open();
        load();
    }

    std::set<std::string> typed_, safe_;
    int next_ = 1;
    bool full_ = false;
};

TEST(TypedTextHistory, LosesNoTextInAnyHistory) {
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
        History history(seed);
        for (int step = 0; step < 60; ++step) {
            history.step();
            ASSERT_EQ(history.lost(), std::vector<std::string>{}) << "seed " << seed << ", step " << step;
        }
    }
}

}  // namespace
}  // namespace vesk::test
