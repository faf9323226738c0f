// Statements of programmer errors that stay on in release builds. Never used on input.
#pragma once

#include <source_location>

namespace vesk {

[[noreturn]] void failEnsure(const char* expression, const std::source_location& where);

}  // namespace vesk

/// Ends the process with a message when `condition` is false.
#define VESK_ENSURE(condition) \
    (static_cast<bool>(condition) ? void(0) : ::vesk::failEnsure(#condition, std::source_location::current()))
