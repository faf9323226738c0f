#include "VeskCore/Index/Chunker.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

class Passages {
public:
    Passages(int maxCharacters, int maxChunks)
        : maxCharacters_(static_cast<std::size_t>(std::max(maxCharacters, 0))),
          maxChunks_(static_cast<std::size_t>(std::max(maxChunks, 0))) {}

    bool full() const { return chunks_.size() >= maxChunks_; }

    void line(std::string_view line) {
        std::string_view trimmed = trimCharacters(line, " \t");
        bool isFence = trimmed.starts_with("```") || trimmed.starts_with("~~~");
        if (isFence) inFence_ = !inFence_;
        if (!isFence && !inFence_) {
            if (auto level = MarkdownScanner::headingLevel(trimmed)) return heading(trimmed, *level);
        }
        std::size_t length = characterCount(line);
        if (bufferLength_ > 0 && bufferLength_ + length > maxCharacters_) flush();
        buffer_.push_back(line);
        bufferLength_ += length + 1;
    }

    std::vector<std::string> end() {
        flush();
        if (chunks_.size() > maxChunks_) chunks_.resize(maxChunks_);
        return std::move(chunks_);
    }

private:
    void heading(std::string_view trimmed, int level) {
        flush();
        auto depth = static_cast<std::size_t>(level);
        trail_.resize(depth - 1);
        trail_.push_back(trimCharacters(trimmed.substr(depth), "# "));
    }

    void flush() {
        std::string joined = join(buffer_, "\n");
        buffer_.clear();
        bufferLength_ = 0;
        std::string_view text = trim(joined);
        if (text.empty()) return;
        std::string chunk;
        for (std::string_view entry : trail_) {
            if (entry.empty()) continue;
            if (!chunk.empty()) chunk += " > ";
            chunk += entry;
        }
        if (!chunk.empty()) chunk += "\n\n";
        chunk += text;
        chunks_.push_back(std::move(chunk));
    }

    std::size_t maxCharacters_, maxChunks_;
    std::vector<std::string_view> buffer_;
    std::size_t bufferLength_ = 0;         // characters, one more for each line
    std::vector<std::string_view> trail_;  // headings by level, empty where one is missing
    bool inFence_ = false;
    std::vector<std::string> chunks_;
};

}  // namespace

std::vector<std::string> Chunker::chunks(std::string_view body, int maxCharacters, int maxChunks) {
    Passages passages(maxCharacters, maxChunks);
    std::size_t start = 0;
    while (start <= body.size() && !passages.full()) {
        std::size_t end = std::min(body.find('\n', start), body.size());
        passages.line(body.substr(start, end - start));
        start = end + 1;
    }
    return passages.end();
}

std::string VectorBlob::encode(std::span<const float> vector) {
    static_assert(sizeof(float) == 4);
    std::string bytes(vector.size() * 4, '\0');
    for (std::size_t i = 0; i < vector.size(); ++i) {
        auto bits = std::bit_cast<std::uint32_t>(vector[i]);
        for (std::size_t byte = 0; byte < 4; ++byte) {
            bytes[i * 4 + byte] = static_cast<char>(static_cast<unsigned char>(bits >> (8 * byte)));
        }
    }
    return bytes;
}

std::vector<float> VectorBlob::decode(std::string_view blob) {
    std::vector<float> vector(blob.size() / 4);
    for (std::size_t i = 0; i < vector.size(); ++i) {
        std::uint32_t bits = 0;
        for (std::size_t byte = 0; byte < 4; ++byte) {
            bits |= static_cast<std::uint32_t>(static_cast<unsigned char>(blob[i * 4 + byte])) << (8 * byte);
        }
        vector[i] = std::bit_cast<float>(bits);
    }
    return vector;
}

}  // namespace vesk
