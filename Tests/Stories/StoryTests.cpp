// Stories against the real file system and its events, in real time: a person types, switches, renames and
// trashes through `vesk session`; another device edits, moves and trashes beside it; the process is killed at
// random moments and started again. Every text only grows by words of its own, so that a word is a text's
// trace: at the end each word that was told as saved, and each that the other device wrote, is in some file.
// VESK_STORIES says how many stories, VESK_STORY_SEED from which seed on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "VeskCommand/Program.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Uuid.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;  // path → contents

constexpr int answerTimeout = 30000;  // milliseconds
constexpr int storiesAtOnce = 12;
constexpr int stormEdits = 30;

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::set<std::string> wordsOf(const std::string& text) {
    std::istringstream stream(text);
    std::set<std::string> words;
    for (std::string word; stream >> word;) words.insert(word);
    return words;
}

/// Talks with one `vesk session`.
class Session {
public:
    explicit Session(const Program& program)
        : child_(program.start({"--vault", program.vault.path().string(), "session"})) {}
    ~Session() {
        if (child_.pid) kill();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// The answer to a request; the events that come meanwhile go to `onEvent`.
    Json ask(Json::Object members) {
        const auto id = ++lastID_;
        Json request = Json::object({{"id", id}});
        for (auto& member : members) request.set(member.first, std::move(member.second));
        const std::string line = request.dump() + "\n";
        if (::write(child_.in, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            throw std::runtime_error("the session took no more");
        while (true) {
            Json answer = Json::parse(nextLine(answerTimeout));
            if (answer.integer("id") == id) return answer;
            onEvent(answer);
        }
    }
    /// Reads events for so long.
    void listen(int milliseconds) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (true) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                until - std::chrono::steady_clock::now());
            if (left.count() <= 0) return;
            const auto line = nextLine(static_cast<int>(left.count()), true);
            if (line.empty()) return;
            onEvent(Json::parse(line));
        }
    }
    void kill() {
        ::kill(child_.pid, SIGKILL);
        // What it told before counts.
        try {
            listen(1000);
        } catch (const std::exception&) {  // the end of its output
        }
        close();
    }
    int end() {
        ::close(child_.in);
        child_.in = -1;
        try {
            listen(answerTimeout);
        } catch (const std::exception&) {  // the end of its output
        }
        return close();
    }

    std::function<void(const Json&)> onEvent = [](const Json&) {};

private:
    std::string nextLine(int milliseconds, bool mayLack = false) {
        while (true) {
            if (const auto end = buffer_.find('\n'); end != buffer_.npos) {
                std::string line = buffer_.substr(0, end);
                buffer_.erase(0, end + 1);
                return line;
            }
            pollfd output{child_.out, POLLIN, 0};
            if (::poll(&output, 1, milliseconds) <= 0) {
                if (mayLack) return {};
                throw std::runtime_error("no answer");
            }
            std::array<char, 65536> bytes{};
            const auto count = ::read(child_.out, bytes.data(), bytes.size());
            if (count <= 0) throw std::runtime_error("the session has ended: " + errors());
            buffer_.append(bytes.data(), static_cast<std::size_t>(count));
        }
    }
    std::string errors() const {
        std::array<char, 4096> bytes{};
        const auto count = ::read(child_.err, bytes.data(), bytes.size());
        return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
    }
    int close() {
        int status = 0;
        ::waitpid(child_.pid, &status, 0);
        for (const int end : {child_.in, child_.out, child_.err}) {
            if (end >= 0) ::close(end);
        }
        child_ = {};
        return status;
    }

    Child child_;
    std::string buffer_;
    std::int64_t lastID_ = 0;
};

class Story {
public:
    explicit Story(unsigned seed) : random_(seed), seed_(seed) {
        for (const char* path : {"a.md", "b.md", "Folder/c.md"}) deliver(path, word("first") + "\n");
    }

    /// What went wrong; "" if nothing.
    std::string run() {
        try {
            const int lives = 2 + pick(2);
            for (int life = 0; life < lives; ++life) live(life + 1 == lives);
            return missing();
        } catch (const std::exception& error) {
            return std::string(error.what()) + told();
        }
    }

private:
    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }
    std::string word(const char* by) { return by + std::to_string(++lastWord_); }
    void tell(const std::string& what) { log_.push_back(what); }
    std::string told() const {
        std::string text = "\nseed " + std::to_string(seed_) + ":";
        for (const auto& line : log_) text += "\n  " + line;
        return text;
    }
    void require(const std::string& text) { required_.merge(wordsOf(text)); }

    Files notes() const {
        Files found;
        for (const auto& entry : fs::recursive_directory_iterator(program_.vault.path())) {
            const auto path = entry.path().lexically_relative(program_.vault.path()).string();
            if (!path.starts_with('.') && entry.path().extension() == ".md" &&
                !entry.path().filename().string().starts_with('.'))
                found[path] = contents(entry.path());
        }
        return found;
    }
    std::string anyNote() {
        const auto all = notes();
        if (all.empty()) return "a.md";
        return std::next(all.begin(), pick(static_cast<int>(all.size())))->first;
    }

    // The other device

    void deliver(const std::string& path, const std::string& text) {
        program_.vault.write(path, text);
        require(text);
    }
    /// Adds to the text that is there, as one that read it: what came between is not overwritten. Returns
    /// what the file then held; empty if it is not there.
    std::string addOnDevice(const std::string& path, const std::string& added) const {
        const auto file = program_.vault / path;
        for (int attempt = 0; attempt < 100; ++attempt) {
            const std::string before = contents(file);
            if (before.empty()) return {};
            const std::string after = before + added + "\n";
            std::ofstream(inDeviceHand(), std::ios::binary) << after;
            if (!exchangeInHand(file)) return {};
            if (contents(inDeviceHand()) == before) {
                fs::remove(inDeviceHand());
                return after;
            }
            if (!putBack(file, after)) return {};
        }
        return {};
    }
    fs::path inDeviceHand() const { return program_.vault / ".device.tmp"; }
    bool exchangeInHand(const fs::path& file) const {
        return ::renameat2(AT_FDCWD, inDeviceHand().c_str(), AT_FDCWD, file.c_str(), RENAME_EXCHANGE) == 0;
    }
    /// Exchanges until the device holds what it put there last; a text of others among it becomes a note.
    bool putBack(const fs::path& file, const std::string& mine) const {
        std::string inPlace = mine;
        for (int round = 0; round < 100; ++round) {
            std::string given = contents(inDeviceHand());
            if (!exchangeInHand(file)) break;
            const bool isQuiet = contents(inDeviceHand()) == inPlace;
            inPlace = std::move(given);
            if (isQuiet) break;
        }
        if (contents(inDeviceHand()) == mine) return true;
        fs::rename(inDeviceHand(), program_.vault / ("kept by the device " + randomUuid() + ".md"));
        return fs::exists(file);
    }
    void deviceEdits() {
        const auto path = anyNote();
        require(addOnDevice(path, word("device")));
        tell("device edits " + path);
    }
    /// The device writes again and again while the note is being saved.
    void saveInAStorm(Session& session) {
        if (shownPath_.empty()) return;
        type(session);
        const auto path = shownPath_;
        const auto name = word("storm");
        std::vector<std::string> written;
        std::thread storm([&] {
            for (int i = 0; i < stormEdits; ++i)
                written.push_back(addOnDevice(path, name + "." + std::to_string(i)));
        });
        for (int i = 0; i < 3; ++i) {
            take(session.ask({{"do", "flush"}}));
            type(session);
        }
        storm.join();
        for (const auto& text : written) require(text);
        tell("a storm over " + path);
    }
    void deviceMoves() {
        const auto from = anyNote();
        const auto to = (pick(2) ? "Folder/" : "") + word("moved") + ".md";
        fs::create_directories(program_.vault / "Folder");
        if (::renameat2(AT_FDCWD, (program_.vault / from).c_str(), AT_FDCWD, (program_.vault / to).c_str(),
                        RENAME_NOREPLACE) == 0)
            tell("device moves " + from + " to " + to);
    }
    void deviceTrashes() {
        const auto from = anyNote();
        fs::create_directories(program_.vault / ".trash");
        if (::renameat2(AT_FDCWD, (program_.vault / from).c_str(), AT_FDCWD,
                        (program_.vault / (".trash/" + word("thrown") + ".md")).c_str(),
                        RENAME_NOREPLACE) == 0)
            tell("device trashes " + from);
    }
    void deviceMakes() {
        const auto path = word("new") + ".md";
        deliver(path, word("device") + "\n");
        tell("device makes " + path);
    }

    // The person

    void type(Session& session) {
        if (shownPath_.empty()) return;
        std::string base = shown_, expected = shown_;
        // A keystroke that came after another text had replaced the shown one puts that out of the way; the
        // person takes its lines along.
        std::set<std::string> putAway;
        for (int attempt = 0; attempt < 100; ++attempt) {
            std::string text = base;
            for (const auto& line : putAway)
                if (("\n" + base).find("\n" + line + "\n") == std::string::npos) text += line + "\n";
            text += typedWord_ + "\n";
            typed_[sha256Hex(text)] = text;
            const auto answer = session.ask({{"do", "edit"}, {"text", text}});
            if (answer.boolean("ok") != true) {
                shownPath_.clear();
                return;
            }
            const auto replaced = answer.string("replaced").value_or("");
            shown_ = text;
            if (replaced == expected) {
                tell("types " + typedWord_ + " in " + shownPath_);
                typedWord_ = word("typed");
                return;
            }
            for (const auto line : split(replaced, '\n'))
                if (!line.empty()) putAway.emplace(line);
            base = replaced;  // another text came in between: the person types in that
            expected = text;
        }
        throw std::runtime_error("the text never stands still");
    }
    void take(const Json& answer) {
        if (answer.string("path")) shownPath_ = *answer.string("path");
        if (answer.string("text")) shown_ = *answer.string("text");
        const auto state = answer.string("state");
        if (!state || *state != "loaded") shownPath_.clear();
    }
    void select(Session& session) {
        const auto path = anyNote();
        const auto answer = session.ask({{"do", "select"}, {"path", path}});
        if (answer.boolean("ok") == true) take(answer);
        tell("selects " + path);
    }
    void act(Session& session, const char* what) {
        const auto path = anyNote();
        Json::Object request{{"do", what}, {"path", path}};
        if (std::string(what) == "rename") request.emplace_back("name", word("named"));
        if (std::string(what) == "move") request.emplace_back("folder", pick(2) ? "Folder" : "");
        const auto answer = session.ask(std::move(request));
        tell(std::string(what) + " " + path + " → " + answer.dump());
        take(session.ask({{"do", "text"}}));
    }
    void hear(const Json& event) {
        const auto kind = event.string("event");
        if (kind == "saved") {
            const auto text = typed_.find(event.string("digest").value_or(""));
            if (text != typed_.end()) require(text->second);
            tell("saved " + event.dump());
        } else if (kind == "text") {
            take(event);
            tell("text " + event.dump());
        } else if (kind == "notice") {
            tell(event.dump());
        }
    }

    void live(bool last) {
        Session session(program_);
        session.onEvent = [this](const Json& event) { hear(event); };
        shownPath_.clear();
        select(session);
        const int steps = 10 + pick(20);
        for (int step = 0; step < steps; ++step) {
            switch (pick(16)) {
                case 0:
                    select(session);
                    break;
                case 1:
                    act(session, "rename");
                    break;
                case 2:
                    act(session, "move");
                    break;
                case 3:
                    if (pick(3) == 0) act(session, "trash");
                    break;
                case 4:
                case 5:
                    deviceEdits();
                    break;
                case 6:
                    deviceMoves();
                    break;
                case 7:
                    if (pick(3) == 0) deviceTrashes();
                    break;
                case 8:
                    deviceMakes();
                    break;
                case 9:
                    session.listen(pick(1200));
                    break;
                case 10:
                    take(session.ask({{"do", "flush"}}));
                    break;
                case 11:
                    saveInAStorm(session);
                    break;
                default:
                    type(session);
                    session.listen(pick(60));
            }
        }
        if (!last && pick(4) != 0) {
            session.listen(pick(1000));
            tell("killed");
            session.kill();
            return;
        }
        const std::string unsaved = shownPath_.empty() ? "" : shown_;
        tell("quits with " + shownPath_);
        const int status = session.end();
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("a bad end");
        require(unsaved);
    }

    std::string missing() const {
        std::set<std::string> found;
        for (const auto* folder : {&program_.vault.path(), &program_.home.path()}) {
            for (const auto& entry : fs::recursive_directory_iterator(*folder)) {
                if (!entry.is_regular_file()) continue;
                if (folder == &program_.home.path() &&
                    entry.path().string().find("/Held/") == std::string::npos)
                    continue;
                auto text = contents(entry.path());
                if (entry.path().extension() == ".json") text = Json::parse(text).string("text").value_or("");
                found.merge(wordsOf(text));
            }
        }
        for (const auto& word : required_) {
            if (!found.contains(word)) return "lost: " + word + told();
        }
        return {};
    }

    Program program_;
    std::mt19937 random_;
    unsigned seed_;
    int lastWord_ = 0;
    std::string typedWord_ = "typed0";
    std::map<std::string, std::string> typed_;  ///< by digest
    std::set<std::string> required_;
    std::string shownPath_, shown_;
    std::vector<std::string> log_;
};

int number(const char* variable, int fallback) {
    const char* value = std::getenv(variable);
    return value ? std::atoi(value) : fallback;
}

TEST(Stories, EveryWordIsInSomeFileAtTheEnd) {
    ::signal(SIGPIPE, SIG_IGN);
    const int count = number("VESK_STORIES", 24), first = number("VESK_STORY_SEED", 1);
    std::atomic<int> next{0};
    std::mutex faultsLock;
    std::vector<std::string> faults;
    std::vector<std::thread> tellers;
    for (int i = 0; i < std::min(storiesAtOnce, count); ++i) {
        tellers.emplace_back([&] {
            for (int index = next++; index < count; index = next++) {
                auto wrong = Story(static_cast<unsigned>(first + index)).run();
                if (wrong.empty()) continue;
                const std::lock_guard hold(faultsLock);
                faults.push_back(std::move(wrong));
            }
        });
    }
    for (auto& teller : tellers) teller.join();
    for (const auto& fault : faults) ADD_FAILURE() << fault;
}

}  // namespace
}  // namespace vesk::test
