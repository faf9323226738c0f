#include "StyledText.h"

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {

namespace {

std::string shown(const TextAttributes::Color& color) {
    constexpr std::string_view roles[] = {"text", "faint", "accent", "clear", "code", "highlight"};
    return match(
        color,
        [&](const TextAttributes::ColorRole& role) {
            return std::string(roles[static_cast<std::size_t>(role)]);
        },
        [](const CSSColor& css) {
            return "rgb(" + shortestDecimal(css.red) + "," + shortestDecimal(css.green) + "," +
                   shortestDecimal(css.blue) + ")";
        });
}

}  // namespace

std::string shown(const TextAttributes& attributes) {
    std::string words;
    const auto say = [&](const std::string& word) { words += (words.empty() ? "" : " ") + word; };
    const TextAttributes::Font& font = attributes.font;
    const bool hidden = font == TextAttributes::Font{.size = 0.001} &&
                        attributes.color == TextAttributes::Color(TextAttributes::ColorRole::clear);
    if (hidden) say("hidden");
    if (font.family == TextAttributes::FontFamily::mono) say("mono");
    const bool ordinary = font.size == (font.family == TextAttributes::FontFamily::mono ? 13 : 14);
    if (!ordinary && !hidden) say(shortestDecimal(font.size));
    if (font.weight == TextAttributes::FontWeight::semibold) say("semibold");
    if (font.weight == TextAttributes::FontWeight::bold) say("bold");
    if (font.italic) say("italic");
    if (!hidden && attributes.color != TextAttributes::Color(TextAttributes::ColorRole::text)) {
        say(shown(attributes.color));
    }
    if (attributes.background) say("on " + shown(*attributes.background));
    if (attributes.strikethrough) say("struck");
    if (attributes.underline) say("underlined");
    if (attributes.baselineOffset > 0) say("raised");
    if (attributes.baselineOffset < 0) say("lowered");
    if (attributes.indent != 0) say("indent " + shortestDecimal(attributes.indent));
    return words;
}

std::string shown(const InMemoryAttributedText& storage) {
    std::string result;
    for (const AttributeRun& run : storage.runs()) {
        if (!result.empty()) result += ' ';
        std::string text = utf8(storage.text().substr(run.range.location, run.range.length));
        text = replaceAll(replaceAll(text, "\n", "\\n"), "\r", "\\r");
        result += "[" + text + "]" + shown(run.attributes);
    }
    return result;
}

}  // namespace vesk::test
