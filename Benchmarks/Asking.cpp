// From a question to the request that is ready to go out, beside a bare search for the same words, and each
// piece of the way.
//
// usage: vesk-asking FOLDER      a vault, as vesk-generate makes one. Its index is made anew in
// FOLDER/.index,
//                                with random vectors: what they say doesn't matter here.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Brain/AnthropicProvider.h"
#include "VeskCore/Brain/VaultContextPacker.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Text.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/SentenceModel/SentenceModelSource.h"

namespace {

using namespace vesk;
using Times = std::vector<double>;  // milliseconds

constexpr int questions = 40;
constexpr auto patience = std::chrono::minutes(10);

class NoEvents final : public FileEventSource {
public:
    std::uint64_t currentEventID(const FilePath&) override { return 0; }
    std::unique_ptr<FileEventStream> stream(const FilePath&, std::uint64_t, SerialQueue&,
                                            std::function<void(std::vector<RawEvent>)>) override {
        return nullptr;
    }
};

class NoDefaults final : public UserDefaults {
public:
    std::optional<Json> value(std::string_view) const override { return {}; }
    void set(std::string_view, Json) override {}
    void remove(std::string_view) override {}
};

double now(const Clock& clock) {
    return std::chrono::duration<double, std::milli>(clock.monotonic()).count();
}

/// Notes when a request was ready, as the bytes that go on the wire.
class ReadyRequest final : public BrainProvider {
public:
    explicit ReadyRequest(const Clock& clock) : clock_(clock) {}
    BrainProviderID id() const override { return BrainProviderID::anthropic; }
    std::string displayName() const override { return "Stand-in"; }
    bool isConfigured() const override { return true; }
    std::vector<BrainModel> models() const override {
        return {{.id = "claude-haiku-4-5",
                 .displayName = "Stand-in",
                 .contextWindow = 200'000,
                 .maxOutput = 8'000,
                 .inputPricePerMTok = {},
                 .outputPricePerMTok = {},
                 .note = {}}};
    }
    void stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                std::stop_token) const override {
        bytes = AnthropicProvider::body(request, model, {}).dump().size();
        ready = now(clock_);
        sink({BrainEvent::Text{"Yes."}});
        sink({BrainEvent::Done{"end_turn"}});
    }
    mutable std::size_t bytes = 0;
    mutable double ready = 0;

private:
    const Clock& clock_;
};

double median(Times times) {
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2),
                     times.end());
    return times[times.size() / 2];
}

void print(std::string_view name, const Times& times, const Times& search) {
    fmt::print("{:<44} {:9.2f} ms {:7.2f} × the bare search, {:.2f} ms at worst\n", name, median(times),
               median(times) / median(search), *std::max_element(times.begin(), times.end()));
}

void giveVectors(NoteIndex& index, const LocalEmbedding& embedder) {
    std::mt19937 random(1);
    std::normal_distribution<float> part;
    for (auto chunks = index.chunksNeedingEmbedding(embedder.id(), 1000); !chunks.empty();
         chunks = index.chunksNeedingEmbedding(embedder.id(), 1000)) {
        std::vector<ChunkEmbedding> made;
        for (const auto& chunk : chunks) {
            std::vector<float> vector(static_cast<std::size_t>(embedder.dimensions()));
            for (auto& one : vector) one = part(random);
            made.push_back({chunk.notePath, chunk.ordinal, std::move(vector)});
        }
        index.storeEmbeddings(made, embedder.id());
    }
}

/// Questions in words of the vault: a few from here and there in its passages.
std::vector<std::string> wordsOf(const NoteIndex& index) {
    std::vector<std::string> asked;
    const auto notes = index.noteCount();
    for (int i = 0; i < questions; ++i) {
        index.query("SELECT body FROM note_text LIMIT 1 OFFSET ?", {SQLValue{notes * i / questions}},
                    [&](const Row& row) {
                        const std::string body = row.text(0);
                        const auto words = splitWords(body, " \n\t#[]-*:,.");
                        std::string question = "what about";
                        for (std::size_t k = 1; k <= 4 && !words.empty(); ++k)
                            question += " " + std::string(words[words.size() * k / 5]);
                        asked.push_back(question);
                    });
    }
    return asked;
}

void measure(const FilePath& folder) {
    SystemClock clock;
    NoEvents events;
    NoDefaults defaults;
    NoFileVersions versions;
    SentenceModelSource model;
    RunLoop loop;
    ThreadPool pool(4);  // its jobs borrow what stands above
    const auto session = VaultSession::make(Vault(folder), {.clock = clock,
                                                            .mainQueue = loop,
                                                            .background = pool,
                                                            .log = NullLog::shared(),
                                                            .defaults = defaults,
                                                            .fileEvents = events,
                                                            .fileVersions = versions,
                                                            .embeddings = model,
                                                            .calendar = Calendar::system()});
    bool indexed = false;
    session->rebuildIndex([&] { indexed = true; });
    loop.runUntil([&] { return indexed; }, patience);
    LocalEmbedding& embedder = session->embedder();
    if (embedder.isConfigured()) {
        giveVectors(session->index(), embedder);
    } else {
        fmt::print("without the sentence model: run scripts/sentence-model\n");
    }
    fmt::print("{} notes, {} passages with vectors\n", session->index().noteCount(),
               session->index().embeddedChunkCount());

    const auto provider = std::make_shared<ReadyRequest>(clock);
    const auto brain = BrainSession::make({.clock = clock,
                                           .mainQueue = loop,
                                           .background = pool,
                                           .defaults = defaults,
                                           .providers = {.options = [&]() -> std::vector<ProviderOption> {
                                                             return {{.providerID = provider->id(),
                                                                      .provider = provider,
                                                                      .isReady = true,
                                                                      .blockedReason = {},
                                                                      .models = provider->models()}};
                                                         },
                                                         .probe = [](const std::stop_token&) {}},
                                           .flushPendingSaves = [] {}});
    brain->attach(session);
    loop.runUntil([&] { return !brain->discovering.get() && brain->canAsk(); }, patience);

    const auto asked = wordsOf(session->index());
    const auto access = session->searchAccess();
    const int budget = VaultContextPacker::budget(200'000, 8'000);
    Times search, embedding, passages, asking;
    std::size_t bytes = 0;
    // The first question of each kind warms the caches and isn't counted.
    for (std::size_t i = 0; i <= asked.size(); ++i) {
        const auto& question = asked[i == 0 ? 0 : i - 1];
        double start = now(clock);
        bool found = false;
        session->searchNotes(question, 30, [&](const auto&) { found = true; });
        loop.runUntil([&] { return found; }, patience);
        const double searched = now(clock) - start;
        start = now(clock);
        std::vector<float> vector;
        if (embedder.isConfigured()) vector = embedder.embed({question}, {}).front();
        const double embedded = now(clock) - start;
        start = now(clock);
        access.search->retrieveSync(question, vector, budget / 100);
        const double retrieved = now(clock) - start;
        brain->clear();
        start = now(clock);
        brain->ask(question, {});
        loop.runUntil([&] { return !brain->isStreaming.get(); }, patience);
        const double ready = provider->ready - start;
        bytes = std::max(bytes, provider->bytes);
        if (i == 0) continue;
        search.push_back(searched);
        embedding.push_back(embedded);
        passages.push_back(retrieved);
        asking.push_back(ready);
    }
    print("search, by words and meaning", search, search);
    print("  of this the question's vector", embedding, search);
    print("the passages that fit a window of 200,000", passages, search);
    print("question to the request, ready to go out", asking, search);
    fmt::print("the largest request: {} bytes\n", bytes);
    session->stop();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fmt::print(stderr, "usage: vesk-asking FOLDER\n");
        return 2;
    }
    LinuxFileSystem files;
    PlainCoordination coordination;
    NoUbiquity ubiquity;
    FilePlatformInstallation installation(
        {.files = &files, .coordination = &coordination, .ubiquity = &ubiquity});
    ::setenv("XDG_DATA_HOME", (FilePath(argv[1]) / ".index").c_str(), 1);
    try {
        measure(argv[1]);
    } catch (const std::exception&) {
        fmt::print(stderr, "vesk-asking: {}\n", describe(std::current_exception()));
        return 1;
    }
    return 0;
}
