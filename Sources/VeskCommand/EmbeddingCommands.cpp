// The sentence model at the command line: vectors of texts, and those of a vault's passages.
#include <fmt/core.h>

#include <cmath>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/EmbeddingSupport.h"
#include "VeskCore/Index/EmbeddingBackfill.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/VectorMath.h"

namespace vesk::command {
namespace {

/// The number that reads as the float does, without the digits that only the wider type has.
Json shortest(float value) {
    return parseDecimal(fmt::format("{}", value)).value_or(0);
}

Json toJson(const std::vector<float>& vector) {
    Json array = Json::array();
    for (const float value : vector) array.append(shortest(value));
    return array;
}

void embed(const CommandContext& context, const std::vector<std::string>& typed) {
    std::vector<std::string> texts;
    for (const auto& text : typed) texts.push_back(decodedText(text == "-" ? readStandardInput() : text));
    LocalEmbedding embedding("en", context.embeddings);
    std::vector<std::vector<float>> vectors;
    try {
        vectors = embedding.embed(texts, context.stop);
    } catch (const Error& failure) {
        throw CommandError(unavailableWords(context, embedding, failure));
    }
    if (context.json) {
        Json list = Json::array();
        for (std::size_t i = 0; i < texts.size(); ++i) {
            list.append(Json::object({{"text", texts[i]}, {"vector", toJson(vectors[i])}}));
        }
        context.answer(Json::object({{"provider", embedding.id()},
                                     {"dimensions", embedding.dimensions()},
                                     {"embeddings", std::move(list)}}));
        return;
    }
    constexpr std::size_t shownValues = 6;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        context.out.line(context.out.styled(printable(texts[i]), Tone::strong));
        std::string line;
        for (std::size_t k = 0; k < std::min(shownValues, vectors[i].size()); ++k) {
            line += fmt::format("{:8.4f}", vectors[i][k]);
        }
        context.out.line(line + fmt::format(" … {} values", vectors[i].size()));
        // How near the texts before it are in meaning.
        for (std::size_t k = 0; k < i; ++k) {
            context.out.line(
                fmt::format("{:8.4f}  {}", VectorMath::cosine(vectors[i], vectors[k]), printable(texts[k])));
        }
    }
}

}  // namespace

std::string unavailableWords(const CommandContext& context, const LocalEmbedding& embedding,
                             const Error& failure) {
    if (embedding.isConfigured()) return failure.description();
    return failure.description() + " " + context.embeddings.absenceReason("en");
}

int embedWaiting(const CommandContext& context, NoteIndex& index, bool alwaysProgress) {
    LocalEmbedding embedding("en", context.embeddings);
    const int total = index.waitingChunkCount(embedding.id());
    int done = 0;
    const auto start = context.clock.monotonic();
    const auto left = [&] {
        return fmt::format(
            "Stopped: {} of {} passages have their vector, “vesk index --embed” goes on from here.", done,
            total);
    };
    try {
        ProgressLine progress("Embedding", context.clock, alwaysProgress);
        progress.update(0, total, "");
        EmbeddingBackfill::run(index, embedding, context.stop, [&](int count) {
            done += count;
            const auto seconds = std::chrono::duration<double>(context.clock.monotonic() - start).count();
            progress.update(std::min(done, total), total,
                            seconds > 0 ? fmt::format("{:.0f} a second", done / seconds) : std::string());
        });
    } catch (const BrainError& failure) {
        if (context.stop.stop_requested()) throw CommandError(left());
        throw CommandError(unavailableWords(context, embedding, failure));
    }
    if (context.stop.stop_requested()) throw CommandError(left());
    return done;
}

void addEmbeddingCommands(CLI::App& program, CommandContext& context) {
    auto* command = addCommand(program, "embed", "The vectors that the sentence model gives texts",
                               "  vesk embed 'How do I renew my passport?' 'Passport renewal'\n"
                               "  vesk embed --json - < Note.md");
    auto texts = std::make_shared<std::vector<std::string>>();
    command->add_option("TEXT", *texts, "Texts, each an argument of its own; - for standard input")
        ->required();
    answersWithData(command, context);
    command->callback([&context, texts] { embed(context, *texts); });
}

}  // namespace vesk::command
