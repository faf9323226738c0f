#include "VeskCore/Index/EmbeddingBackfill.h"

#include <utility>

namespace vesk::EmbeddingBackfill {

void run(NoteIndex& index, EmbeddingProvider& provider, std::stop_token stop,
         const std::function<void(int)>& stored) {
    const auto id = provider.id();
    while (!stop.stop_requested()) {
        const auto chunks = index.chunksNeedingEmbedding(id, batch);
        if (chunks.empty()) return;
        std::vector<std::string> texts;
        for (const auto& chunk : chunks) texts.push_back(chunk.text);
        auto vectors = provider.embed(texts, stop);
        if (vectors.size() != chunks.size()) return;
        std::vector<ChunkEmbedding> embeddings;
        bool anything = false;
        for (std::size_t i = 0; i < chunks.size(); ++i) {
            anything = anything || !vectors[i].empty();
            embeddings.push_back({chunks[i].notePath, chunks[i].ordinal, std::move(vectors[i])});
        }
        if (!anything) return;  // the same passages would come again
        index.storeEmbeddings(embeddings, id);
        stored(static_cast<int>(chunks.size()));
    }
}

}  // namespace vesk::EmbeddingBackfill
