// Pieces of Vesk, each beside the least that any program doing the same would have to do, in one run.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/VectorMath.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace {

using namespace vesk;

std::string sampleNote(int paragraphs) {
    std::string text = "---\ntags: [garden, plans]\nstatus: open\n---\n# A note\n\n";
    for (int i = 0; i < paragraphs; ++i) {
        text += "## Section " + std::to_string(i) +
                "\n\nThe quick brown fox jumps over the lazy dog, then rests by the [[River bank]] until the "
                "evening comes "
                "and everybody goes home. It was a **long** day for #foxes and dogs alike, said the "
                "miller.\n\n- [ ] Feed "
                "the fox\n- [x] Walk the dog\n\n";
    }
    return text;
}

void HashText(benchmark::State& state) {
    const auto text = sampleNote(400);
    for (auto _ : state) benchmark::DoNotOptimize(sha256(text));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(HashText);

void ParseAndScan(benchmark::State& state) {
    const auto text = sampleNote(400);
    for (auto _ : state) {
        const FrontmatterDoc doc(text);
        benchmark::DoNotOptimize(MarkdownScanner::scan(doc.body(), true));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(ParseAndScan);

void ExtractPage(benchmark::State& state) {
    std::string page = "<!DOCTYPE html><html><head><title>A page</title></head><body>";
    while (page.size() < 2'000'000) {
        page +=
            "<div class=\"x\"><h2>A heading</h2><p>Some <b>bold</b> words &amp; a <a "
            "href=\"/there\">link</a>.</p><ul><li>one"
            "<li>two</ul></div>\n";
    }
    for (auto _ : state) benchmark::DoNotOptimize(HTMLText::extract(page, true));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(page.size()));
}
BENCHMARK(ExtractPage)->Unit(benchmark::kMillisecond);

std::vector<float> randomVector(std::mt19937& random) {
    std::normal_distribution<float> normal;
    std::vector<float> vector(512);
    for (auto& value : vector) value = normal(random);
    return vector;
}

void CosinePass(benchmark::State& state) {
    std::mt19937 random(1);
    constexpr std::size_t count = 20'000;
    std::vector<float> all;
    for (std::size_t i = 0; i < count; ++i) {
        const auto vector = randomVector(random);
        all.insert(all.end(), vector.begin(), vector.end());
    }
    const auto query = randomVector(random);
    const VectorMath::CosineScan scan(query);
    for (auto _ : state) {
        double best = 0;
        for (std::size_t i = 0; i < count; ++i) best = std::max(best, scan(all.data() + i * 512, 512));
        benchmark::DoNotOptimize(best);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(all.size() * 4));
}
BENCHMARK(CosinePass)->Unit(benchmark::kMillisecond);

/// An index in a folder of its own, with notes and, where asked for, vectors.
class IndexOfNotes {
public:
    explicit IndexOfNotes(int notes, bool withVectors)
        : folder_(std::filesystem::temp_directory_path() / "vesk-bench") {
        std::filesystem::remove_all(folder_);
        index = std::make_unique<NoteIndex>(folder_ / "index.sqlite", clock, NullLog::shared());
        std::mt19937 random(1);
        index->transaction([&] {
            for (int i = 0; i < notes; ++i)
                index->reindexText(note(i), sampleNote(4) + "word" + std::to_string(i));
            if (!withVectors) return;
            for (const auto& chunk : index->chunksNeedingEmbedding("p", notes * 10)) {
                index->storeEmbeddings({{chunk.notePath, chunk.ordinal, randomVector(random)}}, "p");
            }
        });
    }
    ~IndexOfNotes() {
        index.reset();
        std::filesystem::remove_all(folder_);
    }
    Note note(int i) const {
        const auto path = "Folder/Note " + std::to_string(i) + ".md";
        return {.relativePath = path,
                .path = folder_ / path,
                .title = "Note",
                .modified = {},
                .created = {},
                .size = 100};
    }
    std::filesystem::path file() const { return folder_ / "index.sqlite"; }

    SystemClock clock;
    std::unique_ptr<NoteIndex> index;

private:
    std::filesystem::path folder_;
};

void ReindexOneNote(benchmark::State& state) {
    IndexOfNotes notes(5'000, false);
    int turn = 0;
    for (auto _ : state) {
        notes.index->reindexText(notes.note(17), sampleNote(4) + "turn" + std::to_string(++turn));
    }
}
BENCHMARK(ReindexOneNote)->Unit(benchmark::kMicrosecond);

void ReplaceBareFTS5Row(benchmark::State& state) {
    const auto folder = std::filesystem::temp_directory_path() / "vesk-bench-bare";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    sqlite3* database = nullptr;
    sqlite3_open((folder / "bare.sqlite").c_str(), &database);
    const auto run = [&](const std::string& sql) {
        sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
    };
    run("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE VIRTUAL TABLE t USING fts5(title, body, "
        "tokenize='unicode61 remove_diacritics 2'); BEGIN");
    for (int i = 0; i < 5'000; ++i) {
        run("INSERT INTO t(rowid, title, body) VALUES (" + std::to_string(i + 1) + ", 'Note', '" +
            sampleNote(4) + "')");
    }
    run("COMMIT");
    int turn = 0;
    for (auto _ : state) {
        run("REPLACE INTO t(rowid, title, body) VALUES (18, 'Note', '" + sampleNote(4) + "turn" +
            std::to_string(++turn) + "')");
    }
    sqlite3_close(database);
    std::filesystem::remove_all(folder);
}
BENCHMARK(ReplaceBareFTS5Row)->Unit(benchmark::kMicrosecond);

/// One index for the measurements of searches: four passages a note, each with a vector.
IndexOfNotes& searchedNotes() {
    static IndexOfNotes notes(25'000, true);
    return notes;
}

/// Resident memory of this process in MB.
double residentMegabytes() {
    std::ifstream file("/proc/self/statm");
    double all = 0, resident = 0;
    file >> all >> resident;
    return resident * 4096 / 1e6;
}

void SemanticQuery(benchmark::State& state) {
    auto& index = *searchedNotes().index;
    std::mt19937 random(2);
    const auto query = randomVector(random);
    const SearchEngine engine(index, NullLog::shared());
    // The first call reads the table, the second takes the vectors into memory.
    static const double megabytes = [&] {
        benchmark::DoNotOptimize(engine.semantic(query, "p", 30, 0));
        const double before = residentMegabytes();
        benchmark::DoNotOptimize(engine.semantic(query, "p", 30, 0));
        return residentMegabytes() - before;
    }();
    state.counters["MB_for_the_vectors"] = megabytes;
    for (auto _ : state) benchmark::DoNotOptimize(engine.semantic(query, "p", 30, 0));
    state.counters["vectors"] = index.embeddedChunkCount();
}
BENCHMARK(SemanticQuery)->Unit(benchmark::kMillisecond);

/// What a pass over the same vectors can't be faster than: reading as much memory, summed by the compiler's
/// vectors.
void ReadAsMuchMemory(benchmark::State& state) {
    std::vector<std::uint64_t> memory(
        static_cast<std::size_t>(searchedNotes().index->embeddedChunkCount()) * 512 * 2 / 8, 1);
    for (auto _ : state) {
        std::uint64_t sums[8] = {};
        for (std::size_t i = 0; i + 8 <= memory.size(); i += 8) {
            for (std::size_t k = 0; k < 8; ++k) sums[k] += memory[i + k];
        }
        benchmark::DoNotOptimize(sums);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(memory.size() * 8));
}
BENCHMARK(ReadAsMuchMemory)->Unit(benchmark::kMillisecond);

void SemanticQueryThroughTable(benchmark::State& state) {
    std::mt19937 random(2);
    const auto query = randomVector(random);
    for (auto _ : state) {
        state.PauseTiming();
        SystemClock clock;
        const NoteIndex fresh(searchedNotes().file(), clock, NullLog::shared());
        state.ResumeTiming();
        benchmark::DoNotOptimize(fresh.nearestChunks(query, "p", 30, 0));
    }
}
BENCHMARK(SemanticQueryThroughTable)->Unit(benchmark::kMillisecond);

void ReadVectorsThroughSQL(benchmark::State& state) {
    auto& notes = searchedNotes();
    for (auto _ : state) {
        std::size_t sum = 0;
        notes.index->query(
            "SELECT note_path, ordinal, vector FROM chunks WHERE vector IS NOT NULL AND embed_provider = 'p'",
            {}, [&](const Row& row) {
                const auto bytes = row.blob(2);
                for (std::size_t i = 0; i < bytes.size(); i += 64)
                    sum += static_cast<unsigned char>(bytes[i]);
            });
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(ReadVectorsThroughSQL)->Unit(benchmark::kMillisecond);

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
