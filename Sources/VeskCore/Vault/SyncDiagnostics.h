// A report of what the sync machinery has been doing, as plain text. Values; pure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Vault/FolderAsk.h"
#include "VeskCore/Vault/SyncLog.h"
#include "VeskCore/Vault/VaultFolderPresenter.h"

namespace vesk {

struct SyncDiagnostics {
    struct Switches {
        FolderAskMode asks = FolderAskMode::off;
        bool presenter = false, watcher = false;
    };
    struct Presenter {
        std::map<std::string, int> callbacks;  ///< by kind of event
        int echoes = 0, unchanged = 0, ignored = 0;
    };
    struct Asks {
        int count = 0, timedOut = 0, cancelled = 0, failed = 0;
        double longestWait = 0;  ///< seconds
        int revealed = 0;
        std::optional<std::string> lastRevealed;
        std::optional<TimePoint> lastRevealedAt;

        void add(const std::vector<FolderAsk>& asks, TimePoint at);
        bool operator==(const Asks&) const = default;
    };
    struct Watcher {
        std::optional<bool> started;
        std::optional<TimePoint> startedAt;
        std::optional<double> secondsToGathering;
        int resultCount = 0, updates = 0, added = 0, changed = 0, removed = 0;
        int notListed = 0, downloadRequests = 0, downloadErrors = 0;
    };
    struct Walk {
        std::string trigger;
        TimePoint at;
        double walk = 0, pass = 0;  ///< seconds
        int notes = 0, stubs = 0;
        std::optional<std::int64_t> freeBefore, freeAfter;  ///< bytes
    };
    struct Row {
        std::string label, value;
        bool operator==(const Row&) const = default;
    };
    struct Section {
        std::string id, title;
        std::vector<Row> rows;
        bool operator==(const Section&) const = default;
    };

    TimePoint generatedAt;
    std::string build, system;
    std::optional<std::string> vaultPath;
    std::string provider;
    bool reachesICloud = false;
    Switches switches;
    bool presenterRegistered = false;
    VaultFolderPresenter::Counts presenterCounts;
    Presenter presenter;
    Asks asks;
    Watcher watcher;
    std::map<std::string, int> passes;  ///< by the trigger's raw value
    std::optional<Walk> lastWalk;
    SyncLog log;

    std::vector<Section> sections(std::string_view timeZone) const;
    std::string reportText(std::string_view timeZone) const;
};

}  // namespace vesk
