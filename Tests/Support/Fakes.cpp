#include "Support/Fakes.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "VeskCore/Support/Text.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk::test {

namespace {

bool liesBelow(const FilePath& path, const FilePath& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

FileSystem& realFiles() {
    static LinuxFileSystem files;
    return files;
}

}  // namespace

// FakeUbiquity

void FakeUbiquity::setUbiquitousFolder(const FilePath& folder) {
    folders_.insert(standardised(folder));
}

void FakeUbiquity::set(const FilePath& path, Values values) {
    values_[standardised(path)] = values;
}

void FakeUbiquity::setDataless(const FilePath& path, bool dataless) {
    if (dataless) {
        dataless_.insert(standardised(path));
    } else {
        dataless_.erase(standardised(path));
    }
}

void FakeUbiquity::clear(const FilePath& path) {
    values_.erase(standardised(path));
    dataless_.erase(standardised(path));
}

std::optional<UbiquitySource::Values> FakeUbiquity::values(const FilePath& path) const {
    const FilePath asked = standardised(path);
    if (const auto word = values_.find(asked); word != values_.end()) return word->second;
    const bool isInside =
        std::any_of(folders_.begin(), folders_.end(), [&](const FilePath& f) { return liesBelow(asked, f); });
    if (!isInside) return Values{};
    return Values{.isUbiquitous = true, .downloadingStatus = DownloadingStatus::current};
}

bool FakeUbiquity::isDataless(const FilePath& path) const {
    return dataless_.contains(standardised(path));
}

void FakeUbiquity::startDownload(const FilePath& path) {
    const FilePath asked = standardised(path);
    requested_.push_back(asked);
    if (const auto refusal = refusals.find(asked); refusal != refusals.end()) {
        throw SystemError(refusal->second, "download", asked.native());
    }
    if (onDownload) onDownload(asked);
}

void FakeUbiquity::withoutMaterialising(const std::function<void()>& body) {
    body();
}

// FakeCoordination

void FakeCoordination::read(const FilePath& path, const std::function<void()>& body) {
    calls.push_back("read " + path.filename().native());
    if (refusal) throw SystemError(*refusal, "coordinate", path.native());
    body();
}

void FakeCoordination::writeForReplacing(const FilePath& path, const std::function<void()>& body) {
    calls.push_back("write " + path.filename().native());
    if (refusal) throw SystemError(*refusal, "coordinate", path.native());
    body();
}

void FakeCoordination::move(const FilePath& from, const FilePath& to, const std::function<void()>& body) {
    calls.push_back("move " + from.filename().native() + " " + to.filename().native());
    if (refusal) throw SystemError(*refusal, "coordinate", from.native());
    body();
}

// FaultyFileSystem

FaultyFileSystem::FaultyFileSystem(FileSystem& real, FilePath applicationSupport)
    : real_(real), applicationSupport_(std::move(applicationSupport)) {}

void FaultyFileSystem::check(std::string_view operation, const FilePath& path) const {
    if (!fault) return;
    if (const auto code = fault(operation, path))
        throw SystemError(*code, std::string(operation), path.native());
}

std::optional<FileInfo> FaultyFileSystem::info(const FilePath& path) const {
    check("info", path);
    return real_.info(path);
}

std::optional<FileInfo> FaultyFileSystem::linkInfo(const FilePath& path) const {
    check("linkInfo", path);
    return real_.linkInfo(path);
}

bool FaultyFileSystem::isWritable(const FilePath& path) const {
    // The real call has no failure but "no".
    if (fault && fault("isWritable", path)) return false;
    return real_.isWritable(path);
}

std::optional<FilePath> FaultyFileSystem::realPath(const FilePath& path) const {
    check("realPath", path);
    return real_.realPath(path);
}

std::vector<std::string> FaultyFileSystem::list(const FilePath& folder) const {
    check("list", folder);
    return real_.list(folder);
}

void FaultyFileSystem::walk(const FilePath& root,
                            const std::function<WalkStep(const WalkEntry&)>& visit) const {
    // A root that can't be read gives nothing.
    if (fault && fault("walk", root)) return;
    real_.walk(root, visit);
}

std::string FaultyFileSystem::read(const FilePath& path, std::optional<std::size_t> limit) const {
    check("read", path);
    return real_.read(path, limit);
}

void FaultyFileSystem::createDirectories(const FilePath& path) {
    check("createDirectories", path);
    real_.createDirectories(path);
}

void FaultyFileSystem::writeNew(const FilePath& path, std::string_view bytes) {
    check("writeNew", path);
    real_.writeNew(path, bytes);
}

void FaultyFileSystem::replace(const FilePath& target, const FilePath& temporary) {
    check("replace", target);
    real_.replace(target, temporary);
}

bool FaultyFileSystem::exchange(const FilePath& target, const FilePath& temporary) {
    const auto code = fault ? fault("exchange", target) : std::nullopt;
    if (code == ENOSYS) return false;
    if (code) throw SystemError(*code, "exchange", target.native());
    return real_.exchange(target, temporary);
}

void FaultyFileSystem::carryMetadata(const FilePath& target, const FilePath& temporary) {
    check("carryMetadata", target);
    real_.carryMetadata(target, temporary);
}

void FaultyFileSystem::move(const FilePath& from, const FilePath& to) {
    check("move", from);
    real_.move(from, to);
}

void FaultyFileSystem::remove(const FilePath& path) {
    check("remove", path);
    real_.remove(path);
}

void FaultyFileSystem::removeTree(const FilePath& path) {
    check("removeTree", path);
    real_.removeTree(path);
}

void FaultyFileSystem::setCreationDate(const FilePath& path, TimePoint created) {
    check("setCreationDate", path);
    real_.setCreationDate(path, created);
}

std::optional<std::string> FaultyFileSystem::attribute(const FilePath& path, std::string_view name) const {
    check("attribute", path);
    return real_.attribute(path, name);
}

void FaultyFileSystem::setAttribute(const FilePath& path, std::string_view name, std::string_view value) {
    check("setAttribute", path);
    real_.setAttribute(path, name, value);
}

// PlatformFixture

PlatformFixture::PlatformFixture()
    : files(realFiles(), supportFolder.path()),
      installation_(FilePlatform{.files = &files, .coordination = &coordination, .ubiquity = &ubiquity}) {}

// MemoryUserDefaults

std::optional<Json> MemoryUserDefaults::value(std::string_view key) const {
    const std::lock_guard lock(valuesLock_);
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void MemoryUserDefaults::set(std::string_view key, Json value) {
    const std::lock_guard lock(valuesLock_);
    values_.insert_or_assign(std::string(key), std::move(value));
}

void MemoryUserDefaults::remove(std::string_view key) {
    const std::lock_guard lock(valuesLock_);
    if (const auto found = values_.find(key); found != values_.end()) values_.erase(found);
}

// MemorySecretStore

namespace {

void requireReachable(bool unreachable) {
    if (unreachable) throw SecretStoreError("The keyring can't be reached.");
}

}  // namespace

std::optional<std::string> MemorySecretStore::get(std::string_view service, std::string_view account) const {
    requireReachable(unreachable);
    const auto found = items_.find({std::string(service), std::string(account)});
    return found == items_.end() ? std::nullopt : std::optional(found->second);
}

void MemorySecretStore::add(std::string_view service, std::string_view account, std::string_view value) {
    requireReachable(unreachable);
    items_[{std::string(service), std::string(account)}] = value;
}

void MemorySecretStore::remove(std::string_view service, std::string_view account) {
    requireReachable(unreachable);
    items_.erase({std::string(service), std::string(account)});
}

// RecordingLog

void RecordingLog::write(LogLevel, std::string_view, std::string_view message) {
    const std::lock_guard lock(linesLock_);
    lines_.emplace_back(message);
}

std::vector<std::string> RecordingLog::lines() const {
    const std::lock_guard lock(linesLock_);
    return lines_;
}

// FakeSentenceEmbedding

std::optional<std::vector<double>> FakeSentenceEmbedding::vector(std::string_view sentence) {
    if (throwsOn && throwsOn(sentence)) throw std::runtime_error("the model can't take this text");
    if (givesNothingFor && givesNothingFor(sentence)) return {};
    const std::string lowered = asciiLowercased(sentence);
    const auto words = splitWords(lowered, " \t\r\n.,;:!?()[]\"'-#*_`");
    if (words.empty()) return {};
    std::vector<double> result(static_cast<std::size_t>(dimension_), 0.0);
    for (const auto word : words) {
        std::size_t sum = 0;
        for (const char letter : word) sum += static_cast<unsigned char>(letter);
        result[sum % result.size()] += 1.0;
    }
    return result;
}

std::unique_ptr<SentenceEmbedding> FakeSentenceEmbeddings::sentenceEmbedding(std::string_view language) {
    if (language != "en") return nullptr;
    auto model = std::make_unique<FakeSentenceEmbedding>(dimension);
    model->throwsOn = throwsOn;
    model->givesNothingFor = givesNothingFor;
    return model;
}

}  // namespace vesk::test
