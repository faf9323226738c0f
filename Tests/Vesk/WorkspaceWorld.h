// A workspace over a scratch vault in virtual time.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Support/FakeNotifications.h"
#include "Vesk/SessionWorld.h"
#include "Vesk/Workspace.h"
#include "VeskLinux/PathBookmarks.h"

namespace vesk::test {

/// Streams of the world's events, for as many vaults as are opened.
class SharedEvents final : public FileEventSource {
public:
    explicit SharedEvents(FileEventSource& source) : source_(source) {}
    std::uint64_t currentEventID(const FilePath& root) override { return source_.currentEventID(root); }
    std::unique_ptr<FileEventStream> stream(const FilePath& root, std::uint64_t since, SerialQueue& queue,
                                            std::function<void(std::vector<RawEvent>)> deliver) override {
        return source_.stream(root, since, queue, std::move(deliver));
    }

private:
    FileEventSource& source_;
};

class WorkspaceWorld : public ::testing::Test, public SessionWorld {
protected:
    ~WorkspaceWorld() override {
        if (workspace) workspace->close();
        time.settle();
        workspace.reset();
        time.settle();
    }
    void launch() {
        bridge = std::make_unique<EditorBridge>(prompt);
        center.emplace(notifications, time, time, time, [this] { return calendar; });
        workspace = std::make_unique<Workspace>(WorkspaceServices{
            .clock = time,
            .mainQueue = time,
            .background = time,
            .log = log,
            .defaults = defaults,
            .bookmarks = bookmarks,
            .fileVersions = versions,
            .embeddings = embeddings,
            .calendar = [this] { return calendar; },
            .bridge = *bridge,
            .reminderCenter = *center,
            .fileEvents = [this](const Vault&) { return std::make_unique<SharedEvents>(events); },
            .chooseFolder =
                [this](const FolderPanel& panel, const auto& answer) {
                    panels.push_back(panel);
                    answer(chosen);
                }});
    }
    void openVault() {
        launch();
        workspace->openAndRemember(vault().path());
        pass(4);
    }
    using Names = std::vector<std::string>;
    Names listed() const {
        Names paths;
        for (const Note& note : workspace->notes.get()) paths.push_back(note.relativePath);
        std::sort(paths.begin(), paths.end());
        return paths;
    }
    std::string failure() const { return workspace->folderError.get().value_or(""); }
    EditorSurface& pane() { return *workspace->surface.get(); }

    PathBookmarks bookmarks{platform.files};
    FakeNotifications notifications;
    std::optional<ReminderCenter> center;
    Calendar calendar;
    std::unique_ptr<Workspace> workspace;
    std::vector<FolderPanel> panels;
    std::optional<FilePath> chosen;
};

}  // namespace vesk::test
