// What changed in the vault folder, whoever changed it, in one batch per quiet period.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "VeskCore/Platform/FileEvents.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct FileChange {
    struct Kind {
        struct Renamed {
            std::string fromRelativePath;
            bool operator==(const Renamed&) const = default;
        };
        enum class Plain { created, modified, deleted };
        std::variant<Renamed, Plain> value = Plain::modified;
        bool operator==(const Kind&) const = default;
    };
    FilePath path;
    std::string relativePath;
    Kind kind;
    bool operator==(const FileChange&) const = default;
};

class FileWatchError : public Error {
public:
    explicit FileWatchError(FilePath folder) : path(std::move(folder)) {}
    std::string description() const override;
    FilePath path;  ///< the folder that can't be watched
};

/// Made, started and stopped by the session on the main thread; events are handled and callbacks called on
/// the watcher's own serial queue. Callbacks only post: one that blocks stalls all further events.
class FileWatcher {
public:
    FileWatcher(const FilePath& root, Seconds debounce, Seconds ignoreWindow, FileEventSource& source,
                Background& background, Clock& clock);
    ~FileWatcher();
    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;

    // Set before start()
    std::function<void(std::vector<FileChange>)> onChange;
    std::function<void()> onRescanRequired;
    std::function<void()> onTrashChange;
    /// Also those of files that came and went within one window, for one who may know the path from
    /// elsewhere: a file that a sync service puts in another's place is as young as a new one.
    bool tellsEveryDeletion = false;

    /// Throws FileWatchError. A resume id from the future counts as none.
    void start(std::optional<std::uint64_t> sinceEventID);
    /// No callback is under way when it returns, unless called from one.
    void stop();
    /// The resume id to store: everything up to it was handed over.
    std::uint64_t lastEventID() const;
    /// A file that this application is about to write: its events are dropped for the ignore window.
    void ignore(const FilePath& path);

    /// The path with links resolved as far as it exists.
    static FilePath realPath(const FilePath& path);

    /// What the event stream calls; public for sources of other kinds and tests. On the watcher's queue.
    void handle(const std::vector<RawEvent>& events);

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace vesk
