// Kinds of file in a vault, saved pages with their folders, and attachments.
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

namespace {

constexpr std::string_view savedFolderSuffix = "_files";

FileSystem& files() {
    return *FilePlatform::current().files;
}

/// A page or stylesheet that the user saves into the vault: the one way for such a file past the refusal of
/// documents.
void placeDocument(const FilePath& path, std::string_view data) {
    files().createDirectories(path.parent_path());
    const FilePath temporary = AtomicWrite::temporaryPath(path.parent_path());
    files().writeNew(temporary, data);
    try {
        CoordinatedIO::move(temporary, path);
    } catch (...) {
        try {
            files().remove(temporary);
        } catch (const Error&) {  // the failed move is the one to report
        }
        throw;
    }
}

std::string withoutBlanks(std::string_view name) {
    return replaceAll(Vault::sanitiseFilename(name), " ", "-");
}

std::optional<std::string> logicalNameOfKind(std::string_view stubName,
                                             const Vault::ExtensionSet& extensions) {
    // A logical name never begins with a full stop, so one with an extension has a stem.
    auto name = UbiquityStatus::logicalName(stubName);
    if (!name || !extensions.contains(lowercasedExtension(*name))) return {};
    return name;
}

/// The line is a link to the recording and nothing else.
bool isOnlyLink(std::string_view line, std::string_view linkEnd) {
    line = trim(line);
    if (line.starts_with('!')) line.remove_prefix(1);
    return line.starts_with('[') && line.ends_with(linkEnd) &&
           line.find("](") == line.size() - linkEnd.size();
}

}  // namespace

std::string_view rawValue(IndexedKind kind) {
    switch (kind) {
        case IndexedKind::note:
            return "note";
        case IndexedKind::page:
            return "page";
        case IndexedKind::stylesheet:
            return "stylesheet";
    }
    return {};
}

const Vault::ExtensionSet& Vault::noteExtensions() {
    static const ExtensionSet set{"md", "markdown", "mdown", "txt"};
    return set;
}

const Vault::ExtensionSet& Vault::pageExtensions() {
    static const ExtensionSet set{"html", "htm"};
    return set;
}

const Vault::ExtensionSet& Vault::stylesheetExtensions() {
    static const ExtensionSet set{"css"};
    return set;
}

const Vault::ExtensionSet& Vault::documentExtensions() {
    static const ExtensionSet set = [] {
        ExtensionSet both = pageExtensions();
        both.insert(stylesheetExtensions().begin(), stylesheetExtensions().end());
        return both;
    }();
    return set;
}

const Vault::ExtensionSet& Vault::attachmentExtensions() {
    static const ExtensionSet set{"png", "jpg", "jpeg", "gif", "heic", "heif", "webp", "tiff",
                                  "tif", "bmp", "svg",  "pdf", "m4a",  "wav",  "caf",  "mp3"};
    return set;
}

const Vault::ExtensionSet& Vault::ignoredDirectories() {
    static const ExtensionSet set{".vesk",        ".obsidian", ".trash",      ".git",      ".svn",
                                  "node_modules", ".DS_Store", "__pycache__", ".stfolder", ".stversions"};
    return set;
}

std::optional<IndexedKind> Vault::indexedKind(std::string_view path) {
    const std::string extension = lowercasedExtension(path);
    if (noteExtensions().contains(extension)) return IndexedKind::note;
    if (pageExtensions().contains(extension)) return IndexedKind::page;
    if (stylesheetExtensions().contains(extension)) return IndexedKind::stylesheet;
    return {};
}

bool Vault::isDocument(std::string_view path) {
    const auto kind = indexedKind(path);
    return kind == IndexedKind::page || kind == IndexedKind::stylesheet;
}

bool Vault::isSameKind(std::string_view a, std::string_view b) {
    return indexedKind(a) == indexedKind(b);
}

bool Vault::isNonNoteFileTarget(std::string_view target) {
    const std::string extension = lowercasedExtension(target);
    return !extension.empty() && !noteExtensions().contains(extension);
}

bool Vault::isInsideSavedPageFolder(std::string_view relativePath) const {
    for (const auto& [parent, pageStem] : savedPageFolders(relativePath)) {
        const std::string page = joinedPath(parent, pageStem);
        if (isNameTaken(absolutePath(page + ".html")) || isNameTaken(absolutePath(page + ".htm")))
            return true;
    }
    return false;
}

std::vector<std::pair<std::string, std::string>> Vault::savedPageFolders(std::string_view path) {
    std::vector<std::pair<std::string, std::string>> folders;
    std::size_t begin = 0;
    for (std::size_t end = path.find('/'); end != path.npos; end = path.find('/', begin)) {
        const std::string_view component = path.substr(begin, end - begin);
        if (component.size() > savedFolderSuffix.size() &&
            asciiEqualsIgnoringCase(component.substr(component.size() - savedFolderSuffix.size()),
                                    savedFolderSuffix)) {
            folders.emplace_back(path.substr(0, begin == 0 ? 0 : begin - 1),
                                 component.substr(0, component.size() - savedFolderSuffix.size()));
        }
        begin = end + 1;
    }
    return folders;
}

std::optional<std::string> Vault::logicalNoteName(std::string_view stubName) {
    return logicalNameOfKind(stubName, noteExtensions());
}

std::optional<std::string> Vault::logicalDocumentName(std::string_view stubName) {
    return logicalNameOfKind(stubName, documentExtensions());
}

std::string Vault::sqlHasExtension(std::string_view column, const ExtensionSet& extensions) {
    std::vector<std::string> conditions;
    for (const std::string& extension : extensions) {
        conditions.push_back("lower(" + std::string(column) + ") LIKE '%." + extension + "'");
    }
    return "(" + join(conditions, " OR ") + ")";
}

std::string Vault::sqlIsNote(std::string_view column) {
    return sqlHasExtension(column, noteExtensions());
}
std::string Vault::sqlIsPage(std::string_view column) {
    return sqlHasExtension(column, pageExtensions());
}
std::string Vault::sqlIsStylesheet(std::string_view column) {
    return sqlHasExtension(column, stylesheetExtensions());
}

std::string Vault::saveAttachment(std::string_view data, std::string_view extension,
                                  const std::optional<std::string>& preferredStem, TimePoint now,
                                  const Calendar& calendar,
                                  const std::optional<std::string>& subfolder) const {
    // An extension is no way into another folder.
    std::string ending = lowercased(decodedText(std::string(trimCharacters(extension, ". \t"))));
    ending = replaceAll(replaceAll(ending, "/", "-"), std::string_view("\0", 1), "-");
    const std::string stem = preferredStem && !preferredStem->empty()
                                 ? withoutBlanks(*preferredStem)
                                 : "pasted-" + DateFormat("yyyy-MM-dd-HHmmss", calendar.timeZone).format(now);
    std::string folder(attachmentsFolder);
    if (subfolder && !subfolder->empty()) folder = joinedPath(folder, withoutBlanks(*subfolder));

    const std::string tail = "." + ending;
    const bool isPageOrStylesheet = isDocument("x" + tail);
    const std::string name = placeUnderFreeName(folderPath(folder), stem, tail, [&](const FilePath& path) {
        if (isPageOrStylesheet) {
            placeDocument(path, data);
        } else {
            CoordinatedIO::createData(path, data);
        }
    });
    return joinedPath(folder, name);
}

std::string Vault::attachmentEmbed(std::string_view path) {
    return "![](" + std::string(path) + ")";
}

std::string Vault::recordingLink(std::string_view path, std::string_view label) {
    return "[" + std::string(label) + "](" + std::string(path) + ")";
}

std::optional<std::string> Vault::noteWithTranscript(std::string_view transcript, std::string_view recording,
                                                     std::string_view label, std::string_view note) {
    const std::string linkEnd = "](" + std::string(recording) + ")";
    const std::size_t found = linkEnd.find('\n') == linkEnd.npos ? note.find(linkEnd) : note.npos;
    if (found == note.npos) return {};
    const std::size_t feed = note.rfind('\n', found);
    const std::size_t lineBegin = feed == note.npos ? 0 : feed + 1;
    const std::size_t lineEnd = std::min(note.find('\n', found), note.size());

    const std::string_view line = note.substr(lineBegin, lineEnd - lineBegin);
    const std::string_view before = note.substr(0, lineBegin);
    const std::string_view after = note.substr(lineEnd);
    std::string result;
    const bool isAlone =
        before.find_first_not_of('\n') == before.npos && after.find_first_not_of('\n') == after.npos;
    // Words that the user wrote beside the link stay with it.
    if (isAlone && isOnlyLink(line, linkEnd)) {
        return std::string(trim(transcript)) + "\n\n" + recordingLink(recording, label) + "\n";
    }
    result.append(before).append(trim(transcript)).append("\n\n").append(note.substr(lineBegin));
    return result;
}

}  // namespace vesk
