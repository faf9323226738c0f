// Reading replies whose members may be missing but never of another type than they should be.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Support/Json.h"

namespace vesk {

/// One object of a reply. A member that is absent or null reads as none; one of another type makes the whole
/// payload unreadable, which the object and all below it note in one place.
class WireObject {
public:
    /// `json` may be null, for an object that isn't there; it outlives this, and so does `readable`.
    WireObject(const Json* json, bool& readable) : json_(json), readable_(readable) {
        if (json_ && json_->isNull()) json_ = nullptr;
        if (json_ && !json_->asObject()) {
            readable_ = false;
            json_ = nullptr;
        }
    }

    bool isPresent() const { return json_ != nullptr; }

    const std::string* text(std::string_view key) const {
        const Json* value = member(key);
        if (!value) return nullptr;
        const auto* string = value->asString();
        if (!string) readable_ = false;
        return string;
    }
    std::optional<int> integer(std::string_view key) const {
        const Json* value = member(key);
        if (!value) return std::nullopt;
        const auto number = value->asInt();
        if (!number || *number > std::numeric_limits<int>::max() ||
            *number < std::numeric_limits<int>::min()) {
            readable_ = false;
            return std::nullopt;
        }
        return static_cast<int>(*number);
    }
    bool truth(std::string_view key) const {
        const Json* value = member(key);
        if (!value) return false;
        const auto* boolean = value->asBool();
        if (!boolean) readable_ = false;
        return boolean && *boolean;
    }
    WireObject object(std::string_view key) const { return {member(key), readable_}; }
    const Json::Array* array(std::string_view key) const {
        const Json* value = member(key);
        if (!value) return nullptr;
        const auto* values = value->asArray();
        if (!values) readable_ = false;
        return values;
    }

private:
    const Json* member(std::string_view key) const {
        const Json* value = json_ ? json_->find(key) : nullptr;
        return value && !value->isNull() ? value : nullptr;
    }
    const Json* json_;
    bool& readable_;
};

/// None for a text that is no JSON.
inline std::optional<Json> parsedJson(std::string_view text) {
    try {
        return Json::parse(text);
    } catch (const JsonError&) {
        return std::nullopt;
    }
}

}  // namespace vesk
