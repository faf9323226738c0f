#include "Vesk/Editor/EditorBridge.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/HeldTextStore.h"

namespace vesk {

namespace {

/// "<stem>.md" in the folder, or the first numbered name that is free.
FilePath freePath(const FilePath& folder, std::string_view path) {
    for (long number = 1;; ++number) {
        const auto tail = number == 1 ? std::string(".md") : fmt::format(" {}.md", number);
        const FilePath candidate = folder / fittingFileName(stem(path), tail);
        if (!FilePlatform::current().files->linkInfo(candidate)) return candidate;
    }
}

}  // namespace

EditorCoordinator::EditorCoordinator(MainQueue& mainQueue, std::function<void(const std::string&)> onSave)
    : mainQueue_(mainQueue), onSave_(std::move(onSave)) {}

void EditorCoordinator::scheduleSave(std::string text) {
    unsaved_ = std::move(text);
    saveWorkItem_ =
        mainQueue_.postAfter(std::chrono::duration_cast<Duration>(saveDelay), [this] { flushSave(); });
}

void EditorCoordinator::flushSave() {
    if (!unsaved_) return;
    const std::string text = std::move(*unsaved_);
    dropSave();
    onSave_(text);
}

void EditorCoordinator::dropSave() {
    saveWorkItem_.cancel();
    unsaved_.reset();
}

EditorBridge::~EditorBridge() {
    // A handle keeps its editor alive as long as it holds text.
    const auto handles = std::exchange(handles_, {});
    for (const auto& handle : handles) *handle = {};
}

void EditorBridge::add(EditorCoordinator& coordinator) {
    coordinators_.push_back(&coordinator);
}

void EditorBridge::remove(EditorCoordinator& coordinator) {
    std::erase(coordinators_, &coordinator);
}

void EditorBridge::hold(const std::shared_ptr<EditorHandle>& handle) {
    if (std::find(handles_.begin(), handles_.end(), handle) == handles_.end()) handles_.push_back(handle);
}

void EditorBridge::flushAllPendingSaves() {
    const auto coordinators = coordinators_;
    for (auto* coordinator : coordinators) coordinator->flushSave();
}

std::vector<std::string> EditorBridge::saveEverythingHeld() {
    std::vector<std::string> names;
    const auto handles = handles_;
    for (const auto& handle : handles) {
        const auto retry = handle->retryHeld;
        auto still = retry ? retry() : std::vector<std::string>();
        if (still.empty()) {
            std::erase(handles_, handle);
            *handle = {};
        }
        names.insert(names.end(), still.begin(), still.end());
    }
    return names;
}

std::vector<std::pair<std::string, std::string>> EditorBridge::everythingHeld() const {
    std::vector<std::pair<std::string, std::string>> held;
    for (const auto& handle : handles_) {
        if (!handle->heldText) continue;
        for (auto& entry : handle->heldText()) held.emplace_back(entry);
    }
    std::sort(held.begin(), held.end());
    return held;
}

void EditorBridge::forgetEverythingHeld() {
    const auto handles = std::exchange(handles_, {});
    for (const auto& handle : handles) {
        const auto letGo = handle->letGo;
        if (letGo) letGo();
        *handle = {};
    }
    HeldTextStore::discardEverythingKeptThisRun();
}

LeavingAlert EditorBridge::leavingAlert(LeavingContext context, std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    std::string joined;
    for (const auto& name : names) {
        if (!joined.empty()) joined += ", ";
        joined += "“" + decodedText(name) + "”";
    }
    const bool quitting = context == LeavingContext::quitting;
    LeavingAlert alert{
        .message = localised("Vesk couldn't save your changes to {}",
                             names.size() == 1 ? joined : localised("{} notes", names.size())),
        .information = names.size() > 1 ? joined + ". " : std::string(),
        .stay = localised("Stay"),
        .saveElsewhere = localised("Save Text Elsewhere…"),
        .leave = localised(quitting ? marked("Quit Anyway") : marked("Open Anyway")),
    };
    alert.information +=
        localised("The text is still in Vesk, but writing it to the file failed again just now. ");
    alert.information +=
        localised(quitting ? marked("If you quit now, those changes are lost.")
                           : marked("If you open another vault now, those changes are lost."));
    alert.information += localised(
        " Save Text Elsewhere puts it in a folder you choose first. Or stay, and try again "
        "once the problem is fixed.");
    return alert;
}

void EditorBridge::confirmLeavingUnsavedText(LeavingContext context, std::function<void(bool)> answer) {
    auto names = saveEverythingHeld();
    if (names.empty()) return answer(true);
    prompt_.ask(leavingAlert(context, std::move(names)),
                [this, answer = std::move(answer)](LeavingChoice choice) {
                    switch (choice) {
                        case LeavingChoice::stay:
                            return answer(false);
                        case LeavingChoice::saveElsewhere:
                            return saveHeldTextElsewhere([this, answer](bool saved) {
                                if (saved) forgetEverythingHeld();
                                answer(saved);
                            });
                        case LeavingChoice::leave:
                            forgetEverythingHeld();
                            return answer(true);
                    }
                });
}

void EditorBridge::saveHeldTextElsewhere(std::function<void(bool)> done) {
    if (everythingHeld().empty()) return done(true);
    prompt_.chooseFolder(localised("Choose a folder for the text Vesk couldn't save."),
                         [this, done = std::move(done)](const std::optional<FilePath>& folder) {
                             if (!folder) return done(false);
                             std::vector<FilePath> written;
                             try {
                                 // What is held now: it may have changed while the person chose.
                                 for (const auto& entry : everythingHeld()) {
                                     const auto target = freePath(*folder, entry.first);
                                     AtomicWrite::createText(target, entry.second);
                                     written.push_back(target);
                                 }
                             } catch (const std::exception&) {
                                 prompt_.tell(
                                     localised("Vesk couldn't save the text there"),
                                     localised("{} Nothing has been let go; the text is still in Vesk.",
                                               describe(std::current_exception())));
                                 return done(false);
                             }
                             prompt_.reveal(written);
                             done(true);
                         });
}

}  // namespace vesk
