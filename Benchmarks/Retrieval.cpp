// How well questions find the note that answers them, by keyword, by meaning, by both, and by the assistant's
// retrieval.
//
// usage: vesk-retrieval FOLDER      FOLDER/notes is a vault, FOLDER/questions.tsv has a question, a tab and
// the path of
//                                   its answer in each line. The index is made in FOLDER.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "VeskCore/Index/EmbeddingBackfill.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Text.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/SentenceModel/SentenceModelSource.h"

namespace {

using namespace vesk;
using Ranking = std::vector<std::string>;

constexpr int pool = 30;  // as many as a search fuses
constexpr std::size_t shown = 10;

struct Question {
    std::string text, answer;
};

std::vector<Question> readQuestions(const FilePath& path) {
    std::vector<Question> questions;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (const auto tab = line.find('\t'); tab != line.npos)
            questions.push_back({line.substr(0, tab), line.substr(tab + 1)});
    }
    return questions;
}

/// The notes in order, each once, the first ten.
template <class Hits>
Ranking notes(const Hits& hits) {
    Ranking ranking;
    std::set<std::string> seen;
    for (const auto& hit : hits) {
        if (ranking.size() < shown && seen.insert(hit.notePath).second) ranking.push_back(hit.notePath);
    }
    return ranking;
}

/// Each note's best score, brought to the range from 0 to 1 and added over both lists.
Ranking addedScores(const std::vector<std::vector<SearchHit>>& lists) {
    std::map<std::string, double> sums;
    for (const auto& hits : lists) {
        if (hits.empty()) continue;
        double least = hits.front().score, most = least;
        for (const auto& hit : hits) {
            least = std::min(least, hit.score);
            most = std::max(most, hit.score);
        }
        std::set<std::string> seen;
        for (const auto& hit : hits) {
            if (seen.insert(hit.notePath).second)
                sums[hit.notePath] += most > least ? (hit.score - least) / (most - least) : 1;
        }
    }
    std::vector<std::pair<std::string, double>> sorted(sums.begin(), sums.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    Ranking ranking;
    for (const auto& [path, score] : sorted) {
        if (ranking.size() < shown) ranking.push_back(path);
    }
    return ranking;
}

Ranking reciprocalRanks(const std::vector<std::vector<SearchHit>>& lists) {
    std::vector<std::vector<std::string>> paths;
    for (const auto& hits : lists) {
        auto& list = paths.emplace_back();
        std::set<std::string> seen;
        for (const auto& hit : hits) {
            if (seen.insert(hit.notePath).second) list.push_back(hit.notePath);
        }
    }
    Ranking ranking;
    for (const auto& [path, score] : SearchEngine::reciprocalRankFusion(paths)) {
        if (ranking.size() < shown) ranking.push_back(path);
    }
    return ranking;
}

struct Quality {
    int questions = 0, first = 0, amongFive = 0;
    double reciprocal = 0, gain = 0;
    void count(const Ranking& ranking, const std::string& answer) {
        ++questions;
        const auto found = std::find(ranking.begin(), ranking.end(), answer);
        if (found == ranking.end()) return;
        const auto rank = found - ranking.begin() + 1;
        first += rank == 1;
        amongFive += rank <= 5;
        reciprocal += 1.0 / static_cast<double>(rank);
        gain += 1.0 / std::log2(static_cast<double>(rank) + 1);
    }
    void print(const std::string& name) const {
        fmt::print("{:<44}{:>9.3f}{:>10.3f}{:>8.3f}{:>10.3f}\n", name, share(first), share(amongFive),
                   share(reciprocal), share(gain));
    }

private:
    double share(double value) const { return value / questions; }
};

int measure(const FilePath& folder) {
    SystemClock clock;
    Log& log = NullLog::shared();
    NoteIndex index(folder / "index.sqlite", clock, log);
    const auto summary = index.fullReindex(Vault(folder / "notes"));
    SentenceModelSource source;
    LocalEmbedding embedding("en", source);
    if (!embedding.isConfigured()) {
        fmt::print("{}\n", source.absenceReason("en"));
        return 1;
    }
    EmbeddingBackfill::run(index, embedding, {}, [](int) {});
    const SearchEngine engine(index, log);
    const auto questions = readQuestions(folder / "questions.tsv");

    // In the order they are printed; the first ones are the product's own.
    std::vector<std::pair<std::string, Quality>> results{{"keyword, all words", {}},
                                                         {"keyword, any word", {}},
                                                         {"semantic", {}},
                                                         {"hybrid (all words, reciprocal ranks)", {}},
                                                         {"retrieve", {}},
                                                         {"  all words + semantic, added scores", {}},
                                                         {"  any word + semantic, reciprocal ranks", {}},
                                                         {"  any word + semantic, added scores", {}}};
    for (const auto& question : questions) {
        const auto vector = embedding.embed({question.text}, {}).front();
        const auto query = SearchQuery::parse(question.text);
        const auto all = engine.keyword(query, pool), any = engine.keywordAny(query, pool);
        const auto near = engine.semantic(vector, embedding.id(), pool, 0);
        const Ranking rankings[] = {notes(all),
                                    notes(any),
                                    notes(near),
                                    notes(engine.hybrid(question.text, vector, embedding.id(), pool)),
                                    notes(engine.retrieveSync(question.text, vector, pool)),
                                    addedScores({all, near}),
                                    reciprocalRanks({any, near}),
                                    addedScores({any, near})};
        for (std::size_t i = 0; i < results.size(); ++i)
            results[i].second.count(rankings[i], question.answer);
    }
    fmt::print("{} notes, {} passages, {} questions\n", summary.indexed, index.chunkCount(),
               questions.size());
    fmt::print("{:<44}{:>9}{:>10}{:>8}{:>10}\n", "", "recall@1", "recall@5", "MRR", "nDCG@10");
    for (const auto& [name, quality] : results) quality.print(name);
    const auto ofHybrid = [&](std::size_t other) {
        return 100 * (results[3].second.gain / results[other].second.gain - 1);
    };
    fmt::print("hybrid against all words {:+.1f} %, any word {:+.1f} %, semantic {:+.1f} % in nDCG@10\n",
               ofHybrid(0), ofHybrid(1), ofHybrid(2));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    LinuxFileSystem files;
    PlainCoordination coordination;
    NoUbiquity ubiquity;
    FilePlatformInstallation installation(
        {.files = &files, .coordination = &coordination, .ubiquity = &ubiquity});
    if (argc != 2) {
        fmt::print(stderr, "usage: vesk-retrieval FOLDER\n");
        return 2;
    }
    return measure(argv[1]);
}
