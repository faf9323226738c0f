#include "VeskLinux/Cld2LanguageRecogniser.h"

#include <cld2/public/compact_lang_det.h>
#include <cld2/public/encodings.h>

#include <algorithm>
#include <cstdio>  // the next header uses FILE without saying so

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

/// A language shows long before this, and the detector counts in ints.
constexpr std::size_t mostBytes = 1 << 20;
/// An answer also for a few words.
constexpr int bestEffort = 0x4000;

/// CLD2 keeps the codes that ISO 639 gave up.
std::string currentCode(std::string_view code) {
    if (code == "iw") return "he";
    if (code == "jw") return "jv";
    return std::string(code);
}

}  // namespace

std::optional<std::string> Cld2LanguageRecogniser::dominantLanguage(std::string_view text) {
    // It reads past the end of ill-formed text.
    std::string valid = repairedUtf8(text.substr(0, mostBytes));
    std::replace(valid.begin(), valid.end(), '\0', ' ');
    const CLD2::CLDHints hints{nullptr, nullptr, CLD2::UNKNOWN_ENCODING, CLD2::UNKNOWN_LANGUAGE};
    CLD2::Language languages[3];
    int percents[3], textBytes = 0, validBytes = 0;
    double scores[3];
    bool reliable = false;
    const auto language = CLD2::ExtDetectLanguageSummaryCheckUTF8(
        valid.data(), static_cast<int>(valid.size()), true, &hints, bestEffort, languages, percents, scores,
        nullptr, &textBytes, &reliable, &validBytes);
    if (language == CLD2::UNKNOWN_LANGUAGE || language == CLD2::TG_UNKNOWN_LANGUAGE) return {};
    return currentCode(CLD2::LanguageCode(language));
}

}  // namespace vesk
