// Percent-encoding (RFC 3986, section 2.1).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vesk {

/// The text with every %XX replaced by its byte; none if a "%" is not followed by two hexadecimal digits or
/// the result is not UTF-8.
std::optional<std::string> removingPercentEncoding(std::string_view text);

/// Every byte outside the unreserved characters and `allowed` as %XX, upper-case digits.
std::string addingPercentEncoding(std::string_view text, std::string_view allowed = "");

}  // namespace vesk
