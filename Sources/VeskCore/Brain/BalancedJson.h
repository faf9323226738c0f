// Finding JSON inside a model's prose.
#pragma once

#include <optional>
#include <string_view>

namespace vesk {

/// The first "{" or "[" of the text with all up to the bracket of its kind that closes it, brackets in string
/// literals left alone. None if it is never closed.
std::optional<std::string_view> balancedJson(std::string_view text);

/// What stands in the first fence ("```json … ```") of the text, without the white space in front.
std::optional<std::string_view> firstFenced(std::string_view text);

}  // namespace vesk
