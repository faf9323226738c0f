// What a provider with file coordination gives beyond single files: asking it to look at a folder, and
// hearing from it. Where there is no such provider nothing implements these.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <variant>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// The coordination was cancelled before it was granted.
class CoordinationCancelled : public Error {
public:
    std::string description() const override { return "Cancelled."; }
};

/// One coordination. Used once.
class FolderCoordinator {
public:
    virtual ~FolderCoordinator() = default;
    /// Blocks until the provider has looked at the folder, then runs the body. Throws CoordinationCancelled
    /// after cancel(), else what the provider or the body throws.
    virtual void read(const FilePath& folder, bool metadataOnly, const std::function<void()>& body) = 0;
    /// From any thread; reaches into a read that waits.
    virtual void cancel() = 0;
};

/// What a presenter of the vault's folder is told.
struct PresenterEvent {
    struct SubitemChanged {
        FilePath path;
        bool operator==(const SubitemChanged&) const = default;
    };
    struct SubitemAppeared {
        FilePath path;
        bool operator==(const SubitemAppeared&) const = default;
    };
    struct SubitemMoved {
        FilePath from, to;
        bool operator==(const SubitemMoved&) const = default;
    };
    struct RootUbiquity {
        std::set<std::string> attributes;
        bool operator==(const RootUbiquity&) const = default;
    };
    struct FolderMoved {
        FilePath path;
        bool operator==(const FolderMoved&) const = default;
    };
    struct RootChanged {
        bool operator==(const RootChanged&) const = default;
    };
    struct FolderGoingAway {
        bool operator==(const FolderGoingAway&) const = default;
    };
    std::variant<SubitemChanged, SubitemAppeared, SubitemMoved, RootUbiquity, FolderMoved, RootChanged,
                 FolderGoingAway>
        value = RootChanged{};
    bool operator==(const PresenterEvent&) const = default;

    /// The cases' names, in order.
    static constexpr std::array<std::string_view, 7> kinds = {
        "subitemChanged", "subitemAppeared", "subitemMoved",   "rootUbiquity",
        "folderMoved",    "rootChanged",     "folderGoingAway"};
    std::string_view kind() const { return kinds[value.index()]; }
};

/// Hears of one folder. Events come on a queue of the system's.
class FolderPresenting {
public:
    virtual ~FolderPresenting() = default;
    /// Begins through a coordinator; false if `timeout` passed first. `onEviction` runs for a folder whose
    /// contents leave this device, after its event.
    virtual bool add(const FilePath& root, Seconds timeout,
                     std::function<void(const PresenterEvent&)> onEvent,
                     std::function<void()> onEviction) = 0;
    virtual void remove() = 0;
};

}  // namespace vesk
