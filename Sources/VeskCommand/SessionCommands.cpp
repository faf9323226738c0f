// `vesk session`: one open vault with an editor, driven line by line in JSON,
// in real time. Requests come on standard input, {"id": 7, "do": "select", "path": "a.md"}; each gets {"id":
// 7, "ok": true, …} or
// {"id": 7, "ok": false, "error": "…"}. Lines with "event" come as things happen.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Vesk/Editor/EditorSurface.h"
#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCommand/OutcomeForm.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::command {
namespace {

constexpr unsigned workers = 4;   // one of them reads standard input
constexpr int readTimeout = 100;  // milliseconds between two looks at whether to stop
constexpr std::int64_t defaultSearchLimit = 20, maximumSearchLimit = 1000;

Json named(const char* name, Json payload) {
    return Json::object({{name, std::move(payload)}});
}

Json recoveryJson(const HeldTextStore::Recovery& recovery) {
    const auto* plain = std::get_if<HeldTextStore::Recovery::Plain>(&recovery.value);
    return plain && *plain == HeldTextStore::Recovery::Plain::onlyReminderKeys ? "onlyReminderKeys"
                                                                               : "noteTrashed";
}

/// Lines of standard input, handed over as they come; tells the end with none.
void readLines(const std::stop_token& stop, const std::function<void(std::optional<std::string>)>& deliver) {
    std::string buffer;
    std::array<char, 65536> bytes{};
    while (!stop.stop_requested()) {
        pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
        if (::poll(&input, 1, readTimeout) <= 0) continue;
        const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        const auto searchedTo = buffer.size();
        buffer.append(bytes.data(), static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (auto end = buffer.find('\n', searchedTo); end != std::string::npos;
             end = buffer.find('\n', begin)) {
            deliver(buffer.substr(begin, end - begin));
            begin = end + 1;
        }
        buffer.erase(0, begin);
    }
    if (!buffer.empty()) deliver(std::move(buffer));
    deliver(std::nullopt);
}

/// Who asks about text that can't be saved answers for itself: only a forced quit lets it go.
class ScriptPrompt final : public LeavingPrompt {
public:
    bool force = false;
    std::optional<LeavingAlert> asked;

    void ask(const LeavingAlert& alert, std::function<void(LeavingChoice)> answer) override {
        asked = alert;
        answer(force ? LeavingChoice::leave : LeavingChoice::stay);
    }
    void chooseFolder(const std::string&, std::function<void(std::optional<FilePath>)> answer) override {
        answer(std::nullopt);
    }
    void tell(const std::string&, const std::string&) override {}
    void reveal(const std::vector<FilePath>&) override {}
};

class SessionProgram {
public:
    SessionProgram(const CommandContext& context, const Vault& vault)
        : context_(context),
          pool_(workers),
          events_(context.fileEvents(vault)),
          services_{.clock = context.clock,
                    .mainQueue = loop_,
                    .background = pool_,
                    .log = context.log,
                    .defaults = context.defaults,
                    .fileEvents = *events_,
                    .fileVersions = context.fileVersions,
                    .embeddings = context.embeddings,
                    .calendar = Calendar::system},
          bridge_(prompt_),
          session_(VaultSession::make(vault, services_)),
          surface_(EditorSurface::make(session_, bridge_, services_)) {}

    void run() {
        watch();
        session_->start();
        auto reader = pool_.run(Priority::userInitiated, [this](const std::stop_token& stop) {
            readLines(stop, [this](std::optional<std::string> line) {
                loop_.post([this, line = std::move(line)] { handle(line); });
            });
        });
        {
            const std::stop_callback interrupted(context_.stop, [this] { loop_.quit(); });
            loop_.run();
        }
        reader.cancel();
        subscriptions_.clear();
        bridge_.flushAllPendingSaves();
        const auto held = prompt_.force ? std::vector<std::string>() : bridge_.saveEverythingHeld();
        session_->stop();
        if (!held.empty()) {
            const auto alert = EditorBridge::leavingAlert(LeavingContext::quitting, held);
            throw CommandError(alert.message + ". The text is kept outside the vault until the next start.");
        }
    }

private:
    void send(const Json& line) const {
        context_.out.line(line.dump());
        std::fflush(stdout);
    }
    void tell(const char* event, Json::Object members) const {
        Json line = Json::object({{"event", event}});
        for (auto& member : members) line.set(member.first, std::move(member.second));
        send(line);
    }

    void watch() {
        session_->onExternalChange = [this] { tell("list", {}); };
        subscriptions_.push_back(session_->status.subscribe([this](const std::string& status) {
            tell("status", {{"status", status}});
        }));
        subscriptions_.push_back(surface_->saved.subscribe(
            [this](const std::string& path, const std::string& text, const ForeignEdit::Outcome& outcome) {
                tell("saved", {{"path", path}, {"digest", sha256Hex(text)}, {"outcome", toJson(outcome)}});
            }));
        subscriptions_.push_back(surface_->notice.subscribe([this](const auto&) {
            tell("notice", {{"notice", noticeJson()}});
        }));
        subscriptions_.push_back(surface_->loadGeneration.subscribe([this](int) {
            if (!handling_) tell("text", shown());
        }));
    }

    Json noticeJson() const {
        const auto notice = surface_->notice.get();
        if (!notice) return nullptr;
        const auto banner = EditorSurface::banner(*notice, surface_->loadedPath() == notice->notePath);
        return Json::object({{"path", notice->notePath},
                             {"heading", banner.heading},
                             {"text", banner.text},
                             {"actions", toJson(banner.actions)}});
    }

    Json::Object shown() const {
        const Json state = match(
            surface_->state.get(),
            [](const EditorSurface::LoadState::Failed& failure) {
                return named("failed", Json::object({{"message", failure.message}}));
            },
            [](EditorSurface::LoadState::Plain plain) -> Json {
                switch (plain) {
                    case EditorSurface::LoadState::Plain::idle:
                        return "idle";
                    case EditorSurface::LoadState::Plain::downloading:
                        return "downloading";
                    case EditorSurface::LoadState::Plain::loaded:
                        return "loaded";
                }
                return {};
            });
        return {{"path", surface_->loadedPath()}, {"text", surface_->text()}, {"state", state}};
    }

    Json::Object status() const {
        auto members = shown();
        Json::Array conflicts, held;
        for (const auto& conflict : session_->conflicts.get()) conflicts.emplace_back(conflict.relativePath);
        for (const auto& entry : surface_->ledger().unsaved) held.emplace_back(entry.first);
        const Json::Object more = {{"indexing", session_->indexing.get()},
                                   {"status", session_->status.get()},
                                   {"pending", toJson(session_->pendingDownload.get())},
                                   {"conflicts", Json(std::move(conflicts))},
                                   {"notice", noticeJson()},
                                   {"olderCopy", surface_->olderCopyPath.get()},
                                   {"held", Json(std::move(held))}};
        members.insert(members.end(), more.begin(), more.end());
        return members;
    }

    Json::Object recovered() const {
        Json::Array copies, released;
        for (const auto& text : session_->recoveredHeldText()) {
            copies.push_back(Json::object({{"copy", text.copy},
                                           {"goneFolder", text.goneFolder},
                                           {"reminderLeftOff", text.reminderLeftOff}}));
        }
        for (const auto& text : session_->releasedHeldText())
            released.push_back(
                Json::object({{"note", text.note}, {"recovery", recoveryJson(text.recovery)}}));
        return {{"recovered", Json(std::move(copies))},
                {"released", Json(std::move(released))},
                {"keptInTrash", toJson(session_->heldTextKeptInTrash())},
                {"warnings", toJson(session_->heldTextWarnings())}};
    }

    void answer(const Json& id, Json::Object members) const {
        Json line = Json::object({{"id", id}, {"ok", true}});
        for (auto& member : members) line.set(member.first, std::move(member.second));
        send(line);
    }
    void refuse(const Json& id, const std::string& error) const {
        send(Json::object({{"id", id}, {"ok", false}, {"error", error}}));
    }

    void handle(const std::optional<std::string>& line) {
        if (!line) {
            inputEnded_ = true;
            return leaveWhenAnswered();
        }
        if (line->find_first_not_of(" \t\r") == std::string::npos) return;
        Json id;
        handling_ = true;
        try {
            const Json request = Json::parse(*line);
            if (const auto* given = request.find("id")) id = *given;
            if (auto members = perform(id, request)) answer(id, std::move(*members));
        } catch (const std::exception&) {
            refuse(id, describe(std::current_exception()));
        }
        handling_ = false;
    }

    static std::string text(const Json& request, const char* key) {
        if (auto value = request.string(key)) return *value;
        throw CommandError(std::string("The request needs a text “") + key + "”.");
    }
    std::string notePath(const Json& request) const {
        const auto path = text(request, "path");
        if (path.empty() || Vault::leavesVault(path))
            throw VaultWriteError(VaultWriteError::Kind::outsideVault, FilePath(path));
        if (Vault::indexedKind(path) != IndexedKind::note)
            throw CommandError("“" + path +
                               "” isn't a note: a note's name ends in .md, .markdown, .mdown or .txt.");
        return path;
    }

    /// What goes into the answer; none if the answer comes later.
    std::optional<Json::Object> perform(const Json& id, const Json& request) {
        const auto what = text(request, "do");
        const Vault& vault = session_->vault();
        if (what == "select") {
            surface_->load(notePath(request));
            return shown();
        }
        if (what == "edit") {
            const auto replaced = surface_->text();
            if (!surface_->edit(text(request, "text"))) throw CommandError("No note is loaded.");
            return Json::Object{{"path", surface_->loadedPath()}, {"replaced", replaced}};
        }
        if (what == "text") return shown();
        if (what == "flush") {
            surface_->flush();
            return shown();
        }
        if (what == "status") return status();
        if (what == "recovered") return recovered();
        if (what == "retry") {
            surface_->retrySave();
            return shown();
        }
        if (what == "activate") {
            surface_->followDisk(true);
            return shown();
        }
        if (what == "new") {
            const auto note = vault.createNote(text(request, "name"), request.string("folder").value_or(""),
                                               request.string("text").value_or(""));
            changed(note.relativePath, FileChange::Kind::Plain::created);
            return Json::Object{{"path", note.relativePath}};
        }
        if (what == "rename" || what == "move") {
            const auto from = notePath(request);
            bridge_.flushAllPendingSaves();
            const auto to = what == "rename" ? vault.renameNote(from, text(request, "name"))
                                             : vault.moveNote(from, text(request, "folder"));
            session_->noteMoved(from, to);
            surface_->follow(from, to);
            tell("list", {});
            return Json::Object{{"path", to}};
        }
        if (what == "trash") return trash(notePath(request));
        if (what == "restore") return restore(text(request, "path"));
        if (what == "search") {
            const auto limit = request.integer("limit").value_or(defaultSearchLimit);
            const auto query = text(request, "query");
            ++unanswered_;
            session_->searchNotes(query,
                                  static_cast<int>(std::clamp<std::int64_t>(limit, 0, maximumSearchLimit)),
                                  [this, id](const std::vector<SearchHit>& hits) {
                                      answer(id, {{"hits", toJson(hits)}});
                                      --unanswered_;
                                      leaveWhenAnswered();
                                  });
            return {};
        }
        if (what == "quit") return quit(request.boolean("force").value_or(false));
        throw CommandError("There is nothing called “" + what + "” to do.");
    }

    Json::Object trash(const std::string& path) {
        bridge_.flushAllPendingSaves();
        const VaultTrash trash(session_->vault());
        const auto trashed = trash.trashNote(path);
        session_->notesTrashed({path});
        if (surface_->loadedPath() == path) surface_->close();
        changed(path, FileChange::Kind::Plain::deleted);
        return {{"trashPath", trashed}};
    }

    /// By where it lies in the trash, or else by where it came from.
    Json::Object restore(const std::string& path) {
        const VaultTrash trash(session_->vault());
        const auto notes = trash.trashedNotes().first;
        auto note = std::find_if(notes.begin(), notes.end(), [&](const TrashedNote& candidate) {
            return candidate.trashPath == path || ".trash/" + candidate.trashPath == path;
        });
        if (note == notes.end()) {
            note = std::find_if(notes.begin(), notes.end(),
                                [&](const TrashedNote& candidate) { return candidate.origin == path; });
        }
        if (note == notes.end()) throw CommandError("The trash holds no “" + path + "”.");
        const auto restored = trash.restore(*note);
        changed(restored, FileChange::Kind::Plain::created);
        return {{"path", restored}};
    }

    Json::Object quit(bool force) {
        bridge_.flushAllPendingSaves();
        prompt_.force = force;
        prompt_.asked.reset();
        bool safe = false;
        bridge_.confirmLeavingUnsavedText(LeavingContext::quitting, [&](bool leaving) { safe = leaving; });
        if (!safe) throw CommandError(prompt_.asked->message + ". " + prompt_.asked->information);
        loop_.quit();
        return {};
    }

    void leaveWhenAnswered() {
        if (inputEnded_ && unanswered_ == 0) loop_.quit();
    }
    void changed(const std::string& path, FileChange::Kind::Plain kind) {
        session_->apply({FileChange{session_->vault().absolutePath(path), path, {kind}}});
    }

    const CommandContext& context_;
    RunLoop loop_;  // outlives the workers, which post to it
    ThreadPool pool_;
    std::unique_ptr<FileEventSource> events_;
    SessionServices services_;
    ScriptPrompt prompt_;
    EditorBridge bridge_;
    std::shared_ptr<VaultSession> session_;
    std::shared_ptr<EditorSurface> surface_;
    std::vector<Subscription> subscriptions_;
    int unanswered_ = 0;
    bool inputEnded_ = false;
    bool handling_ = false;  ///< a text that a request brought up is told in its answer
};

}  // namespace

void addSessionCommands(CLI::App& program, CommandContext& context) {
    auto* command = addCommand(program, "session",
                               "Keep a vault open and edit its notes, driven by JSON lines on standard input",
                               "  vesk session < requests\n"
                               "  {\"id\": 1, \"do\": \"select\", \"path\": \"Inbox.md\"}\n"
                               "  {\"id\": 2, \"do\": \"edit\", \"text\": \"The whole text\\n\"}\n"
                               "  {\"id\": 3, \"do\": \"quit\"}");
    command->callback([&context] { SessionProgram(context, context.vault()).run(); });
}

}  // namespace vesk::command
