// Hears the system's pushes about the vault's folder.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "VeskCore/Platform/FolderCoordination.h"

namespace vesk {

/// registerPresenter() runs on the queue of the asks; events come on the system's queue, and `onEvent` is
/// safe there. No lock is held across a call into the system.
class VaultFolderPresenter {
public:
    struct Counts {
        int registered = 0, unregistered = 0, registerTimeouts = 0, events = 0;
        bool operator==(const Counts&) const = default;
    };

    /// `presenting` outlives the presenter.
    VaultFolderPresenter(FilePath root, FolderPresenting& presenting,
                         std::function<void(const PresenterEvent&)> onEvent);
    ~VaultFolderPresenter();
    VaultFolderPresenter(const VaultFolderPresenter&) = delete;
    VaultFolderPresenter& operator=(const VaultFolderPresenter&) = delete;

    /// False for an outdated ticket and after a timeout.
    bool registerPresenter(int ticket, Seconds timeout);
    /// Outdates the ticket; a registration under way takes itself back.
    void unregister();
    Counts currentCounts() const;
    int registrationTicket() const;
    bool isAdded() const;
    FilePath root() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace vesk
