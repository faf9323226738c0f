#include "VeskCore/Index/RetrievedChunk.h"

#include <algorithm>

namespace vesk {

std::string RetrievedChunk::id() const {
    return notePath + "#" + std::to_string(ordinal);
}

std::optional<IndexedKind> RetrievedChunk::sourceKind() const {
    const auto kind = Vault::indexedKind(notePath);
    return kind == IndexedKind::note ? std::nullopt : kind;
}

std::optional<std::string> RetrievedChunk::documentLabel() const {
    const auto kind = sourceKind();
    if (!kind) return std::nullopt;
    return *kind == IndexedKind::page ? "web page" : "stylesheet";
}

bool RetrievedChunk::includesDocuments(const std::vector<RetrievedChunk>& chunks) {
    return std::any_of(chunks.begin(), chunks.end(),
                       [](const auto& chunk) { return chunk.sourceKind().has_value(); });
}

}  // namespace vesk
