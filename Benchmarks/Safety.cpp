// A save from the call to its return, beside the least that a durable save can be; and the events that the
// watcher takes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Vesk/VaultSession.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace {

using namespace vesk;
namespace fs = std::filesystem;

std::string noteText(int turn) {
    std::string text = "# A note\n\n";
    while (text.size() < 4000) text += "The fox rests by the [[River bank]] until the evening comes.\n";
    return text + std::to_string(turn) + "\n";
}

/// A vault of its own on the disk of the current folder, where a sync costs what it costs a user.
class Scratch {
public:
    Scratch() : path(fs::current_path() / "vesk-bench-vault") {
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~Scratch() { fs::remove_all(path); }
    fs::path path;
};

void BareSave(benchmark::State& state) {
    const Scratch scratch;
    const auto target = (scratch.path / "a.md").string(), temporary = (scratch.path / "a.tmp").string();
    int turn = 0;
    for (auto _ : state) {
        const auto text = noteText(++turn);
        const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
        if (::write(file, text.data(), text.size()) < 0 || ::fsync(file) != 0) state.SkipWithError("write");
        ::close(file);
        std::rename(temporary.c_str(), target.c_str());
        const int folder = ::open(scratch.path.c_str(), O_RDONLY | O_DIRECTORY);
        ::fsync(folder);
        ::close(folder);
    }
}
BENCHMARK(BareSave)->Unit(benchmark::kMicrosecond);

void ReplaceText(benchmark::State& state) {
    const Scratch scratch;
    const FilePath target = scratch.path / "a.md";
    auto held = noteText(0);
    AtomicWrite::createText(target, held);
    int turn = 0;
    for (auto _ : state) {
        auto text = noteText(++turn);
        AtomicWrite::replaceText(target, text, held);
        held = std::move(text);
    }
}
BENCHMARK(ReplaceText)->Unit(benchmark::kMicrosecond);

/// No events: what is measured is the call.
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

void SaveInASession(benchmark::State& state) {
    const Scratch scratch;
    for (int i = 0; i < 1000; ++i)
        std::ofstream(scratch.path / ("Note " + std::to_string(i) + ".md")) << noteText(i);
    ::setenv("XDG_DATA_HOME", (scratch.path / ".data").c_str(), 1);
    SystemClock clock;
    NoEvents events;
    NoDefaults defaults;
    NoSentenceEmbeddings embeddings;
    NoFileVersions versions;
    RunLoop loop;
    ThreadPool pool(2);  // its jobs borrow what stands above
    const auto session = VaultSession::make(Vault(scratch.path), {.clock = clock,
                                                                  .mainQueue = loop,
                                                                  .background = pool,
                                                                  .log = NullLog::shared(),
                                                                  .defaults = defaults,
                                                                  .fileEvents = events,
                                                                  .fileVersions = versions,
                                                                  .embeddings = embeddings,
                                                                  .calendar = Calendar::system});
    bool indexed = false;
    session->rebuildIndex([&] { indexed = true; });
    loop.runUntil([&] { return indexed; }, std::chrono::minutes(1));
    auto held = noteText(7);
    int turn = 0;
    for (auto _ : state) {
        auto text = noteText(++turn);
        session->saveEditorText(text, "Note 7.md", held, true);
        held = std::move(text);
    }
    session->stop();
}
BENCHMARK(SaveInASession)->Unit(benchmark::kMicrosecond);

void WatcherEvents(benchmark::State& state) {
    const Scratch scratch;
    SystemClock clock;
    ThreadPool pool(2);
    NoEvents source;
    FileWatcher watcher(scratch.path, Seconds{0.3}, Seconds{2.0}, source, pool, clock);
    std::vector<RawEvent> events;
    for (std::uint64_t i = 0; i < 10'000; ++i) {
        events.push_back(
            {.path = (scratch.path / ("Folder/Note " + std::to_string(i % 2000) + ".md")).native(),
             .fileID = i % 2000 + 1,
             .flags = FileEventFlag::itemModified | FileEventFlag::itemIsFile,
             .id = i + 1});
    }
    for (auto _ : state) watcher.handle(events);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(events.size()));
}
BENCHMARK(WatcherEvents)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    LinuxFileSystem files;
    PlainCoordination coordination;
    NoUbiquity ubiquity;
    FilePlatformInstallation installation(
        {.files = &files, .coordination = &coordination, .ubiquity = &ubiquity});
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
