// Languages by the Compact Language Detector 2.
#pragma once

#include "VeskCore/Platform/LanguageRecogniser.h"

namespace vesk {

class Cld2LanguageRecogniser final : public LanguageRecogniser {
public:
    std::optional<std::string> dominantLanguage(std::string_view text) override;
};

}  // namespace vesk
