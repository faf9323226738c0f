// Tells which language a text is in.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vesk {

/// Any thread.
class LanguageRecogniser {
public:
    virtual ~LanguageRecogniser() = default;
    /// The code ("en", "de", "zh-Hant") of the language that most of the text is in; none if it can't be
    /// told.
    virtual std::optional<std::string> dominantLanguage(std::string_view text) = 0;
};

}  // namespace vesk
