// The sentence model's file: mapped into memory, so that all programs that use it share one copy, and checked
// as a whole before anything in it is believed. scripts/sentence-model writes it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskLinux/Descriptor.h"
#include "VeskLinux/SentenceModel/Kernels.h"

namespace vesk::sentencemodel {

/// Why a file can't be used, in words that follow "The sentence model " and the file's address.
class UnusableModel : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A node of the trie over the code points of all pieces of the vocabulary; the first is the root.
struct TrieNode {
    std::uint32_t codePoint;
    std::uint32_t firstChild;  ///< the children lie together, in the order of their code points
    std::uint16_t childCount;
    std::uint16_t piece;  ///< the id of the piece that ends here, or noPiece
};
inline constexpr std::uint16_t noPiece = 0xFFFF;

struct Norm {
    const float *scale = nullptr, *shift = nullptr;
};

struct Layer {
    std::size_t width = 0;          ///< of what goes in
    std::optional<Weights> widens;  ///< what goes past the attention, where the width changes
    Norm attentionNorm, innerNorm;
    Weights projections, attentionOut, innerIn, innerOut;
};

/// A file's bytes in memory, for reading only.
class MappedFile {
public:
    /// Throws SystemError, or UnusableModel for what is no regular file.
    explicit MappedFile(const FilePath& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::string_view bytes() const { return {reinterpret_cast<const char*>(bytes_), size_}; }
    bool isStillWhole() const;

private:
    linuxfiles::Descriptor descriptor_;
    const unsigned char* bytes_ = nullptr;
    std::size_t size_ = 0;
};

class ModelFile {
public:
    static constexpr std::size_t dimension = 512, firstWidth = 256, inner = 1536, heads = 4;

    /// Throws UnusableModel; SystemError if the file can't be read.
    explicit ModelFile(const FilePath& path);

    /// Throws UnusableModel if the file was cut since it was mapped: reading what is gone ends the process.
    void ensureStillWhole() const;

    std::span<const float> scores() const { return scores_; }
    std::span<const TrieNode> trie() const { return trie_; }
    /// The half floats of one id.
    const std::uint16_t* embedding(std::size_t id) const { return embeddings_ + id * firstWidth; }
    std::span<const float> timescales() const { return timescales_; }
    const std::array<Layer, 2>& layers() const { return layers_; }
    const Weights& head() const { return head_; }

private:
    class Reader;
    void readHeader();
    void readSections();
    void checkTrie() const;

    MappedFile file_;
    std::size_t pieceCount_ = 0, nodeCount_ = 0;

    std::span<const float> scores_, timescales_;
    std::span<const TrieNode> trie_;
    const std::uint16_t* embeddings_ = nullptr;
    std::array<Layer, 2> layers_;
    Weights head_;
};

}  // namespace vesk::sentencemodel
