#include "VeskCore/Brain/VaultContext.h"

#include <fmt/format.h>

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

std::string counted(int count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

/// "a, b and c"
std::string listed(const std::vector<std::string>& items) {
    std::string text;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) text += i + 1 == items.size() ? " and " : ", ";
        text += items[i];
    }
    return text;
}

/// The kinds of which there are any.
std::vector<std::string> documents(int pages, int stylesheets) {
    std::vector<std::string> items;
    if (pages > 0) items.push_back(counted(pages, "page"));
    if (stylesheets > 0) items.push_back(counted(stylesheets, "stylesheet"));
    return items;
}

std::string withDocuments(std::string notes, const VaultContext& context) {
    auto items = documents(context.pageCount, context.stylesheetCount);
    items.insert(items.begin(), std::move(notes));
    return listed(items);
}

}  // namespace

std::string VaultContext::Coverage::promptDescription() const {
    return match(
        value,
        [](const Whole& whole) {
            return fmt::format(
                "You have been given the COMPLETE contents of the user's vault: every one of their {} notes, "
                "in full. This is the whole corpus, not a sample and not a set of search results. You can "
                "therefore answer questions about the vault as a whole — count things, summarise across "
                "notes, find duplicates and gaps, propose a reorganisation — and you should do so directly "
                "rather than asking which notes to look at. If something genuinely is not in these notes, "
                "say "
                "so; that is a real absence, not a limit of your view.",
                whole.notes);
        },
        [](const Partial& partial) {
            return fmt::format(
                "You have been given {0} of the user's {1} notes — the ones most relevant to this question, "
                "because the full vault does not fit in your context. Answer directly from them, without "
                "commenting on how many notes you can see. Only when the question is about the vault as a "
                "whole — counting everything, reorganising all of it — say you are working from {0} notes so "
                "the user knows the answer is partial.",
                partial.includedNotes, partial.totalNotes);
        },
        [](const Empty&) -> std::string {
            return "You have been given a set of the user's notes. Answer from them, and say so when they do "
                   "not contain the answer.";
        });
}

std::string VaultContext::summary() const {
    return match(
        coverage,
        [&](const Coverage::Whole& whole) {
            auto text = "Reading all " + withDocuments(counted(whole.notes, "note"), *this) +
                        fmt::format(" (~{}k tokens)", estimatedTokens / 1000);
            const auto left = documents(pagesLeftOut, stylesheetsLeftOut);
            if (!left.empty()) text += " (" + listed(left) + " left out)";
            return text;
        },
        [&](const Coverage::Partial& partial) {
            return "Reading " +
                   withDocuments(fmt::format("{} of {} notes", partial.includedNotes, partial.totalNotes),
                                 *this) +
                   " — the vault is too large to send at once";
        },
        [](const Coverage::Empty& empty) { return empty.reason; });
}

}  // namespace vesk
