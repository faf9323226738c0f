// The user's settings on this device, by key ("vesk.…"). Small values only.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Support/Json.h"

namespace vesk {

/// Safe on any thread. Writing lasts: what set() wrote is there at the next start. A failure to store is
/// logged and the value holds for this run.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;
    /// The value as stored, or none.
    virtual std::optional<Json> value(std::string_view key) const = 0;
    virtual void set(std::string_view key, Json value) = 0;
    virtual void remove(std::string_view key) = 0;

    // By type; none if absent or of another type.
    std::optional<std::string> string(std::string_view key) const;
    std::optional<double> number(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
};

}  // namespace vesk
