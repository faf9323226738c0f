#include "VeskCore/Brain/AppleProvider.h"

#include <algorithm>

#include "VeskCore/Brain/QuotedChunks.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

using Kind = GenerationError::Kind;

constexpr int fallbackContextSize = 4096;
constexpr int largestAnswer = 1024;
constexpr int reserve = 1536;       // for the system text, the question and what was said before
constexpr int choiceReserve = 640;  // for the answer and its form
constexpr int smallestBudget = 512;

constexpr std::string_view unfinished =
    "Apple Intelligence couldn't finish that answer. Try again, or use another provider in Settings → AI.";

std::vector<BrainMessage> turns(const std::vector<BrainMessage>& messages) {
    std::vector<BrainMessage> result;
    for (const auto& message : messages) {
        if (message.role != BrainMessage::Role::system && !trim(message.text).empty())
            result.push_back(message);
    }
    return result;
}

/// The last question and what the system said; nothing of the conversation before.
std::vector<BrainMessage> withoutHistory(const std::vector<BrainMessage>& messages) {
    std::vector<BrainMessage> result;
    std::optional<BrainMessage> last;
    for (const auto& message : messages) {
        if (message.role == BrainMessage::Role::system) result.push_back(message);
        if (message.role == BrainMessage::Role::user && !trim(message.text).empty()) last = message;
    }
    if (last) result.push_back(*last);
    return result;
}

/// What a snapshot adds to what was written, cut between characters' bytes.
std::string_view addition(std::string_view snapshot, std::string_view written) {
    if (snapshot.size() <= written.size()) return {};
    auto from = written.size();
    while (from < snapshot.size() && (static_cast<unsigned char>(snapshot[from]) & 0xC0) == 0x80) ++from;
    return snapshot.substr(from);
}

/// How a closed question fails.
[[noreturn]] void rethrowClassified(const GenerationError& error) {
    switch (error.kind) {
        case Kind::exceededContextWindowSize:
            throw ChoiceError(ChoiceError::TooLong{});
        case Kind::rateLimited:
        case Kind::concurrentRequests:
            throw ChoiceError(ChoiceError::Busy{});
        case Kind::guardrailViolation:
            throw ChoiceError(
                ChoiceError::Declined{"Apple Intelligence declined to read this note. It applies its own "
                                      "safety rules on-device, and "
                                      "Vesk can't override them."});
        case Kind::unsupportedLanguageOrLocale:
            throw ChoiceError(
                ChoiceError::Declined{"Apple Intelligence doesn't support this note's language yet."});
        case Kind::refusal:
            throw ChoiceError(ChoiceError::Declined{"Apple Intelligence declined to file this note."});
        case Kind::cancelled:
            throw BrainError(BrainError::Cancelled{});
        case Kind::other:
            break;
    }
    throw BrainError(BrainError::Unavailable{AppleProvider::message(error)});
}

}  // namespace

AppleProvider::AppleProvider(SystemLanguageModel& model)
    : model_(model), contextSize_(model.contextSize().value_or(fallbackContextSize)) {}

std::vector<BrainModel> AppleProvider::models() const {
    return {{.id = std::string(modelID),
             .displayName = "Apple Intelligence",
             .contextWindow = contextSize_,
             .maxOutput = maxOutputTokens(),
             .note =
                 "Runs on this Mac. Nothing is sent anywhere and there is nothing to pay for. The context "
                 "window is small, so it sees fewer notes at once than a cloud model."}};
}

std::optional<std::string> AppleProvider::unavailableReason() const {
    using Unavailability = SystemLanguageModel::Unavailability;
    const auto reason = model_.unavailability();
    if (!reason) return std::nullopt;
    switch (*reason) {
        case Unavailability::systemTooOld:
            return "Apple Intelligence needs macOS 26 or later. Until then you can still use Vesk with "
                   "Claude, "
                   "Gemini or OpenAI — add a key in Settings → AI — or run a model locally with Ollama.";
        case Unavailability::deviceNotEligible:
            return "This Mac can't run Apple Intelligence. Vesk's other providers still work: add a key in "
                   "Settings → AI, or run a model locally with Ollama.";
        case Unavailability::notEnabled:
            return "Apple Intelligence is turned off. Turn it on in System Settings → Apple Intelligence & "
                   "Siri, "
                   "then try again.";
        case Unavailability::modelNotReady:
            return "Apple Intelligence is still downloading its model. Open System Settings → Apple "
                   "Intelligence "
                   "& Siri and leave it to finish — this can take a while on a slow connection — then try "
                   "again.";
        case Unavailability::other:
            break;
    }
    return "Apple Intelligence isn't available right now. Check System Settings → Apple Intelligence & Siri, "
           "or "
           "use another provider in Settings → AI.";
}

int AppleProvider::maxOutputTokens() const {
    return std::min(contextSize_ / 4, largestAnswer);
}
int AppleProvider::contextTokenBudget() const {
    return std::max(contextSize_ - largestAnswer - reserve, smallestBudget);
}
int AppleProvider::choiceBudgetTokens() const {
    return std::max(contextSize_ - choiceReserve, smallestBudget);
}

int AppleProvider::estimatedTokens(std::string_view text) {
    std::size_t ascii = 0, others = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            ++ascii;
        } else if ((byte & 0xC0) != 0x80) {
            ++others;
        }
    }
    return static_cast<int>(std::min<std::size_t>((ascii + 2) / 3 + others, 1 << 30));
}

std::string AppleProvider::contextBlock(const std::vector<RetrievedChunk>& chunks, int budgetTokens) {
    std::vector<RetrievedChunk> taken;
    long long total = 0;
    for (const auto& chunk : chunks) {
        total += estimatedTokens(chunk.text);
        if (!taken.empty() && total > budgetTokens) break;
        taken.push_back(chunk);
    }
    if (taken.empty()) return {};
    std::string text =
        "Excerpts from the user's notes, most relevant first. Cite a note by its title when you use it.\n";
    if (RetrievedChunk::includesDocuments(taken)) text.append(RetrievedChunk::documentsSentence).append("\n");
    for (const auto& chunk : taken) text.append(quotedChunk(chunk)).append("\n");
    text +=
        "\nUse these excerpts as source material to answer the user's question. Do not answer with a bare "
        "inventory of note titles, paths or folders — unless the user explicitly asked for such a list, "
        "answer "
        "with the information inside the excerpts.";
    return text;
}

std::string AppleProvider::instructions(const BrainRequest& request, int budgetTokens) {
    std::string text = request.system.value_or("");
    const auto add = [&](std::string_view more) {
        if (more.empty()) return;
        if (!text.empty()) text += "\n\n";
        text += more;
    };
    for (const auto& message : request.messages) {
        if (message.role == BrainMessage::Role::system) add(trim(message.text));
    }
    add(contextBlock(request.context, budgetTokens));
    // Behind the excerpts, of which it speaks, and last, where a small model still sees it.
    if (request.focus) add(*request.focus);
    return text;
}

std::string AppleProvider::prompt(const BrainRequest& request) {
    const auto said = turns(request.messages);
    if (said.size() == 1) return said.front().text;
    std::string text;
    for (const auto& turn : said) {
        text += turn.role == BrainMessage::Role::assistant ? "Assistant: " : "User: ";
        text.append(turn.text).append("\n\n");
    }
    return text;
}

std::string AppleProvider::message(const GenerationError& error) {
    switch (error.kind) {
        case Kind::exceededContextWindowSize:
            return "That was too much for the on-device model to hold at once. Attach fewer notes, shorten "
                   "the "
                   "conversation, or switch to a cloud provider in Settings → AI.";
        case Kind::guardrailViolation:
            return "Apple Intelligence declined to answer that. It applies its own safety rules on-device, "
                   "and "
                   "Vesk can't override them — a cloud provider may respond differently.";
        case Kind::unsupportedLanguageOrLocale:
            return "Apple Intelligence doesn't support this language yet. Try a cloud provider in Settings → "
                   "AI.";
        case Kind::rateLimited:
        case Kind::concurrentRequests:
        case Kind::refusal:
        case Kind::cancelled:
        case Kind::other:
            break;
    }
    return std::string(unfinished);
}

void AppleProvider::stream(const BrainRequest& request, const std::string&, const Sink& sink,
                           std::stop_token stop) const {
    if (turns(request.messages).empty()) {
        throw BrainError(
            BrainError::Unavailable{"There's nothing to ask Apple Intelligence yet. Type a question first."});
    }
    if (const auto reason = unavailableReason()) throw BrainError(BrainError::Unavailable{*reason});
    std::string written;
    const auto attempt = [&](const BrainRequest& asked) {
        model_.streamResponse(
            instructions(asked, contextTokenBudget()), prompt(asked),
            {.maximumResponseTokens = maxOutputTokens(), .temperature = asked.temperature},
            [&](const std::string& snapshot) {
                if (stop.stop_requested()) throw GenerationError(Kind::cancelled);
                const auto more = addition(snapshot, written);
                if (more.empty()) return;
                sink({BrainEvent::Text{std::string(more)}});
                written = snapshot;
            },
            stop);
    };
    BrainRequest shorter = request;
    shorter.messages = withoutHistory(request.messages);
    try {
        try {
            attempt(request);
        } catch (const GenerationError& error) {
            const bool helps = error.kind == Kind::exceededContextWindowSize && written.empty() &&
                               turns(shorter.messages).size() < turns(request.messages).size();
            if (!helps) throw;
            attempt(shorter);
        }
    } catch (const GenerationError& error) {
        if (error.kind == Kind::cancelled || stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
        throw BrainError(BrainError::Unavailable{message(error)});
    }
    if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
    if (written.empty()) throw BrainError(BrainError::Unavailable{std::string(unfinished)});
    sink({BrainEvent::Done{}});
}

ChoiceAnswer AppleProvider::choose(const ChoiceQuestion& question, const std::string&,
                                   std::stop_token stop) const {
    if (const auto reason = unavailableReason()) throw BrainError(BrainError::Unavailable{*reason});
    if (estimatedTokens(question.instructions) + estimatedTokens(question.prompt) > choiceBudgetTokens()) {
        throw ChoiceError(ChoiceError::TooLong{});
    }
    GenerationSchema schema{.name = "Filing", .properties = {}};
    for (const auto& slot : question.slots) {
        schema.properties.push_back(
            {.name = slot.name, .description = slot.description, .anyOf = slot.choices});
    }
    const int limit = 32 + 32 * static_cast<int>(question.slots.size());
    try {
        return {.picks = model_.respond(question.instructions, question.prompt, schema,
                                        {.maximumResponseTokens = limit, .temperature = question.temperature},
                                        stop)};
    } catch (const GenerationError& error) {
        if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
        rethrowClassified(error);
    }
}

}  // namespace vesk
