#include "VeskCore/Vault/ForeignEdit.h"

#include <fmt/format.h>

#include <cerrno>
#include <utility>

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::ForeignEdit {

namespace {

using Exists = std::function<bool(const std::string&)>;

/// How often a save decides anew about a file that others keep writing to.
constexpr int maximumRounds = 8;

std::string siblingPath(std::string_view path, std::string_view marker, const Exists& exists) {
    const bool isNote = Vault::noteExtensions().contains(lowercasedExtension(path));
    const std::string_view extension = isNote ? pathExtension(path) : "md";
    for (long number = 1;; ++number) {
        const std::string tail = number == 1 ? fmt::format(" {}).{}", marker, extension)
                                             : fmt::format(" {} {}).{}", marker, number, extension);
        std::string candidate = joinedPath(parentFolder(path), fittingFileName(stem(path), tail));
        if (!exists(candidate)) return candidate;
    }
}

/// The match of a kept copy's ending: offset in the stem's bytes.
std::optional<std::size_t> keptCopyEnding(std::string_view stem) {
    static const Pattern ending(R"( \((recovered( \d+)?|conflict from .+)\)( \d+)*$)");
    const bool isText = isValidUtf8(stem);
    // Of bytes that are no text each one is a unit of its own.
    const std::u16string units = utf16(isText ? std::string(stem) : latin1ToUtf8(stem));
    const auto found = ending.firstMatch(units);
    if (!found) return {};
    const std::size_t location = found->range().location;
    return isText ? utf8(std::u16string_view(units).substr(0, location)).size() : location;
}

/// One save: its steps answer none when another text has come in meanwhile, which `disk_` then is.
class Save {
public:
    Save(const std::string& text, const std::string& path, const std::optional<std::string>& baseline,
         const Effects& effects, const Departures& departures)
        : text_(text), path_(path), baseline_(baseline), effects_(effects), departures_(departures) {}

    Outcome run() {
        disk_ = effects_.readDisk(path_);
        for (int round = 0; round < maximumRounds; ++round) {
            if (auto outcome = settle()) return withCopy(std::move(*outcome));
        }
        return afterLastRound();
    }

private:
    std::optional<Outcome> settle() {
        if (const auto* found = std::get_if<Disk::Text>(&disk_.value)) return settleAgainst(found->text);
        switch (std::get<Disk::Plain>(disk_.value)) {
            case Disk::Plain::unreadable:
                break;
            case Disk::Plain::gone:
                if (baseline_) return settleGone();
                break;
        }
        return wrote(text_, {Outcome::Plain::wrote});
    }

    std::optional<Outcome> settleGone() {
        const auto route = departures_.route(path_);
        if (route && effects_.exists(route->path)) {
            auto inner = save(text_, route->path, baseline_, effects_, departures_.notFollowing());
            return Outcome{
                Outcome::FollowedMove{route->path, std::make_shared<const Outcome>(std::move(inner))}};
        }
        if ((route && departures_.wasTrashed(route->path, route->at)) || departures_.wasTrashed(path_)) {
            return Outcome{Outcome::Plain::noteTrashed};
        }
        return Outcome{Outcome::KeptAsCopy{writeCopy(text_, recoveredCopyPath)}};
    }

    std::optional<Outcome> settleAgainst(const std::string& found) {
        if (found == text_) return Outcome{Outcome::Plain::alreadyOnDisk};
        if (!baseline_) return keepBoth(found);
        if (found == *baseline_) return wrote(text_, {Outcome::Plain::wrote});
        if (text_ == *baseline_) return Outcome{Outcome::DiskWins{found}};
        const auto merged = foldReminderKeys(*baseline_, found, text_);
        if (!merged) return keepBoth(found);
        if (*merged == found) return Outcome{Outcome::Merged{*merged}};
        return wrote(*merged, {Outcome::Merged{*merged}});
    }

    std::optional<Outcome> keepBoth(std::string found) {
        // A copy from an earlier round doesn't hold this text.
        copy_ = writeCopy(found, conflictCopyPath);
        try {
            return wrote(text_, {Outcome::KeptBoth{*copy_}});
        } catch (...) {
            throw CopyKeptButSaveFailed(*copy_, std::move(found), describe(std::current_exception()));
        }
    }

    std::optional<Outcome> wrote(const std::string& text, Outcome outcome) {
        try {
            effects_.write(text, path_, disk_);
            return outcome;
        } catch (const DiskChangedMeanwhile& change) {
            disk_ = change.found;
            return {};
        }
    }

    /// Writes to the first name that nothing holds, also when another process takes one in the last moment.
    std::string writeCopy(const std::string& text, std::string (*freePath)(std::string_view, const Exists&)) {
        std::string copy;
        for (int attempt = 0; attempt < maximumRounds; ++attempt) {
            copy = freePath(path_, effects_.exists);
            try {
                effects_.write(text, copy, {Disk::Plain::gone});
                return copy;
            } catch (const DiskChangedMeanwhile&) {  // the name is held now
            }
        }
        throw SystemError(EEXIST, "write", copy);
    }

    /// An earlier round's copy is told of, whatever became of the note after it.
    Outcome withCopy(Outcome outcome) const {
        const auto* plain = std::get_if<Outcome::Plain>(&outcome.value);
        if (copy_ && plain && *plain != Outcome::Plain::noteTrashed) return {Outcome::KeptBoth{*copy_}};
        return outcome;
    }

    /// The file never stands still: what it holds is copied once more and the user's text tried for the last
    /// time.
    Outcome afterLastRound() {
        const auto* found = std::get_if<Disk::Text>(&disk_.value);
        if (!found) return {Outcome::KeptAsCopy{writeCopy(text_, recoveredCopyPath)}};
        if (found->text == text_) return withCopy({Outcome::Plain::alreadyOnDisk});
        if (auto outcome = keepBoth(found->text)) return *outcome;
        const auto* now = std::get_if<Disk::Text>(&disk_.value);
        if (!now) return {Outcome::KeptAsCopy{writeCopy(text_, recoveredCopyPath)}};
        throw CopyKeptButSaveFailed(*copy_, now->text, DiskChangedMeanwhile(disk_).description());
    }

    const std::string& text_;
    const std::string& path_;
    const std::optional<std::string>& baseline_;
    const Effects& effects_;
    const Departures& departures_;
    Disk disk_;
    std::optional<std::string> copy_;  ///< the conflict copy written last
};

}  // namespace

bool Outcome::FollowedMove::operator==(const FollowedMove& other) const {
    if (to != other.to) return false;
    return inner && other.inner ? *inner == *other.inner : inner == other.inner;
}

std::string CopyKeptButSaveFailed::description() const {
    return fmt::format("The other device's version was kept as \"{}\". but your text couldn't be saved: {}",
                       decodedText(std::string(lastComponent(copyPath))), underlying);
}

Outcome save(const std::string& text, const std::string& path, const std::optional<std::string>& baseline,
             const Effects& effects, const Departures& departures) {
    return Save(text, path, baseline, effects, departures).run();
}

Decision decide(const std::optional<std::string>& baseline, const Disk& onDisk, const std::string& incoming) {
    using Plain = Decision::Plain;
    return match(
        onDisk,
        [&](const Disk::Text& disk) -> Decision {
            if (disk.text == incoming) return {Plain::alreadyOnDisk};
            if (!baseline) return {Plain::keepBoth};
            if (disk.text == *baseline) return {Plain::write};
            if (incoming == *baseline) return {Plain::diskWins};
            if (auto merged = foldReminderKeys(*baseline, disk.text, incoming)) {
                return {Decision::Merged{std::move(*merged)}};
            }
            return {Plain::keepBoth};
        },
        [&](Disk::Plain disk) -> Decision {
            return {disk == Disk::Plain::gone && baseline ? Plain::noteGone : Plain::write};
        });
}

std::string conflictCopyPath(std::string_view path, const Exists& exists) {
    return siblingPath(path, conflictMarker, exists);
}

std::string recoveredCopyPath(std::string_view path, const Exists& exists) {
    return siblingPath(path, recoveredMarker, exists);
}

bool isKeptCopy(std::string_view stem) {
    return keptCopyEnding(stem).has_value();
}

std::optional<std::string> originalStem(std::string_view keptCopyStem) {
    const auto ending = keptCopyEnding(keptCopyStem);
    if (!ending) return {};
    return std::string(keptCopyStem.substr(0, *ending));
}

bool isConflictCopy(std::string_view stem) {
    return stem.find(conflictMarker) != stem.npos;
}

LeavingDecision leavingDecision(const std::optional<std::string>& baseline, std::string_view buffer,
                                bool heldForDownload, bool background, bool switchingVault) {
    if (heldForDownload && baseline && !switchingVault) {
        if (auto change = reminderKeyChange(*baseline, buffer))
            return {LeavingDecision::Owe{std::move(*change)}};
    }
    return {background ? LeavingDecision::Plain::hold : LeavingDecision::Plain::keepCopy};
}

}  // namespace vesk::ForeignEdit
