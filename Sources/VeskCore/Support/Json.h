// A JSON value (RFC 8259) and its text. The library behind it stays in Json.cpp.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "VeskCore/Support/Error.h"

namespace vesk {

class JsonError : public Error {
public:
    explicit JsonError(std::string reason) : detail(std::move(reason)) {}
    std::string description() const override { return detail; }
    std::string detail;  ///< "line 3, column 7: …" or what was expected at which key
};

/// A value. Objects keep the order in which keys were set; of equal keys in a text the last one holds.
class Json {
public:
    using Array = std::vector<Json>;
    using Member = std::pair<std::string, Json>;
    using Object = std::vector<Member>;

    Json() = default;  ///< null
    Json(std::nullptr_t) {}
    Json(bool value) : value_(value) {}
    Json(int value) : value_(static_cast<std::int64_t>(value)) {}
    Json(long value) : value_(static_cast<std::int64_t>(value)) {}
    Json(long long value) : value_(static_cast<std::int64_t>(value)) {}
    Json(unsigned value) : value_(static_cast<std::int64_t>(value)) {}
    Json(unsigned long value) : value_(static_cast<std::int64_t>(value)) {}
    Json(double value) : value_(value) {}
    Json(const char* value) : value_(std::string(value)) {}
    Json(std::string_view value) : value_(std::string(value)) {}
    Json(std::string value) : value_(std::move(value)) {}
    Json(Array value);
    Json(Object value);
    template <class T>
    Json(const std::optional<T>& value) {
        if (value) *this = Json(*value);
    }

    static Json array(std::initializer_list<Json> values = {});
    /// Json::object({{"path", p}, {"size", n}})
    static Json object(std::initializer_list<Member> members = {});

    bool isNull() const { return std::holds_alternative<std::monostate>(value_); }
    bool isInteger() const { return std::holds_alternative<std::int64_t>(value_); }
    const bool* asBool() const { return std::get_if<bool>(&value_); }
    /// An integer, or a number without a fraction that fits.
    std::optional<std::int64_t> asInt() const;
    /// Any number.
    std::optional<double> asDouble() const;
    const std::string* asString() const { return std::get_if<std::string>(&value_); }
    const Array* asArray() const { return std::get_if<Array>(&value_); }
    const Object* asObject() const { return std::get_if<Object>(&value_); }
    Array* asArray() { return std::get_if<Array>(&value_); }

    /// The member of an object, or none (also for a value that is no object).
    const Json* find(std::string_view key) const;
    /// Sets or replaces a member; a null value becomes an object first.
    void set(std::string_view key, Json value);
    void append(Json value);

    // Members by type; none if absent or of another type.
    std::optional<std::string> string(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    std::optional<double> number(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;

    bool operator==(const Json&) const = default;

    /// Throws JsonError. Nesting beyond 512 levels is an error. Ill-formed UTF-8 is repaired first.
    static Json parse(std::string_view text);

    enum class Style {
        compact,
        pretty,         ///< two spaces of indentation
        sortedCompact,  ///< keys sorted by bytes: the same value always gives the same text
        sortedPretty,
    };
    /// Ill-formed UTF-8 in strings is repaired. Whole numbers have no fraction, others the shortest form that
    /// reads back as the same double; what is not finite becomes null. With `escapeSlashes`, "/" is written
    /// "\/".
    std::string dump(Style style = Style::compact, bool escapeSlashes = false) const;

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Object> value_;
};

}  // namespace vesk
