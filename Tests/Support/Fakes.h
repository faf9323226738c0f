// Fakes of the platform's seams that behave like the real thing, failures included.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Support/Scratch.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Platform/LanguageRecogniser.h"
#include "VeskCore/Platform/SecretStore.h"
#include "VeskCore/Platform/SentenceEmbedding.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Support/Log.h"

namespace vesk::test {

/// A sync provider whose word on each file the test decides. Paths without a word are not ubiquitous; a
/// folder set ubiquitous makes itself and everything below it materialised unless told otherwise.
class FakeUbiquity final : public UbiquitySource {
public:
    void setUbiquitousFolder(const FilePath& folder);
    void set(const FilePath& path, Values values);
    void setDataless(const FilePath& path, bool dataless = true);
    void clear(const FilePath& path);
    /// What a download does when it is asked for; by default nothing more than being counted.
    std::function<void(const FilePath&)> onDownload;
    /// Errno value that startDownload fails with, by path (standardised); the request is counted all the
    /// same.
    std::map<FilePath, int> refusals;
    const std::vector<FilePath>& requested() const { return requested_; }

    std::optional<Values> values(const FilePath& path) const override;
    bool isDataless(const FilePath& path) const override;
    void startDownload(const FilePath& path) override;
    void withoutMaterialising(const std::function<void()>& body) override;

private:
    std::set<FilePath> folders_, dataless_;
    std::map<FilePath, Values> values_;
    std::vector<FilePath> requested_;
};

/// Notes the calls it coordinates, and can refuse.
class FakeCoordination final : public FileCoordination {
public:
    std::vector<std::string> calls;  ///< "read a.md", "write a.md", "move a.md b.md", by last components
    std::optional<int> refusal;      ///< errno value that every call fails with

    void read(const FilePath& path, const std::function<void()>& body) override;
    void writeForReplacing(const FilePath& path, const std::function<void()>& body) override;
    void move(const FilePath& from, const FilePath& to, const std::function<void()>& body) override;
};

/// The real file system with calls that fail on request, and Application Support in a scratch folder. A fault
/// of isWritable answers no, one of walk gives nothing: these calls have no other failure.
class FaultyFileSystem final : public FileSystem {
public:
    FaultyFileSystem(FileSystem& real, FilePath applicationSupport);

    /// Called before each operation with its name ("writeNew", "replace", …) and path; a value is the errno
    /// it fails with instead of running.
    std::function<std::optional<int>(std::string_view operation, const FilePath& path)> fault;

    std::optional<FileInfo> info(const FilePath& path) const override;
    std::optional<FileInfo> linkInfo(const FilePath& path) const override;
    bool isWritable(const FilePath& path) const override;
    std::optional<FilePath> realPath(const FilePath& path) const override;
    std::vector<std::string> list(const FilePath& folder) const override;
    void walk(const FilePath& root, const std::function<WalkStep(const WalkEntry&)>& visit) const override;
    std::string read(const FilePath& path, std::optional<std::size_t> limit = {}) const override;
    void createDirectories(const FilePath& path) override;
    void writeNew(const FilePath& path, std::string_view bytes) override;
    void replace(const FilePath& target, const FilePath& temporary) override;
    /// A fault of ENOSYS answers that this file system has no such step.
    bool exchange(const FilePath& target, const FilePath& temporary) override;
    void carryMetadata(const FilePath& target, const FilePath& temporary) override;
    void move(const FilePath& from, const FilePath& to) override;
    void remove(const FilePath& path) override;
    void removeTree(const FilePath& path) override;
    void setCreationDate(const FilePath& path, TimePoint created) override;
    std::optional<std::string> attribute(const FilePath& path, std::string_view name) const override;
    void setAttribute(const FilePath& path, std::string_view name, std::string_view value) override;
    FilePath applicationSupportDirectory() const override { return applicationSupport_; }

private:
    void check(std::string_view operation, const FilePath& path) const;
    FileSystem& real_;
    FilePath applicationSupport_;
};

/// Installs the real files with fakes around them for one test: a scratch vault folder, a scratch Application
/// Support.
class PlatformFixture {
public:
    PlatformFixture();
    ScratchFolder vaultFolder;
    ScratchFolder supportFolder;
    FaultyFileSystem files;
    FakeUbiquity ubiquity;
    FakeCoordination coordination;

private:
    FilePlatformInstallation installation_;
};

class MemoryUserDefaults final : public UserDefaults {
public:
    std::optional<Json> value(std::string_view key) const override;
    void set(std::string_view key, Json value) override;
    void remove(std::string_view key) override;

private:
    mutable std::mutex valuesLock_;
    std::map<std::string, Json, std::less<>> values_;
};

class MemorySecretStore final : public SecretStore {
public:
    bool unreachable = false;  ///< every call throws

    std::optional<std::string> get(std::string_view service, std::string_view account) const override;
    void add(std::string_view service, std::string_view account, std::string_view value) override;
    void remove(std::string_view service, std::string_view account) override;

private:
    std::map<std::pair<std::string, std::string>, std::string> items_;
};

/// Keeps the lines, private arguments in clear text.
class RecordingLog final : public Log {
public:
    void write(LogLevel level, std::string_view category, std::string_view message) override;
    bool showsPrivate() const override { return true; }
    std::vector<std::string> lines() const;

private:
    mutable std::mutex linesLock_;
    std::vector<std::string> lines_;
};

/// A model of few dimensions: each word adds one to the dimension its letters sum to, so that texts that
/// share words are near each other. A text without words gives nothing. Can be told to throw or to give
/// nothing.
class FakeSentenceEmbedding final : public SentenceEmbedding {
public:
    explicit FakeSentenceEmbedding(int dimension = 16) : dimension_(dimension) {}
    /// Asked before each vector; true throws.
    std::function<bool(std::string_view)> throwsOn;
    /// Asked before each vector; true gives none.
    std::function<bool(std::string_view)> givesNothingFor;

    int dimension() const override { return dimension_; }
    std::optional<std::vector<double>> vector(std::string_view sentence) override;

private:
    int dimension_;
};

/// Has a fake model for English and none for any other language.
class FakeSentenceEmbeddings final : public SentenceEmbeddingSource {
public:
    int dimension = 16;
    std::function<bool(std::string_view)> throwsOn, givesNothingFor;
    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view language) override;
};

/// Takes every text for the language that the test set.
class FakeLanguageRecogniser final : public LanguageRecogniser {
public:
    std::optional<std::string> language = "en";
    std::vector<std::string> asked;
    std::optional<std::string> dominantLanguage(std::string_view text) override {
        asked.emplace_back(text);
        return language;
    }
};

}  // namespace vesk::test
