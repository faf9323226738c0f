// Files that are known but whose bytes are not here yet: looked for again and again.
#include <algorithm>
#include <utility>

#include "Vesk/SessionTasks.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

constexpr auto pollPeriod = std::chrono::duration_cast<Duration>(Seconds{3});
constexpr int documentRounds = 40;

}  // namespace

struct VaultSession::Arrivals {
    std::vector<std::string> indexed, vanished;
    std::set<std::string> documents;
};

void VaultSession::parkPending(const std::string& path) {
    const auto& pending = pendingDownload.get();
    if (std::find(pending.begin(), pending.end(), path) != pending.end()) return;
    pendingDownload.modify([&](auto& paths) { paths.push_back(path); });
    refreshStatusLine();
    startPendingPoll();
}

void VaultSession::removePending(const std::set<std::string>& paths) {
    auto pending = pendingDownload.get();
    std::erase_if(pending, [&](const std::string& path) { return paths.contains(path); });
    pendingDownload.setIfChanged(std::move(pending));
}

void VaultSession::startPendingPoll() {
    const auto number = tasks_->pendingPoll.restart();
    if (tasks_->stopped || pendingDownload->empty()) return;
    tasks_->pendingPoll.timer = services_.mainQueue.postAfter(pollPeriod, [weak = weak_from_this(), number] {
        auto session = weak.lock();
        if (session && session->tasks_->pendingPoll.number == number) session->pendingRound();
    });
}

void VaultSession::pendingRound() {
    if (indexing) return startPendingPoll();
    if (pendingDownload->empty()) return;
    tasks_->pendingPoll.job = services_.background.run(
        Priority::utility,
        [&mainQueue = services_.mainQueue, &clock = services_.clock, weak = weak_from_this(), index = index_,
         vault = vault_, paths = pendingDownload.get(),
         number = tasks_->pendingPoll.number](const std::stop_token& stop) {
            auto arrivals = indexArrivals(paths, vault, *index, clock, stop);
            postTo(mainQueue, weak, [arrivals = std::move(arrivals), number](VaultSession& session) {
                if (session.tasks_->pendingPoll.number == number) session.pendingArrived(arrivals);
            });
        });
}

VaultSession::Arrivals VaultSession::indexArrivals(const std::vector<std::string>& paths, const Vault& vault,
                                                   NoteIndex& index, const Clock& clock,
                                                   const std::stop_token& stop) {
    Arrivals arrivals;
    for (const auto& path : paths) {
        if (stop.stop_requested()) break;
        if (Vault::isDocument(path)) {
            arrivals.documents.insert(path);
            continue;
        }
        try {
            const FilePath file = vault.absolutePath(path);
            if (!vault.isNameTaken(file)) {
                arrivals.vanished.push_back(path);
                index.removeNote(path);
                continue;
            }
            if (const auto state = UbiquityStatus::of(file); needsDownload(state)) {
                if (state == UbiquityState::stale) UbiquityStatus::requestDownload(file);
                continue;
            }
            const auto text = CoordinatedIO::read(file);
            if (!text) continue;
            indexText(index, vault, path, *text, clock.now());
            arrivals.indexed.push_back(path);
        } catch (const std::exception&) {  // looked for again in the next round
        }
    }
    return arrivals;
}

void VaultSession::pendingArrived(const Arrivals& arrivals) {
    if (!arrivals.documents.empty()) {
        removePending(arrivals.documents);
        indexDocuments(arrivals.documents);
    }
    std::set<std::string> settled(arrivals.indexed.begin(), arrivals.indexed.end());
    settled.insert(arrivals.vanished.begin(), arrivals.vanished.end());
    if (!settled.empty()) {
        removePending(settled);
        refreshStatusLine();
        refreshReminders(false);
        notesChanged(arrivals.indexed);
        externalChange();
        if (pendingDownload->empty()) {
            if (!tasks_->stopped && onPendingDrained) onPendingDrained();
            return;
        }
    }
    startPendingPoll();
}

void VaultSession::downloadAllPending() {
    if (tasks_->stopped) return;
    services_.background.run(Priority::utility, [&mainQueue = services_.mainQueue, weak = weak_from_this(),
                                                 root = vault_.root()](const std::stop_token&) {
        auto extensions = Vault::noteExtensions();
        extensions.insert(Vault::documentExtensions().begin(), Vault::documentExtensions().end());
        try {
            UbiquityStatus::materialiseAll(root, extensions);
        } catch (const std::exception&) {  // the polls find what comes all the same
        }
        postTo(mainQueue, weak, [](VaultSession& session) {
            session.startPendingPoll();
            session.startDocumentPoll();
        });
    });
}

void VaultSession::startDocumentPoll() {
    tasks_->documentPoll.restart();
    if (!tasks_->stopped) documentRound();
}

void VaultSession::documentRound() {
    auto& poll = tasks_->documentPoll;
    if (++poll.round > documentRounds) return;
    poll.timer = services_.mainQueue.postAfter(pollPeriod, [weak = weak_from_this(), number = poll.number] {
        auto session = weak.lock();
        if (!session || session->tasks_->documentPoll.number != number) return;
        if (session->indexing) return session->documentRound();
        if (session->pendingDocuments->empty()) return;
        session->tasks_->documentPoll.job = session->services_.background.run(
            Priority::utility,
            [&mainQueue = session->services_.mainQueue, weak, number, vault = session->vault_,
             paths = session->pendingDocuments.get()](const std::stop_token&) {
                std::set<std::string> here;
                for (const auto& path : paths) {
                    if (!needsDownload(UbiquityStatus::of(vault.absolutePath(path)))) here.insert(path);
                }
                postTo(mainQueue, weak, [here = std::move(here), number](VaultSession& back) {
                    if (back.tasks_->documentPoll.number != number) return;
                    back.indexDocuments(here);
                    back.documentRound();
                });
            });
    });
}

}  // namespace vesk
