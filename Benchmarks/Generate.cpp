// Makes a vault for the benchmarks: the same folder for the same arguments on every machine.
// usage: vesk-generate FOLDER NOTES [SEED]
//
// Notes have frontmatter, headings, links to other notes, tags, tasks and words drawn by Zipf's law from a
// vocabulary of 40,000 made-up words; some 2,600 bytes each, in folders of a hundred.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

/// SplitMix64 (Steele, Lea, Flood 2014): small, fast and the same everywhere, unlike the library's
/// distributions.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    std::size_t below(std::size_t bound) { return next() % bound; }
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

private:
    std::uint64_t state_;
};

class Vocabulary {
public:
    explicit Vocabulary(std::size_t size) {
        Random random(7);
        constexpr const char* syllables[] = {"ba",  "ko", "ri", "ten", "mu", "sal", "ve", "lor", "din", "pha",
                                             "que", "st", "an", "el",  "ou", "gri", "ne", "ta",  "wor", "ly"};
        double total = 0;
        for (std::size_t i = 0; i < size; ++i) {
            std::string word;
            const std::size_t parts = 1 + random.below(3) + (i > 500 ? 1 : 0);
            for (std::size_t k = 0; k < parts; ++k) word += syllables[random.below(std::size(syllables))];
            words_.push_back(std::move(word));
            total += 1.0 / static_cast<double>(i + 1);
            cumulative_.push_back(total);
        }
    }
    const std::string& draw(Random& random) const {
        const double at = random.unit() * cumulative_.back();
        const auto found = std::lower_bound(cumulative_.begin(), cumulative_.end(), at);
        return words_[static_cast<std::size_t>(found - cumulative_.begin())];
    }

private:
    std::vector<std::string> words_;
    std::vector<double> cumulative_;
};

std::string noteName(std::size_t index) {
    return "Note " + std::to_string(index);
}

std::string paragraph(const Vocabulary& words, Random& random, std::size_t notes) {
    std::string text;
    const std::size_t count = 40 + random.below(60);
    for (std::size_t i = 0; i < count; ++i) {
        const auto dice = random.below(200);
        if (dice == 0) {
            text += "[[" + noteName(random.below(notes)) + "]]";
        } else if (dice == 1) {
            text += "**" + words.draw(random) + "**";
        } else {
            text += words.draw(random);
        }
        text += i % 12 == 11 ? ". " : " ";
    }
    return text + "\n\n";
}

std::string note(std::size_t index, const Vocabulary& words, Random& random, std::size_t notes) {
    std::string text = "---\ntags: [" + words.draw(random) + ", topic/" + std::to_string(index % 50) +
                       "]\nstatus: " + (index % 3 ? "open" : "done") + "\nnumber: " + std::to_string(index) +
                       "\n---\n# " + noteName(index) + " " + words.draw(random) + "\n\n";
    const std::size_t sections = 1 + random.below(4);
    for (std::size_t section = 0; section < sections; ++section) {
        text +=
            "## " + words.draw(random) + " " + words.draw(random) + "\n\n" + paragraph(words, random, notes);
        for (std::size_t i = random.below(4); i > 0; --i) {
            text += std::string("- [") + (random.below(2) ? "x" : " ") + "] " + words.draw(random) + " " +
                    words.draw(random) + "\n";
        }
        text += "\n" + paragraph(words, random, notes);
        if (random.below(4) == 0)
            text += "See #" + words.draw(random) + " and [a page](https://example.org/" +
                    std::to_string(index) + ").\n\n";
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s FOLDER NOTES [SEED]\n", argv[0]);
        return 2;
    }
    const std::filesystem::path root = argv[1];
    const auto notes = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    Random random(argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1);
    const Vocabulary words(40'000);
    for (std::size_t i = 0; i < notes; ++i) {
        const auto folder =
            root / ("Area " + std::to_string(i / 2000)) / ("Folder " + std::to_string(i / 100 % 20));
        if (i % 100 == 0) std::filesystem::create_directories(folder);
        std::ofstream(folder / (noteName(i) + ".md"), std::ios::binary) << note(i, words, random, notes);
    }
    return 0;
}
