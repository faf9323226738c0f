// A text as the ids of the vocabulary's pieces.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "VeskLinux/SentenceModel/ModelFile.h"

namespace vesk::sentencemodel {

/// What the model is given of a text: white space as single spaces, none at the ends, lower case. A tab or a
/// capital would be an unknown piece. Ill-formed UTF-8 becomes U+FFFD.
std::string prepared(std::string_view given);

/// Splits a prepared text into the pieces of highest total score. What is in no piece has id 0, one for any
/// run of it. Linear in the text's length.
std::vector<std::uint16_t> pieceIds(std::string_view prepared, const ModelFile& model);

}  // namespace vesk::sentencemodel
