#include "VeskLinux/SentenceModel/ModelFile.h"

#include <fmt/core.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

#include "VeskCore/Support/Digest.h"

namespace vesk::sentencemodel {

namespace {

constexpr std::string_view magic = "VESKSENT";
constexpr std::uint32_t version = 1;
constexpr std::size_t digestOffset = 16, checkedFrom = 48, headerSize = 128, alignment = 64;
constexpr std::uint32_t embeddingRows = 8002, window = 128;
constexpr unsigned char longestPiece = 64;  // in code points

}  // namespace

/// Takes one section after another.
class ModelFile::Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    template <class Value>
    const Value* take(std::size_t count) {
        at_ = (at_ + alignment - 1) / alignment * alignment;
        if (at_ > bytes_.size() || count > (bytes_.size() - at_) / sizeof(Value)) {
            throw UnusableModel("has sections that don't fit into it");
        }
        const auto* section = reinterpret_cast<const Value*>(bytes_.data() + at_);
        at_ += count * sizeof(Value);
        return section;
    }
    Weights weights(std::size_t rows, std::size_t columns) {
        const auto* panels = take<std::uint16_t>(rows * columns);
        const auto* bias = take<float>(columns);
        return {.panels = panels, .bias = bias, .rows = rows, .columns = columns};
    }
    Norm norm(std::size_t width) {
        const auto* scale = take<float>(width);
        const auto* shift = take<float>(width);
        return {.scale = scale, .shift = shift};
    }
    bool atEnd() const { return at_ == bytes_.size(); }

private:
    std::string_view bytes_;
    std::size_t at_ = headerSize;
};

MappedFile::MappedFile(const FilePath& path)
    : descriptor_(linuxfiles::uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); })) {
    struct stat status {};
    if (!descriptor_ || ::fstat(descriptor_.get(), &status) != 0) linuxfiles::fail("open", path);
    if (!S_ISREG(status.st_mode)) throw UnusableModel("is no file");
    size_ = static_cast<std::size_t>(status.st_size);
    if (size_ == 0) return;
    void* bytes = ::mmap(nullptr, size_, PROT_READ, MAP_SHARED, descriptor_.get(), 0);
    if (bytes == MAP_FAILED) linuxfiles::fail("map", path);
    bytes_ = static_cast<const unsigned char*>(bytes);
}

MappedFile::~MappedFile() {
    if (bytes_ != nullptr) ::munmap(const_cast<unsigned char*>(bytes_), size_);
}

bool MappedFile::isStillWhole() const {
    struct stat status {};
    return ::fstat(descriptor_.get(), &status) == 0 && static_cast<std::size_t>(status.st_size) >= size_;
}

ModelFile::ModelFile(const FilePath& path) : file_(path) {
    if constexpr (std::endian::native != std::endian::little) {
        throw UnusableModel("is made for processors of another byte order");
    }
    readHeader();
    readSections();
    checkTrie();
}

void ModelFile::ensureStillWhole() const {
    if (!file_.isStillWhole()) throw UnusableModel("was cut short while it was in use");
}

void ModelFile::readHeader() {
    const auto bytes = file_.bytes();
    const auto number = [&](std::size_t offset) {
        std::uint32_t value;
        std::memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    };
    if (bytes.size() < headerSize || !bytes.starts_with(magic)) throw UnusableModel("is no sentence model");
    if (number(8) != version) {
        throw UnusableModel(
            fmt::format("is of version {}, and this program reads version {}", number(8), version));
    }
    std::uint64_t wholeSize;
    std::memcpy(&wholeSize, bytes.data() + checkedFrom, sizeof wholeSize);
    if (wholeSize != bytes.size()) {
        throw UnusableModel(fmt::format("is damaged: it has {} bytes of {}", bytes.size(), wholeSize));
    }
    const auto digest = sha256(bytes.substr(checkedFrom));
    if (std::memcmp(digest.data(), bytes.data() + digestOffset, digest.size()) != 0) {
        throw UnusableModel("is damaged: its checksum differs");
    }
    pieceCount_ = number(56);
    nodeCount_ = number(60);
    constexpr std::array<std::uint32_t, 6> sizes{embeddingRows, firstWidth, dimension, inner, heads, window};
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        if (number(64 + 4 * i) != sizes[i]) throw UnusableModel("is a model of other sizes");
    }
    if (pieceCount_ == 0 || pieceCount_ > embeddingRows || nodeCount_ == 0) {
        throw UnusableModel("has no vocabulary that this program can read");
    }
}

void ModelFile::readSections() {
    Reader reader(file_.bytes());
    scores_ = {reader.take<float>(pieceCount_), pieceCount_};
    trie_ = {reader.take<TrieNode>(nodeCount_), nodeCount_};
    embeddings_ = reader.take<std::uint16_t>(embeddingRows * firstWidth);
    timescales_ = {reader.take<float>(firstWidth / 2), firstWidth / 2};
    std::size_t width = firstWidth;
    for (Layer& layer : layers_) {
        layer.width = width;
        layer.attentionNorm = reader.norm(width);
        if (width != dimension) layer.widens = reader.weights(width, dimension);
        layer.projections = reader.weights(width, 3 * width);
        layer.attentionOut = reader.weights(width, dimension);
        layer.innerNorm = reader.norm(dimension);
        layer.innerIn = reader.weights(dimension, inner);
        layer.innerOut = reader.weights(inner, dimension);
        width = dimension;
    }
    head_ = reader.weights(dimension, dimension);
    if (!reader.atEnd()) throw UnusableModel("is longer than its sections");
}

void ModelFile::checkTrie() const {
    std::vector<unsigned char> depths(trie_.size(), 0);
    for (std::size_t i = 0; i < trie_.size(); ++i) {
        const TrieNode& node = trie_[i];
        const bool childrenFit =
            node.childCount == 0 || (node.firstChild > i && node.firstChild <= trie_.size() &&
                                     node.childCount <= trie_.size() - node.firstChild);
        if (!childrenFit || (node.piece != noPiece && node.piece >= pieceCount_)) {
            throw UnusableModel("has a vocabulary that leads outside of it");
        }
        if (node.childCount > 0 && depths[i] == longestPiece) throw UnusableModel("has endless words");
        for (std::size_t child = 0; child < node.childCount; ++child) {
            depths[node.firstChild + child] = static_cast<unsigned char>(depths[i] + 1);
        }
    }
}

}  // namespace vesk::sentencemodel
