#include "Vesk/Links/LinksModel.h"

#include <algorithm>
#include <unordered_set>

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

/// So that going through notes by keys doesn't scan the vault for each.
constexpr auto scanPause = std::chrono::duration_cast<Duration>(Seconds{0.3});

std::string nameOf(std::string_view path) {
    return decodedText(std::string(stem(path)));
}

std::set<std::string> goneOf(const LinkOverview& overview, const Vault& vault) {
    std::set<std::string> gone, seen;
    const auto look = [&](const std::string& path) {
        if (!seen.insert(path).second) return;
        try {
            if (!vault.isNameTaken(vault.absolutePath(path))) gone.insert(path);
        } catch (const Error&) {  // what can't be told isn't said
        }
    };
    for (const auto& link : overview.backlinks) look(link.sourcePath);
    for (const auto& link : overview.outgoing)
        if (link.resolvedPath) look(*link.resolvedPath);
    return gone;
}

}  // namespace

std::shared_ptr<LinksModel> LinksModel::make(Workspace& workspace, MainQueue& mainQueue,
                                             Background& background) {
    auto model = std::shared_ptr<LinksModel>(new LinksModel(workspace, mainQueue, background));
    model->watch();
    return model;
}

LinksModel::LinksModel(Workspace& workspace, MainQueue& mainQueue, Background& background)
    : workspace_(workspace), mainQueue_(mainQueue), background_(background) {}

void LinksModel::watch() {
    subscriptions_.push_back(workspace_.selection.subscribe([this](const auto&) { refresh(); }));
    subscriptions_.push_back(workspace_.vault.subscribe([this](const auto&) { refresh(); }));
    subscriptions_.push_back(workspace_.session.subscribe([this](const auto&) {
        watchSession();
        refresh();
    }));
    watchSession();
}

void LinksModel::watchSession() {
    sessionSubscriptions_.clear();
    const auto session = workspace_.session.get();
    if (!session) return;
    sessionSubscriptions_.push_back(session->indexing.subscribe([this](bool) { refresh(); }));
    sessionSubscriptions_.push_back(session->diskRevision.subscribe([this](int) { refresh(); }));
}

void LinksModel::setVisible(bool visible) {
    if (visible == isVisible_) return;
    isVisible_ = visible;
    if (visible) return refresh();
    stopScan();
    reading_.cancel();
    refreshes_.begin();
    // What happens meanwhile isn't followed; the next look reads anew.
    forget();
}

void LinksModel::forget() {
    path_.clear();
    linkName_.clear();
    stale_.clear();
}

void LinksModel::show(State next) {
    forget();
    stopScan();
    overview.setIfChanged({});
    mentions.setIfChanged({});
    state.setIfChanged(next);
}

void LinksModel::refresh() {
    if (!isVisible_) return;
    reading_.cancel();
    const auto number = refreshes_.begin();
    const auto selected = workspace_.selection.get();
    const auto session = workspace_.session.get();
    if (!workspace_.vault.get() || !selected || Vault::isDocument(*selected)) {
        // Without a note it doesn't matter yet that the index is missing, but without an index no choice of a
        // note helps.
        return show(workspace_.vault.get() && !session ? State::noIndex : State::noNote);
    }
    if (!session) return show(State::noIndex);
    if (session->indexing.get()) return show(State::indexing);
    if (path_ != *selected) {
        show(State::reading);
        path_ = *selected;
        scanLater();
    }
    reading_ = background_.run(
        Priority::userInitiated,
        [&mainQueue = mainQueue_, weak = weak_from_this(), number, path = path_,
         vault = *workspace_.vault.get(), index = session->indexForJobs()](const std::stop_token& stop) {
            if (stop.stop_requested()) return;
            auto found = LinkQueries(*index).overview(path);
            auto gone = goneOf(found, vault);
            mainQueue.post([weak, number, found = std::move(found), gone = std::move(gone)]() mutable {
                const auto model = weak.lock();
                if (!model || !model->refreshes_.isLatest(number)) return;
                const bool goneDiffer = model->stale_ != gone;
                model->stale_ = std::move(gone);
                const bool isFirst = model->state.get() != State::shown;
                if (goneDiffer || isFirst || model->overview.get() != found)
                    model->overview.set(std::move(found));
                model->state.setIfChanged(State::shown);
            });
        });
}

void LinksModel::stopScan() {
    scanTimer_.cancel();
    scan_.cancel();
    scans_.begin();
    scanning.setIfChanged(false);
}

void LinksModel::scanLater() {
    stopScan();
    scanning.setIfChanged(true);
    scanTimer_ = mainQueue_.postAfter(scanPause, [this] { scan(); });
}

void LinksModel::scan() {
    const auto session = workspace_.session.get();
    if (!session || path_.empty()) return scanning.setIfChanged(false);
    scan_ = background_.run(
        Priority::utility, [&mainQueue = mainQueue_, weak = weak_from_this(), number = scans_.begin(),
                            path = path_, index = session->indexForJobs()](const std::stop_token& stop) {
            const LinkQueries queries(*index);
            auto found = queries.unlinkedMentions(path, stop);
            if (stop.stop_requested()) return;
            std::string name;
            try {
                name = queries.linkName(path);
            } catch (const Error&) {  // what is there says that the index can't be read
            }
            mainQueue.post([weak, number, found = std::move(found), name = std::move(name)]() mutable {
                const auto model = weak.lock();
                if (!model || !model->scans_.isLatest(number)) return;
                model->linkName_ = std::move(name);
                model->mentions.set(std::move(found));
                model->scanning.setIfChanged(false);
            });
        });
}

// Words

std::optional<LinksModel::Message> LinksModel::message() const {
    switch (state.get()) {
        case State::noNote:
            return Message{localised("No note selected"), localised("Pick a note to see what links to it.")};
        case State::noIndex:
            return Message{
                "",
                localised(
                    "Vesk couldn't open its index, so it can't tell which notes link here. Your notes are "
                    "untouched — the index is only a cache. Reopening the vault rebuilds it.")};
        case State::indexing:
            return Message{"", localised("Indexing the vault — links appear when it finishes.")};
        case State::reading:
            return Message{"", localised("Reading the link index…")};
        case State::shown:
            if (overview->failure) return Message{"", *overview->failure};
            return {};
    }
    return {};
}

std::optional<LinksModel::Message> LinksModel::backlinksMessage() const {
    if (!overview->backlinks.empty()) return {};
    return Message{localised("Nothing links here yet."),
                   localised("Type [[{}]] in another note and it appears in this list.", nameOf(path_))};
}

std::optional<LinksModel::Message> LinksModel::outgoingMessage() const {
    if (!overview->outgoing.empty()) return {};
    return Message{"", localised("This note doesn't link anywhere.")};
}

std::optional<LinksModel::Message> LinksModel::mentionsMessage() const {
    const auto& found = mentions.get();
    if (scanning.get()) return Message{"", localised("Looking for mentions…")};
    if (found.failure) return Message{"", *found.failure};
    std::string words;
    if (found.truncated) {
        words = localised("Only the first {} mentions are shown.", found.mentions.size());
    } else if (found.mentions.empty() && !found.terms.empty()) {
        words = localised("No other note mentions this one without a link.");
    }
    if (!found.skipped.empty()) {
        std::vector<std::string> names;
        for (const auto& term : found.skipped) names.push_back("“" + term + "”");
        if (!words.empty()) words += " ";
        words += localisedCount("{} is too short to look for.", "{} are too short to look for.", names.size(),
                                join(names, ", "));
    }
    if (words.empty()) return {};
    return Message{"", words};
}

std::string LinksModel::staleMessage(std::string_view path) {
    return localised(
        "{} is in Vesk's index but not in the vault folder any more. "
        "It drops off these lists after the next reindex.",
        nameOf(path));
}

// Lists

std::vector<LinksModel::Group> LinksModel::groups() const {
    std::vector<Group> result;
    for (const auto& link : overview->backlinks) {
        if (result.empty() || result.back().path != link.sourcePath)
            result.push_back({link.sourcePath, link.sourceTitle, {}});
        result.back().links.push_back(link);
    }
    std::stable_sort(result.begin(), result.end(), [](const Group& one, const Group& other) {
        return localisedStandardCompare(one.title, other.title) < 0;
    });
    return result;
}

std::vector<OutgoingLink> LinksModel::outgoing() const {
    std::vector<OutgoingLink> result;
    std::unordered_set<std::string> seen;
    for (const auto& link : overview->outgoing) {
        // A path has no line feed in front.
        const auto place = link.resolvedPath ? *link.resolvedPath : "\n" + NoteIndex::linkKey(link.target);
        if (link.resolvedPath != path_ && seen.insert(place).second) result.push_back(link);
    }
    return result;
}

// Mentions

PendingLink LinksModel::pendingLink(const UnlinkedMention& mention) const {
    return PendingLink::of(mention, linkName_);
}

std::optional<PendingLink> LinksModel::link(const UnlinkedMention& mention) {
    const auto pending = pendingLink(mention);
    if (!pending.previewAvailable || !editor.insert(pending, workspace_)) return {};
    // The others of the note have moved along, and stay good without another scan.
    const auto grown = utf16Length(pending.replacement) - pending.mention.range.length;
    mentions.modify([&](UnlinkedMentionScan& scan) {
        std::erase_if(scan.mentions, [&](const auto& other) { return other.id == pending.id; });
        for (auto& other : scan.mentions) {
            if (other.sourcePath != pending.mention.sourcePath) continue;
            if (other.context == pending.mention.context && other.line == pending.mention.line) {
                other.context = pending.after;
                if (other.column > pending.mention.column) other.column += static_cast<int>(grown);
            }
            if (other.range.location > pending.mention.range.location) other.range.location += grown;
        }
    });
    return pending;
}

bool LinksModel::undo(const PendingLink& link) {
    const bool isUndone = editor.undo(link, workspace_);
    if (isUndone && isVisible_ && !path_.empty()) scanLater();
    return isUndone;
}

// Missing notes

LinksModel::MissingTarget LinksModel::missingTarget(std::string_view target) {
    const auto written = std::string(trim(target));
    MissingTarget missing;
    if (Vault::leavesVault(written)) {
        missing.refusal =
            Message{localised("“{}” points outside the vault, so Vesk won't create it. ", written),
                    localised("Rename the link to something inside the vault folder.")};
        return missing;
    }
    auto name = lastComponent(written);
    if (Vault::noteExtensions().contains(lowercasedExtension(name))) name = stem(name);
    missing.name = std::string(trim(name));
    auto folder = parentFolder(written);
    while (folder.starts_with("./")) folder.remove_prefix(2);
    if (folder != ".") missing.folder = std::string(folder);
    const auto components = pathComponents(missing.folder);
    const bool isHidden = std::any_of(components.begin(), components.end(),
                                      [](std::string_view one) { return one.starts_with('.'); });
    if (isHidden || missing.name.empty() || missing.name.starts_with('.'))
        missing.refusal = Message{
            localised("“{}” is no place where Vesk shows notes, so it won't create one there.", written), ""};
    return missing;
}

bool LinksModel::createMissing(std::string_view target) {
    const auto missing = missingTarget(target);
    if (!workspace_.vault.get()) return false;
    if (missing.refusal) {
        workspace_.folderError.set(missing.refusal->heading + missing.refusal->text);
        return false;
    }
    try {
        const auto made = workspace_.vault.get()->createNote(missing.name, missing.folder, "");
        // The links that miss it find it without waiting for the watcher and the next full pass.
        if (const auto session = workspace_.session.get()) {
            session->apply({FileChange{made.path, made.relativePath, {FileChange::Kind::Plain::created}}});
            try {
                session->index().resolveLinks();
            } catch (const IndexError&) {  // the next full pass does
            }
        }
        workspace_.reload();
        workspace_.select(made.relativePath);
    } catch (const std::exception&) {
        workspace_.folderError.set(describe(std::current_exception()));
        return false;
    }
    return true;
}

}  // namespace vesk
