// The world that a story plays in: one vault with its session and editor in virtual time, a machine with
// other programs, a sync service with other devices, and the oracle that watches all of them.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <utility>

#include "Simulation/MemoryFiles.h"
#include "Simulation/Oracle.h"
#include "Simulation/Story.h"
#include "Simulation/SyncService.h"
#include "Simulation/Texts.h"
#include "Simulation/WorldTime.h"
#include "Support/Fakes.h"
#include "Vesk/Editor/EditorSurface.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::simulation {

namespace {

const std::string vaultRoot = "/vault";
const std::string elsewhere = "/elsewhere";

Duration seconds(double count) {
    return std::chrono::duration_cast<Duration>(Seconds{count});
}

/// Keeps what happened to the vault's files until a stream takes it, and tells it as the kernel does.
class Events final : public FileEventSource {
public:
    explicit Events(MainQueue& timers) : timers_(timers) {}

    std::uint64_t currentEventID(const FilePath&) override { return nextID_ - 1; }
    std::unique_ptr<FileEventStream> stream(const FilePath&, std::uint64_t since, SerialQueue& queue,
                                            std::function<void(std::vector<RawEvent>)> deliver) override {
        queue_ = &queue;
        deliver_ = std::move(deliver);
        std::vector<RawEvent> missed;
        if (since != noEventID) {
            for (const auto& event : journal_) {
                if (event.id > since) missed.push_back(event);
            }
        }
        waiting_ = std::move(missed);
        if (!waiting_.empty()) send();
        return std::make_unique<Stream>(*this);
    }

    void happened(const std::string& path, std::uint64_t fileID, std::uint32_t flags) {
        RawEvent event{.path = path, .fileID = fileID, .flags = flags, .id = nextID_++};
        journal_.push_back(event);
        if (!queue_) return;
        waiting_.push_back(std::move(event));
        if (waiting_.size() == 1) {
            latency_ = timers_.postAfter(seconds(0.05), [this] { send(); });
        }
    }
    /// Lost is what waits; that much is known.
    void overflow() {
        waiting_.clear();
        if (!queue_) return;
        waiting_.push_back(
            {.path = vaultRoot, .fileID = {}, .flags = FileEventFlag::mustScanSubDirs, .id = nextID_++});
        send();
    }
    void drop() {
        latency_.cancel();
        queue_ = nullptr;
        deliver_ = nullptr;
        waiting_.clear();
    }

private:
    struct Stream final : FileEventStream {
        explicit Stream(Events& owner) : events(owner) {}
        ~Stream() override { stop(); }
        bool start() override { return true; }
        void stop() override { events.drop(); }
        Events& events;
    };

    void send() {
        latency_.cancel();
        if (!queue_) return;
        queue_->post([deliver = deliver_, batch = std::exchange(waiting_, {})] { deliver(batch); });
    }

    MainQueue& timers_;
    SerialQueue* queue_ = nullptr;
    std::function<void(std::vector<RawEvent>)> deliver_;
    std::vector<RawEvent> journal_, waiting_;
    TimerHandle latency_;
    std::uint64_t nextID_ = 101;
};

class Ubiquity final : public UbiquitySource {
public:
    explicit Ubiquity(bool isActive) : isActive_(isActive) {}
    SyncService* service = nullptr;

    std::optional<Values> values(const FilePath& path) const override {
        if (!isActive_ || !path.native().starts_with(vaultRoot)) return Values{};
        Values values{
            .isUbiquitous = true, .isDownloading = false, .downloadingStatus = DownloadingStatus::current};
        if (!service || path.native().size() <= vaultRoot.size()) return values;
        switch (service->statusOf(path.native().substr(vaultRoot.size() + 1))) {
            case SyncService::Status::current:
                break;
            case SyncService::Status::older:
                values.downloadingStatus = DownloadingStatus::downloaded;
                break;
            case SyncService::Status::downloading:
                values.isDownloading = true;
                values.downloadingStatus = DownloadingStatus::downloaded;
                break;
        }
        return values;
    }
    bool isDataless(const FilePath&) const override { return false; }
    void startDownload(const FilePath& path) override {
        if (!isActive_) throw SystemError(ENOTSUP, "download", path.native());
        const auto& native = path.native();
        if (service && native.size() > vaultRoot.size())
            service->request(native.substr(vaultRoot.size() + 1));
    }
    void withoutMaterialising(const std::function<void()>& body) override { body(); }

private:
    bool isActive_;
};

class NoEmbeddings final : public SentenceEmbeddingSource {
public:
    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view) override { return nullptr; }
};

class SilentLog final : public Log {
public:
    void write(LogLevel, std::string_view, std::string_view) override {}
    bool showsPrivate() const override { return false; }
};

class Prompt final : public LeavingPrompt {
public:
    LeavingChoice choice = LeavingChoice::stay;
    /// What is held when the person is asked.
    std::function<void(LeavingChoice)> asked;

    void ask(const LeavingAlert&, std::function<void(LeavingChoice)> answer) override {
        if (asked) asked(choice);
        answer(choice);
    }
    void chooseFolder(const std::string&, std::function<void(std::optional<FilePath>)> answer) override {
        answer(FilePath(elsewhere));
    }
    void tell(const std::string&, const std::string&) override {}
    void reveal(const std::vector<FilePath>&) override {}
};

bool isVisibleNote(std::string_view path) {
    return !lastComponent(path).starts_with('.') && !path.starts_with('.') &&
           Vault::indexedKind(path) == IndexedKind::note;
}

class World {
public:
    World(const Shape& shape, const std::string& supportFolder, bool tells)
        : shape_(shape),
          tells_(tells),
          ownTime_(WorldTime::make(shape.leavesPlaceholders)),
          time_(*ownTime_),
          files_(time_),
          ubiquity_(shape.leavesPlaceholders),
          installation_(
              FilePlatform{.files = &files_, .coordination = &coordination_, .ubiquity = &ubiquity_}),
          events_(time_),
          service_(files_, oracle_, texts_, vaultRoot,
                   {.devices = shape.devices,
                    .leavesPlaceholders = shape.leavesPlaceholders,
                    .renamesTheLocalSide = shape.renamesTheLocalSide}) {
        files_.supportDirectory = supportFolder;
        files_.hasExchange = shape.hasExchange;
        held_ = supportFolder + "/Vesk/Held";
        for (const auto* path : {"a.md", "b.md", "n/c.md"}) {
            const auto text = texts_.fresh();
            oracle_.made(text, {});
            oracle_.stands(text);
            files_.put(absolute(path), text, false);
        }
        service_.begin();
        service_.touches = [this](const std::string& path) { touched_.insert(path); };
        ubiquity_.service = &service_;
        files_.fate = [this](std::string_view operation, const FilePath& path, bool mutates) {
            return fateOf(operation, path, mutates);
        };
        files_.told = [this](const std::string& path, std::uint64_t fileID, std::uint32_t flags) {
            if (path.starts_with(vaultRoot + "/")) events_.happened(path, fileID, flags);
        };
        prompt_.asked = [this](LeavingChoice choice) {
            if (choice != LeavingChoice::leave) return;
            for (const auto& [path, text] : bridge_->everythingHeld()) oracle_.givenUp(text);
        };
        const auto index = Vault(vaultRoot, SyncProvider::none).indexPath();
        std::filesystem::create_directories(index.parent_path());
        if (shape.hasIndex) {
            for (const auto& entry : std::filesystem::directory_iterator(index.parent_path()))
                std::filesystem::remove(entry.path());
        }
        start();
    }
    ~World() {
        isDead_ = true;
        bury();
        files_.told = nullptr;
    }

    Run run(const std::vector<Action>& actions) {
        for (const auto& action : actions) {
            time_.random().seed(static_cast<std::uint64_t>(action.a * 64 + action.b * 4096) +
                                static_cast<std::uint64_t>(action.what));
            if (tells_) std::printf("%s %d %d\n", nameOf(action.what).c_str(), action.a, action.b);
            perform(action);
            if (fault_) break;
        }
        if (!fault_) comeToRest();
        if (!fault_) judge();
        return {fault_, calls_};
    }

private:
    static std::string absolute(const std::string& path) { return vaultRoot + "/" + path; }
    void broken(const std::string& what) {
        if (!fault_) fault_ = what;
    }
    static const std::string& place(int pick) {
        const auto& places = SyncService::places();
        return places[static_cast<std::size_t>(pick) % places.size()];
    }

    // The process

    bool isRunning() const { return session_ != nullptr; }

    void start() {
        if (isRunning()) return;
        bridge_ = std::make_unique<EditorBridge>(prompt_);
        try {
            session_ =
                VaultSession::make(Vault(vaultRoot, shape_.leavesPlaceholders ? SyncProvider::iCloudDrive
                                                                              : SyncProvider::syncthing),
                                   services_);
        } catch (const Error&) {
            bridge_.reset();
            bury();
            return;
        }
        if (!shape_.hasIndex) session_->index().close();
        surface_ = EditorSurface::make(session_, *bridge_, services_);
        saved_ = surface_->saved.subscribe(
            [this](const std::string& path, const std::string& text, const ForeignEdit::Outcome& outcome) {
                wasSaved(path, text, outcome);
            });
        notice_ = surface_->notice.subscribe([this](const std::optional<EditorSurface::SaveNotice>& notice) {
            using Notice = EditorSurface::SaveNotice;
            if (notice && (std::holds_alternative<Notice::Failed>(notice->kind) ||
                           std::holds_alternative<Notice::Waiting>(notice->kind)))
                isTrouble_ = true;
        });
        if (shape_.hasWindow) session_->onExternalChange = [this] { listAgain(); };
        heldRefused_ = isTrouble_ = false;
        inMemoryOnly_.clear();
        acting([&] { session_->start(); });
    }

    /// As the window does: a little later, the list is read beside everything else.
    void listAgain() {
        listing_ = time_.postAfter(seconds(0.5), [this] {
            time_.run(Priority::userInitiated, [this, vault = session_->vault()](const std::stop_token&) {
                std::set<std::string> paths;
                try {
                    for (const auto& note : vault.enumerateNotes()) paths.insert(note.relativePath);
                } catch (const Error&) {
                    return;
                }
                time_.post([this, paths = std::move(paths)] { followListed(paths); });
            });
        });
    }
    void followListed(const std::set<std::string>& paths) {
        const auto shown = surface_->loadedPath();
        if (!shown || paths.contains(*shown)) return;
        const auto destination = session_->departures().destination(*shown);
        if (destination && paths.contains(*destination)) surface_->follow(*shown, *destination);
    }

    /// Runs something that the person does, or time; what the process throws then is a fault of it.
    template <class Act>
    void acting(Act act) {
        try {
            act();
            if (!isDead_) time_.settle();
        } catch (const std::exception& error) {
            if (!isDead_) broken(std::string("an error came out: ") + error.what());
        }
        if (isDead_) return bury();
        if (isRunning()) holdToWhatIsTold();
        noteUnsaved();
        if (pending_ && time_.monotonic() - typedAt_ >= seconds(0.8)) typedIsOwed();
    }
    /// The same for acts that may be refused.
    template <class Act>
    void trying(Act act) {
        acting([&] {
            try {
                act();
            } catch (const Error&) {
            }
        });
    }
    void typedIsOwed() {
        if (pending_) oracle_.owed(*pending_);
        pending_.reset();
    }
    /// After acts that take the text out of the editor's hands.
    void handedOver() {
        if (isRunning() && !typedMeanwhile_) typedIsOwed();
    }

    /// The process is no more: what it had in memory goes, and the disk stays as it is.
    void bury() {
        if (isDead_ && session_) {
            time_.dropEverything();
            events_.drop();
            session_->heldText().discardEverythingKept();
            saved_ = {};
            notice_ = {};
            surface_.reset();
            bridge_.reset();
            session_.reset();
        }
        pending_.reset();
        isDead_ = false;
        crashIn_ = 0;
    }
    void crash() {
        if (!isRunning()) return;
        die();
        bury();
    }
    /// From now on the process reaches nothing; what it still does, it does to itself.
    void die() {
        isDead_ = true;
        noteUnsaved();
        for (const auto& text : std::exchange(inMemoryOnly_, {})) oracle_.gaveWay(text);
    }
    /// Unsaved text that the disk of the held-text store refused as well.
    void noteUnsaved() {
        if (!heldRefused_ || !surface_) return;
        const auto held = textsHeld();
        for (const auto& [path, text] : surface_->ledger().unsaved) {
            if (std::find(held.begin(), held.end(), text) == held.end()) {
                inMemoryOnly_.insert(text);
            } else {
                inMemoryOnly_.erase(text);
            }
        }
    }

    Fate fateOf(std::string_view operation, const FilePath& file, bool mutates) {
        const std::string& path = file.native();
        ++calls_;
        if (isDead_) return {.error = EIO, .happens = false};
        const bool inVault = path.starts_with(vaultRoot + "/"), inHeld = path.starts_with(held_);
        if (!inVault && !inHeld) return {};
        if (tells_ && mutates)
            std::printf("    %.*s %s\n", static_cast<int>(operation.size()), operation.data(), path.c_str());
        if (inVault && !isIntruding_ && intrudeIn_ > 0 && --intrudeIn_ == 0) intrude(operation, path);
        if (mutates && crashIn_ > 0 && --crashIn_ == 0) {
            die();
            return {.error = EIO, .happens = crashKind_ != 0, .torn = crashKind_ == 2};
        }
        const auto refused = [&](int code, bool happens = false) {
            heldRefused_ = heldRefused_ || inHeld;
            wasRefused_ = true;
            return Fate{.error = code, .happens = happens};
        };
        if (failIn_ > 0 && (mutates || failKind_ % 3 == 0) && --failIn_ == 0) {
            constexpr int codes[] = {EIO, ENOSPC, EACCES, EROFS, EDQUOT, ENOMEM};
            const bool canBeLate = operation == "move" || operation == "replace" || operation == "exchange";
            return refused(codes[failKind_ / 2 % 6], canBeLate && failKind_ % 2 == 1);
        }
        const int fullness = inVault ? vaultFullness_ : supportFullness_;
        const bool takesRoom = operation == "writeNew" || operation == "setAttribute" ||
                               operation == "setCreationDate" ||
                               (operation == "createDirectories" && !files_.isTaken(path));
        if (fullness == 1 && takesRoom) return refused(ENOSPC);
        if (fullness == 2 && mutates && (operation != "createDirectories" || takesRoom))
            return refused(EROFS);
        return {};
    }

    /// Another program at work on the file in the very moment between two calls. Some come back.
    void intrude(std::string_view operation, const std::string& path) {
        // Without an exchange of files the system offers no way to close this moment.
        if (operation == "replace") return;
        std::string target = path.substr(vaultRoot.size() + 1);
        if (!isVisibleNote(target)) {
            if (!surface_ || !surface_->loadedPath()) return;
            target = *surface_->loadedPath();
        }
        if (tells_)
            std::printf("    intrusion %d on %s before %s\n", intrusionKind_, target.c_str(),
                        std::string(operation).c_str());
        intruded_ = isIntruding_ = true;
        disturb(target, intrusionKind_);
        isIntruding_ = false;
        if (intrusionKind_ < 15) return;
        intrudeIn_ = 1 + intrusionKind_ % 5;
        intrusionKind_ -= 5;
    }
    void disturb(const std::string& path, int kind) {
        if (!files_.isTaken(absolute(path))) {
            if (kind % 2 == 0) localCreate(path);
            return;
        }
        switch (kind % 5) {
            case 3:
                return localMove(path, place(kind));
            case 4:
                return localDelete(path);
            default:
                return localEdit(path, kind);
        }
    }

    // Other programs

    std::vector<std::string> notes() const {
        std::vector<std::string> paths;
        for (const auto& entry : files_.filesBelow(vaultRoot)) {
            if (isVisibleNote(entry.first)) paths.push_back(entry.first);
        }
        return paths;
    }
    std::optional<std::string> note(int pick) const {
        const auto paths = notes();
        if (paths.empty()) return {};
        return paths[static_cast<std::size_t>(pick) % paths.size()];
    }
    void localCreate(const std::string& path) {
        const auto text = texts_.fresh();
        oracle_.made(text, {});
        oracle_.stands(text);
        touched_.insert(path);
        files_.put(absolute(path), text, false);
    }
    void localEdit(const std::string& path, int style) {
        const auto seen = files_.textAt(absolute(path));
        if (!seen) return;
        auto text = texts_.changed(*seen, style);
        oracle_.made(text, *seen);
        // Another that writes what stands there already brings nothing of its own.
        if (text != *seen) oracle_.stands(text);
        if (style % 11 == 10) text = Texts::withCarriageReturns(text);
        touched_.insert(path);
        files_.put(absolute(path), text, style % 2 == 0);
    }
    void localMove(const std::string& from, const std::string& to) {
        touched_.insert(from);
        touched_.insert(to);
        files_.rename(absolute(from), absolute(to));
    }
    void localDelete(const std::string& path) {
        const auto text = files_.textAt(absolute(path));
        if (!text) return;
        oracle_.made(*text, {});
        oracle_.thrownAway(*text);
        touched_.insert(path);
        files_.erase(absolute(path));
    }

    // The person

    bool ready() {
        if (!isRunning()) start();
        return isRunning();
    }
    bool isLoaded() const {
        return surface_->loadedPath() &&
               surface_->state.get() == EditorSurface::LoadState{EditorSurface::LoadState::Plain::loaded};
    }

    void perform(const Action& action) {
        const auto& [what, a, b] = action;
        intruded_ = typedMeanwhile_ = false;
        switch (what) {
            case Do::type:
                return type(a);
            case Do::wait:
                return pass(0.1 * a);
            case Do::select:
                if (const auto path = ready() ? note(a) : std::nullopt) select(*path);
                return;
            case Do::flush:
                if (ready()) acting([&] { surface_->flush(); });
                return handedOver();
            case Do::close:
                if (ready()) acting([&] { surface_->close(); });
                return handedOver();
            case Do::create:
                return create(a);
            case Do::rename:
            case Do::move:
                return move(action);
            case Do::trash:
                if (const auto path = ready() ? note(a) : std::nullopt) trash(*path);
                return;
            case Do::trashShown:
                if (ready() && surface_->loadedPath()) trash(std::string(*surface_->loadedPath()));
                return;
            case Do::restore:
                return restore(a);
            case Do::emptyTrash:
                return emptyTrash();
            case Do::retry:
                if (ready()) acting([&] { surface_->retrySave(); });
                return;
            case Do::dismiss:
                if (ready()) acting([&] { surface_->dismissNotice(); });
                return;
            case Do::activate:
                if (ready()) acting([&] { surface_->followDisk(true); });
                return;
            case Do::quit:
                return quit(a);
            case Do::crash:
                return crash();
            case Do::crashSoon:
                crashIn_ = 1 + a;
                crashKind_ = b;
                return;
            case Do::failSoon:
                failIn_ = 1 + a;
                failKind_ = b;
                return;
            case Do::fillVault:
                vaultFullness_ = a;
                return;
            case Do::fillSupport:
                supportFullness_ = a;
                return;
            case Do::intrude:
                intrudeIn_ = 1 + a;
                intrusionKind_ = b;
                return;
            case Do::typeSoon:
                return time_.interruptAfter(1 + a, [this, style = b] { typeMeanwhile(style); });
            case Do::overflow:
                acting([&] { events_.overflow(); });
                return;
            default:
                return performOutside(action);
        }
    }

    void performOutside(const Action& action) {
        const auto& [what, a, b] = action;
        const int device = a % 3, pick = a / 3;
        switch (what) {
            case Do::localEdit:
                if (const auto path = note(a)) localEdit(*path, b);
                break;
            case Do::localMove:
                if (const auto path = note(a)) localMove(*path, place(b));
                break;
            case Do::localDelete:
                if (const auto path = note(a)) localDelete(*path);
                break;
            case Do::localMoveFolder:
                moveFolder(a);
                break;
            case Do::deviceEdit:
                service_.edit(device, pick, b);
                break;
            case Do::deviceCreate:
                service_.create(device, pick);
                break;
            case Do::deviceMove:
                service_.move(device, pick, b);
                break;
            case Do::deviceTrash:
                service_.trash(device, pick);
                break;
            case Do::deviceRestore:
                service_.restore(device, pick);
                break;
            case Do::deviceDelete:
                service_.remove(device, pick);
                break;
            case Do::deviceLook:
                service_.look(device);
                break;
            case Do::sync:
                for (int i = 0; i <= a; ++i) service_.tick(time_.random());
                break;
            case Do::deliverAgain:
                service_.deliverAgain(a, b == 1);
                break;
            case Do::evict:
                service_.evict(a);
                break;
            case Do::goOnline:
            case Do::goOffline:
                isOnline_ = what == Do::goOnline;
                break;
            default:
                break;
        }
        acting([] {});
    }

    void moveFolder(int pick) {
        const auto* from = pick % 2 == 0 ? "n" : "m";
        const auto* to = pick % 2 == 0 ? "m" : "n";
        for (const auto& path : notes()) {
            if (!path.starts_with(std::string(from) + "/")) continue;
            touched_.insert(path);
            touched_.insert(to + path.substr(1));
        }
        if (service_.waitsBelow(from)) return;
        if (files_.rename(absolute(from), absolute(to))) return;
        files_.rename(absolute(from), absolute("k"));
    }

    void pass(double length) {
        if (!isRunning()) start();
        while (length > 0 && !fault_) {
            const double part = std::min(length, 0.4);
            length -= part;
            acting([&] { time_.advance(seconds(part)); });
            if (isOnline_) {
                service_.tick(time_.random());
                acting([] {});
            }
        }
    }

    void select(const std::string& path) {
        acting([&] { surface_->load(path); });
        handedOver();
        // What is shown as loaded is what the note holds, as far as the editor knows.
        if (isRunning() && isLoaded()) noteKnown(path, surface_->text());
    }

    void type(int style) {
        if (!ready()) return;
        if (!isLoaded()) {
            const auto path = note(style);
            if (path) select(*path);
            if (!isRunning() || !isLoaded()) return;
        }
        const std::string seen = surface_->text();
        const auto text = texts_.changed(seen, style);
        bool taken = false;
        acting([&] { taken = surface_->edit(text); });
        if (!taken) return broken("a keystroke was not taken");
        oracle_.made(text, seen);
        if (!isRunning()) return;
        pending_ = text;
        typedAt_ = time_.monotonic();
    }

    /// A keystroke between two jobs of the process, without waiting for the others.
    void typeMeanwhile(int style) {
        if (isDead_ || !surface_ || !isLoaded()) return;
        const std::string seen = surface_->text();
        const auto text = texts_.changed(seen, style);
        if (tells_) std::printf("    typed meanwhile: %s\n", essence(text).c_str());
        if (!surface_->edit(text)) return broken("a keystroke was not taken");
        oracle_.made(text, seen);
        pending_ = text;
        typedAt_ = time_.monotonic();
        typedMeanwhile_ = true;
    }

    void create(int pick) {
        if (!ready()) return;
        const auto& path = place(pick);
        const auto text = texts_.fresh();
        oracle_.made(text, {});
        std::optional<std::string> made;
        trying([&] {
            const auto note = session_->vault().createNote(stem(path), parentFolder(path), text);
            made = note.relativePath;
            touched_.insert(*made);
            session_->apply({FileChange{note.path, *made, {FileChange::Kind::Plain::created}}});
        });
        if (!made || !isRunning()) return;
        oracle_.stands(text);
        select(*made);
    }

    void move(const Action& action) {
        const auto from = ready() ? note(action.a) : std::nullopt;
        if (!from) return;
        trying([&] {
            bridge_->flushAllPendingSaves();
            const auto& vault = session_->vault();
            std::string to;
            if (action.what == Do::rename) {
                to = vault.renameNote(*from, std::string(1, static_cast<char>('a' + action.b)));
            } else {
                constexpr const char* folders[] = {"", "n", "m"};
                to = vault.moveNote(*from, folders[action.b % 3]);
            }
            touched_.insert(*from);
            touched_.insert(to);
            session_->noteMoved(*from, to);
            surface_->follow(*from, to);
        });
        // A move that fails late counts as one that failed if another program has already been at its end.
        if (intruded_) touched_.insert(*from);
        handedOver();
    }

    void trash(const std::string& path) {
        trying([&] {
            bridge_->flushAllPendingSaves();
            touched_.insert(path);
            VaultTrash(session_->vault()).trashNote(path);
            session_->notesTrashed({path});
            if (surface_->loadedPath() == path) surface_->close();
            session_->apply({FileChange{absolute(path), path, {FileChange::Kind::Plain::deleted}}});
        });
        handedOver();
    }

    void restore(int pick) {
        if (!ready()) return;
        trying([&] {
            const VaultTrash trash(session_->vault());
            const auto notes = trash.trashedNotes().first;
            if (notes.empty()) return;
            const auto restored = trash.restore(notes[static_cast<std::size_t>(pick) % notes.size()]);
            touched_.insert(restored);
            session_->apply({FileChange{absolute(restored), restored, {FileChange::Kind::Plain::created}}});
        });
    }

    void emptyTrash() {
        if (!ready()) return;
        std::vector<std::string> texts;
        for (const auto& entry : files_.filesBelow(vaultRoot + "/.trash")) texts.push_back(*entry.second);
        trying([&] { VaultTrash(session_->vault()).empty(); });
        if (files_.isTaken(vaultRoot + "/.trash")) return;
        for (const auto& text : texts) {
            oracle_.made(text, {});
            oracle_.thrownAway(text);
        }
    }

    /// As the desktop ends: pending saves first, then what can't be saved is asked about.
    void quit(int answer) {
        if (!isRunning()) return;
        constexpr LeavingChoice choices[] = {LeavingChoice::stay, LeavingChoice::saveElsewhere,
                                             LeavingChoice::leave};
        time_.interruptAfter(0, nullptr);
        prompt_.choice = choices[answer % 3];
        bool leaves = false;
        acting([&] {
            bridge_->flushAllPendingSaves();
            bridge_->confirmLeavingUnsavedText(LeavingContext::quitting, [&](bool safe) { leaves = safe; });
        });
        handedOver();
        if (!leaves || !isRunning()) return;
        acting([&] {
            surface_->close();
            session_->stop();
        });
        if (!isRunning()) return;
        saved_ = {};
        notice_ = {};
        time_.settle();
        surface_.reset();
        session_.reset();
        bridge_.reset();
        events_.drop();
        time_.dropEverything();
    }

    // What is told, held against what is

    void holdToWhatIsTold() {
        if (surface_->ledger().unsaved.empty()) {
            isTrouble_ = false;
        } else if (!isTrouble_) {
            broken("text is unsaved and nobody was told: " + surface_->ledger().unsaved.begin()->first);
        }
    }

    void wasSaved(const std::string& path, const std::string& text, const ForeignEdit::Outcome& outcome) {
        if (isDead_) return;
        if (tells_)
            std::printf("    saved %s (%zu): %s\n", path.c_str(), outcome.value.index(),
                        essence(text).c_str());
        using Outcome = ForeignEdit::Outcome;
        // These leave the note to another's text, and it may be an old one that the service brought again.
        const auto& there = whereItWent(outcome).value;
        const bool isAnothers = std::holds_alternative<Outcome::DiskWins>(there) ||
                                std::holds_alternative<Outcome::Merged>(there);
        if (!isAnothers && !isLet(text)) {
            broken("a save was told of that didn't happen: " + essence(text) + " at " + path);
        }
        oracle_.saved(text);
        inMemoryOnly_.erase(text);
        const bool known = !touched_.contains(path) && !intruded_;
        if (known && std::holds_alternative<Outcome::KeptBoth>(outcome.value))
            broken("a conflict copy of " + path + ", which nobody else had changed");
        if (known && std::holds_alternative<Outcome::KeptAsCopy>(outcome.value))
            broken("a recovered copy of " + path + ", which was in its place");
        noteKnown(path, text);
        // Where a text has followed its note, another may have been begun.
        if (const auto* followed = std::get_if<Outcome::FollowedMove>(&outcome.value))
            touched_.insert(followed->to);
    }
    /// What became of the text at the end of the note's way.
    static const ForeignEdit::Outcome& whereItWent(const ForeignEdit::Outcome& outcome) {
        const auto* followed = std::get_if<ForeignEdit::Outcome::FollowedMove>(&outcome.value);
        return followed ? whereItWent(*followed->inner) : outcome;
    }
    /// The editor knows the note as it is if that is what it shows or saved, and the newest there is.
    void noteKnown(const std::string& path, const std::string& text) {
        const auto now = files_.textAt(absolute(path));
        if (now && LineEndings::normalized(*now) == text &&
            service_.statusOf(path) == SyncService::Status::current)
            touched_.erase(path);
    }
    bool isLet(const std::string& text) { return oracle_.isSafe(text, textsOnDisk(false)); }

    std::vector<std::string> textsOnDisk(bool withHeld) const {
        std::vector<std::string> found = service_.textsElsewhere();
        for (const auto* folder : {&vaultRoot, &elsewhere}) {
            for (const auto& [path, text] : files_.filesBelow(*folder)) {
                if (!lastComponent(path).starts_with('.')) found.push_back(*text);
            }
        }
        if (withHeld) {
            for (auto& text : textsHeld()) found.push_back(std::move(text));
        }
        return found;
    }
    std::vector<std::string> textsHeld() const {
        std::vector<std::string> held;
        for (const auto& [path, bytes] : files_.filesBelow(held_)) {
            if (!path.ends_with(".json")) continue;
            if (auto text = Json::parse(*bytes).string("text")) held.push_back(std::move(*text));
        }
        return held;
    }

    void comeToRest() {
        crashIn_ = failIn_ = intrudeIn_ = vaultFullness_ = supportFullness_ = 0;
        time_.interruptAfter(0, nullptr);
        isOnline_ = false;
        // The sweep of what crashes left waits an hour, and held text for notes that were not here waits for
        // the next start.
        start();
        if (!isRunning()) return broken("the vault can't be opened");
        syncUp();
        for (int round = 0; round < 3 && !fault_ && isSomethingLeft(); ++round) {
            quit(0);
            if (isRunning()) return broken("the text can't be saved though nothing stands in its way");
            time_.advance(seconds(3700));
            start();
            syncUp();
        }
    }
    bool isSomethingLeft() const {
        if (!surface_->ledger().unsaved.empty() || !files_.filesBelow(held_).empty()) return true;
        const auto files = files_.filesBelow(vaultRoot);
        return std::any_of(files.begin(), files.end(), [](const auto& entry) {
            return entry.first.find(".vesk-tmp-") != std::string::npos;
        });
    }
    void syncUp() {
        for (int round = 0; round < 40 && !fault_; ++round) {
            const bool moved = service_.catchUp();
            acting([&] { time_.advance(seconds(4)); });
            if (!isRunning()) return;
            acting([&] { surface_->retrySave(); });
            if (!moved && round > 0) break;
        }
        acting([&] { time_.advance(seconds(70)); });
        service_.catchUp();
        acting([&] { time_.advance(seconds(4)); });
    }
    void judge() {
        auto lost = oracle_.lost(textsOnDisk(true));
        if (!lost.empty()) {
            std::string all;
            for (auto& text : lost) all += (all.empty() ? "" : " | ") + text;
            std::replace(all.begin(), all.end(), '\n', ' ');
            return broken("lost: " + all);
        }
        for (const auto& entry : files_.filesBelow(held_))
            return broken("left in the held-text store: " + entry.first);
        for (const auto& entry : files_.filesBelow(vaultRoot)) {
            if (entry.first.find(".vesk-tmp-") != std::string::npos)
                return broken("left in the vault: " + entry.first);
        }
        if (auto disagreement = service_.disagreement()) return broken(*disagreement);
        judgeEditor();
        if (shape_.hasIndex) judgeIndex();
    }
    void judgeEditor() {
        // What it could not read when it was told of is read when the person comes back to it.
        if (wasRefused_) acting([&] { surface_->followDisk(true); });
        if (!isLoaded()) return;
        const auto& path = *surface_->loadedPath();
        const auto text = files_.textAt(absolute(path));
        if (text && LineEndings::normalized(*text) != surface_->text())
            broken("the editor shows another text than " + path + " holds");
    }
    void judgeIndex() {
        // What the index could not read when it was told of is read by the next reindex.
        if (wasRefused_) acting([&] { session_->rebuildIndex(); });
        const auto paths = notes();
        for (const auto& path : paths) {
            const auto text = LineEndings::normalized(*files_.textAt(absolute(path)));
            if (session_->index().storedHash(path) != NoteIndex::contentHash(text))
                return broken("the index doesn't know " + path + " as it is");
        }
        if (session_->index().noteCount() != static_cast<int>(paths.size()))
            broken("the index knows notes that aren't there");
        if (!session_->pendingDownload.get().empty()) broken("a note that is here is still waited for");
    }

    const Shape shape_;
    const bool tells_;
    const std::unique_ptr<WorldTime> ownTime_;
    WorldTime& time_;
    MemoryFiles files_;
    PlainCoordination coordination_;
    Ubiquity ubiquity_;
    FilePlatformInstallation installation_;
    Events events_;
    test::MemoryUserDefaults defaults_;
    NoFileVersions versions_;
    NoEmbeddings embeddings_;
    SilentLog log_;
    Prompt prompt_;
    SessionServices services_{.clock = time_,
                              .mainQueue = time_,
                              .background = time_,
                              .log = log_,
                              .defaults = defaults_,
                              .fileEvents = events_,
                              .fileVersions = versions_,
                              .embeddings = embeddings_,
                              .calendar = [] { return Calendar(); }};
    Oracle oracle_;
    Texts texts_;
    SyncService service_;
    std::string held_;

    std::unique_ptr<EditorBridge> bridge_;
    std::shared_ptr<VaultSession> session_;
    std::shared_ptr<EditorSurface> surface_;
    Subscription saved_, notice_;
    TimerHandle listing_;

    std::optional<std::string> pending_;  ///< typed, and in the memory of the process alone
    Duration typedAt_{};
    std::set<std::string> inMemoryOnly_;  ///< and said so
    std::set<std::string> touched_;       ///< what others did something to since the editor last knew it
    bool isDead_ = false, isIntruding_ = false, intruded_ = false, isOnline_ = false;
    bool typedMeanwhile_ = false;  ///< in the present step, perhaps after what it takes out of hand
    bool heldRefused_ = false;     ///< in this run
    bool isTrouble_ = false;       ///< the person has been told of text that isn't saved
    bool wasRefused_ = false;      ///< any call
    int crashIn_ = 0, crashKind_ = 0, failIn_ = 0, failKind_ = 0, intrudeIn_ = 0, intrusionKind_ = 0;
    int vaultFullness_ = 0, supportFullness_ = 0;
    std::optional<std::string> fault_;
    std::uint64_t calls_ = 0;
};

}  // namespace

Run play(const Story& story, const std::string& supportFolder, bool tells) {
    return World(story.shape, supportFolder, tells).run(story.actions);
}

}  // namespace vesk::simulation
