// A vault with its session and one editor in virtual time, files real, file events told by the test.
#pragma once

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Support/Fakes.h"
#include "Vesk/Editor/EditorSurface.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {

/// Tells what the test says happened; keeps what the stream was asked to resume from.
class ScriptedEvents final : public FileEventSource {
public:
    std::vector<std::uint64_t> resumed;

    std::uint64_t currentEventID(const FilePath&) override { return nextID_ - 1; }
    std::unique_ptr<FileEventStream> stream(const FilePath&, std::uint64_t since, SerialQueue& queue,
                                            std::function<void(std::vector<RawEvent>)> deliver) override {
        resumed.push_back(since);
        queue_ = &queue;
        deliver_ = std::move(deliver);
        return std::make_unique<Stream>(*this);
    }
    /// One batch; the ids are filled in.
    void tell(std::vector<RawEvent> batch) {
        if (!queue_) return;
        for (auto& event : batch) event.id = nextID_++;
        queue_->post([deliver = deliver_, batch = std::move(batch)] { deliver(batch); });
    }
    /// Nobody listens any more.
    void drop() { queue_ = nullptr; }

private:
    struct Stream final : FileEventStream {
        explicit Stream(ScriptedEvents& owner) : events(owner) {}
        bool start() override { return true; }
        void stop() override { events.queue_ = nullptr; }
        ScriptedEvents& events;
    };
    SerialQueue* queue_ = nullptr;
    std::function<void(std::vector<RawEvent>)> deliver_;
    std::uint64_t nextID_ = 101;
};

/// Answers as the test set it, and keeps what was asked and told.
class ScriptedPrompt final : public LeavingPrompt {
public:
    LeavingChoice choice = LeavingChoice::stay;
    std::optional<FilePath> folder;
    std::vector<LeavingAlert> asked;
    std::vector<std::string> told;
    std::vector<FilePath> revealed;

    void ask(const LeavingAlert& alert, std::function<void(LeavingChoice)> answer) override {
        asked.push_back(alert);
        answer(choice);
    }
    void chooseFolder(const std::string&, std::function<void(std::optional<FilePath>)> answer) override {
        answer(folder);
    }
    void tell(const std::string& message, const std::string& information) override {
        told.push_back(message + "|" + information);
    }
    void reveal(const std::vector<FilePath>& files) override { revealed = files; }
};

struct SessionWorld {
    explicit SessionWorld(std::uint64_t seed = 1) : time(seed) {}
    ~SessionWorld() { platform.files.fault = nullptr; }

    PlatformFixture platform;
    VirtualTime time;
    ScriptedEvents events;
    MemoryUserDefaults defaults;
    NoFileVersions versions;
    FakeSentenceEmbeddings embeddings;
    RecordingLog log;
    ScriptedPrompt prompt;
    SessionServices services{.clock = time,
                             .mainQueue = time,
                             .background = time,
                             .log = log,
                             .defaults = defaults,
                             .fileEvents = events,
                             .fileVersions = versions,
                             .embeddings = embeddings,
                             .calendar = [] { return Calendar(); }};
    std::unique_ptr<EditorBridge> bridge;
    std::shared_ptr<VaultSession> session;
    std::shared_ptr<EditorSurface> surface;
    int externalChanges = 0, drained = 0;

    const ScratchFolder& vault() const { return platform.vaultFolder; }

    void make() {
        bridge = std::make_unique<EditorBridge>(prompt);
        session = VaultSession::make(Vault(vault().path()), services);
        session->onExternalChange = [this] { ++externalChanges; };
        session->onPendingDrained = [this] { ++drained; };
        surface = EditorSurface::make(session, *bridge, services);
    }
    void open() {
        make();
        session->start();
        time.settle();
    }
    /// The process ends as if killed; what was open stays where nothing runs it any more.
    void crash() {
        time.dropEverything();
        events.drop();
        crashed_.push_back({std::move(bridge), std::move(session), std::move(surface)});
    }
    void stop() {
        surface->close();
        surface.reset();
        session->stop();
        time.settle();
        session.reset();
    }
    void pass(double seconds) { time.advance(std::chrono::duration_cast<Duration>(Seconds{seconds})); }

    /// Another program writes a file, and the system tells of it.
    void foreign(std::string_view path, std::string_view text) {
        const bool isNew = !vault().exists(path);
        tell(vault().write(path, text), isNew ? FileEventFlag::itemCreated : FileEventFlag::itemModified);
    }
    void foreignMove(std::string_view from, std::string_view to) {
        const auto inode = platform.files.info(vault() / from)->fileID;
        std::filesystem::create_directories((vault() / to).parent_path());
        std::filesystem::rename(vault() / from, vault() / to);
        const auto flags = FileEventFlag::itemRenamed | FileEventFlag::itemIsFile;
        events.tell({{.path = real(vault() / from).string(), .fileID = inode, .flags = flags},
                     {.path = real(vault() / to).string(), .fileID = inode, .flags = flags}});
    }
    void tell(const FilePath& path, std::uint32_t flags) {
        events.tell(
            {{.path = real(path).string(), .fileID = {}, .flags = flags | FileEventFlag::itemIsFile}});
    }
    static FilePath real(const FilePath& path) { return FileWatcher::realPath(path); }

    /// The disk of the vault is full; Application Support isn't.
    void fillDisk(bool full = true) {
        if (!full) {
            platform.files.fault = nullptr;
            return;
        }
        platform.files.fault = [root = vault().path()](std::string_view operation,
                                                       const FilePath& path) -> std::optional<int> {
            const bool inVault = path.native().starts_with(root.native() + "/") &&
                                 path.native().find("/.vesk/") == std::string::npos;
            if (inVault && operation == "writeNew") return ENOSPC;
            return {};
        };
    }
    void setStatus(std::string_view path, UbiquitySource::DownloadingStatus status) {
        platform.ubiquity.set(vault() / path, {.isUbiquitous = true, .downloadingStatus = status});
    }
    void makeStale(std::string_view path) { setStatus(path, UbiquitySource::DownloadingStatus::downloaded); }
    void makeCurrent(std::string_view path) { setStatus(path, UbiquitySource::DownloadingStatus::current); }

    void type(std::string text) { ASSERT_TRUE(surface->edit(std::move(text))); }
    std::optional<EditorSurface::SaveNotice> notice() const { return surface->notice.get(); }
    std::size_t heldFiles() const { return session->heldText().leftovers(true).size(); }

private:
    struct Process {
        std::unique_ptr<EditorBridge> bridge;
        std::shared_ptr<VaultSession> session;
        std::shared_ptr<EditorSurface> surface;
    };
    std::vector<Process> crashed_;
};

}  // namespace vesk::test
