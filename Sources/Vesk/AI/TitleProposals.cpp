#include "Vesk/AI/TitleProposals.h"

#include <utility>

#include "VeskCore/Brain/NoteTitler.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Uuid.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

std::string TitleProposal::message() const {
    if (loading) return localised(thinking);
    if (!suggestion.get()) return localised(noSuggestion);
    return localised(
        "“{}” has no title yet. Vesk suggested one from what you wrote — use it, change it, or keep "
        "Untitled.",
        noteName);
}

bool TitleProposal::canUse() const {
    return !trim(draft.get()).empty();
}

TitleProposals::TitleProposals(Suggest suggest, Rename rename)
    : suggest_(std::move(suggest)), rename_(std::move(rename)) {}

TitleProposals::~TitleProposals() {
    if (const auto& offer = pending.get()) offer->request.cancel();
}

bool TitleProposals::consider(const std::string& path, std::string_view text) {
    if (pending.get() || declined_.contains(path) || !Vault::isUntitled(path)) return false;
    if (!NoteTitler::hasEnoughText(text)) return false;
    const auto offer = std::make_shared<TitleProposal>();
    offer->id = randomUuid();
    offer->path = path;
    offer->noteName =
        Note{.relativePath = path, .path = {}, .title = {}, .modified = {}, .created = {}}.name();
    offer->text = text;
    offer->loading.set(true);
    pending.set(offer);
    offer->request = suggest_(text, [weak = std::weak_ptr(offer)](std::optional<std::string> title) {
        const auto asked = weak.lock();
        if (!asked) return;
        asked->loading.set(false);
        // What the person typed while the model thought stays.
        if (title && asked->draft->empty()) asked->draft.set(*title);
        asked->suggestion.set(std::move(title));
    });
    return true;
}

void TitleProposals::useTitle() {
    const auto offer = pending.get();
    if (!offer || !offer->canUse()) return;
    offer->problem.set(std::nullopt);
    if (!rename_(offer->path, std::string(trim(offer->draft.get())))) {
        offer->problem.set(localised(TitleProposal::renameFailed));
        return;
    }
    close(*offer);
}

void TitleProposals::keepUntitled() {
    const auto offer = pending.get();
    if (!offer) return;
    declined_.insert(offer->path);
    close(*offer);
}

void TitleProposals::withdraw(std::string_view path) {
    // Another note that gets this name later is another note.
    if (const auto known = declined_.find(path); known != declined_.end()) declined_.erase(known);
    const auto offer = pending.get();
    if (offer && offer->path == path) close(*offer);
}

void TitleProposals::close(TitleProposal& offer) {
    offer.request.cancel();
    // The rename may have told somebody who withdrew the offer, and made way for the next.
    if (pending.get().get() == &offer) pending.set(nullptr);
}

}  // namespace vesk
