// Texts a second through the sentence model, beside the bare matrix products of the same shapes by OpenBLAS,
// taken in turn in one run. OpenBLAS doesn't know newer processors by their names and falls back to its
// oldest code, so each of our instruction sets is measured in a process of its own, where OpenBLAS is told to
// use the same one.
#include <cblas.h>
#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Support/Parallel.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskLinux/SentenceModel/SentenceModel.h"
#include "VeskLinux/SentenceModel/SentenceModelSource.h"
#include "VeskLinux/SentenceModel/Tokeniser.h"

extern "C" void openblas_set_num_threads(int threads);
extern "C" char* openblas_get_corename(void);

namespace {

using namespace vesk;
using namespace vesk::sentencemodel;
using Timer = std::chrono::steady_clock;

constexpr std::size_t textCount = 16, textCharacters = 1200;

/// Sentences of usual length about usual things, different in every text.
std::string sampleText(std::size_t number) {
    static const char* const subjects[] = {"The boiler",          "Our neighbour",  "My sister's school",
                                           "The train to Bergen", "Doctor Ames",    "The insurance",
                                           "A jar of honey",      "The garden shed"};
    static const char* const middles[] = {"was looked at again on Tuesday",
                                          "costs 340 a year, which is too much",
                                          "needs a new part before the winter comes",
                                          "asked for the papers from 2019",
                                          "leaves at a quarter past seven from platform four",
                                          "smells of smoke since the repair"};
    static const char* const ends[] = {"so I wrote it down here.", "and nobody has called back yet.",
                                       "according to the letter in the blue folder.",
                                       "if I remember it right.",
                                       "but the old one still works well enough for now."};
    std::string text;
    for (std::size_t i = 0; text.size() < textCharacters; ++i) {
        const std::size_t mixed = number * 31 + i * 7;
        text += fmt::format("{} {} {} ", subjects[mixed % 8], middles[(mixed / 3) % 6],
                            ends[(mixed / 5 + i) % 5]);
    }
    return text;
}

class ModelOf final : public SentenceEmbeddingSource {
public:
    ModelOf(FilePath file, Kernels kernels, unsigned workers)
        : file_(std::move(file)), kernels_(kernels), workers_(workers) {}
    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view) override {
        return std::make_unique<SentenceModel>(file_, kernels_, workers_);
    }

private:
    FilePath file_;
    Kernels kernels_;
    unsigned workers_;
};

/// The products that one pass over `rows` tokens takes, on memory of the right sizes.
class BareProducts {
public:
    explicit BareProducts(std::size_t mostRows)
        : in_(mostRows * 1536, 0.5F), weights_(512 * 1536, 0.01F), out_(mostRows * 1536) {}
    void run(std::size_t rows, std::size_t windows) {
        constexpr std::size_t shapes[][2] = {{256, 512},  {256, 768}, {256, 512},  {512, 1536}, {1536, 512},
                                             {512, 1536}, {512, 512}, {512, 1536}, {1536, 512}};
        for (const auto& [depth, columns] : shapes) product(rows, depth, columns);
        product(windows, 512, 512);
    }

private:
    void product(std::size_t rows, std::size_t depth, std::size_t columns) {
        const auto m = static_cast<int>(rows), k = static_cast<int>(depth), n = static_cast<int>(columns);
        cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1, in_.data(), k, weights_.data(), n,
                    0, out_.data(), n);
    }
    std::vector<float> in_, weights_, out_;
};

template <class Work>
double seconds(Work work) {
    const auto start = Timer::now();
    work();
    return std::chrono::duration<double>(Timer::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// What OpenBLAS calls the instruction set of a kernel.
const char* openBlasCore(std::string_view kernels) {
    if (kernels == "AVX-512") return "SkylakeX";
    return kernels == "AVX2" ? "Haswell" : "Prescott";
}

FilePath modelFile() {
    for (const auto& candidate : SentenceModelSource::defaultLocations()) {
        if (std::filesystem::exists(candidate)) return candidate;
    }
    return {};
}

void measure(const FilePath& file, const Kernels& kernels) {
    std::vector<std::string> texts;
    std::vector<std::pair<std::size_t, std::size_t>> shapes;  // tokens and windows of each text
    const ModelFile vocabulary(file);
    for (std::size_t i = 0; i < textCount; ++i) {
        texts.push_back(sampleText(i));
        auto& [rows, windows] = shapes.emplace_back(0, 0);
        for (const auto sentence : sentences(texts.back())) {
            rows += pieceIds(prepared(trim(sentence)), vocabulary).size();
            ++windows;
        }
    }
    BareProducts products(2048);
    const unsigned cores = parallelWorkers();
    for (unsigned threads = 1; threads <= cores; threads = threads == 1 && cores > 1 ? cores : cores + 1) {
        ModelOf source(file, kernels, threads);
        LocalEmbedding embedding("en", source);
        openblas_set_num_threads(static_cast<int>(threads));
        std::vector<double> ours, theirs;
        for (int run = 0; run < 9; ++run) {
            ours.push_back(seconds([&] { embedding.embed(texts, {}); }));
            theirs.push_back(seconds([&] {
                for (const auto& [rows, windows] : shapes) products.run(rows, windows);
            }));
        }
        const double count = static_cast<double>(textCount);
        const double a = count / median(ours), b = count / median(theirs);
        fmt::print("{:<10}{:>10}{:>14.1f}{:>16.1f} ({}){:>10.2f}\n", kernels.name, threads, a, b,
                   openblas_get_corename(), a / b);
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto file = modelFile();
    if (file.empty()) {
        fmt::print("The sentence model isn't installed: run scripts/sentence-model.\n");
        return 1;
    }
    if (argc > 1) {
        for (const Kernels& kernels : availableKernels()) {
            if (std::string_view(kernels.name) == argv[1]) measure(file, kernels);
        }
        return 0;
    }
    fmt::print("{} texts of {} characters; products are those of as many texts\n\n", textCount,
               textCharacters);
    fmt::print("{:<10}{:>10}{:>14}{:>27}{:>10}\n", "kernels", "threads", "texts/s", "OpenBLAS texts/s",
               "ratio");
    std::fflush(stdout);
    for (const Kernels& kernels : availableKernels()) {
        const pid_t child = fork();
        if (child == 0) {
            setenv("OPENBLAS_CORETYPE", openBlasCore(kernels.name), 1);
            execl("/proc/self/exe", argv[0], kernels.name, static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) return 1;
    }
    std::vector<double> loads;
    for (int run = 0; run < 9; ++run) loads.push_back(seconds([&] { SentenceModel model(file); }));
    SentenceModel model(file);
    for (std::size_t i = 0; i < textCount; ++i) model.vector(sampleText(i));
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    fmt::print("\nmodel mapped and checked in {:.1f} ms; peak memory of a program that embeds {} MB\n",
               median(loads) * 1e3, usage.ru_maxrss / 1024);
    return 0;
}
