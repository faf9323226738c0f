// From a question to the first byte of its request on the wire, beside a bare search for the same words, and
// each piece of the way. A service on the loopback interface hears the requests.
//
// usage: vesk-asking FOLDER      a vault, as vesk-generate makes one. Its index is made anew in
// FOLDER/.index,
//                                with random vectors: what they say doesn't matter here.
#include <fmt/core.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <thread>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Brain/AnthropicProvider.h"
#include "VeskCore/Brain/VaultContextPacker.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Text.h"
#include "VeskLinux/Cld2LanguageRecogniser.h"
#include "VeskLinux/CurlTransport.h"
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

/// Takes one request after the other, notes when its first byte came, and says yes.
class HearingService {
public:
    explicit HearingService(const Clock& clock) : clock_(clock) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(listener_, generic, length) != 0 || ::listen(listener_, 4) != 0 ||
            ::getsockname(listener_, generic, &length) != 0) {
            throw std::runtime_error("no loopback socket");
        }
        port = ntohs(address.sin_port);
        thread_ = std::jthread([this] { serve(); });
    }
    ~HearingService() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    int port = 0;
    std::atomic<double> firstByte = 0, lastByte = 0;
    std::atomic<std::size_t> bytes = 0;

private:
    void serve() {
        for (int client = 0; (client = ::accept(listener_, nullptr, nullptr)) >= 0; ::close(client)) {
            std::string text;
            std::size_t whole = std::string::npos;
            char buffer[65536];
            while (text.size() < whole) {
                const auto got = ::recv(client, buffer, sizeof buffer, 0);
                if (got <= 0) break;
                if (text.empty()) firstByte = now(clock_);
                text.append(buffer, static_cast<std::size_t>(got));
                const auto headEnd = text.find("\r\n\r\n");
                const auto length = asciiLowercased(text.substr(0, headEnd)).find("content-length: ");
                if (whole == std::string::npos && headEnd != std::string::npos &&
                    length != std::string::npos) {
                    whole = headEnd + 4 + std::strtoul(text.c_str() + length + 16, nullptr, 10);
                }
            }
            lastByte = now(clock_);
            bytes = text.size();
            constexpr std::string_view answer =
                "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n"
                "data: "
                "{\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"Yes.\"}}\n"
                "data: {\"type\":\"message_stop\"}\n";
            (void)!::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
            ::shutdown(client, SHUT_WR);
        }
    }
    const Clock& clock_;
    int listener_ = -1;
    std::jthread thread_;
};

/// One key for every service.
class OneKey final : public SecretStore {
public:
    std::optional<std::string> get(std::string_view, std::string_view) const override { return "key"; }
    void add(std::string_view, std::string_view, std::string_view) override {}
    void remove(std::string_view, std::string_view) override {}
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
    Cld2LanguageRecogniser languages;
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
                                                            .calendar = Calendar::system});
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

    HearingService service(clock);
    CurlTransport transport("127.0.0.1:" + std::to_string(service.port));
    OneKey secrets;
    const auto provider = std::make_shared<AnthropicProvider>(transport, Keychain(secrets));
    constexpr std::string_view asks = "claude-haiku-4-5";
    const auto models = provider->models();
    const auto chosen =
        std::find_if(models.begin(), models.end(), [&](const auto& each) { return each.id == asks; });
    const auto brain = BrainSession::make({.clock = clock,
                                           .mainQueue = loop,
                                           .background = pool,
                                           .defaults = defaults,
                                           .providers = {.options = [&]() -> std::vector<ProviderOption> {
                                                             return {{.providerID = provider->id(),
                                                                      .provider = provider,
                                                                      .isReady = true,
                                                                      .blockedReason = {},
                                                                      .models = {*chosen}}};
                                                         },
                                                         .probe = [](const std::stop_token&) {}},
                                           .embeddings = model,
                                           .languages = languages,
                                           .systemVersion = {},
                                           .flushPendingSaves = [] {}});
    brain->attach(session);
    loop.runUntil([&] { return !brain->discovering.get() && brain->canAsk(); }, patience);

    const auto asked = wordsOf(session->index());
    const auto access = session->searchAccess();
    const int budget = VaultContextPacker::budget(chosen->contextWindow, chosen->maxOutput);
    Times search, embedding, passages, packing, writing, asking, sending;
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
        start = now(clock);
        const auto packed = VaultContextPacker::pack(session->vault(), session->index(), *access.search,
                                                     question, vector, budget);
        const double packedIn = now(clock) - start;
        start = now(clock);
        const BrainRequest request{
            .messages = {{.text = question}}, .maxTokens = 1024, .context = packed.chunks};
        const auto text = AnthropicProvider::body(request, chosen->id, {}).dump(Json::Style::sortedCompact);
        const double written = now(clock) - start;
        brain->clear();
        start = now(clock);
        brain->ask(question, {});
        loop.runUntil([&] { return !brain->isStreaming.get(); }, patience);
        const double begun = service.firstByte - start, sent = service.lastByte - start;
        bytes = std::max<std::size_t>(bytes, service.bytes);
        if (i == 0) continue;
        search.push_back(searched);
        embedding.push_back(embedded);
        passages.push_back(retrieved);
        packing.push_back(packedIn);
        writing.push_back(written);
        asking.push_back(begun);
        sending.push_back(sent);
    }
    print("search, by words and meaning", search, search);
    print("  of this the question's vector", embedding, search);
    print("the passages that fit a window of 200,000", passages, search);
    print("  packed, the budget kept to", packing, search);
    print("  written as the request", writing, search);
    print("question to the first byte on the wire", asking, search);
    print("question to the last byte on the wire", sending, search);
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
