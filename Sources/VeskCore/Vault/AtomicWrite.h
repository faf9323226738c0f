// Every byte that the application writes into a vault goes through here, and every read of a file that a sync
// service may not have finished. Stateless; any thread; stands on the installed FilePlatform.
#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/UbiquityStatus.h"
#include "VeskCore/Vault/VaultWriteError.h"

namespace vesk {

/// A blocking operation was told to stop.
class OperationCancelled : public Error {
public:
    std::string description() const override { return "Cancelled."; }
};

enum class LineEnding { lf, crlf };

namespace LineEndings {

/// By the first LF of the bytes; none if there is no LF.
std::optional<LineEnding> of(std::string_view data);
/// By the file's first 64 KiB; LF when it has none, can't be read, or isn't here. Never triggers a download.
LineEnding ofFile(const FilePath& path);
/// Without one leading U+FEFF, every CR LF as LF.
std::string normalized(std::string_view text);
/// Normalised, then with this line ending. LF leaves the text as it is.
std::string applied(LineEnding ending, std::string_view text);

}  // namespace LineEndings

/// The result of a read that waited for the newest version.
struct FreshRead {
    std::optional<std::string> text;
    bool possiblyStale = false;  ///< the local copy was taken although a newer version exists
    bool operator==(const FreshRead&) const = default;
};

namespace AtomicWrite {

/// How long a read waits for a newer version before it settles for the local copy.
inline constexpr Seconds staleWait{10.0};

/// The file's text with LF line ends and no byte order mark; none if there is no file. Bytes that aren't
/// UTF-8 are read as ISO Latin 1. Throws VaultWriteError (notMaterialised) for a file whose bytes aren't
/// here, after asking for them, and what reading throws.
std::optional<std::string> read(const FilePath& path);
/// At most `limit` bytes as they stand; the same rules of status. Throws if there is no file.
std::string readData(const FilePath& path, std::size_t limit);
/// Waits up to `limit` for current bytes; never hands out a copy known to be old. Blocks a worker.
std::optional<std::string> readWaiting(const FilePath& path, Seconds limit, Clock& clock,
                                       std::stop_token stop);
/// Waits up to `limit` for bytes and up to `staleLimit` for a newer version where a local copy exists. Blocks
/// a worker; throws OperationCancelled when stopped.
FreshRead readFresh(const FilePath& path, Seconds limit, Seconds staleLimit, Clock& clock,
                    std::stop_token stop);
/// The text, or VaultWriteError (notMaterialised) if it was possibly stale.
std::optional<std::string> currentText(const FreshRead& fresh, const FilePath& path);

enum class WaitStep { read, wait, readLocalCopy, giveUp };
/// What a waiting read does next.
WaitStep waitStep(UbiquityState status, bool sawLocalCopy, Seconds elapsed, Seconds limit,
                  Seconds staleLimit);

/// Replaces or makes the file in one durable step, keeping its line endings, creation date, mode, owner and
/// extended attributes. A symbolic link is followed to its target. On failure the file is as it was.
void writeText(const FilePath& path, std::string_view text);
/// The same only while the file holds `expected`, as read() gives it; none stands for "nothing there".
/// Otherwise throws ForeignEdit::DiskChangedMeanwhile with what is there, and the file holds that as if
/// nothing had been tried. Other programs may write at any moment: no text of theirs is overwritten unseen.
/// One that can't be put back where it was stands beside the file as a conflict copy.
void replaceText(const FilePath& path, std::string_view text, const std::optional<std::string>& expected);
/// writeText() for bytes: no line-ending work, no creation date.
void writeData(const FilePath& path, std::string_view data);
/// Makes a file that was not there, in the same durable way. SystemError with EEXIST if the name is taken,
/// also by another process in the last moment: what holds it is never overwritten.
void createText(const FilePath& path, std::string_view text);
void createData(const FilePath& path, std::string_view data);
/// Throws VaultWriteError (readOnlyDocument) for a page or stylesheet.
void refuseDocument(const FilePath& path);
/// A fresh hidden name in the folder, for what is moved into place on the same volume.
FilePath temporaryPath(const FilePath& folder);

}  // namespace AtomicWrite

/// Reads and writes in a provider's folder take turns with it; elsewhere they are AtomicWrite's own.
namespace CoordinatedIO {

bool needsCoordination(const FilePath& path);
std::optional<std::string> read(const FilePath& path);
/// The read a save makes of what is on disk now: never a stale copy. Throws VaultWriteError (notCurrent) when
/// a newer version is on its way.
std::optional<std::string> readForSave(const FilePath& path);
void writeText(const FilePath& path, std::string_view text);
void writeText(const FilePath& path, std::string_view text, bool coordinated);
/// AtomicWrite's, for a file that has to hold `expected`.
void replaceText(const FilePath& path, std::string_view text, const std::optional<std::string>& expected);
void writeData(const FilePath& path, std::string_view data);
/// AtomicWrite's, for a name that has to be free.
void createText(const FilePath& path, std::string_view text);
void createData(const FilePath& path, std::string_view data);
/// Fails if something is at `to` already.
void move(const FilePath& from, const FilePath& to);
void move(const FilePath& from, const FilePath& to, bool coordinated);

}  // namespace CoordinatedIO

}  // namespace vesk
