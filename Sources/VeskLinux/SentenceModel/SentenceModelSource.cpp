#include "VeskLinux/SentenceModel/SentenceModelSource.h"

#include <fmt/core.h>

#include <cstdlib>

#include "VeskCore/Support/Error.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskLinux/Descriptor.h"
#include "VeskLinux/SentenceModel/SentenceModel.h"

namespace vesk {

namespace {

constexpr const char* modelName = "sentence-en.model";
constexpr const char* modelLanguage = "en";

}  // namespace

SentenceModelSource::SentenceModelSource(std::vector<FilePath> candidates)
    : candidates_(std::move(candidates)) {}

std::vector<FilePath> SentenceModelSource::defaultLocations() {
    std::vector<FilePath> folders{linuxfiles::baseDirectory("XDG_DATA_HOME", ".local/share") / "vesk"};
    std::error_code error;
    if (const auto program = std::filesystem::read_symlink("/proc/self/exe", error); !error) {
        folders.push_back(program.parent_path().parent_path() / "share/vesk");
        folders.push_back(program.parent_path().parent_path().parent_path() / "model");  // build/<preset>/bin
    }
    folders.emplace_back(VESK_DATA_FOLDER);
    const char* set = std::getenv("XDG_DATA_DIRS");
    const std::string systemFolders = set != nullptr && *set != '\0' ? set : "/usr/local/share:/usr/share";
    for (const auto folder : splitWords(systemFolders, ":")) {
        // A relative path in such a variable is invalid and ignored (XDG base directories).
        if (folder.starts_with('/')) folders.push_back(FilePath(std::string(folder)) / "vesk");
    }
    std::vector<FilePath> files;
    for (const auto& folder : folders) files.push_back(folder / modelName);
    return files;
}

std::unique_ptr<SentenceEmbedding> SentenceModelSource::sentenceEmbedding(std::string_view language) {
    std::string ignored;
    return find(language, ignored);
}

std::string SentenceModelSource::absenceReason(std::string_view language) {
    std::string reason;
    find(language, reason);
    return reason;
}

std::unique_ptr<SentenceEmbedding> SentenceModelSource::find(std::string_view language,
                                                             std::string& reason) const {
    if (language != modelLanguage) {
        reason = fmt::format("There is no sentence model for {}.", languageDisplayName(language));
        return nullptr;
    }
    for (const FilePath& path : candidates_) {
        std::error_code error;
        if (!std::filesystem::exists(path, error)) continue;
        try {
            return std::make_unique<sentencemodel::SentenceModel>(path);
        } catch (const sentencemodel::UnusableModel& unusable) {
            reason = fmt::format("The sentence model {} {}.", path.string(), unusable.what());
        } catch (const Error& failure) {
            reason = fmt::format("The sentence model can't be read. {}", failure.description());
        }
        return nullptr;
    }
    reason = "The sentence model isn't installed.";
    return nullptr;
}

}  // namespace vesk
