#include "VeskCore/Vault/VaultFolderPresenter.h"

#include <utility>

namespace vesk {

struct VaultFolderPresenter::State {
    State(FilePath root, FolderPresenting& system, std::function<void(const PresenterEvent&)> handler)
        : presenting(system), onEvent(std::move(handler)), url(std::move(root)) {}

    FolderPresenting& presenting;
    const std::function<void(const PresenterEvent&)> onEvent;
    mutable std::mutex urlLock;  // guards url
    FilePath url;
    mutable std::mutex stateLock;  // guards what follows
    bool added = false;
    int ticket = 0;
    Counts counts;

    void handle(const PresenterEvent& event) {
        if (const auto* moved = std::get_if<PresenterEvent::FolderMoved>(&event.value)) {
            const std::lock_guard lock(urlLock);
            url = moved->path;
        }
        {
            const std::lock_guard lock(stateLock);
            ++counts.events;
        }
        if (onEvent) onEvent(event);
    }

    void unregister() {
        {
            const std::lock_guard lock(stateLock);
            ++ticket;
            if (!added) return;
            added = false;
            ++counts.unregistered;
        }
        presenting.remove();
    }

    FilePath root() const {
        const std::lock_guard lock(urlLock);
        return url;
    }
};

VaultFolderPresenter::VaultFolderPresenter(FilePath root, FolderPresenting& presenting,
                                           std::function<void(const PresenterEvent&)> onEvent)
    : state_(std::make_shared<State>(std::move(root), presenting, std::move(onEvent))) {}

VaultFolderPresenter::~VaultFolderPresenter() {
    state_->unregister();
}

bool VaultFolderPresenter::registerPresenter(int ticket, Seconds timeout) {
    {
        const std::lock_guard lock(state_->stateLock);
        if (ticket != state_->ticket) return false;
        if (state_->added) return true;
    }
    const std::weak_ptr<State> weak = state_;
    const bool isIn = state_->presenting.add(
        state_->root(), timeout,
        [weak](const PresenterEvent& event) {
            if (const auto state = weak.lock()) state->handle(event);
        },
        [weak] {
            if (const auto state = weak.lock()) state->unregister();
        });
    {
        const std::lock_guard lock(state_->stateLock);
        if (!isIn) {
            ++state_->counts.registerTimeouts;
            return false;
        }
        ++state_->counts.registered;
        if (ticket == state_->ticket) {
            state_->added = true;
            return true;
        }
        ++state_->counts.unregistered;
    }
    state_->presenting.remove();
    return false;
}

void VaultFolderPresenter::unregister() {
    state_->unregister();
}

VaultFolderPresenter::Counts VaultFolderPresenter::currentCounts() const {
    const std::lock_guard lock(state_->stateLock);
    return state_->counts;
}

int VaultFolderPresenter::registrationTicket() const {
    const std::lock_guard lock(state_->stateLock);
    return state_->ticket;
}

bool VaultFolderPresenter::isAdded() const {
    const std::lock_guard lock(state_->stateLock);
    return state_->added;
}

FilePath VaultFolderPresenter::root() const {
    return state_->root();
}

}  // namespace vesk
