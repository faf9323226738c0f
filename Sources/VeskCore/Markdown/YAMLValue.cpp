#include "VeskCore/Markdown/YAMLValue.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

constexpr double wholeEmitLimit = 1e15;
constexpr double int64Limit = 9223372036854775808.0;  // 2^63

std::string wholeText(double number) {
    return fmt::format("{}", static_cast<long long>(number));
}

/// The first character that would open another kind of YAML.
constexpr std::string_view indicators = "[]{}>|*&!%@`#-?:,'\"";

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                out += c;
        }
    }
    return out + "\"";
}

/// An element of an inline list also has to survive the split at commas and brackets. The split knows no
/// escapes, so a text with double quotes goes into single ones where it can. The split drops an empty last
/// part, so a null is written out there.
std::string emitElement(const YAMLValue& value, bool last) {
    if (last && std::holds_alternative<YAMLValue::Null>(value.value)) return "~";
    const auto* it = std::get_if<YAMLValue::String>(&value.value);
    if (!it) return YAMLScalar::emit(value);
    const auto& text = it->text;
    if (text.find('"') != std::string::npos && text.find_first_of("\n\r") == std::string::npos) {
        return "'" + replaceAll(text, "'", "''") + "'";
    }
    return text.find_first_of(",[]{}\"'") != std::string::npos ? quoted(text) : YAMLScalar::emit(value);
}

std::vector<std::string> emitElements(const YAMLValue::List& list) {
    std::vector<std::string> elements;
    elements.reserve(list.items.size());
    for (const auto& item : list.items)
        elements.push_back(emitElement(item, elements.size() + 1 == list.items.size()));
    return elements;
}

/// Lists inside lists beyond this are kept as they stand.
constexpr int deepestList = 32;

YAMLValue parseAt(std::string_view text, int depth);

}  // namespace

std::optional<std::string> YAMLValue::stringValue() const {
    using Text = std::optional<std::string>;
    return match(
        *this, [](const String& it) -> Text { return it.text; },
        [](const Number& it) -> Text {
            const bool whole = std::isfinite(it.number) && std::trunc(it.number) == it.number;
            if (whole && it.number >= -int64Limit && it.number < int64Limit) return wholeText(it.number);
            return shortestDecimal(it.number);
        },
        [](const Bool& it) -> Text { return it.boolean ? "true" : "false"; },
        [](const Date& it) -> Text { return YAMLScalar::dateFormatter().format(it.instant); },
        [](const List&) -> Text { return {}; }, [](const Raw& it) -> Text { return it.text; },
        [](const Null&) -> Text { return {}; });
}

std::optional<double> YAMLValue::doubleValue() const {
    if (const auto* it = std::get_if<Number>(&value)) return it->number;
    if (const auto* it = std::get_if<Bool>(&value)) return it->boolean ? 1 : 0;
    if (const auto* it = std::get_if<String>(&value)) return parseDecimal(it->text);
    return {};
}

std::optional<bool> YAMLValue::boolValue() const {
    if (const auto* it = std::get_if<Bool>(&value)) return it->boolean;
    const auto* it = std::get_if<String>(&value);
    if (!it) return {};
    const auto word = lowercased(it->text);
    for (auto yes : {"true", "yes", "y", "on"}) {
        if (word == yes) return true;
    }
    for (auto no : {"false", "no", "n", "off"}) {
        if (word == no) return false;
    }
    return {};
}

std::optional<TimePoint> YAMLValue::dateValue() const {
    if (const auto* it = std::get_if<Date>(&value)) return it->instant;
    if (const auto* it = std::get_if<String>(&value)) return YAMLScalar::parseDate(it->text);
    return {};
}

const std::vector<YAMLValue>* YAMLValue::listValue() const {
    const auto* it = std::get_if<List>(&value);
    return it ? &it->items : nullptr;
}

std::vector<std::string> YAMLValue::asStringList() const {
    std::vector<std::string> texts;
    if (const auto* items = listValue()) {
        for (const auto& item : *items) {
            if (auto text = item.stringValue()) texts.push_back(std::move(*text));
        }
    } else if (auto text = stringValue()) {
        texts.push_back(std::move(*text));
    }
    return texts;
}

namespace YAMLScalar {

const DateFormat& dateFormatter() {
    static const DateFormat format("yyyy-MM-dd", deviceTimeZone());
    return format;
}

const DateFormat& dateTimeFormatter() {
    static const DateFormat format("yyyy-MM-dd'T'HH:mm:ss", deviceTimeZone());
    return format;
}

YAMLValue parse(std::string_view text) {
    return parseAt(text, 0);
}

}  // namespace YAMLScalar

namespace {

/// As views, so that a list in lists isn't copied at each level.
std::vector<std::string_view> flowParts(std::string_view text) {
    std::vector<std::string_view> parts;
    char quote = 0;
    std::ptrdiff_t depth = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '[' || c == '{') {
            ++depth;
        } else if (c == ']' || c == '}') {
            --depth;
        } else if (c == ',' && depth == 0) {
            parts.push_back(trimHorizontal(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    const auto rest = trimHorizontal(text.substr(start));
    if (!rest.empty()) parts.push_back(rest);
    return parts;
}

YAMLValue parseAt(std::string_view text, int depth) {
    using namespace YAMLScalar;
    const auto trimmed = trimHorizontal(text);
    if (trimmed.empty()) return {};
    const char first = trimmed.front(), last = trimmed.back();
    if (trimmed.size() >= 2) {
        const auto inner = trimmed.substr(1, trimmed.size() - 2);
        if (first == '"' && last == '"') return YAMLValue::string(unescapeDoubleQuoted(inner));
        if (first == '\'' && last == '\'') return YAMLValue::string(replaceAll(inner, "''", "'"));
        if (first == '[' && last == ']') {
            if (depth == deepestList) return YAMLValue::raw(trimmed);
            std::vector<YAMLValue> items;
            if (!trimHorizontal(inner).empty()) {
                for (const auto part : flowParts(inner)) items.push_back(parseAt(part, depth + 1));
            }
            return YAMLValue::list(std::move(items));
        }
    }
    if (first == '{' || first == '&' || first == '*' || first == '!') return YAMLValue::raw(trimmed);
    if (trimmed.size() <= 5) {
        const auto word = asciiLowercased(trimmed);
        if (word == "true" || word == "yes") return YAMLValue::boolean(true);
        if (word == "false" || word == "no") return YAMLValue::boolean(false);
        if (word == "null" || word == "~") return {};
    }
    if (auto date = parseDate(trimmed)) return YAMLValue::date(*date);
    if (const auto number = parseDecimal(trimmed); number && std::isfinite(*number))
        return YAMLValue::number(*number);
    return YAMLValue::string(trimmed);
}

}  // namespace

namespace YAMLScalar {

std::optional<TimePoint> parseDate(std::string_view text) {
    const auto trimmed = trimHorizontal(text);
    // Every date that parses is ASCII, so bytes are characters here.
    if (trimmed.size() < 10 || !isAsciiDigit(trimmed.front()) || trimmed[4] != '-') return {};
    if (trimmed.size() == 10) return dateFormatter().parse(trimmed);
    if (trimmed.size() < 19 || trimmed.find('T') == std::string_view::npos) return {};
    return dateTimeFormatter().parse(trimmed.substr(0, 19));
}

std::string unescapeDoubleQuoted(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        switch (text[++i]) {
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            default:
                out += text[i];
        }
    }
    return out;
}

std::vector<std::string> splitFlow(std::string_view text) {
    const auto parts = flowParts(text);
    return {parts.begin(), parts.end()};
}

bool needsQuoting(std::string_view text) {
    if (text.empty() || trimHorizontal(text) != text) return true;
    if (indicators.find(text.front()) != std::string_view::npos) return true;
    if (text.find(": ") != std::string_view::npos || text.back() == ':' ||
        text.find(" #") != std::string_view::npos || text.find_first_of("\n\r") != std::string_view::npos) {
        return true;
    }
    return parse(text) != YAMLValue::string(text);
}

bool emitsInline(const YAMLValue::List& list) {
    const auto elements = emitElements(list);
    return std::all_of(elements.begin(), elements.end(), [](const std::string& element) {
        // A part stands behind it, so that a quote or bracket that stays open shows.
        const auto closed = element + ",x";
        const auto parts = flowParts(closed);
        return parts.size() == 2 && parts.front() == element;
    });
}

std::string emit(const YAMLValue& value) {
    return match(
        value, [](const YAMLValue::String& it) { return needsQuoting(it.text) ? quoted(it.text) : it.text; },
        [](const YAMLValue::Number& it) {
            const bool whole = std::trunc(it.number) == it.number && std::abs(it.number) < wholeEmitLimit;
            if (whole) return wholeText(it.number);
            auto decimal = shortestDecimal(it.number);
            // Beyond the limit a whole number is told by its fraction.
            const bool integer = decimal.find_first_not_of("-0123456789") == std::string::npos;
            return integer ? decimal + ".0" : decimal;
        },
        [](const YAMLValue::Bool& it) { return std::string(it.boolean ? "true" : "false"); },
        [](const YAMLValue::Date& it) { return dateFormatter().format(it.instant); },
        [](const YAMLValue::List& it) { return "[" + join(emitElements(it), ", ") + "]"; },
        [](const YAMLValue::Raw& it) { return it.text; },
        [](const YAMLValue::Null&) { return std::string(); });
}

}  // namespace YAMLScalar
}  // namespace vesk
