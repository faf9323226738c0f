#include "VeskCore/Markdown/HTMLStyle.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

// CSS Color Module Level 4, "Named Colors": name and hexadecimal value by turns, sorted by name.
constexpr std::string_view namedColors =
    "aliceblue f0f8ff antiquewhite faebd7 aqua 00ffff aquamarine 7fffd4 azure f0ffff beige f5f5dc bisque "
    "ffe4c4 "
    "black 000000 blanchedalmond ffebcd blue 0000ff blueviolet 8a2be2 brown a52a2a burlywood deb887 "
    "cadetblue 5f9ea0 chartreuse 7fff00 chocolate d2691e coral ff7f50 cornflowerblue 6495ed cornsilk fff8dc "
    "crimson dc143c cyan 00ffff darkblue 00008b darkcyan 008b8b darkgoldenrod b8860b darkgray a9a9a9 "
    "darkgreen 006400 darkgrey a9a9a9 darkkhaki bdb76b darkmagenta 8b008b darkolivegreen 556b2f "
    "darkorange ff8c00 darkorchid 9932cc darkred 8b0000 darksalmon e9967a darkseagreen 8fbc8f "
    "darkslateblue 483d8b darkslategray 2f4f4f darkslategrey 2f4f4f darkturquoise 00ced1 darkviolet 9400d3 "
    "deeppink ff1493 deepskyblue 00bfff dimgray 696969 dimgrey 696969 dodgerblue 1e90ff firebrick b22222 "
    "floralwhite fffaf0 forestgreen 228b22 fuchsia ff00ff gainsboro dcdcdc ghostwhite f8f8ff gold ffd700 "
    "goldenrod daa520 gray 808080 green 008000 greenyellow adff2f grey 808080 honeydew f0fff0 hotpink ff69b4 "
    "indianred cd5c5c indigo 4b0082 ivory fffff0 khaki f0e68c lavender e6e6fa lavenderblush fff0f5 "
    "lawngreen 7cfc00 lemonchiffon fffacd lightblue add8e6 lightcoral f08080 lightcyan e0ffff "
    "lightgoldenrodyellow fafad2 lightgray d3d3d3 lightgreen 90ee90 lightgrey d3d3d3 lightpink ffb6c1 "
    "lightsalmon ffa07a lightseagreen 20b2aa lightskyblue 87cefa lightslategray 778899 lightslategrey 778899 "
    "lightsteelblue b0c4de lightyellow ffffe0 lime 00ff00 limegreen 32cd32 linen faf0e6 magenta ff00ff "
    "maroon 800000 mediumaquamarine 66cdaa mediumblue 0000cd mediumorchid ba55d3 mediumpurple 9370db "
    "mediumseagreen 3cb371 mediumslateblue 7b68ee mediumspringgreen 00fa9a mediumturquoise 48d1cc "
    "mediumvioletred c71585 midnightblue 191970 mintcream f5fffa mistyrose ffe4e1 moccasin ffe4b5 "
    "navajowhite ffdead navy 000080 oldlace fdf5e6 olive 808000 olivedrab 6b8e23 orange ffa500 orangered "
    "ff4500 "
    "orchid da70d6 palegoldenrod eee8aa palegreen 98fb98 paleturquoise afeeee palevioletred db7093 "
    "papayawhip ffefd5 peachpuff ffdab9 peru cd853f pink ffc0cb plum dda0dd powderblue b0e0e6 purple 800080 "
    "rebeccapurple 663399 red ff0000 rosybrown bc8f8f royalblue 4169e1 saddlebrown 8b4513 salmon fa8072 "
    "sandybrown f4a460 seagreen 2e8b57 seashell fff5ee sienna a0522d silver c0c0c0 skyblue 87ceeb "
    "slateblue 6a5acd slategray 708090 slategrey 708090 snow fffafa springgreen 00ff7f steelblue 4682b4 tan "
    "d2b48c "
    "teal 008080 thistle d8bfd8 tomato ff6347 turquoise 40e0d0 violet ee82ee wheat f5deb3 white ffffff "
    "whitesmoke f5f5f5 yellow ffff00 yellowgreen 9acd32";

std::optional<CSSColor> fromHexadecimal(std::string_view digits) {
    std::array<double, 4> parts{0, 0, 0, 1};
    const bool isShort = digits.size() == 3 || digits.size() == 4;
    if (!isShort && digits.size() != 6 && digits.size() != 8) return std::nullopt;
    const std::size_t width = isShort ? 1 : 2;
    for (std::size_t i = 0; i * width < digits.size(); ++i) {
        const std::string_view part = digits.substr(i * width, width);
        unsigned value = 0;
        const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value, 16);
        if (error != std::errc{} || end != part.data() + part.size()) return std::nullopt;
        parts[i] = (isShort ? value * 17 : value) / 255.0;
    }
    return CSSColor{parts[0], parts[1], parts[2], parts[3]};
}

std::optional<CSSColor> fromName(std::string_view name) {
    using Row = std::pair<std::string_view, std::string_view>;
    static const std::vector<Row> table = [] {
        std::vector<Row> rows;
        const std::vector<std::string_view> words = splitWords(namedColors, " ");
        for (std::size_t i = 0; i + 1 < words.size(); i += 2) rows.emplace_back(words[i], words[i + 1]);
        return rows;
    }();
    const auto found = std::lower_bound(table.begin(), table.end(), name,
                                        [](const Row& row, std::string_view key) { return row.first < key; });
    if (found == table.end() || found->first != name) return std::nullopt;
    return fromHexadecimal(found->second);
}

struct Quantity {
    double value = 0;
    std::string_view unit;  // "", "%", "deg"
};

std::optional<Quantity> quantity(std::string_view text) {
    if (text == "none") return Quantity{};
    const std::string_view digits = text.starts_with('+') ? text.substr(1) : text;
    const std::string_view unsignedDigits = digits.starts_with('-') ? digits.substr(1) : digits;
    if (unsignedDigits.empty() || (!isAsciiDigit(unsignedDigits[0]) && unsignedDigits[0] != '.'))
        return std::nullopt;
    Quantity result;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), result.value);
    if (error != std::errc{}) return std::nullopt;
    result.unit = digits.substr(static_cast<std::size_t>(end - digits.data()));
    return result;
}

double unit(double value) {
    return std::clamp(value, 0.0, 1.0);
}

// A percentage or a plain number of `whole` parts, as a share from 0 to 1.
std::optional<double> share(std::string_view text, double whole) {
    const auto read = quantity(text);
    if (!read) return std::nullopt;
    if (read->unit == "%") return unit(read->value / 100);
    if (read->unit.empty()) return unit(read->value / whole);
    return std::nullopt;
}

// A hue as a share of the circle, from 0 to below 1.
std::optional<double> hue(std::string_view text) {
    const auto read = quantity(text);
    if (!read) return std::nullopt;
    double circle;
    if (read->unit.empty() || read->unit == "deg") {
        circle = 360;
    } else if (read->unit == "grad") {
        circle = 400;
    } else if (read->unit == "rad") {
        circle = 2 * std::acos(-1.0);
    } else if (read->unit == "turn") {
        circle = 1;
    } else {
        return std::nullopt;
    }
    const double turn = std::fmod(read->value / circle, 1.0);
    return turn < 0 ? turn + 1 : turn;
}

struct HSL {
    double hue = 0, saturation = 0, lightness = 0;
};

CSSColor fromHSL(const HSL& hsl, double alpha) {
    const double reach = hsl.saturation * std::min(hsl.lightness, 1 - hsl.lightness);
    auto channel = [&](double offset) {
        const double k = std::fmod(offset + hsl.hue * 12, 12);
        return unit(hsl.lightness - reach * std::max(-1.0, std::min({k - 3, 9 - k, 1.0})));
    };
    return {channel(0), channel(8), channel(4), alpha};
}

HSL toHSL(const CSSColor& color) {
    const double high = std::max({color.red, color.green, color.blue});
    const double low = std::min({color.red, color.green, color.blue});
    const double chroma = high - low;
    HSL result{.lightness = (high + low) / 2};
    if (chroma <= 0) return result;
    result.saturation = unit(chroma / (1 - std::abs(2 * result.lightness - 1)));
    if (high == color.red) {
        result.hue = (color.green - color.blue) / chroma / 6;
    } else if (high == color.green) {
        result.hue = ((color.blue - color.red) / chroma + 2) / 6;
    } else {
        result.hue = ((color.red - color.green) / chroma + 4) / 6;
    }
    if (result.hue < 0) result.hue += 1;
    return result;
}

// The arguments of a colour function: "a, b, c", "a, b, c, d", "a b c" or "a b c / d".
std::optional<std::vector<std::string_view>> arguments(std::string_view inner) {
    std::vector<std::string_view> parts;
    if (inner.find(',') != std::string_view::npos) {
        for (std::string_view part : split(inner, ',')) parts.push_back(trim(part));
    } else {
        const std::size_t slash = inner.find('/');
        parts = splitWords(inner.substr(0, slash), " \t\r\n\f");
        if (parts.size() != 3) return std::nullopt;
        if (slash != std::string_view::npos) parts.push_back(trim(inner.substr(slash + 1)));
    }
    if (parts.size() != 3 && parts.size() != 4) return std::nullopt;
    return parts;
}

std::optional<CSSColor> fromFunction(std::string_view name, std::string_view inner) {
    const auto parts = arguments(inner);
    if (!parts) return std::nullopt;
    const std::optional<double> alpha = parts->size() == 4 ? share((*parts)[3], 1) : std::optional(1.0);
    if (!alpha) return std::nullopt;
    if (name == "rgb" || name == "rgba") {
        const auto red = share((*parts)[0], 255), green = share((*parts)[1], 255),
                   blue = share((*parts)[2], 255);
        if (!red || !green || !blue) return std::nullopt;
        return CSSColor{*red, *green, *blue, *alpha};
    }
    if (name == "hsl" || name == "hsla") {
        const auto angle = hue((*parts)[0]), saturation = share((*parts)[1], 100),
                   lightness = share((*parts)[2], 100);
        if (!angle || !saturation || !lightness) return std::nullopt;
        return fromHSL({*angle, *saturation, *lightness}, *alpha);
    }
    return std::nullopt;
}

// Relative luminance (WCAG 2).
double luminance(const CSSColor& color) {
    auto linear = [](double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * linear(color.red) + 0.7152 * linear(color.green) + 0.0722 * linear(color.blue);
}

CSSColor blended(const CSSColor& top, const CSSColor& bottom) {
    auto mix = [&](double a, double b) { return a * top.alpha + b * (1 - top.alpha); };
    return {mix(top.red, bottom.red), mix(top.green, bottom.green), mix(top.blue, bottom.blue), 1};
}

constexpr double legibleContrast = 3.0;

}  // namespace

const CSSColor CSSColor::lightEditorBackground{1, 1, 1, 1};
const CSSColor CSSColor::darkEditorBackground{30 / 255.0, 30 / 255.0, 30 / 255.0, 1};

std::optional<CSSColor> CSSColor::parse(std::string_view text) {
    const std::string lower = asciiLowercased(trim(text));
    const std::string_view value = lower;
    if (value.starts_with('#')) return fromHexadecimal(value.substr(1));
    if (value == "transparent") return CSSColor{0, 0, 0, 0};
    const std::size_t parenthesis = value.find('(');
    if (parenthesis == std::string_view::npos) return fromName(value);
    if (!value.ends_with(')')) return std::nullopt;
    return fromFunction(value.substr(0, parenthesis),
                        value.substr(parenthesis + 1, value.size() - parenthesis - 2));
}

double contrastRatio(const CSSColor& a, const CSSColor& b) {
    const double first = luminance(a), second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

CSSColor CSSColor::legible(const CSSColor& background) const {
    const CSSColor seen = blended(*this, background);
    if (contrastRatio(seen, background) >= legibleContrast) return seen;

    // Away from the background on the side where the colour already is, if that side has room enough.
    const CSSColor white{1, 1, 1, 1}, black{0, 0, 0, 1};
    const bool isLighter = luminance(seen) > luminance(background);
    const CSSColor& near = isLighter ? white : black;
    const bool goesLighter = (contrastRatio(near, background) >= legibleContrast) == isLighter;

    // With hue and saturation fixed luminance grows with lightness, so the least change is found by
    // bisection.
    HSL hsl = toHSL(seen);
    double unread = hsl.lightness, read = goesLighter ? 1 : 0;
    for (int step = 0; step < 24; ++step) {
        hsl.lightness = (unread + read) / 2;
        (contrastRatio(fromHSL(hsl, 1), background) >= legibleContrast ? read : unread) = hsl.lightness;
    }
    hsl.lightness = read;
    return fromHSL(hsl, 1);
}

std::optional<CSSColor> HTMLStyle::textColor(const CSSColor& editorBackground) const {
    if (!color) return std::nullopt;
    return color->legible(background ? blended(*background, editorBackground) : editorBackground);
}

}  // namespace vesk
