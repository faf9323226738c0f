#include "Vesk/VaultSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <system_error>
#include <utility>

#include "Vesk/SessionTasks.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr Seconds watcherDebounce{0.3};
constexpr Seconds watcherIgnoreWindow{2.0};

/// Where the watcher's resume point is kept: FNV-1a of the root's bytes, the same in every run.
std::string eventIDKey(const Vault& vault) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char byte : vault.root().native()) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    }
    return fmt::format("vesk.lastEventID.{}", hash);
}

std::optional<std::uint64_t> parsedEventID(const std::optional<std::string>& text) {
    if (!text) return {};
    const char* begin = text->data();
    const char* const end = begin + text->size();
    if (begin != end && *begin == '+') ++begin;
    std::uint64_t id = 0;
    const auto [rest, error] = std::from_chars(begin, end, id);
    if (error != std::errc() || rest != end) return {};
    return id;
}

constexpr int passagesPerNote = 4;  // of a note that several passages bring up
constexpr int everyNote = 1'000'000;

/// The vector of a text; empty without a model or where the model fails.
std::vector<float> vectorOf(LocalEmbedding& embedder, const std::string& text, const std::stop_token& stop) {
    if (!embedder.isConfigured()) return {};
    try {
        auto vectors = embedder.embed({text}, stop);
        if (!vectors.empty()) return std::move(vectors.front());
    } catch (const std::exception&) {  // searched for by its words alone
    }
    return {};
}

/// Notes whose passages mean what the terms say, one hit each. The rest of the query narrows them: a filter
/// has no meaning that a passage could share.
std::vector<SearchHit> foundByMeaning(const SearchEngine& search, LocalEmbedding& embedder,
                                      const std::string& query, int limit, const std::stop_token& stop) {
    auto rest = SearchQuery::parse(query);
    std::string words;
    for (const auto& term : rest.positiveTerms()) words += (words.empty() ? "" : " ") + term.text;
    if (words.empty()) return search.keyword(rest, limit);
    const auto vector = vectorOf(embedder, words, stop);
    std::erase_if(rest.terms, [](const SearchQuery::Term& term) { return !term.isNegated; });
    std::set<std::string> let, seen;
    if (!rest.empty())
        for (auto& hit : search.keyword(rest, everyNote)) let.insert(std::move(hit.notePath));
    const int passages = rest.empty() ? limit * passagesPerNote : everyNote;
    auto hits = search.semantic(vector, embedder.id(), passages, 0);
    std::erase_if(hits, [&](const SearchHit& hit) {
        return !seen.insert(hit.notePath).second || (!rest.empty() && !let.contains(hit.notePath));
    });
    if (hits.size() > static_cast<std::size_t>(limit)) hits.resize(static_cast<std::size_t>(limit));
    return hits;
}

std::vector<SearchHit> found(const SearchEngine& search, LocalEmbedding& embedder, const std::string& query,
                             int limit, SearchHit::Mode mode, const std::stop_token& stop) {
    switch (mode) {
        case SearchHit::Mode::keyword:
            return search.keyword(query, limit);
        case SearchHit::Mode::semantic:
            return foundByMeaning(search, embedder, query, limit, stop);
        case SearchHit::Mode::hybrid:
            break;
    }
    const auto vector = vectorOf(embedder, query, stop);
    const auto provider = vector.empty() ? std::optional<std::string>() : embedder.id();
    return search.hybrid(query, vector, provider, limit);
}

}  // namespace

std::string NewerVersionDownloading::description() const {
    return localised("A newer version of “{}” is still downloading from iCloud.",
                     decodedText(std::string(stem(relativePath))));
}

std::shared_ptr<VaultSession> VaultSession::make(const Vault& vault, const SessionServices& services) {
    vault.ensureSupportDirectory();
    return std::shared_ptr<VaultSession>(new VaultSession(vault, services));
}

VaultSession::VaultSession(const Vault& vault, const SessionServices& services)
    : vault_(vault),
      services_(services),
      index_(std::make_shared<NoteIndex>(vault_, services_.clock, services_.log)),
      search_(std::make_shared<const SearchEngine>(*index_, services_.log)),
      watcher_(std::make_unique<FileWatcher>(vault_.root(), watcherDebounce, watcherIgnoreWindow,
                                             services_.fileEvents, services_.background, services_.clock)),
      embedder_(std::make_shared<LocalEmbedding>("en", services_.embeddings)),
      heldText_(HeldTextStore::directoryFor(vault_.root()), services_.clock),
      documentIndexQueue_(index_, vault_, services_.mainQueue, services_.background),
      tasks_(std::make_unique<Tasks>()) {}

VaultSession::~VaultSession() = default;

void VaultSession::start() {
    wireWatcher();
    recoverHeldText();
    refreshFlagged();
    services_.mainQueue.post([weak = weak_from_this()] {
        if (auto session = weak.lock(); session && !session->tasks_->stopped) session->rebuildIndex();
    });
    refreshConflicts();
    sweepTemporaryFiles();
}

void VaultSession::stop() {
    tasks_->stopped = true;
    tasks_->embedding.cancel();
    tasks_->pendingPoll.cancel();
    tasks_->documentPoll.cancel();
    // One that runs holds the index's lock, which closing needs.
    tasks_->reindex.cancel();
    for (auto& check : tasks_->echoWindowChecks) check.second.cancel();
    tasks_->echoWindowChecks.clear();
    for (auto& wait : tasks_->currentVersionWaits) wait.second.cancel();
    tasks_->currentVersionWaits.clear();
    watcher_->stop();
    services_.defaults.set(eventIDKey(vault_), std::to_string(watcher_->lastEventID()));
    index_->close();
}

void VaultSession::wireWatcher() {
    MainQueue& mainQueue = services_.mainQueue;
    const auto weak = weak_from_this();
    watcher_->onChange = [&mainQueue, weak](std::vector<FileChange> changes) {
        postTo(mainQueue, weak, [changes = std::move(changes)](VaultSession& session) {
            if (!session.tasks_->stopped) session.apply(changes);
        });
    };
    watcher_->onRescanRequired = [&mainQueue, weak] {
        postTo(mainQueue, weak, [weak](VaultSession& session) {
            if (session.tasks_->stopped) return;
            session.rebuildIndex([weak] {
                if (auto rebuilt = weak.lock()) rebuilt->rescanned();
            });
        });
    };
    watcher_->onTrashChange = [&mainQueue, weak] {
        postTo(mainQueue, weak, [](VaultSession& session) { session.externalChange(); });
    };
    watcher_->tellsEveryDeletion = true;  // the index may know the path from its last reindex
    try {
        watcher_->start(parsedEventID(services_.defaults.string(eventIDKey(vault_))));
    } catch (const Error&) {
        // Runs on unwatched: polls and reindexes still find what changed.
    }
}

void VaultSession::rescanned() {
    tasks_->everythingRevision = ++tasks_->revisionCounter;
    publishRevision();
    externalChange();
}

void VaultSession::externalChange() const {
    if (!tasks_->stopped && onExternalChange) onExternalChange();
}

int VaultSession::diskRevisionOf(std::string_view path) const {
    const auto revision = tasks_->noteRevisions.find(path);
    const int own = revision == tasks_->noteRevisions.end() ? 0 : revision->second;
    return std::max(own, tasks_->everythingRevision);
}

void VaultSession::notesChanged(const std::vector<std::string>& paths) {
    if (paths.empty()) return;
    ++tasks_->revisionCounter;
    for (const auto& path : paths) tasks_->noteRevisions.insert_or_assign(path, tasks_->revisionCounter);
    publishRevision();
}

void VaultSession::publishRevision() {
    postTo(services_.mainQueue, weak_from_this(),
           [](VaultSession& session) { session.diskRevision.setIfChanged(session.tasks_->revisionCounter); });
}

void VaultSession::searchNotes(std::string query, int limit, std::function<void(std::vector<SearchHit>)> done,
                               SearchHit::Mode mode) {
    const auto isBlank = [](char byte) { return byte == ' ' || byte == '\t'; };
    const auto weak = weak_from_this();
    if (std::all_of(query.begin(), query.end(), isBlank)) {
        postTo(services_.mainQueue, weak, [done = std::move(done)](VaultSession&) { done({}); });
        return;
    }
    services_.background.run(
        Priority::userInitiated,
        [&mainQueue = services_.mainQueue, weak, index = index_, search = search_, embedder = embedder_,
         query = std::move(query), limit, mode, done = std::move(done)](std::stop_token stop) mutable {
            auto hits = found(*search, *embedder, query, limit, mode, stop);
            postTo(mainQueue, weak, [hits = std::move(hits), done = std::move(done)](VaultSession&) mutable {
                done(std::move(hits));
            });
        });
}

}  // namespace vesk
