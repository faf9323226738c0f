// The session's index as a whole: full reindexes, the embedding backfill and the status line.
#include <algorithm>
#include <utility>

#include "Vesk/SessionTasks.h"
#include "VeskCore/Index/EmbeddingBackfill.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Vault/VaultWalk.h"

namespace vesk {

namespace {

/// Progress is shown in steps of this, not for every one of a hundred thousand notes.
constexpr double progressStep = 0.005;

}  // namespace

void VaultSession::rebuildIndex(std::function<void()> done) {
    if (tasks_->stopped) return;
    auto& waiting = tasks_->reindex ? tasks_->nextReindexDone : tasks_->reindexDone;
    if (done) waiting.push_back(std::move(done));
    if (tasks_->reindex) {
        tasks_->reindexAgain = true;
    } else {
        beginReindex();
    }
}

void VaultSession::rebuildAfterBulkChange() {
    postTo(services_.mainQueue, weak_from_this(), [](VaultSession& session) { session.rebuildIndex(); });
}

void VaultSession::beginReindex() {
    tasks_->pendingPoll.cancel();
    indexing.set(true);
    indexProgress.set(0);
    tasks_->statusShowsCounts = false;
    status.set("Indexing…");
    tasks_->reindex = services_.background.run(
        Priority::utility, [&mainQueue = services_.mainQueue, weak = weak_from_this(), index = index_,
                            vault = vault_](std::stop_token stop) {
            double shown = 0;
            const auto progress = [&](const IndexProgress& now) {
                const double part = now.total < 1 ? 1.0 : static_cast<double>(now.completed) / now.total;
                if (part < shown + progressStep && part < 1.0) return;
                shown = part;
                postTo(mainQueue, weak, [part](VaultSession& session) {
                    if (session.indexing) session.indexProgress.set(part);
                });
            };
            std::optional<ReindexSummary> summary;
            try {
                summary = index->fullReindex(vault, progress, stop);
            } catch (const std::exception&) {  // told in the status line
            }
            postTo(mainQueue, weak, [summary = std::move(summary)](VaultSession& session) mutable {
                session.reindexEnded(std::move(summary));
            });
        });
}

void VaultSession::reindexEnded(std::optional<ReindexSummary> summary) {
    tasks_->reindex = {};
    if (tasks_->stopped) return;
    payIndex();
    indexing.set(false);
    indexProgress.set(1.0);
    refreshReminders(true);
    if (summary) {
        pendingDownload.set(std::move(summary->pending));
        pendingDocuments.set(std::move(summary->pendingDocuments));
        tasks_->reindexedCount = summary->indexed + summary->unchanged;
        tasks_->statusShowsCounts = true;
        refreshStatusLine();
        startPendingPoll();
    } else {
        status.set(localised("Indexing failed — search will be incomplete"));
    }
    startEmbeddingBackfill();

    for (const auto& done : std::exchange(tasks_->reindexDone, {})) done();
    if (!std::exchange(tasks_->reindexAgain, false) || tasks_->stopped || tasks_->reindex) return;
    tasks_->reindexDone = std::exchange(tasks_->nextReindexDone, {});
    beginReindex();
}

void VaultSession::refreshStatusLine() {
    if (!tasks_->statusShowsCounts || indexing) return;
    const std::size_t notes = listedNotes_ ? VaultWalk::countedNotes(*listedNotes_, pendingDownload.get())
                                           : static_cast<std::size_t>(tasks_->reindexedCount);
    std::string line = localised("{} notes", notes);
    if (const auto pages = tasks_->listedPages.size(); pages > 0) {
        line += " · " + localisedCount("{} page", "{} pages", pages, pages);
    }
    if (!pendingDownload->empty()) line += " · " + localised("{} waiting on iCloud", pendingDownload->size());
    line += " · " + localised(displayName(vault_.provider()));
    if (tasks_->reEmbedding) line += " · " + localised("re-embedding");
    status.set(std::move(line));
}

void VaultSession::setListedNotes(std::vector<std::string> paths) {
    listedNotes_ = std::move(paths);
    refreshStatusLine();
}

void VaultSession::documentListReloaded(const std::vector<VaultDocument>& documents) {
    std::vector<std::string> pages;
    for (const auto& document : documents) {
        if (document.kind == IndexedKind::page) pages.push_back(document.relativePath);
    }
    if (pages == tasks_->listedPages) return;
    tasks_->listedPages = std::move(pages);
    refreshStatusLine();
}

void VaultSession::refreshReminders(bool force) {
    if (isIndexBusy()) return;  // read when the reindex has ended
    try {
        auto found = index_->reminders(services_.calendar(), services_.clock.now());
        if (force) {
            reminders.set(std::move(found));
        } else {
            reminders.setIfChanged(std::move(found));
        }
    } catch (const Error&) {  // a closed or damaged index: the next reindex mends it
    }
    refreshFlagged();
}

void VaultSession::refreshFlagged() {
    try {
        flaggedNotes.setIfChanged(index_->flaggedNotes());
    } catch (const Error&) {  // as above
    }
}

void VaultSession::startEmbeddingBackfill() {
    const auto number = tasks_->embedding.restart();
    if (tasks_->stopped || !embedder_->isConfigured()) return;
    const auto provider = embedder_->id();
    try {
        if (index_->embeddingProviderChanged(provider)) {
            tasks_->reEmbedding = true;
            refreshStatusLine();
        }
    } catch (const Error&) {  // the backfill finds out
    }
    tasks_->embedding.job = services_.background.run(
        Priority::background, [&mainQueue = services_.mainQueue, weak = weak_from_this(), index = index_,
                               embedder = embedder_, number](std::stop_token stop) {
            try {
                EmbeddingBackfill::run(*index, *embedder, stop, [&](int count) {
                    postTo(mainQueue, weak, [count](VaultSession& session) {
                        session.embeddedChunks.set(session.embeddedChunks + count);
                    });
                });
            } catch (const std::exception&) {  // the next start of the backfill goes on from here
            }
            postTo(mainQueue, weak, [number](VaultSession& session) { session.embeddingEnded(number); });
        });
}

void VaultSession::embeddingEnded(std::uint64_t number) {
    if (tasks_->stopped || number != tasks_->embedding.number) return;
    tasks_->reEmbedding = false;
    refreshStatusLine();
}

}  // namespace vesk
