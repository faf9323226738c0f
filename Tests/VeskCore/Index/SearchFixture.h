// An index over a few notes that a test writes, with or without FTS5, and the engine that searches it.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Support/Fakes.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {

class SearchFixture {
public:
    explicit SearchFixture(KeywordBackend backend = KeywordBackend::fts5) {
        const auto file = platform.vaultFolder / "index.sqlite";
        if (backend == KeywordBackend::likeScan) takeNamesOfFullText(file);
        index = std::make_unique<NoteIndex>(file, time, log);
        engine = std::make_unique<SearchEngine>(*index, log);
        quietLines = log.lines().size();
    }

    /// Later notes are newer.
    void note(const std::string& path, std::string_view text) {
        const TimePoint when = nextMoment();
        index->reindexText(Note{.relativePath = path,
                                .path = platform.vaultFolder / path,
                                .title = path,
                                .modified = when,
                                .created = when,
                                .size = static_cast<std::int64_t>(text.size())},
                           text);
    }
    void document(const std::string& path, std::string_view text) {
        index->reindex(VaultDocument{.relativePath = path,
                                     .path = platform.vaultFolder / path,
                                     .kind = *Vault::indexedKind(path),
                                     .modified = nextMoment(),
                                     .size = static_cast<std::int64_t>(text.size())},
                       text);
    }
    void embed(const std::string& path, int ordinal, std::vector<float> vector,
               std::string_view provider = "p") {
        index->storeEmbeddings({{.notePath = path, .ordinal = ordinal, .vector = std::move(vector)}},
                               provider);
    }
    /// The log since the index was opened.
    std::vector<std::string> logged() const {
        auto lines = log.lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(quietLines));
        return lines;
    }

    PlatformFixture platform;
    VirtualTime time;
    RecordingLog log;
    std::unique_ptr<NoteIndex> index;
    std::unique_ptr<SearchEngine> engine;

private:
    TimePoint nextMoment() { return timeFromSecondsSince1970(1'700'000'000 + 60 * ++written); }

    /// A table of the name that FTS5 wants for its own data: the full-text table then can't be made.
    static void takeNamesOfFullText(const FilePath& file) {
        sqlite3* database = nullptr;
        sqlite3_open(file.c_str(), &database);
        sqlite3_exec(database, "CREATE TABLE notes_fts_data (id INTEGER)", nullptr, nullptr, nullptr);
        sqlite3_close(database);
    }

    int written = 0;
    std::size_t quietLines = 0;
};

inline std::vector<std::string> paths(const std::vector<SearchHit>& hits) {
    std::vector<std::string> result;
    for (const auto& hit : hits) result.push_back(hit.id());
    return result;
}
inline std::vector<std::string> ids(const std::vector<RetrievedChunk>& chunks) {
    std::vector<std::string> result;
    for (const auto& chunk : chunks) result.push_back(chunk.id());
    return result;
}
/// The texts under a hit's ranges.
inline std::vector<std::string> marked(std::string_view text, const std::vector<TextRange>& ranges) {
    const std::u16string units = utf16(text);
    std::vector<std::string> result;
    for (const auto& range : ranges) {
        result.push_back(range.end() <= units.size() ? utf8(units.substr(range.location, range.length))
                                                     : "outside");
    }
    return result;
}

using Strings = std::vector<std::string>;

}  // namespace vesk::test
