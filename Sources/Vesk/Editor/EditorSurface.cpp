#include "Vesk/Editor/EditorSurface.h"

#include <algorithm>
#include <utility>

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Uuid.h"
#include "VeskCore/Vault/TextReload.h"

namespace vesk {

namespace {

constexpr Seconds readLimit{15.0};
constexpr Seconds staleLimit{3.0};

std::string titleOf(std::string_view path) {
    return Vault::isUntitled(path) ? std::string() : decodedText(std::string(stem(path)));
}

/// The paths at or below `from` become paths at or below `to`.
void rename(std::map<std::string, std::string>& texts, std::string_view from, std::string_view to) {
    std::map<std::string, std::string> renamed;
    for (auto entry = texts.begin(); entry != texts.end();) {
        if (isAtOrBelow(entry->first, from)) {
            renamed.insert_or_assign(std::string(to) + entry->first.substr(from.size()),
                                     std::move(entry->second));
            entry = texts.erase(entry);
        } else {
            ++entry;
        }
    }
    for (auto& entry : renamed) texts.insert_or_assign(entry.first, std::move(entry.second));
}

}  // namespace

EditorSurface::DiskLook EditorSurface::DiskLook::at(const FilePath& path) {
    const auto read = [&]() -> std::optional<std::string> {
        try {
            return CoordinatedIO::read(path);
        } catch (const Error&) {
            return {};
        }
    };
    switch (UbiquityStatus::of(path)) {
        case UbiquityState::placeholder:
        case UbiquityState::downloading:
            return {OutOfDate{}};
        case UbiquityState::stale:
            return {OutOfDate{read()}};
        case UbiquityState::materialised:
        case UbiquityState::notUbiquitous:
            break;
    }
    if (auto text = read()) return {Current{std::move(*text)}};
    return {Nothing{}};
}

std::shared_ptr<EditorSurface> EditorSurface::make(std::shared_ptr<VaultSession> session,
                                                   EditorBridge& bridge, const SessionServices& services) {
    auto surface = std::shared_ptr<EditorSurface>(new EditorSurface(std::move(session), bridge, services));
    surface->subscriptions_.push_back(
        surface->session_->diskRevision.subscribe([weak = std::weak_ptr<EditorSurface>(surface)](int) {
            if (auto watching = weak.lock()) watching->followDisk(false);
        }));
    return surface;
}

EditorSurface::EditorSurface(std::shared_ptr<VaultSession> session, EditorBridge& bridge,
                             const SessionServices& services)
    : session_(std::move(session)),
      bridge_(bridge),
      services_(services),
      coordinator_(services_.mainQueue,
                   [this](const std::string& text) {
                       if (loadedPath_) write(text, std::string(*loadedPath_), false);
                   }),
      handle_(std::make_shared<EditorHandle>()) {
    ledger_.id = randomUuid();
    bridge_.add(coordinator_);
}

EditorSurface::~EditorSurface() {
    try {
        coordinator_.flushSave();
    } catch (...) {  // what could not be saved is in the held-text store
    }
    bridge_.remove(coordinator_);
}

bool EditorSurface::edit(std::string text) {
    if (!isLoaded() || !loadedPath_) return false;
    auto kept = LineEndings::normalized(text);
    text_ = kept;
    if (kept != text) loadGeneration.set(loadGeneration + 1);
    coordinator_.scheduleSave(std::move(kept));
    return true;
}

bool EditorSurface::change(const std::string& text) {
    if (!isLoaded() || !loadedPath_) return false;
    replaceText(LineEndings::normalized(text));
    coordinator_.scheduleSave(text_);
    coordinator_.flushSave();
    return true;
}

void EditorSurface::flush() {
    coordinator_.flushSave();
}

/// What was typed into the note that is left behind is saved, or tried once more.
void EditorSurface::leave() {
    coordinator_.flushSave();
    if (!loadedPath_) return;
    const std::string path = *loadedPath_;
    if (const auto held = ledger_.unsaved.find(path); held != ledger_.unsaved.end())
        write(std::string(held->second), path, true);
}

void EditorSurface::close() {
    leave();
    reading_.cancel();
    ++loadToken_;
    loadedPath_.reset();
    text_.clear();
    selection = {};
    title.clear();
    olderCopyPath.setIfChanged(std::nullopt);
    state.set({LoadState::Plain::idle});
    loadGeneration.set(loadGeneration + 1);
}

void EditorSurface::begin(const std::string& path) {
    reading_.cancel();
    if (loadedPath_ != path) selection = {};
    state.set({LoadState::Plain::idle});
    loadedPath_ = path;
    title = titleOf(path);
    ++loadToken_;
}

void EditorSurface::load(const std::string& path) {
    leave();
    begin(path);
    if (const auto held = ledger_.unsaved.find(path); held != ledger_.unsaved.end()) {
        const std::string text = held->second;
        text_ = text;
        ledger_.seenRevision = session_->diskRevisionOf(path);
        state.set({LoadState::Plain::loaded});
        loadGeneration.set(loadGeneration + 1);
        write(text, path, true);
        return;
    }
    const FilePath file = session_->vault().absolutePath(path);
    if (!needsDownload(UbiquityStatus::of(file))) {
        try {
            if (const auto text = CoordinatedIO::read(file)) return loaded(*text, path);
        } catch (const Error&) {  // a worker tries longer, and tells why not
        }
    }
    download(path);
}

void EditorSurface::download(const std::string& path) {
    state.set({LoadState::Plain::downloading});
    reading_ = services_.background.run(
        Priority::userInitiated,
        [&mainQueue = services_.mainQueue, &clock = services_.clock, weak = weak_from_this(), path,
         token = loadToken_, file = session_->vault().absolutePath(path)](const std::stop_token& stop) {
            std::optional<FreshRead> fresh;
            std::string message;
            try {
                fresh = AtomicWrite::readFresh(file, readLimit, staleLimit, clock, stop);
            } catch (const std::exception&) {
                message = describe(std::current_exception());
            }
            mainQueue.post([weak, path, token, fresh = std::move(fresh), message = std::move(message)] {
                auto surface = weak.lock();
                if (!surface || surface->loadToken_ != token || surface->loadedPath_ != path) return;
                if (fresh) {
                    surface->downloaded(*fresh, path);
                } else {
                    surface->failed(message);
                }
            });
        });
}

void EditorSurface::downloaded(const FreshRead& fresh, const std::string& path) {
    if (!fresh.text) {
        Note note;
        note.relativePath = path;
        return failed(localised("{} no longer exists on disk.", note.name()));
    }
    loaded(*fresh.text, path);
    if (!fresh.possiblyStale) return;
    session_->awaitCurrentVersion(path);
    olderCopyPath.set(path);
}

void EditorSurface::failed(std::string message) {
    state.set({LoadState::Failed{std::move(message)}});
}

void EditorSurface::loaded(const std::string& text, const std::string& path) {
    text_ = text;
    notice.setIfChanged(std::nullopt);
    ledger_.baselines.insert_or_assign(path, text);
    if (!coordinator_.hasUnsavedEdit()) {
        std::erase_if(ledger_.baselines, [&](const auto& entry) {
            return entry.first != path && !ledger_.unsaved.contains(entry.first);
        });
    }
    ledger_.seenRevision = session_->diskRevisionOf(path);
    session_->departures().arrived(path);
    session_->textShown(path, text);
    state.set({LoadState::Plain::loaded});
    loadGeneration.set(loadGeneration + 1);
}

void EditorSurface::followDisk(bool evenIfUnannounced) {
    if (!loadedPath_) return;
    const std::string path = *loadedPath_;
    if (!isLoaded()) {
        if (evenIfUnannounced) load(path);
        return;
    }
    const int revision = session_->diskRevisionOf(path);
    if (!evenIfUnannounced && revision == ledger_.seenRevision) return;
    ledger_.seenRevision = revision;
    if (coordinator_.hasUnsavedEdit()) return coordinator_.flushSave();
    // Held text may stand in the file by now; it is let go only by a save.
    if (baselineOf(path) != text_ || ledger_.unsaved.contains(path))
        return write(std::string(text_), path, true);

    services_.background.run(
        Priority::userInitiated,
        [&mainQueue = services_.mainQueue, weak = weak_from_this(), path, shown = text_, token = loadToken_,
         look = ++lookToken_, file = session_->vault().absolutePath(path)](const std::stop_token&) {
            auto found = DiskLook::at(file);
            mainQueue.post([weak, path, shown, token, look, found = std::move(found)] {
                auto surface = weak.lock();
                if (!surface || surface->loadToken_ != token || surface->lookToken_ != look ||
                    surface->loadedPath_ != path || surface->text_ != shown ||
                    surface->coordinator_.hasUnsavedEdit())
                    return;
                // What stands in the baseline now was read or written after this look began.
                if (surface->baselineOf(path) != shown || surface->ledger_.unsaved.contains(path)) return;
                surface->adopt(found, path);
            });
        });
}

void EditorSurface::adopt(const DiskLook& look, const std::string& path) {
    const auto take = [&](const std::string& text) {
        if (text == text_) return;
        ledger_.baselines.insert_or_assign(path, text);
        session_->textShown(path, text);
        replaceText(text);
    };
    match(
        look,
        [&](const DiskLook::Current& current) {
            take(current.text);
            olderCopyPath.setIfChanged(std::nullopt);
        },
        [&](const DiskLook::OutOfDate& older) {
            session_->awaitCurrentVersion(path);
            olderCopyPath.setIfChanged(path);
            if (older.text) take(*older.text);
        },
        [](const DiskLook::Nothing&) {});
}

void EditorSurface::replaceText(const std::string& text) {
    selection = TextReload::mapSelection(selection, utf16(text_), utf16(text));
    text_ = text;
    loadGeneration.set(loadGeneration + 1);
}

void EditorSurface::follow(const std::string& from, const std::string& to) {
    if (from == to || from.empty()) return;
    makeWayFor(from, to);
    const bool replacesShown =
        loadedPath_ && isAtOrBelow(*loadedPath_, to) && !isAtOrBelow(*loadedPath_, from);
    rename(ledger_.baselines, from, to);
    rename(ledger_.unsaved, from, to);
    rename(ledger_.owners, from, to);
    if (replacesShown) return load(std::string(*loadedPath_));
    if (loadedPath_ && isAtOrBelow(*loadedPath_, from)) {
        const std::string shown = *loadedPath_;
        followShown(shown, to + shown.substr(from.size()));
        // What befell it at the new place was news of a note that wasn't shown yet.
        if (isLoaded()) followDisk(true);
    }
}

void EditorSurface::followShown(const std::string& from, const std::string& to) {
    if (loadedPath_ != from) return;
    loadedPath_ = to;
    title = titleOf(to);
    if (olderCopyPath.get() == from) olderCopyPath.set(to);
    // A read of the old place is of no use any more.
    if (!isLoaded()) load(to);
}

}  // namespace vesk
