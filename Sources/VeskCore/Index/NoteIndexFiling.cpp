// The organiser's tables: what was decided, and a vector for each whole note.
#include <algorithm>
#include <unordered_map>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/PathText.h"

namespace vesk {

namespace {

constexpr std::size_t pathsAtOnce = 500;
constexpr int notesAtOnce = 500;

/// Calls `body` with "?, ?, …)" and the paths that stand for it, a few hundred at a time.
void inPieces(const std::vector<std::string>& paths,
              const std::function<void(const std::string& places, SQLBindings bound)>& body) {
    for (std::size_t from = 0; from < paths.size(); from += pathsAtOnce) {
        const auto to = std::min(from + pathsAtOnce, paths.size());
        std::string places;
        SQLBindings bound;
        for (auto at = from; at < to; ++at) {
            places += at == from ? "?" : ", ?";
            bound.push_back(SQLValue::text(paths[at]));
        }
        body(places + ")", std::move(bound));
    }
}

std::vector<std::string> pathsOf(const std::vector<const FilingLedgerKey*>& keys) {
    std::set<std::string> paths;
    for (const auto* key : keys) paths.insert(key->path);
    return {paths.begin(), paths.end()};
}

}  // namespace

std::map<FilingLedgerKey, FilingDecision> NoteIndex::lookup(const std::vector<FilingLedgerKey>& keys) const {
    std::map<std::pair<std::string_view, std::string_view>, std::vector<const FilingLedgerKey*>> groups;
    for (const auto& key : keys) groups[{key.targetsHash, key.modelKey}].push_back(&key);
    std::map<FilingLedgerKey, FilingDecision> found;
    for (const auto& [shared, group] : groups) {
        std::set<std::pair<std::string_view, std::string_view>> wanted;
        for (const auto* key : group) wanted.emplace(key->path, key->contentHash);
        inPieces(pathsOf(group), [&, &of = shared](const std::string& places, SQLBindings bound) {
            bound.insert(bound.begin(), {SQLValue::text(of.first), SQLValue::text(of.second)});
            query(
                "SELECT note_path, content_hash, verdict, target, tier, reason, applied\n"
                "FROM filing_decisions\n"
                "WHERE targets_hash = ? AND model_key = ? AND note_path IN (" +
                    places,
                bound, [&](const Row& row) {
                    if (!wanted.contains({row.textView(0), row.textView(1)})) return;
                    FilingDecision decision;
                    const auto tier = filingTier(row.textView(4));
                    if (row.textView(2) == "filed" && !row.isNull(3) && tier) {
                        decision.verdict = FilingDecision::Filed{row.text(3), *tier};
                    } else if (row.textView(2) == "declined") {
                        decision.verdict = FilingDecision::Declined{row.text(5)};
                    } else {
                        return;
                    }
                    decision.fromCache = true;
                    if (!row.isNull(6)) decision.appliedTo = row.text(3);
                    found.insert_or_assign(
                        {row.text(0), row.text(1), std::string(of.first), std::string(of.second)},
                        std::move(decision));
                });
        });
    }
    return found;
}

void NoteIndex::record(const Entries& entries) {
    transaction([&] {
        for (const auto& [key, decision] : entries) {
            const auto* filed = std::get_if<FilingDecision::Filed>(&decision.verdict);
            const auto* declined = std::get_if<FilingDecision::Declined>(&decision.verdict);
            run("INSERT OR REPLACE INTO filing_decisions\n"
                "    (note_path, content_hash, targets_hash, model_key, verdict, target, tier, reason, "
                "decided, applied)\n"
                "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, NULL)",
                {SQLValue::text(key.path), SQLValue::text(key.contentHash), SQLValue::text(key.targetsHash),
                 SQLValue::text(key.modelKey), SQLValue::text(filed ? "filed" : "declined"),
                 filed ? SQLValue::text(filed->folder) : SQLValue::null(),
                 filed ? SQLValue::text(rawValue(filed->tier)) : SQLValue::null(),
                 declined ? SQLValue::text(declined->reason) : SQLValue::null(),
                 SQLValue::real(secondsSince1970(clock_.now()))});
        }
    });
}

void NoteIndex::markApplied(const std::map<std::string, std::string>& moves, std::string_view modelKey) {
    transaction([&] {
        for (const auto& [from, to] : moves) {
            if (from == to) continue;
            run("DELETE FROM filing_decisions WHERE note_path = ? AND model_key = ?",
                {SQLValue::text(to), SQLValue::text(modelKey)});
            run("UPDATE filing_decisions SET note_path = ?, target = ?, applied = ?\n"
                "WHERE note_path = ? AND model_key = ?",
                {SQLValue::text(to), SQLValue::text(parentFolder(to)),
                 SQLValue::real(secondsSince1970(clock_.now())), SQLValue::text(from),
                 SQLValue::text(modelKey)});
        }
    });
}

void NoteIndex::forgetDecisions(const std::vector<std::string>& paths, std::string_view modelKey) {
    transaction([&] {
        inPieces(paths, [&](const std::string& places, SQLBindings bound) {
            bound.insert(bound.begin(), SQLValue::text(modelKey));
            run("DELETE FROM filing_decisions WHERE model_key = ? AND note_path IN (" + places, bound);
        });
    });
}

std::set<std::string> NoteIndex::userPlaced(const std::vector<FilingLedgerKey>& keys) const {
    std::vector<const FilingLedgerKey*> all;
    std::set<std::pair<std::string_view, std::string_view>> wanted;
    for (const auto& key : keys) {
        all.push_back(&key);
        wanted.emplace(key.path, key.contentHash);
    }
    std::set<std::string> placed;
    inPieces(pathsOf(all), [&](const std::string& places, const SQLBindings& bound) {
        query(
            "SELECT note_path, content_hash FROM filing_decisions\n"
            "WHERE applied IS NOT NULL AND note_path IN (" +
                places,
            bound, [&](const Row& row) {
                if (wanted.contains({row.textView(0), row.textView(1)})) placed.insert(row.text(0));
            });
    });
    return placed;
}

void NoteIndex::noteTexts(
    const std::function<void(const std::string& path, const std::string& name, const std::string& hash,
                             std::string_view body)>& note) const {
    std::string last;
    for (int count = notesAtOnce; count == notesAtOnce;) {
        count = 0;
        query(
            "SELECT n.relative_path, n.name, n.content_hash, t.body\n"
            "FROM notes n JOIN note_text t ON t.note_path = n.relative_path\n"
            "WHERE " +
                Vault::sqlIsNote("n.relative_path") +
                " AND n.relative_path > ?\nORDER BY n.relative_path\nLIMIT ?",
            {SQLValue::text(last), SQLValue::integer(notesAtOnce)}, [&](const Row& row) {
                ++count;
                last = row.text(0);
                note(last, row.text(1), row.text(2), row.textView(3));
            });
    }
}

std::optional<std::vector<float>> NoteIndex::noteVector(std::string_view path, std::string_view hash,
                                                        std::string_view provider) const {
    std::optional<std::vector<float>> vector;
    query("SELECT vector FROM note_vectors WHERE note_path = ? AND content_hash = ? AND embed_provider = ?",
          {SQLValue::text(path), SQLValue::text(hash), SQLValue::text(provider)},
          [&](const Row& row) { vector = VectorBlob::decode(row.blob(0)); });
    return vector;
}

void NoteIndex::storeNoteVectors(const std::vector<NoteVector>& vectors, std::string_view provider) {
    transaction([&] {
        for (const auto& one : vectors) {
            run("INSERT OR REPLACE INTO note_vectors (note_path, content_hash, embed_provider, vector) "
                "VALUES (?, ?, ?, ?)",
                {SQLValue::text(one.path), SQLValue::text(one.contentHash), SQLValue::text(provider),
                 SQLValue::blob(VectorBlob::encode(one.vector))});
            run("DELETE FROM note_vectors WHERE note_path = ? AND embed_provider = ? AND content_hash != ?",
                {SQLValue::text(one.path), SQLValue::text(provider), SQLValue::text(one.contentHash)});
        }
    });
}

std::vector<std::vector<float>> NoteIndex::chunkVectors(std::string_view path) const {
    std::vector<std::vector<float>> vectors;
    query("SELECT vector FROM chunks WHERE note_path = ? AND vector IS NOT NULL ORDER BY ordinal",
          {SQLValue::text(path)},
          [&](const Row& row) { vectors.push_back(VectorBlob::decode(row.blob(0))); });
    return vectors;
}

bool NoteIndex::hasChunkVectors() const {
    bool has = false;
    query("SELECT 1 FROM chunks WHERE vector IS NOT NULL LIMIT 1", {}, [&](const Row&) { has = true; });
    return has;
}

}  // namespace vesk
