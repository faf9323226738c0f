// The values a frontmatter key can hold, and how single values are read and written. Pure; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Support/DateFormat.h"

namespace vesk {

/// A small value of a YAML block. `Raw` is YAML that is kept as opaque text: a flow mapping, an anchor, a
/// multi-line scalar.
struct YAMLValue {
    struct String {
        std::string text;
        bool operator==(const String&) const = default;
    };
    struct Number {
        double number = 0;
        bool operator==(const Number&) const = default;
    };
    struct Bool {
        bool boolean = false;
        bool operator==(const Bool&) const = default;
    };
    struct Date {
        TimePoint instant;
        bool operator==(const Date&) const = default;
    };
    struct List {
        std::vector<YAMLValue> items;
        bool operator==(const List&) const = default;
    };
    struct Raw {
        std::string text;
        bool operator==(const Raw&) const = default;
    };
    struct Null {
        bool operator==(const Null&) const = default;
    };
    using Value = std::variant<String, Number, Bool, Date, List, Raw, Null>;

    YAMLValue() : value(Null{}) {}
    YAMLValue(Value alternative) : value(std::move(alternative)) {}

    static YAMLValue string(std::string_view text) { return YAMLValue(String{std::string(text)}); }
    static YAMLValue number(double number) { return YAMLValue(Number{number}); }
    static YAMLValue boolean(bool boolean) { return YAMLValue(Bool{boolean}); }
    static YAMLValue date(TimePoint instant) { return YAMLValue(Date{instant}); }
    static YAMLValue list(std::vector<YAMLValue> items) { return YAMLValue(List{std::move(items)}); }
    static YAMLValue raw(std::string_view text) { return YAMLValue(Raw{std::string(text)}); }

    // Readings; none when the kind does not fit.
    std::optional<std::string> stringValue() const;
    std::optional<double> doubleValue() const;
    std::optional<bool> boolValue() const;
    std::optional<TimePoint> dateValue() const;
    const std::vector<YAMLValue>* listValue() const;
    /// The texts of a list's elements, or of the one value; a string is never split on commas.
    std::vector<std::string> asStringList() const;

    bool operator==(const YAMLValue&) const = default;

    Value value;
};

namespace YAMLScalar {

/// yyyy-MM-dd in the device's time zone.
const DateFormat& dateFormatter();
/// yyyy-MM-dd'T'HH:mm:ss in the device's time zone.
const DateFormat& dateTimeFormatter();

YAMLValue parse(std::string_view text);
/// The YAML text of a value, such that parse() reads it back; of a list see emitsInline(). A date loses its
/// time of day.
std::string emit(const YAMLValue& value);
/// True if the elements of the list are still told apart in the one line that emit() makes of it.
bool emitsInline(const YAMLValue::List& list);
bool needsQuoting(std::string_view text);
std::optional<TimePoint> parseDate(std::string_view text);
/// The comma-separated parts of a flow sequence's inner text, trimmed.
std::vector<std::string> splitFlow(std::string_view text);
std::string unescapeDoubleQuoted(std::string_view text);

}  // namespace YAMLScalar
}  // namespace vesk
