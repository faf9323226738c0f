// Retrieved passages as they are quoted to a model, for the providers that put them into the system text.
#pragma once

#include <string>

#include "VeskCore/Index/RetrievedChunk.h"

namespace vesk {

/// "--- Title (path, web page) ---", a line end and the text.
inline std::string quotedChunk(const RetrievedChunk& chunk) {
    std::string text = "--- " + chunk.noteTitle + " (" + chunk.notePath;
    if (const auto label = chunk.documentLabel()) text += ", " + *label;
    return text + ") ---\n" + chunk.text;
}

}  // namespace vesk
