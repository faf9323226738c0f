#include "VeskCore/Vault/AtomicWrite.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Uuid.h"
#include "VeskCore/Vault/ForeignEdit.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

namespace {

using Kind = VaultWriteError::Kind;

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t lineEndingProbe = 0x10000;
constexpr std::chrono::milliseconds statusPause{200};

FileSystem& files() {
    return *FilePlatform::current().files;
}
FileCoordination& coordination() {
    return *FilePlatform::current().coordination;
}

bool isNormalised(std::string_view text) {
    return !text.starts_with(byteOrderMark) && text.find("\r\n") == text.npos;
}

/// What every reader above sees: text with LF line ends. A large note in good order is not copied.
std::string textOfFile(std::string bytes) {
    std::string text = decodedText(std::move(bytes));
    return isNormalised(text) ? text : LineEndings::normalized(text);
}

/// The file's bytes as text; none if there is no file. Told by the read itself, so that a file that can't be
/// reached isn't taken for one that isn't there.
std::optional<std::string> localText(const FilePath& path) {
    try {
        return textOfFile(files().read(path, {}));
    } catch (const SystemError&) {
        if (files().exists(path)) throw;
        return {};
    }
}

/// Before any look at the contents: reading a placeholder would block or fail.
void requireLocalContent(const FilePath& path) {
    const UbiquityState status = UbiquityStatus::of(path);
    if (needsDownload(status)) UbiquityStatus::requestDownload(path);
    if (!hasLocalContent(status)) throw VaultWriteError(Kind::notMaterialised, path);
}

bool hasLocalBytes(const FilePath& path) {
    const auto info = files().info(path);
    return info && !UbiquityStatus::isDataless(path) && info->size > 0;
}

/// The file that a write has to replace: a symbolic link stays and its target changes.
FilePath followed(const FilePath& path) {
    const auto link = files().linkInfo(path);
    if (!link || link->kind != FileKind::symbolicLink) return path;
    return files().realPath(path).value_or(path);
}

/// The regular file at the target, if anything is there. A rename would put other kinds of item out of the
/// way.
std::optional<FileInfo> replaceableFile(const FilePath& target) {
    auto info = files().info(target);
    if (info && info->kind == FileKind::directory) throw SystemError(EISDIR, "write", target.native());
    if (info && info->kind != FileKind::regular) throw SystemError(EINVAL, "write", target.native());
    return info;
}

/// Removes the temporary file unless it has come to its place.
class Temporary {
public:
    explicit Temporary(const FilePath& folder) : path_(AtomicWrite::temporaryPath(folder)) {}
    ~Temporary() {
        if (isPlaced_) return;
        try {
            files().remove(path_);
        } catch (...) {  // the failure that brought us here is the one to report
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    const FilePath& path() const { return path_; }
    void placed() { isPlaced_ = true; }

private:
    FilePath path_;
    bool isPlaced_ = false;
};

/// The bytes in a temporary file that already has what is kept of the file in place.
void fillTemporary(const Temporary& temporary, std::string_view bytes,
                   const std::optional<FileInfo>& former) {
    files().writeNew(temporary.path(), bytes);
    if (!former) return;
    try {
        files().setCreationDate(temporary.path(), former->created);
    } catch (const Error&) {  // a save matters more than a date
    }
}

void placeBytes(const FilePath& target, std::string_view bytes, bool mayReplace, bool keepsCreationDate) {
    files().createDirectories(target.parent_path());
    const std::optional<FileInfo> former = mayReplace ? replaceableFile(target) : std::nullopt;
    Temporary temporary(target.parent_path());
    fillTemporary(temporary, bytes, keepsCreationDate ? former : std::nullopt);
    if (former) {
        files().replace(target, temporary.path());
    } else {
        files().move(temporary.path(), target);
    }
    temporary.placed();
}

void requireUtf8(const FilePath& path, std::string_view text) {
    if (!isValidUtf8(text)) throw VaultWriteError(Kind::encodingFailed, path);
}

/// The text as the file in place has its line ends; `converted` holds it if it had to change.
std::string_view withLineEndingsOf(const FilePath& target, std::string_view text, std::string& converted) {
    if (LineEndings::ofFile(target) == LineEnding::lf) return text;
    converted = LineEndings::applied(LineEnding::crlf, text);
    return converted;
}

/// Also behind a link: a page is read-only under any name.
FilePath writableTarget(const FilePath& path) {
    AtomicWrite::refuseDocument(path);
    FilePath target = followed(path);
    AtomicWrite::refuseDocument(target);
    return target;
}

ForeignEdit::Disk diskHolding(std::optional<std::string> text) {
    if (!text) return {ForeignEdit::Disk::Plain::gone};
    return {ForeignEdit::Disk::Text{std::move(*text)}};
}

/// Puts a temporary file in the place of a file that has to hold one certain text. The two are exchanged and
/// what came out is looked at, so that no moment is left in which a text could be overwritten unseen.
class Replacement {
public:
    Replacement(const FilePath& target, std::string_view bytes, const std::string& expected)
        : target_(target), ours_(bytes), expected_(expected), temporary_(target.parent_path()) {}

    void run(const FileInfo& former) {
        fillTemporary(temporary_, ours_, former);
        try {
            files().carryMetadata(target_, temporary_.path());
            if (exchange(std::string(ours_))) {
                settle();
            } else {
                replaceAfterReading();
            }
        } catch (const SystemError& error) {
            if (error.code != ENOENT || files().linkInfo(target_)) throw;
            throw ForeignEdit::DiskChangedMeanwhile(diskHolding({}));
        }
    }

private:
    static constexpr int maximumRounds = 8;
    static constexpr int maximumLostRaces = 100;

    /// False where files can't be exchanged. `inHand` is what contents() says before.
    bool exchange(const std::optional<std::string>& inHand) {
        try {
            return files().exchange(target_, temporary_.path());
        } catch (const Error&) {
            // The exchange may stand and only not be on stable storage; the temporary file tells.
            if (contents() == inHand) throw;
            failure_ = std::current_exception();
            return true;
        }
    }

    /// The smallest window that is left where files can't be exchanged.
    void replaceAfterReading() {
        auto now = localText(target_);
        if (now != expected_) throw ForeignEdit::DiskChangedMeanwhile(diskHolding(std::move(now)));
        files().replace(target_, temporary_.path());
        temporary_.placed();
    }

    /// What the temporary file holds; none if that is no file or can't be read.
    std::optional<std::string> contents() const {
        try {
            const auto info = files().linkInfo(temporary_.path());
            if (info && info->kind == FileKind::regular) return files().read(temporary_.path(), {});
        } catch (const Error&) {  // it is put back unread
        }
        return {};
    }

    /// The new text is in place: looks at what came out and lets go of it or puts it back.
    void settle() {
        auto cameOut = contents();
        if (cameOut && textOfFile(*cameOut) == expected_) {
            if (failure_) std::rethrow_exception(failure_);
            return;
        }
        if (!cameOut) {
            putBack({});
            throw SystemError(EINVAL, "write", target_.native());
        }
        throw ForeignEdit::DiskChangedMeanwhile(diskHolding(textOfFile(putBack(*cameOut))));
    }

    /// Exchanges until what went out is what was put in, so that the last text that came stands in the file.
    /// Returns what the file then holds.
    std::string putBack(std::optional<std::string> inHand) {
        std::optional<std::string> inPlace = std::string(ours_);
        for (int round = 0; round < maximumRounds; ++round) {
            try {
                if (!exchange(inHand)) break;
            } catch (...) {
                keepAside();
                throw;
            }
            auto cameOut = contents();
            // What can't be read may be anyone's.
            if (!cameOut || cameOut == inPlace) {
                if (cameOut != ours_) keepAside();
                return inHand.value_or(std::string());
            }
            inPlace = std::exchange(inHand, std::move(cameOut));
        }
        keepAside();
        return inPlace.value_or(std::string());
    }

    /// A text of others stays as a copy beside the file, at worst under its hidden name.
    void keepAside() noexcept {
        temporary_.placed();
        const FilePath folder = target_.parent_path();
        const auto isTaken = [&](const std::string& name) {
            return files().linkInfo(folder / name).has_value();
        };
        for (int attempt = 0; attempt < maximumLostRaces; ++attempt) {
            try {
                files().move(temporary_.path(),
                             folder / ForeignEdit::conflictCopyPath(target_.filename().native(), isTaken));
                return;
            } catch (const SystemError& error) {
                if (error.code != EEXIST) return;
            } catch (...) {
                return;
            }
        }
    }

    const FilePath& target_;
    std::string_view ours_;
    const std::string& expected_;
    Temporary temporary_;
    std::exception_ptr failure_;
};

/// The text at a name that has to be free.
void placeWhereNothingIs(const FilePath& target, std::string_view text) {
    try {
        placeBytes(target, text, false, false);
    } catch (const SystemError& error) {
        if (error.code != EEXIST) throw;
        auto found = localText(target);
        // A link that leads nowhere holds the name without a text.
        if (!found && files().linkInfo(target)) throw;
        throw ForeignEdit::DiskChangedMeanwhile(diskHolding(std::move(found)));
    }
}

/// A move that fails last, on its way to stable storage, stands all the same: the file is whole under one
/// name or the other, and those who asked have to know it by the new one.
void moveItem(const FilePath& from, const FilePath& to) {
    const auto item = files().linkInfo(from);
    try {
        files().move(from, to);
    } catch (const SystemError&) {
        const auto arrived = files().linkInfo(to);
        if (!item || !arrived || arrived->fileID != item->fileID || arrived->device != item->device ||
            files().linkInfo(from))
            throw;
    }
}

template <class Body>
void coordinatedWrite(const FilePath& path, bool coordinated, Body body) {
    AtomicWrite::refuseDocument(path);
    if (coordinated) {
        coordination().writeForReplacing(path, body);
    } else {
        body();
    }
}

}  // namespace

namespace LineEndings {

std::optional<LineEnding> of(std::string_view data) {
    const std::size_t feed = data.find('\n');
    if (feed == data.npos) return {};
    return feed > 0 && data[feed - 1] == '\r' ? LineEnding::crlf : LineEnding::lf;
}

LineEnding ofFile(const FilePath& path) {
    try {
        if (UbiquityStatus::isDataless(path)) return LineEnding::lf;
        return of(files().read(path, lineEndingProbe)).value_or(LineEnding::lf);
    } catch (const Error&) {
        return LineEnding::lf;
    }
}

std::string normalized(std::string_view text) {
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    return replaceAll(text, "\r\n", "\n");
}

std::string applied(LineEnding ending, std::string_view text) {
    switch (ending) {
        case LineEnding::lf:
            return std::string(text);
        case LineEnding::crlf:
            return replaceAll(normalized(text), "\n", "\r\n");
    }
    return std::string(text);
}

}  // namespace LineEndings

namespace AtomicWrite {

std::optional<std::string> read(const FilePath& path) {
    requireLocalContent(path);
    return localText(path);
}

std::string readData(const FilePath& path, std::size_t limit) {
    requireLocalContent(path);
    return files().read(path, limit);
}

std::optional<std::string> readWaiting(const FilePath& path, Seconds limit, Clock& clock,
                                       std::stop_token stop) {
    return currentText(readFresh(path, limit, limit, clock, std::move(stop)), path);
}

FreshRead readFresh(const FilePath& path, Seconds limit, Seconds staleLimit, Clock& clock,
                    std::stop_token stop) {
    const Duration start = clock.monotonic();
    while (true) {
        const UbiquityState status = UbiquityStatus::of(path);
        if (needsDownload(status)) UbiquityStatus::requestDownload(path);
        const bool sawLocalCopy =
            status == UbiquityState::stale || (status == UbiquityState::downloading && hasLocalBytes(path));
        const Seconds elapsed = clock.monotonic() - start;
        switch (waitStep(status, sawLocalCopy, elapsed, limit, staleLimit)) {
            case WaitStep::read:
                return {.text = CoordinatedIO::read(path), .possiblyStale = false};
            case WaitStep::wait:
                if (!clock.sleep(statusPause, stop)) throw OperationCancelled();
                break;
            case WaitStep::readLocalCopy: {
                // The copy may have gone since the status was read.
                const bool isStillHere = status == UbiquityState::stale
                                             ? files().exists(path) && !UbiquityStatus::isDataless(path)
                                             : hasLocalBytes(path);
                if (!isStillHere) throw VaultWriteError(Kind::notMaterialised, path);
                return {.text = localText(path), .possiblyStale = true};
            }
            case WaitStep::giveUp:
                throw VaultWriteError(Kind::notMaterialised, path);
        }
    }
}

std::optional<std::string> currentText(const FreshRead& fresh, const FilePath& path) {
    if (fresh.possiblyStale) throw VaultWriteError(Kind::notMaterialised, path);
    return fresh.text;
}

WaitStep waitStep(UbiquityState status, bool sawLocalCopy, Seconds elapsed, Seconds limit,
                  Seconds staleLimit) {
    switch (status) {
        case UbiquityState::materialised:
        case UbiquityState::notUbiquitous:
            return WaitStep::read;
        case UbiquityState::stale:
            return elapsed < std::min(limit, staleLimit) ? WaitStep::wait : WaitStep::readLocalCopy;
        case UbiquityState::downloading:
            if (elapsed < (sawLocalCopy ? std::min(limit, staleLimit) : limit)) return WaitStep::wait;
            return sawLocalCopy ? WaitStep::readLocalCopy : WaitStep::giveUp;
        case UbiquityState::placeholder:
            return elapsed < (sawLocalCopy ? std::min(limit, staleLimit) : limit) ? WaitStep::wait
                                                                                  : WaitStep::giveUp;
    }
    return WaitStep::giveUp;
}

void writeText(const FilePath& path, std::string_view text) {
    const FilePath target = writableTarget(path);
    requireUtf8(path, text);
    std::string converted;
    placeBytes(target, withLineEndingsOf(target, text, converted), true, true);
}

void replaceText(const FilePath& path, std::string_view text, const std::optional<std::string>& expected) {
    const FilePath target = writableTarget(path);
    requireUtf8(path, text);
    if (!expected) return placeWhereNothingIs(target, text);
    const auto former = replaceableFile(target);
    if (!former) throw ForeignEdit::DiskChangedMeanwhile(diskHolding({}));
    std::string converted;
    Replacement(target, withLineEndingsOf(target, text, converted), *expected).run(*former);
}

void writeData(const FilePath& path, std::string_view data) {
    placeBytes(writableTarget(path), data, true, false);
}

void createText(const FilePath& path, std::string_view text) {
    refuseDocument(path);
    requireUtf8(path, text);
    placeBytes(path, text, false, false);
}

void createData(const FilePath& path, std::string_view data) {
    refuseDocument(path);
    placeBytes(path, data, false, false);
}

void refuseDocument(const FilePath& path) {
    if (Vault::isDocument(path.filename().native())) throw VaultWriteError(Kind::readOnlyDocument, path);
}

FilePath temporaryPath(const FilePath& folder) {
    return folder / (".vesk-tmp-" + randomUuid());
}

}  // namespace AtomicWrite

namespace CoordinatedIO {

bool needsCoordination(const FilePath& path) {
    const FilePath start = standardised(path);
    if (start.native().find("/Library/Mobile Documents/") != std::string::npos) return true;
    for (FilePath ancestor = start;; ancestor = ancestor.parent_path()) {
        try {
            if (files().exists(ancestor)) {
                const auto values = FilePlatform::current().ubiquity->values(ancestor);
                return values && values->isUbiquitous;
            }
        } catch (const Error&) {  // an item that can't be asked: its folder answers for it
        }
        if (!ancestor.has_relative_path()) return false;
    }
}

std::optional<std::string> read(const FilePath& path) {
    switch (UbiquityStatus::of(path)) {
        case UbiquityState::placeholder:
        case UbiquityState::downloading:
            // Coordinating would block until the download ends.
        case UbiquityState::notUbiquitous:
            return AtomicWrite::read(path);
        case UbiquityState::materialised:
        case UbiquityState::stale:
            break;
    }
    std::optional<std::string> text;
    coordination().read(path, [&] { text = AtomicWrite::read(path); });
    return text;
}

std::optional<std::string> readForSave(const FilePath& path) {
    if (needsDownload(UbiquityStatus::of(path))) {
        UbiquityStatus::requestDownload(path);
        throw VaultWriteError(Kind::notCurrent, path);
    }
    try {
        return read(path);
    } catch (const VaultWriteError& error) {
        if (error.kind == Kind::notMaterialised) throw VaultWriteError(Kind::notCurrent, error.path);
        throw;
    }
}

void writeText(const FilePath& path, std::string_view text) {
    writeText(path, text, needsCoordination(path));
}

void writeText(const FilePath& path, std::string_view text, bool coordinated) {
    coordinatedWrite(path, coordinated, [&] { AtomicWrite::writeText(path, text); });
}

void replaceText(const FilePath& path, std::string_view text, const std::optional<std::string>& expected) {
    coordinatedWrite(path, needsCoordination(path), [&] { AtomicWrite::replaceText(path, text, expected); });
}

void writeData(const FilePath& path, std::string_view data) {
    coordinatedWrite(path, needsCoordination(path), [&] { AtomicWrite::writeData(path, data); });
}

void createText(const FilePath& path, std::string_view text) {
    coordinatedWrite(path, needsCoordination(path), [&] { AtomicWrite::createText(path, text); });
}

void createData(const FilePath& path, std::string_view data) {
    coordinatedWrite(path, needsCoordination(path), [&] { AtomicWrite::createData(path, data); });
}

void move(const FilePath& from, const FilePath& to) {
    move(from, to, needsCoordination(from) || needsCoordination(to));
}

void move(const FilePath& from, const FilePath& to, bool coordinated) {
    if (coordinated) {
        coordination().move(from, to, [&] { moveItem(from, to); });
    } else {
        moveItem(from, to);
    }
}

}  // namespace CoordinatedIO
}  // namespace vesk
