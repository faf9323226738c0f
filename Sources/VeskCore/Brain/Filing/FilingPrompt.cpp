#include "VeskCore/Brain/Filing/FilingPrompt.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

std::string FilingAttempt::label() const {
    switch (kind) {
        case Kind::shortened:
            return fmt::format("short {}", characters);
        case Kind::full:
            return "full";
        case Kind::noHints:
            return "no hints";
        case Kind::titleOnly:
            return "title only";
    }
    return {};
}

namespace FilingPrompt {

namespace {

constexpr std::string_view pickOne =
    "You file the user's Markdown notes into folders. Pick the ONE existing folder that best fits what the "
    "note is about.";
constexpr std::string_view credentials =
    "A note holding a password, PIN, code, licence or account detail belongs with credentials.";
constexpr std::string_view byContent = "Judge by the note's content, not by its length.";
constexpr std::string_view keepIt =
    "You check whether the user's Markdown notes are filed in the right folder. The note's current folder is "
    "given. Answer \"(keep where it is)\" unless the note CLEARLY belongs in a different folder; only move a "
    "note when you are sure.";

bool soundsLikeCredentials(std::string_view folder) {
    static constexpr std::array<std::string_view, 6> signs = {"credential", "password", "login",
                                                              "secur",      "secret",   "key"};
    return std::any_of(signs.begin(), signs.end(),
                       [&](std::string_view sign) { return containsIgnoringCase(folder, sign); });
}

}  // namespace

std::string_view rawValue(InstructionForm form) {
    switch (form) {
        case InstructionForm::measured:
            return "measured";
        case InstructionForm::generic:
            return "generic";
        case InstructionForm::keep:
            return "keep";
    }
    return {};
}

std::string batchSlotName(std::size_t number) {
    return fmt::format("note{}", number);
}

std::string folderList(const std::vector<std::string>& targets) {
    std::vector<std::string> lines;
    for (const auto& folder : targets) lines.push_back("- " + folder + "/");
    return "The vault's folders:\n" + join(lines, "\n");
}

std::optional<std::string> text(const FilingCandidate& candidate, const FilingAttempt& attempt) {
    switch (attempt.kind) {
        case FilingAttempt::Kind::shortened: {
            const auto prefix = characterPrefix(candidate.excerpt, attempt.characters);
            return std::string(prefix) + (prefix.size() < candidate.excerpt.size() ? "…" : "");
        }
        case FilingAttempt::Kind::full:
        case FilingAttempt::Kind::noHints:
            return candidate.excerpt;
        case FilingAttempt::Kind::titleOnly:
            return {};
    }
    return {};
}

std::string instructions(const std::vector<std::string>& targets, InstructionForm form) {
    if (form == InstructionForm::keep) return fmt::format("{} {}", keepIt, credentials);
    if (form == InstructionForm::generic &&
        std::none_of(targets.begin(), targets.end(), soundsLikeCredentials))
        return fmt::format("{} {}", pickOne, byContent);
    return fmt::format("{} {} {}", pickOne, credentials, byContent);
}

ChoiceQuestion question(const FilingCandidate& candidate, const FilingTaxonomy& taxonomy,
                        const std::vector<FilingHint>& hints, const FilingAttempt& attempt,
                        InstructionForm form) {
    const bool keeps = form == InstructionForm::keep;
    std::vector<std::string> blocks{folderList(taxonomy.targets)};
    if (attempt.kind == FilingAttempt::Kind::full && !hints.empty())
        blocks.push_back("The notes most similar to this one, and where they are filed:\n" +
                         FilingHints::lines(hints));
    auto title = "Note title: " + candidate.title;
    if (keeps) {
        const auto folder = parentFolder(candidate.path);
        title += "\nCurrent folder: ";
        title += taxonomy.scope(folder) == FilingScope::filed ? std::string(folder) + "/" : "(none yet)";
    }
    blocks.push_back(std::move(title));
    if (const auto shown = text(candidate, attempt)) blocks.push_back("Note text:\n" + *shown);
    blocks.emplace_back(keeps ? "Is this note in the right folder? If not, which folder does it belong in?"
                              : "Which folder does this note belong in?");
    return {.instructions = instructions(taxonomy.targets, form),
            .prompt = join(blocks, "\n\n"),
            .slots = {{.name = std::string(slotName),
                       .description = "The folder this note belongs in",
                       .choices = taxonomy.targets}},
            .temperature = 0};
}

ChoiceQuestion batchQuestion(const std::vector<FilingCandidate>& candidates, const FilingTaxonomy& taxonomy,
                             const FilingAttempt& attempt, InstructionForm form) {
    std::vector<std::string> blocks{folderList(taxonomy.targets)};
    ChoiceQuestion made{
        .instructions = instructions(taxonomy.targets, form), .prompt = {}, .slots = {}, .temperature = 0};
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        auto block = fmt::format("Note {} — title: {}", i + 1, candidates[i].title);
        if (const auto shown = text(candidates[i], attempt)) block += "\n" + *shown;
        blocks.push_back(std::move(block));
        made.slots.push_back({.name = batchSlotName(i + 1),
                              .description = fmt::format("The folder for note {}", i + 1),
                              .choices = taxonomy.targets});
    }
    blocks.push_back(
        fmt::format("For each of the {} notes, which folder does it belong in?", candidates.size()));
    made.prompt = join(blocks, "\n\n");
    return made;
}

}  // namespace FilingPrompt

}  // namespace vesk
