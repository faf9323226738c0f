// Asking the sync provider to look at a folder: a coordinated read, bounded in time.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Platform/FolderCoordination.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Vault/AskPlan.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

enum class FolderAskMode { off, metadataOnly, full };
/// The case's name.
std::string_view rawValue(FolderAskMode mode);

/// The record of one ask.
struct FolderAsk {
    struct Outcome {
        struct Failed {
            std::string reason;
            bool operator==(const Failed&) const = default;
        };
        enum class Plain { done, timedOut, cancelled };
        std::variant<Failed, Plain> value = Plain::done;
        bool operator==(const Outcome&) const = default;
    };

    std::string folder;                 ///< relative, empty for the root
    std::vector<std::string> revealed;  ///< names of notes that came into view
    Seconds waited{0};
    Outcome outcome;

    bool isDone() const { return outcome == Outcome{Outcome::Plain::done}; }
    bool operator==(const FolderAsk&) const = default;
};

/// Ends asks from outside, also one that waits. Any thread.
class AskCancellation {
public:
    explicit AskCancellation(AskClass asks) : triggerClass(asks) {}

    const AskClass triggerClass;
    /// Remembers the coordinator of the ask that begins; false if there is nothing to begin any more.
    bool begin(std::shared_ptr<FolderCoordinator> coordinator);
    void cancel();
    bool cancelled() const;

private:
    mutable std::mutex coordinatorLock_;
    std::shared_ptr<FolderCoordinator> coordinator_;
    bool cancelled_ = false;
};

/// Asks for one vault. At most one read is under way: all run on one serial queue.
class FolderAsker {
public:
    using MakeCoordinator = std::function<std::shared_ptr<FolderCoordinator>()>;

    FolderAsker(Vault vault, MakeCoordinator makeCoordinator, Background& background, Clock& clock);

    /// Asks on the queue; `done` is called there. The asker outlives it.
    void ask(std::vector<std::string> folders, FolderAskMode mode, Seconds perFolder, Seconds budget,
             std::shared_ptr<AskCancellation> cancel, std::function<void(std::vector<FolderAsk>)> done);
    /// On the queue. Nothing outside iCloud Drive. Spends at most `budget`.
    std::vector<FolderAsk> askProvider(const std::vector<std::string>& folders, FolderAskMode mode,
                                       Seconds perFolder, Seconds budget, AskCancellation& cancel);
    FolderAsk askFolder(const std::string& folder, FolderAskMode mode, Seconds limit,
                        AskCancellation& cancel);

private:
    Vault vault_;
    MakeCoordinator makeCoordinator_;
    Clock& clock_;
    std::unique_ptr<SerialQueue> timers_, queue_;
};

}  // namespace vesk
