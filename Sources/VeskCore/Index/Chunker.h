// A note's body cut into passages that follow its headings, and the vectors of passages. Pure; any thread.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

namespace Chunker {

inline constexpr int defaultMaxCharacters = 1200;
inline constexpr int maxChunksPerNote = 500;

/// Each passage begins with the trail of its headings. A line is never split.
std::vector<std::string> chunks(std::string_view body, int maxCharacters = defaultMaxCharacters,
                                int maxChunks = maxChunksPerNote);

}  // namespace Chunker

/// A passage as the index holds it.
struct IndexedChunk {
    std::string notePath;
    int ordinal = 0;  ///< from 0, in the order of the body
    std::string text;
    bool operator==(const IndexedChunk&) const = default;
};

struct ChunkEmbedding {
    std::string notePath;
    int ordinal = 0;
    std::vector<float> vector;
    bool operator==(const ChunkEmbedding&) const = default;
};

/// The stored form of a vector: 32-bit IEEE 754 floats in little-endian order, no header.
namespace VectorBlob {

std::string encode(std::span<const float> vector);
/// Bytes beyond a multiple of four are ignored; the bytes may be unaligned.
std::vector<float> decode(std::string_view blob);

}  // namespace VectorBlob
}  // namespace vesk
