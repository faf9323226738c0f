// A scratch vault with a real index over it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Support/Fakes.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {

class IndexFixture : public ::testing::Test {
protected:
    std::unique_ptr<NoteIndex> open(KeywordBackend best = KeywordBackend::fts5) {
        return std::make_unique<NoteIndex>(vault.indexPath(), time, log, best);
    }
    NoteIndex& index() {
        if (!index_) index_ = open();
        return *index_;
    }
    void closeIndex() { index_.reset(); }

    static Note note(std::string_view path, double modified = 1000) {
        return {.relativePath = std::string(path),
                .path = FilePath("/vault") / path,
                .title = "",
                .modified = timeFromSecondsSince1970(modified),
                .created = timeFromSecondsSince1970(500),
                .size = 7};
    }
    /// Indexes a text that lies on no disk.
    bool add(std::string_view path, std::string_view text) { return index().reindexText(note(path), text); }

    /// The rows of a query, columns joined by "|", NULL as "NULL".
    static std::vector<std::string> rows(const NoteIndex& index, std::string_view sql, int columns) {
        std::vector<std::string> result;
        index.query(sql, {}, [&](const Row& row) {
            std::string line;
            for (int column = 0; column < columns; ++column) {
                if (column > 0) line += '|';
                line += row.isNull(column) ? "NULL" : row.text(column);
            }
            result.push_back(line);
        });
        return result;
    }
    std::vector<std::string> rows(std::string_view sql, int columns = 1) {
        return rows(index(), sql, columns);
    }
    /// Paths whose title or body match an FTS5 expression.
    static std::vector<std::string> matching(const NoteIndex& index, const std::string& expression) {
        return rows(index,
                    "SELECT note_path FROM notes_fts JOIN note_text ON note_text.rowid = notes_fts.rowid "
                    "WHERE notes_fts MATCH '" +
                        expression + "' ORDER BY note_path",
                    1);
    }
    std::vector<std::string> matching(const std::string& expression) { return matching(index(), expression); }

    using Strings = std::vector<std::string>;
    PlatformFixture platform;
    VirtualTime time;
    RecordingLog log;
    Vault vault{platform.vaultFolder.path(), SyncProvider::none};

private:
    std::unique_ptr<NoteIndex> index_;
};

}  // namespace vesk::test
