#include "VeskCore/Support/Json.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::size_t kDeepestNesting = 512;

/// Leaves one member for each key: at the place of the first, with the value of the last.
void dropRepeatedKeys(Json::Object& members) {
    constexpr std::size_t kFew = 8;  // up to here comparing is cheaper than hashing
    if (members.size() <= kFew) {
        for (std::size_t i = 1; i < members.size();) {
            auto end = members.begin() + static_cast<std::ptrdiff_t>(i);
            auto first =
                std::find_if(members.begin(), end, [&](const auto& m) { return m.first == end->first; });
            if (first == end) {
                ++i;
            } else {
                first->second = std::move(end->second);
                members.erase(end);
            }
        }
        return;
    }
    std::unordered_map<std::string_view, std::size_t> places;
    places.reserve(members.size());
    std::vector<bool> repeated(members.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
        auto [place, fresh] = places.emplace(members[i].first, i);
        if (fresh) continue;
        members[place->second].second = std::move(members[i].second);
        repeated[i] = true;
    }
    if (places.size() == members.size()) return;
    Json::Object kept;
    kept.reserve(places.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (!repeated[i]) kept.push_back(std::move(members[i]));
    }
    members = std::move(kept);
}

std::string atPosition(std::string_view text, std::size_t offset, std::string_view reason) {
    auto before = text.substr(0, std::min(offset, text.size()));
    auto line = std::count(before.begin(), before.end(), '\n') + 1;
    auto lineStart = before.rfind('\n');
    auto column = before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1);
    return fmt::format("line {}, column {}: {}", line, std::max<std::size_t>(column, 1), reason);
}

/// The parser's complaint without its prefix and without the text it read, which may be a note's.
std::string_view reasonOf(std::string_view complaint) {
    if (auto column = complaint.find(", column "); column != std::string_view::npos) {
        if (auto colon = complaint.find(": ", column); colon != std::string_view::npos) {
            complaint.remove_prefix(colon + 2);
        }
    } else if (auto bracket = complaint.find("] "); bracket != std::string_view::npos) {
        complaint.remove_prefix(bracket + 2);
    }
    return complaint.substr(0, complaint.find("; last read: '"));
}

/// Receives the parser's events and builds the value. The parser keeps its own stack, so that nothing
/// recurses.
class Builder final : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Builder(std::string_view text) : text_(text) {}

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(std::int64_t{value}); }
    bool number_unsigned(number_unsigned_t value) override {
        if (value > static_cast<std::uint64_t>(INT64_MAX)) return add(static_cast<double>(value));
        return add(static_cast<std::int64_t>(value));
    }
    bool number_float(number_float_t value, const string_t&) override { return add(value); }
    bool string(string_t& value) override { return add(std::move(value)); }
    bool binary(binary_t&) override { return false; }  // not in JSON text

    bool start_object(std::size_t) override { return open({.isObject = true}); }
    bool key(string_t& value) override {
        levels_.back().key = std::move(value);
        return true;
    }
    bool end_object() override {
        Json object(std::move(levels_.back().members));
        levels_.pop_back();
        return add(std::move(object));
    }
    bool start_array(std::size_t) override { return open({}); }
    bool end_array() override {
        Json array(std::move(levels_.back().elements));
        levels_.pop_back();
        return add(std::move(array));
    }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::json::exception& error) override {
        if (dynamic_cast<const nlohmann::json::out_of_range*>(&error)) {
            throw JsonError(atPosition(text_, position, "number out of range"));
        }
        throw JsonError(atPosition(text_, position, reasonOf(error.what())));
    }

    Json take() { return std::move(root_); }

private:
    struct Level {
        bool isObject = false;
        std::string key;
        Json::Object members;
        Json::Array elements;
    };

    bool open(Level level) {
        if (levels_.size() == kDeepestNesting) {
            throw JsonError(fmt::format("nested deeper than {} levels", kDeepestNesting));
        }
        levels_.push_back(std::move(level));
        return true;
    }
    bool add(Json value) {
        if (levels_.empty()) {
            root_ = std::move(value);
        } else if (auto& level = levels_.back(); level.isObject) {
            level.members.emplace_back(std::move(level.key), std::move(value));
        } else {
            level.elements.push_back(std::move(value));
        }
        return true;
    }

    std::string_view text_;
    std::vector<Level> levels_;
    Json root_;
};

/// Writes a value's text.
class Writer {
public:
    Writer(Json::Style style, bool escapeSlashes)
        : pretty_(style == Json::Style::pretty || style == Json::Style::sortedPretty),
          sorted_(style == Json::Style::sortedCompact || style == Json::Style::sortedPretty),
          escapeSlashes_(escapeSlashes) {}

    void write(const Json& value) {
        if (value.isNull()) {
            text_ += "null";
        } else if (const auto* truth = value.asBool()) {
            text_ += *truth ? "true" : "false";
        } else if (const auto* string = value.asString()) {
            writeString(*string);
        } else if (const auto* array = value.asArray()) {
            writeArray(*array);
        } else if (const auto* object = value.asObject()) {
            writeObject(*object);
        } else {
            writeNumber(value);
        }
    }

    std::string take() { return std::move(text_); }

private:
    void writeNumber(const Json& value) {
        constexpr double kExact =
            9007199254740992.0;  // 2 to the 53rd: below it every whole number has a double
        double number = *value.asDouble();
        if (!std::isfinite(number)) {
            text_ += "null";  // JSON has no word for it
        } else if (auto integer = value.asInt();
                   integer && (value.isInteger() || std::fabs(number) <= kExact)) {
            fmt::format_to(std::back_inserter(text_), "{}", *integer);
        } else {
            char buffer[32];
            text_.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, number).ptr);
        }
    }

    void writeString(std::string_view string) {
        std::string repaired;
        if (!isValidUtf8(string)) {
            repaired = repairedUtf8(string);
            string = repaired;
        }
        text_ += '"';
        std::size_t plain = 0;  // where the run of bytes that stand for themselves begins
        for (std::size_t i = 0; i < string.size(); ++i) {
            auto byte = static_cast<unsigned char>(string[i]);
            if (byte >= 0x20 && byte != '"' && byte != '\\' && !(byte == '/' && escapeSlashes_)) continue;
            text_ += string.substr(plain, i - plain);
            plain = i + 1;
            writeEscape(byte);
        }
        text_ += string.substr(plain);
        text_ += '"';
    }

    void writeEscape(unsigned char byte) {
        text_ += '\\';
        switch (byte) {
            case '\b':
                text_ += 'b';
                break;
            case '\f':
                text_ += 'f';
                break;
            case '\n':
                text_ += 'n';
                break;
            case '\r':
                text_ += 'r';
                break;
            case '\t':
                text_ += 't';
                break;
            case '"':
            case '\\':
            case '/':
                text_ += static_cast<char>(byte);
                break;
            default:
                fmt::format_to(std::back_inserter(text_), "u{:04x}", byte);
        }
    }

    void lineBreak() {
        if (!pretty_) return;
        text_ += '\n';
        text_.append(depth_ * 2, ' ');
    }

    void writeArray(const Json::Array& array) {
        if (array.empty()) {
            text_ += "[]";
            return;
        }
        text_ += '[';
        ++depth_;
        bool first = true;
        for (const auto& element : array) {
            if (!std::exchange(first, false)) text_ += ',';
            lineBreak();
            write(element);
        }
        --depth_;
        lineBreak();
        text_ += ']';
    }

    void writeObject(const Json::Object& object) {
        if (object.empty()) {
            text_ += "{}";
            return;
        }
        std::vector<const Json::Member*> members;
        members.reserve(object.size());
        for (const auto& member : object) members.push_back(&member);
        if (sorted_) {
            std::sort(members.begin(), members.end(),
                      [](const auto* left, const auto* right) { return left->first < right->first; });
        }
        text_ += '{';
        ++depth_;
        bool first = true;
        for (const auto* member : members) {
            if (!std::exchange(first, false)) text_ += ',';
            lineBreak();
            writeString(member->first);
            text_ += pretty_ ? ": " : ":";
            write(member->second);
        }
        --depth_;
        lineBreak();
        text_ += '}';
    }

    bool pretty_, sorted_, escapeSlashes_;
    std::size_t depth_ = 0;
    std::string text_;
};

}  // namespace

Json::Json(Array value) : value_(std::move(value)) {}

Json::Json(Object value) {
    dropRepeatedKeys(value);
    value_ = std::move(value);
}

Json Json::array(std::initializer_list<Json> values) {
    return Json(Array(values));
}

Json Json::object(std::initializer_list<Member> members) {
    return Json(Object(members));
}

std::optional<std::int64_t> Json::asInt() const {
    if (const auto* integer = std::get_if<std::int64_t>(&value_)) return *integer;
    const auto* number = std::get_if<double>(&value_);
    constexpr double kBehindLast = 9223372036854775808.0;  // 2 to the 63rd
    if (!number || !(*number >= -kBehindLast && *number < kBehindLast) || std::trunc(*number) != *number)
        return {};
    return static_cast<std::int64_t>(*number);
}

std::optional<double> Json::asDouble() const {
    if (const auto* integer = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*integer);
    if (const auto* number = std::get_if<double>(&value_)) return *number;
    return {};
}

const Json* Json::find(std::string_view key) const {
    const auto* object = asObject();
    if (!object) return nullptr;
    auto member = std::find_if(object->begin(), object->end(), [&](const auto& m) { return m.first == key; });
    return member == object->end() ? nullptr : &member->second;
}

void Json::set(std::string_view key, Json value) {
    if (isNull()) value_ = Object();
    auto* object = std::get_if<Object>(&value_);
    if (!object) return;
    auto member = std::find_if(object->begin(), object->end(), [&](const auto& m) { return m.first == key; });
    if (member == object->end()) {
        object->emplace_back(std::string(key), std::move(value));
    } else {
        member->second = std::move(value);
    }
}

void Json::append(Json value) {
    if (isNull()) value_ = Array();
    if (auto* array = asArray()) array->push_back(std::move(value));
}

std::optional<std::string> Json::string(std::string_view key) const {
    const auto* member = find(key);
    const auto* text = member ? member->asString() : nullptr;
    return text ? std::optional(*text) : std::nullopt;
}

std::optional<std::int64_t> Json::integer(std::string_view key) const {
    const auto* member = find(key);
    return member ? member->asInt() : std::nullopt;
}

std::optional<double> Json::number(std::string_view key) const {
    const auto* member = find(key);
    return member ? member->asDouble() : std::nullopt;
}

std::optional<bool> Json::boolean(std::string_view key) const {
    const auto* member = find(key);
    const auto* truth = member ? member->asBool() : nullptr;
    return truth ? std::optional(*truth) : std::nullopt;
}

Json Json::parse(std::string_view text) {
    std::string repaired;
    if (!isValidUtf8(text)) {
        repaired = repairedUtf8(text);
        text = repaired;
    }
    // The parser takes a NUL for the end of its input and would not look at what follows.
    if (auto nul = text.find('\0'); nul != std::string_view::npos) {
        throw JsonError(atPosition(text, nul + 1, "a NUL character"));
    }
    Builder builder(text);
    nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
    return builder.take();
}

std::string Json::dump(Style style, bool escapeSlashes) const {
    Writer writer(style, escapeSlashes);
    writer.write(*this);
    return writer.take();
}

}  // namespace vesk
