// Which folders a pass asks the sync provider about, and for how long. Pure; any thread.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/SyncTrigger.h"

namespace vesk {

struct AskScope {
    struct All {
        int rotation = 0;  ///< where to begin when there are too many folders for one pass
        bool operator==(const All&) const = default;
    };
    /// The folders of these notes.
    struct Containing {
        std::set<std::string> notes;
        bool operator==(const Containing&) const = default;
    };
    struct RootOnly {
        bool operator==(const RootOnly&) const = default;
    };
    std::variant<All, Containing, RootOnly> value = RootOnly{};
    bool operator==(const AskScope&) const = default;
};

struct AskPlan {
    AskScope scope;
    Seconds perFolder{4.0};
    Seconds budget{6.0};

    static AskPlan forTrigger(SyncTrigger trigger, int pollTick, int rotation,
                              const std::set<std::string>& notes);
    bool operator==(const AskPlan&) const = default;
};

/// How many folders one pass asks about.
inline constexpr std::size_t askFolderCap = 64;

/// Relative folders, the root (empty) first.
std::vector<std::string> foldersToAsk(const std::vector<std::string>& folders, const AskScope& scope,
                                      std::size_t cap = askFolderCap);

}  // namespace vesk
